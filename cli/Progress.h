// Progress of a long file command: a one-line bar on stderr, drawn only when
// stderr is a terminal and the user did not ask for quiet, redrawn when the whole
// percentage changes and cleared when the work ends.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string>

// A one-line bar on stderr, redrawn when the whole percentage changes.
class Progress {
public:
    Progress(std::int64_t total, bool enabled) : total_(std::max<std::int64_t>(total, 1)), enabled_(enabled) {}
    ~Progress() { finish(); }
    // Clears the bar's line.
    void finish()
    {
        if (enabled_ && drawn_ >= 0) std::fprintf(stderr, "\r%*s\r", barWidth + 8, "");
        drawn_ = -1;
    }
    void update(std::int64_t done)
    {
        if (!enabled_) return;
        const int percent = static_cast<int>(100 * std::min(done, total_) / total_);
        if (percent == drawn_) return;
        drawn_ = percent;
        const int filled = percent * barWidth / 100;
        std::fprintf(stderr, "\r[%s%s] %3d%%", std::string(filled, '#').c_str(),
                     std::string(barWidth - filled, ' ').c_str(), percent);
        std::fflush(stderr);
    }

private:
    static constexpr int barWidth = 40;
    std::int64_t total_;
    bool enabled_;
    int drawn_ = -1;
};
