// DelayClass: a short delay for float channels, built for delays of a few tens of
// samples applied in place to long blocks. Each channel has a line of
// delay + scratchLength floats: the last `delay` samples, oldest first, then a
// scratch tail that takes the input out of the way before an in-place write.
//
// process works out of place on separate arrays directly (count >= delay), and
// otherwise, in place included, in runs of at most scratchLength samples; every run
// costs one move of `delay` samples. scratchLength must be at least 1, or the run
// path cannot advance. The constructor and setDelay allocate; process and reset
// never do. One thread at a time.
#pragma once

#include <memory>

class DelayClass {
public:
    DelayClass(int channels, int delay, int scratchLength);
    DelayClass(const DelayClass&) = delete;
    DelayClass& operator=(const DelayClass&) = delete;

    // Virtual operations, in this order (the destructor is the fourth).
    // 1 when every line is present (also with no channels), otherwise 0.
    virtual int isValid();
    // Reallocates every line for the new delay; all history is lost.
    virtual void setDelay(int delay);
    virtual void process(float** in, int inOffset, float** out, int outOffset, int count);
    virtual ~DelayClass();
    // Zeroes the history.
    virtual void reset();

    int channels() const noexcept { return channels_; }
    int delay() const noexcept { return delay_; }
    int scratchLength() const noexcept { return scratchLength_; }
    // The line of one channel: delay history samples, then the scratch tail.
    const float* line(int channel) const noexcept { return lines_[channel].get(); }

private:
    void allocateLines();
    void processDirect(float* line, const float* source, float* target, int count) const;
    void processInRuns(float* line, const float* source, float* target, int count) const;

    int channels_;
    int delay_;
    int scratchLength_;
    std::unique_ptr<std::unique_ptr<float[]>[]> lines_;
};
