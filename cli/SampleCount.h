// Positions and lengths on the command line: a sample count ("4410"), seconds
// ("1.25s") or milliseconds ("3ms"), rounded to the nearest sample.
#pragma once

#include <cstdint>
#include <string>

// Throws CliError naming `what` when the text is not a non-negative count.
std::int64_t parseSampleCount(const std::string& text, int sampleRate, const std::string& what);

// A region's length: as parseSampleCount, and at least one sample.
std::int64_t parseRegionLength(const std::string& text, int sampleRate, const std::string& what);
