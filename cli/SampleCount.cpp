#include "SampleCount.h"

#include <cmath>
#include <cstdlib>

#include "CliError.h"

namespace {

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() > suffix.size() &&
           text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

double parseNumber(const std::string& text, const std::string& what, const std::string& original)
{
    char* end = nullptr;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || end != text.c_str() + text.size() || !std::isfinite(value) || value < 0.0)
        throw CliError(what + " '" + original +
                       "' is not a sample count, seconds (1.25s) or milliseconds (3ms)");
    return value;
}

}  // namespace

std::int64_t parseSampleCount(const std::string& text, int sampleRate, const std::string& what)
{
    double samples = 0.0;
    if (endsWith(text, "ms")) {
        samples = parseNumber(text.substr(0, text.size() - 2), what, text) * sampleRate / 1000.0;
    } else if (endsWith(text, "s")) {
        samples = parseNumber(text.substr(0, text.size() - 1), what, text) * sampleRate;
    } else {
        const double value = parseNumber(text, what, text);
        if (value != std::floor(value))
            throw CliError(what + " '" + text + "' is not a whole number of samples (add s or ms for time)");
        samples = value;
    }
    if (samples > 9.0e15) throw CliError(what + " '" + text + "' is too large");
    return std::llround(samples);
}

std::int64_t parseRegionLength(const std::string& text, int sampleRate, const std::string& what)
{
    const std::int64_t length = parseSampleCount(text, sampleRate, what);
    if (length < 1) throw CliError(what + " must be at least one sample");
    return length;
}
