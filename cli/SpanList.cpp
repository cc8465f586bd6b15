#include "SpanList.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

#include "CliError.h"
#include "PartialFile.h"

namespace fs = std::filesystem;
using nlohmann::json;

namespace {

std::string lowerExtension(const std::string& path)
{
    std::string extension = fs::path(path).extension().string();
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return extension;
}

double startSeconds(const SampleSpan& span, int rate) { return static_cast<double>(span.first) / rate; }
double endSeconds(const SampleSpan& span, int rate) { return static_cast<double>(span.last + 1) / rate; }
int diskChannel(const SampleSpan& span) { return span.channel == SampleSpan::allChannels ? 0 : span.channel + 1; }

std::string labelOf(const SampleSpan& span)
{
    if (!span.label.empty()) return span.label;
    return span.channel == SampleSpan::allChannels ? "all channels" : "channel " + std::to_string(span.channel + 1);
}

std::string seconds(double value)
{
    char text[40];
    std::snprintf(text, sizeof text, "%.6f", value);
    return text;
}

// A label may not break the line or the field it stands in.
std::string cleanLabel(std::string label, char separator)
{
    for (char& c : label)
        if (c == '\n' || c == '\r' || c == '\t' || c == separator) c = ' ';
    return label;
}

std::string formatLabels(const std::vector<SampleSpan>& spans, int rate)
{
    std::string text;
    for (const SampleSpan& span : spans)
        text += seconds(startSeconds(span, rate)) + '\t' + seconds(endSeconds(span, rate)) + '\t' +
                cleanLabel(labelOf(span), '\t') + '\n';
    return text;
}

std::string formatCsv(const std::vector<SampleSpan>& spans, int rate)
{
    std::string text = "channel,first,last,start,end,label\n";
    for (const SampleSpan& span : spans)
        text += std::to_string(diskChannel(span)) + ',' + std::to_string(span.first) + ',' +
                std::to_string(span.last) + ',' + seconds(startSeconds(span, rate)) + ',' +
                seconds(endSeconds(span, rate)) + ',' + cleanLabel(labelOf(span), ',') + '\n';
    return text;
}

std::string formatJson(const std::vector<SampleSpan>& spans, int rate)
{
    json list = json::array();
    for (const SampleSpan& span : spans)
        list.push_back({{"channel", diskChannel(span)},
                        {"first", span.first},
                        {"last", span.last},
                        {"start", startSeconds(span, rate)},
                        {"end", endSeconds(span, rate)},
                        {"label", labelOf(span)}});
    return json{{"sample_rate", rate}, {"spans", std::move(list)}}.dump(2) + '\n';
}


double parseNumber(const std::string& field, const std::string& where, const char* what)
{
    const char* begin = field.c_str();
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(begin, &end);
    if (end == begin || errno != 0) throw CliError(where + ": the " + what + " '" + field + "' is not a number");
    while (*end == ' ') ++end;
    if (*end != '\0') throw CliError(where + ": the " + what + " '" + field + "' is not a number");
    return value;
}

std::string trimmed(const std::string& text)
{
    const auto begin = text.find_first_not_of(" \r\t");
    if (begin == std::string::npos) return "";
    return text.substr(begin, text.find_last_not_of(" \r\t") - begin + 1);
}

// A field without its surrounding blanks and, as spreadsheets write them, double quotes.
std::string unquoted(const std::string& field)
{
    std::string text = trimmed(field);
    if (text.size() >= 2 && text.front() == '"' && text.back() == '"') text = trimmed(text.substr(1, text.size() - 2));
    return text;
}

std::vector<std::string> splitFields(const std::string& line, char separator)
{
    std::vector<std::string> fields;
    std::string field;
    std::istringstream stream(line);
    while (std::getline(stream, field, separator)) fields.push_back(unquoted(field));
    if (!line.empty() && line.back() == separator) fields.emplace_back();
    return fields;
}

std::vector<SampleSpan> parseLabels(const std::string& text, const std::string& name, int rate)
{
    std::vector<SampleSpan> spans;
    std::istringstream stream(text);
    std::string line;
    for (int number = 1; std::getline(stream, line); ++number) {
        const std::string where = "'" + name + "' line " + std::to_string(number);
        if (trimmed(line).empty() || line[0] == '\\') continue;  // blank, or an editor's frequency row
        const std::vector<std::string> fields = splitFields(line, '\t');
        if (fields.size() < 2) throw CliError(where + ": expected start TAB end TAB label");
        SampleSpan span = spanFromSeconds(parseNumber(fields[0], where, "start"),
                                          parseNumber(fields[1], where, "end"), rate, where);
        if (fields.size() > 2) span.label = fields[2];
        spans.push_back(std::move(span));
    }
    return spans;
}

// A row with both samples and seconds: the samples, unless the seconds put the span more
// than a sample elsewhere at this file's rate (a list made at another rate).
SampleSpan agreeingSpan(const SampleSpan& bySamples, const SampleSpan& bySeconds)
{
    const bool agree = std::llabs(bySamples.first - bySeconds.first) <= 1 && std::llabs(bySamples.last - bySeconds.last) <= 1;
    return agree ? bySamples : bySeconds;
}

int columnOf(const std::vector<std::string>& header, const char* name)
{
    const auto found = std::find(header.begin(), header.end(), name);
    return found == header.end() ? -1 : static_cast<int>(found - header.begin());
}

std::vector<SampleSpan> parseCsv(const std::string& text, const std::string& name, int rate)
{
    std::istringstream stream(text);
    std::string line;
    int number = 0;
    std::vector<std::string> header;
    while (header.empty() && std::getline(stream, line)) {
        ++number;
        if (!trimmed(line).empty()) header = splitFields(trimmed(line), ',');
    }
    for (std::string& column : header)
        std::transform(column.begin(), column.end(), column.begin(),
                       [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    const int start = columnOf(header, "start"), end = columnOf(header, "end");
    const int first = columnOf(header, "first"), last = columnOf(header, "last");
    const int channel = columnOf(header, "channel"), label = columnOf(header, "label");
    const bool bySamples = first >= 0 && last >= 0;
    if (header.empty()) throw CliError("'" + name + "' is empty: a CSV list needs a header line and a row per region");
    if (!bySamples && (start < 0 || end < 0))
        throw CliError("'" + name + "' line " + std::to_string(number) +
                       ": a CSV list needs a header with start,end (seconds) or first,last (samples) columns");
    std::vector<SampleSpan> spans;
    while (std::getline(stream, line)) {
        ++number;
        const std::string where = "'" + name + "' line " + std::to_string(number);
        if (trimmed(line).empty()) continue;
        const std::vector<std::string> fields = splitFields(trimmed(line), ',');
        const int needed = std::max({bySamples ? std::max(first, last) : std::max(start, end), channel});
        if (static_cast<int>(fields.size()) <= needed)
            throw CliError(where + ": expected " + std::to_string(header.size()) + " fields");
        SampleSpan span;
        if (bySamples) {
            const double from = parseNumber(fields[first], where, "first sample");
            const double to = parseNumber(fields[last], where, "last sample");
            if (from != std::floor(from) || to != std::floor(to) || std::fabs(from) > 1e15 || std::fabs(to) > 1e15)
                throw CliError(where + ": sample numbers must be whole numbers");
            span = spanFromSamples(static_cast<std::int64_t>(from), static_cast<std::int64_t>(to), where);
            if (start >= 0 && end >= 0 && static_cast<int>(fields.size()) > std::max(start, end))
                span = agreeingSpan(span, spanFromSeconds(parseNumber(fields[start], where, "start"),
                                                          parseNumber(fields[end], where, "end"), rate, where));
        } else {
            span = spanFromSeconds(parseNumber(fields[start], where, "start"), parseNumber(fields[end], where, "end"),
                                   rate, where);
        }
        if (channel >= 0) {
            const double value = parseNumber(fields[channel], where, "channel");
            if (value != std::floor(value)) throw CliError(where + ": the channel must be a whole number");
            setChannel(span, static_cast<long long>(value), where);
        }
        if (label >= 0 && label < static_cast<int>(fields.size())) span.label = fields[label];
        spans.push_back(std::move(span));
    }
    return spans;
}

std::vector<SampleSpan> parseJson(const std::string& text, const std::string& name, int rate)
{
    json document;
    try {
        document = json::parse(text);
    } catch (const json::parse_error& error) {
        throw CliError("'" + name + "' is not valid JSON: " + error.what());
    }
    const json* list = &document;
    if (document.is_object()) {
        if (document.contains("spans")) list = &document["spans"];
        else if (document.contains("regions")) list = &document["regions"];
    }
    if (!list->is_array()) throw CliError("'" + name + "': expected a list of spans (or {\"spans\": [...]})");
    // A list made at another rate (a report of the same recording at another rate) is read by its seconds.
    long long listRate = rate;
    if (document.is_object() && document.contains("sample_rate") && document["sample_rate"].is_number_integer())
        listRate = document["sample_rate"].get<long long>();
    const bool otherRate = listRate != rate;
    std::vector<SampleSpan> spans;
    for (std::size_t index = 0; index < list->size(); ++index) {
        const json& entry = (*list)[index];
        const std::string where = "'" + name + "' entry " + std::to_string(index + 1);
        if (!entry.is_object()) throw CliError(where + ": expected an object");
        const auto number = [&](const char* key) -> const json* {
            if (!entry.contains(key)) return nullptr;
            if (!entry[key].is_number()) throw CliError(where + ": \"" + key + "\" is not a number");
            return &entry[key];
        };
        SampleSpan span;
        const json *first = number("first"), *last = number("last"), *start = number("start"), *end = number("end");
        if (start && end && (otherRate || !(first && last))) {
            span = spanFromSeconds(start->get<double>(), end->get<double>(), rate, where);
        } else if (first && last) {
            if (!first->is_number_integer() || !last->is_number_integer() || first->get<double>() > 1e15 ||
                last->get<double>() > 1e15)
                throw CliError(where + ": sample numbers must be whole numbers");
            if (otherRate)
                throw CliError(where + ": the list counts samples at " + std::to_string(listRate) +
                               " Hz, this file has " + std::to_string(rate) + " Hz; give \"start\" and \"end\" in seconds");
            span = spanFromSamples(first->get<std::int64_t>(), last->get<std::int64_t>(), where);
        } else {
            throw CliError(where + ": needs \"start\" and \"end\" (seconds) or \"first\" and \"last\" (samples)");
        }
        if (const json* channel = number("channel")) {
            if (!channel->is_number_integer()) throw CliError(where + ": the channel must be a whole number");
            setChannel(span, channel->get<long long>(), where);
        }
        if (entry.contains("label") && entry["label"].is_string()) span.label = entry["label"].get<std::string>();
        spans.push_back(std::move(span));
    }
    return spans;
}

// Writes `text` to a fresh temporary file beside `path` and renames it into place.
void replaceFileWith(const std::string& path, const std::string& text)
{
    PartialFile partial(path);
    partial.write(text);
    partial.commitTo(path);
}

}  // namespace

namespace {

// Where a list gives seconds: the sample nearest `value` seconds.
std::int64_t sampleAt(double value, int rate, const std::string& where)
{
    if (!std::isfinite(value) || value < 0.0 || value > largestListSeconds)
        throw CliError(where + ": '" + std::to_string(value) + "' is not a time in seconds");
    return static_cast<std::int64_t>(std::llround(value * rate));
}

}  // namespace

// A span from seconds [start, end) or samples [first, last].
SampleSpan spanFromSeconds(double start, double end, int rate, const std::string& where)
{
    SampleSpan span;
    span.first = sampleAt(start, rate, where);
    const std::int64_t stop = sampleAt(end, rate, where);
    if (stop <= span.first)
        throw CliError(where + ": the end (" + seconds(end) + " s) is not after the start (" + seconds(start) +
                       " s)");
    span.last = stop - 1;
    return span;
}

SampleSpan spanFromSamples(std::int64_t first, std::int64_t last, const std::string& where)
{
    if (first < 0 || last < first)
        throw CliError(where + ": samples " + std::to_string(first) + " to " + std::to_string(last) +
                       " are not a span");
    SampleSpan span;
    span.first = first;
    span.last = last;
    return span;
}

void setChannel(SampleSpan& span, long long channel, const std::string& where)
{
    if (channel < 0 || channel > 65536)
        throw CliError(where + ": channel " + std::to_string(channel) + " is not 0 (all) or a channel number");
    span.channel = channel == 0 ? SampleSpan::allChannels : static_cast<int>(channel - 1);
}

SpanFormat spanFormatFor(const std::string& path)
{
    const std::string extension = lowerExtension(path);
    if (extension == ".txt") return SpanFormat::labels;
    if (extension == ".csv") return SpanFormat::csv;
    if (extension == ".json") return SpanFormat::json;
    throw CliError("'" + path + "': a span list ends in .txt (label track), .csv or .json");
}

void requireReportPath(const std::string& report, std::initializer_list<std::string> audioFiles)
{
    try {
        spanFormatFor(report);
    } catch (const CliError& error) {
        throw CliError(std::string("--report: ") + error.what());
    }
    for (const std::string& audio : audioFiles)
        if (namesSameFile(report, audio))
            throw CliError("--report '" + report + "' names an audio file of this run; choose another name");
    requireFileTarget(report, "--report '" + report + "'");
}

std::string formatSpans(const std::vector<SampleSpan>& spans, int sampleRate, SpanFormat format)
{
    switch (format) {
    case SpanFormat::labels: return formatLabels(spans, sampleRate);
    case SpanFormat::csv: return formatCsv(spans, sampleRate);
    case SpanFormat::json: return formatJson(spans, sampleRate);
    }
    return {};
}

void writeSpanReport(const std::string& path, const std::vector<SampleSpan>& spans, int sampleRate)
{
    replaceFileWith(path, formatSpans(spans, sampleRate, spanFormatFor(path)));
}

std::vector<SampleSpan> parseSpans(const std::string& text, const std::string& name, int sampleRate,
                                   SpanFormat format)
{
    // Spreadsheets and some editors start UTF-8 text with a byte-order mark.
    static const std::string byteOrderMark = "\xEF\xBB\xBF";
    const std::string body = text.rfind(byteOrderMark, 0) == 0 ? text.substr(byteOrderMark.size()) : text;
    switch (format) {
    case SpanFormat::labels: return parseLabels(body, name, sampleRate);
    case SpanFormat::csv: return parseCsv(body, name, sampleRate);
    case SpanFormat::json: return parseJson(body, name, sampleRate);
    }
    return {};
}

std::vector<SampleSpan> readSpanList(const std::string& path, int sampleRate)
{
    const SpanFormat format = spanFormatFor(path);
    std::error_code error;
    if (fs::is_directory(path, error)) throw CliError("cannot read '" + path + "': it is a directory");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw CliError("cannot read '" + path + "': no such file");
    std::ostringstream text;
    text << file.rdbuf();
    return parseSpans(text.str(), path, sampleRate, format);
}
