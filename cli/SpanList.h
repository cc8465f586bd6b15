// Lists of sample spans on disk: the reports that the file commands write (clicks
// repaired, dropouts found, clipped runs restored) and the regions `repair` reads back.
//
// The format follows the file's extension:
//   .txt   a label track, one span a line: start TAB end TAB label (seconds), the
//          form audio editors import and export;
//   .csv   a header line, then one row a span: channel,first,last,start,end,label;
//   .json  {"sample_rate": R, "spans": [{"channel", "first", "last", "start", "end", "label"}, ...]}.
// On disk channels count from 1, and channel 0 means every channel. Seconds are
// start = first / rate and end = (last + 1) / rate; reading rounds them back to
// samples, so a list written at a rate reads back to the same spans at that rate.
// Reading takes seconds (`start`, `end`) or samples (`first`, `last`) where a CSV or
// JSON list has them, and an error names the file and the line (or entry) at fault.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

struct SampleSpan {
    static constexpr int allChannels = -1;
    int channel = allChannels;  // 0-based, or allChannels
    std::int64_t first = 0;     // first sample of the span
    std::int64_t last = 0;      // last sample of the span (inclusive)
    std::string label;
};

enum class SpanFormat { labels, csv, json };

// The format of a list at `path`, from its extension; throws CliError for any other.
SpanFormat spanFormatFor(const std::string& path);

// Refuses, before any work, a `--report` path of an unknown kind or one that names
// any of `audioFiles` (the run's input and output), which the report would replace.
void requireReportPath(const std::string& report, std::initializer_list<std::string> audioFiles);

// The list as text in `format`.
std::string formatSpans(const std::vector<SampleSpan>& spans, int sampleRate, SpanFormat format);

// Writes the list to `path` in the format of its extension, through a temporary file
// renamed into place.
void writeSpanReport(const std::string& path, const std::vector<SampleSpan>& spans, int sampleRate);

// Reads a list in the format of its extension. Spans come back in the file's order,
// unchecked against any file's length; a start after its end is an error.
std::vector<SampleSpan> readSpanList(const std::string& path, int sampleRate);

// The latest time in seconds a region list may give (about 32 years).
inline constexpr double largestListSeconds = 1e9;

// One span from seconds [start, end) (the nearest samples) or from samples
// [first, last]; setChannel takes a channel as on disk (0 for all). Each throws
// CliError starting with `where` for values that make no span.
SampleSpan spanFromSeconds(double start, double end, int rate, const std::string& where);
SampleSpan spanFromSamples(std::int64_t first, std::int64_t last, const std::string& where);
void setChannel(SampleSpan& span, long long channel, const std::string& where);

// The same from text already read (`name` is used in error messages).
std::vector<SampleSpan> parseSpans(const std::string& text, const std::string& name, int sampleRate,
                                   SpanFormat format);
