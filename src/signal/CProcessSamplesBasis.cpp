#include "signal/CProcessSamplesBasis.h"

namespace standardLib {

template <typename T>
CProcessSamplesBasis<T>::CProcessSamplesBasis(int inputChannels, int outputChannels)
    : CProcessSamplesBasis(inputChannels, outputChannels, -1.0f, -1)
{
}

template <typename T>
CProcessSamplesBasis<T>::CProcessSamplesBasis(int inputChannels, int outputChannels,
                                              float floatSetting, int blockSize)
    : inputChannels_(inputChannels),
      outputChannels_(outputChannels),
      floatSetting_(floatSetting),
      blockSize_(blockSize),
      inputPointers_(inputChannels),
      outputPointers_(outputChannels)
{
}

template <typename T>
CProcessSamplesBasis<T>::CProcessSamplesBasis(int inputChannels, int outputChannels,
                                              int blockSize, float floatSetting)
    : CProcessSamplesBasis(inputChannels, outputChannels, floatSetting, blockSize)
{
}

template <typename T>
CProcessSamplesBasis<T>::~CProcessSamplesBasis() = default;

template <typename T>
int CProcessSamplesBasis<T>::processFrame(T* in, T* out)
{
    for (int i = 0; i < inputChannels_; ++i)
        inputPointers_[i] = in + i;
    for (int i = 0; i < outputChannels_; ++i)
        outputPointers_[i] = out + i;
    return processSamples(inputPointers_.data(), outputPointers_.data(), 1);
}

template <typename T>
int CProcessSamplesBasis<T>::processFrameInPlace(T* io)
{
    return processFrame(io, io);
}

template <typename T>
int CProcessSamplesBasis<T>::processBlock(T** in, T** out)
{
    return processSamples(in, out, blockSize_);
}

template <typename T>
int CProcessSamplesBasis<T>::processBlockInPlace(T** io)
{
    return processSamples(io, io, blockSize_);
}

template <typename T>
int CProcessSamplesBasis<T>::processSamples(T** /*in*/, T** /*out*/, int /*count*/)
{
    return 0;
}

template <typename T>
int CProcessSamplesBasis<T>::processSamplesInPlace(T** io, int count)
{
    return processSamples(io, io, count);
}

template <typename T>
int CProcessSamplesBasis<T>::processSamplesAt(T** in, int inOffset, T** out, int outOffset,
                                              int count)
{
    for (int i = 0; i < inputChannels_; ++i)
        inputPointers_[i] = in[i] + inOffset;
    for (int i = 0; i < outputChannels_; ++i)
        outputPointers_[i] = out[i] + outOffset;
    return processSamples(inputPointers_.data(), outputPointers_.data(), count);
}

template <typename T>
int CProcessSamplesBasis<T>::getLatency()
{
    return 0;
}

template <typename T>
int CProcessSamplesBasis<T>::reset()
{
    return 0;
}

template class CProcessSamplesBasis<double>;
template class CProcessSamplesBasis<float>;
template class CProcessSamplesBasis<int>;
template class CProcessSamplesBasis<__int64>;

}  // namespace standardLib
