// CDelay<T>: delays every channel by `delay` samples through a ring of twice the
// delay given at construction. A new delay line gives out `delay` zeros first.
//
// processSamples is safe in place (in and out naming the same arrays): the block's
// tail enters the ring before out is touched, the head moves straight to its delayed
// place, and the oldest ring samples fill the front. Only the constructor allocates.
// The greatest safe delay is the one given at construction; setDelay does not grow
// the ring. A delay line built with delay 0 has an empty ring: processSamples works
// on it, processFrame and setDelay must not be called. Instantiated for double,
// float, int and __int64. One thread at a time.
#pragma once

#include "signal/CBuffer2D.h"
#include "signal/CProcessSamplesBasis.h"

namespace standardLib {

template <typename T>
class CDelay : public CProcessSamplesBasis<T> {
public:
    CDelay(int channels, int delay);
    ~CDelay() override;

    int processFrame(T* in, T* out) override;
    // Returns 0; the value carries no status.
    int processSamples(T** in, T** out, int count) override;
    int getLatency() override;
    // Silences the ring; the positions stay where they are.
    int reset() override;

    // Moves readPosition to `delay` behind writePosition and silences the ring.
    virtual void setDelay(int delay);
    // Copies count samples per channel from in[c] + offset into the ring.
    virtual void writeSamples(T** in, int offset, int count);
    // Copies the count oldest ring samples per channel to out[c] + offset.
    virtual void readSamples(T** out, int offset, int count);

    int ringLength() const noexcept { return ringLength_; }
    int readPosition() const noexcept { return readPosition_; }
    int writePosition() const noexcept { return writePosition_; }
    int delay() const noexcept { return delay_; }

private:
    // Copies runs between the channels and the ring at `position`, wrapping at the
    // ring's end; toRing selects the direction. Returns the new position.
    int transfer(T** channels, int offset, int count, int position, bool toRing);

    int ringLength_;
    int readPosition_;
    int writePosition_;
    int delay_;
    CBuffer2D<T> ring_;  // one row per channel, ringLength columns
};

extern template class CDelay<double>;
extern template class CDelay<float>;
extern template class CDelay<int>;
extern template class CDelay<__int64>;

}  // namespace standardLib
