#include "DeclipRun.h"

#include <cstdio>

namespace {

constexpr double minLevelDb = -60.0, maxLevelDb = 24.0;
constexpr double minLevel = 0.001, maxLevel = 16.0;
constexpr double minGainDb = -60.0, maxGainDb = 0.0;

bool endsWith(const std::string& text, const std::string& suffix)
{
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

// A number that fills `text` exactly, or nothing.
std::optional<double> parseNumber(const std::string& text)
{
    try {
        std::size_t used = 0;
        const double value = std::stod(text, &used);
        if (used == text.size() && std::isfinite(value)) return value;
    } catch (const std::exception&) {
    }
    return std::nullopt;
}

}  // namespace

std::optional<double> parseLevel(const std::string& text, const std::string& name)
{
    if (text == "auto") return std::nullopt;
    const std::string range = name + " must be auto, a level in dBFS from " + std::to_string(int(minLevelDb)) +
                              " to +" + std::to_string(int(maxLevelDb)) + " (-0.5dBFS) or a fraction of full scale from " +
                              "0.001 to 16 (0.9), not '" + text + "'";
    if (endsWith(text, "dBFS")) {
        const auto db = parseNumber(text.substr(0, text.size() - 4));
        if (!db || *db < minLevelDb || *db > maxLevelDb) throw CliError(range);
        return fromDb(*db);
    }
    const auto value = parseNumber(text);
    if (!value || *value < minLevel || *value > maxLevel) throw CliError(range);
    return *value;
}

std::optional<double> parseGain(const std::string& text)
{
    if (text == "auto") return std::nullopt;
    const auto db = endsWith(text, "dB") ? parseNumber(text.substr(0, text.size() - 2)) : std::nullopt;
    if (!db || *db < minGainDb || *db > maxGainDb)
        throw CliError("--gain must be auto or a gain in dB from -60 to 0 (0dB, -3dB), not '" + text + "'");
    return fromDb(*db);
}

std::string describeLevel(float level)
{
    if (level == ClipLevels::none) return "not clipped";
    char text[32];
    std::snprintf(text, sizeof text, "%.2f dBFS", toDb(level));
    return text;
}
