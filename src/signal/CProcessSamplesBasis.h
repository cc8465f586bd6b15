// CProcessSamplesBasis<T>: base of every block that maps input channels to output
// channels. Every way of calling a block (one sample per channel, a block of the
// default length, a block of given length, in place, at offsets) funnels through the
// one virtual operation processSamples, which a derived block replaces.
//
// Channels are arrays of T pointers (one per channel). The forwarding calls that must
// adjust pointers write them to two scratch tables made at construction, so no call
// allocates. Instantiated for double, float, int and __int64. One thread at a time.
#pragma once

#include "signal/CBuffer.h"
#include "signal/SampleTypes.h"

namespace standardLib {

template <typename T>
class CProcessSamplesBasis {
public:
    CProcessSamplesBasis(int inputChannels, int outputChannels);
    CProcessSamplesBasis(int inputChannels, int outputChannels, float floatSetting, int blockSize);
    CProcessSamplesBasis(int inputChannels, int outputChannels, int blockSize, float floatSetting);
    CProcessSamplesBasis(const CProcessSamplesBasis&) = delete;
    CProcessSamplesBasis& operator=(const CProcessSamplesBasis&) = delete;

    // Virtual operations, in this order.
    virtual ~CProcessSamplesBasis();
    // One sample per channel, channel i at in[i] and out[i].
    virtual int processFrame(T* in, T* out);
    virtual int processFrameInPlace(T* io);
    // blockSize samples per channel.
    virtual int processBlock(T** in, T** out);
    virtual int processBlockInPlace(T** io);
    // The funnel: count samples per channel. The base does nothing and returns 0.
    virtual int processSamples(T** in, T** out, int count);
    virtual int processSamplesInPlace(T** io, int count);
    virtual int processSamplesAt(T** in, int inOffset, T** out, int outOffset, int count);
    virtual int getLatency();
    virtual int reset();

    int inputChannels() const noexcept { return inputChannels_; }
    int outputChannels() const noexcept { return outputChannels_; }
    float floatSetting() const noexcept { return floatSetting_; }
    int blockSize() const noexcept { return blockSize_; }

protected:
    int inputChannels_;
    int outputChannels_;
    float floatSetting_;  // held for derived blocks; nothing here reads it
    int blockSize_;       // the default block length
    CBuffer<T*> inputPointers_;   // scratch tables of adjusted channel pointers
    CBuffer<T*> outputPointers_;
};

extern template class CProcessSamplesBasis<double>;
extern template class CProcessSamplesBasis<float>;
extern template class CProcessSamplesBasis<int>;
extern template class CProcessSamplesBasis<__int64>;

}  // namespace standardLib
