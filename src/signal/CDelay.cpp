#include "signal/CDelay.h"

#include <algorithm>
#include <cstring>

namespace standardLib {

template <typename T>
CDelay<T>::CDelay(int channels, int delay)
    : CProcessSamplesBasis<T>(channels, channels, delay, -1.0f),
      ringLength_(2 * delay),
      readPosition_(0),
      writePosition_(delay),
      delay_(delay),
      ring_(channels, 2 * delay)
{
}

template <typename T>
CDelay<T>::~CDelay() = default;

template <typename T>
int CDelay<T>::processFrame(T* in, T* out)
{
    // Store before load: with delay 0 the sample comes straight through.
    for (int channel = 0; channel < this->inputChannels_; ++channel) {
        ring_[channel][writePosition_] = in[channel];
        out[channel] = ring_[channel][readPosition_];
    }
    writePosition_ = (writePosition_ + 1) % ringLength_;
    readPosition_ = (readPosition_ + 1) % ringLength_;
    return 0;
}

template <typename T>
int CDelay<T>::processSamples(T** in, T** out, int count)
{
    const int m = std::min(count, delay_);
    const int k = count - m;
    // The block's last m samples enter the ring before anything in out changes.
    writeSamples(in, k, m);
    if (count > m && k != 0) {
        // In place this moves samples upward within one array: overlap-safe move.
        for (int channel = 0; channel < this->inputChannels_; ++channel)
            std::memmove(out[channel] + m, in[channel], static_cast<std::size_t>(k) * sizeof(T));
    }
    readSamples(out, 0, m);
    return 0;
}

template <typename T>
int CDelay<T>::getLatency()
{
    return delay_;
}

template <typename T>
int CDelay<T>::reset()
{
    ring_.fill(T(0));
    return 0;
}

template <typename T>
void CDelay<T>::setDelay(int delay)
{
    delay_ = delay;
    readPosition_ = (writePosition_ - delay + ringLength_) % ringLength_;
    reset();
}

template <typename T>
int CDelay<T>::transfer(T** channels, int offset, int count, int position, bool toRing)
{
    if (count < 1)
        return position;
    int remaining = count;
    while (remaining > 0) {
        const int run = std::min(remaining, ringLength_ - position);
        // Channels inside the run loop: the wrap is worked out once for all of them.
        for (int channel = 0; channel < this->inputChannels_; ++channel) {
            if (run == 0)
                continue;
            T* ringRun = ring_[channel] + position;
            T* channelRun = channels[channel] + offset;
            const std::size_t bytes = static_cast<std::size_t>(run) * sizeof(T);
            if (toRing)
                std::memcpy(ringRun, channelRun, bytes);
            else
                std::memcpy(channelRun, ringRun, bytes);
        }
        remaining -= run;
        offset += run;
        position = (position + run) % ringLength_;
    }
    return position;
}

template <typename T>
void CDelay<T>::writeSamples(T** in, int offset, int count)
{
    writePosition_ = transfer(in, offset, count, writePosition_, true);
}

template <typename T>
void CDelay<T>::readSamples(T** out, int offset, int count)
{
    readPosition_ = transfer(out, offset, count, readPosition_, false);
}

template class CDelay<double>;
template class CDelay<float>;
template class CDelay<int>;
template class CDelay<__int64>;

}  // namespace standardLib
