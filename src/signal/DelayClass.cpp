#include "signal/DelayClass.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace {

void copyFloats(float* destination, const float* source, int count)
{
    // Overlap-tolerant: a caller may pass offset views of one array.
    std::memmove(destination, source, static_cast<std::size_t>(count) * sizeof(float));
}

}  // namespace

DelayClass::DelayClass(int channels, int delay, int scratchLength)
    : channels_(channels), delay_(delay), scratchLength_(scratchLength)
{
    allocateLines();
}

DelayClass::~DelayClass() = default;

void DelayClass::allocateLines()
{
    // The table first, every entry null: a failed line leaves isValid() at 0.
    lines_.reset(new std::unique_ptr<float[]>[channels_]);  // negative: std::bad_alloc
    for (int channel = 0; channel < channels_; ++channel)
        lines_[channel].reset(new float[delay_ + scratchLength_]());  // history zero
}

int DelayClass::isValid()
{
    if (!lines_)
        return 0;
    for (int channel = 0; channel < channels_; ++channel)
        if (!lines_[channel])
            return 0;
    return 1;
}

void DelayClass::setDelay(int delay)
{
    lines_.reset();
    delay_ = delay;
    allocateLines();
}

void DelayClass::reset()
{
    for (int channel = 0; channel < channels_; ++channel)
        std::fill_n(lines_[channel].get(), delay_, 0.0f);
}

void DelayClass::process(float** in, int inOffset, float** out, int outOffset, int count)
{
    for (int channel = 0; channel < channels_; ++channel) {
        const float* source = in[channel] + inOffset;
        float* target = out[channel] + outOffset;
        float* line = lines_[channel].get();
        if (source != target && count >= delay_)
            processDirect(line, source, target, count);
        else if (count != 0)
            processInRuns(line, source, target, count);
    }
}

void DelayClass::processDirect(float* line, const float* source, float* target, int count) const
{
    copyFloats(target, line, delay_);
    copyFloats(target + delay_, source, count - delay_);
    copyFloats(line, source + (count - delay_), delay_);
}

void DelayClass::processInRuns(float* line, const float* source, float* target, int count) const
{
    int remaining = count;
    while (remaining > 0) {
        const int run = std::min(scratchLength_, remaining);
        copyFloats(line + delay_, source, run);  // input out of the way before target is written
        copyFloats(target, line, run);
        copyFloats(line, line + run, delay_);    // history moves down over the run
        source += run;
        target += run;
        remaining -= run;
    }
}
