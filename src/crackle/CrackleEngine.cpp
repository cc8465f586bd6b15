#include "crackle/CrackleEngine.h"

#include <algorithm>

#include "crackle/FftCrackleDetector.h"
#include "crackle/FftCrackleDetectorOpt.h"

template <typename Detector>
CrackleEngine<Detector>::CrackleEngine(int channels, int blockSize)
    : channels_(channels),
      blockSize_(blockSize),
      residualBuffer_(channels, blockSize),
      dryBuffer_(channels, blockSize),
      markBuffer_(channels, blockSize),
      detector_(std::make_unique<Detector>(channels, frameSize)),
      repair_(std::make_unique<ArCrackleRepair>(channels, 1, blockSize, 1))
{
    repair_->setPasses(repairPasses);
    // Both paths must reach the sum equally late, and the dry copy by the total.
    latency_ = repair_->getLatency();
    tonalDelay_ = std::make_unique<standardLib::CDelay<float>>(channels, latency_);
    latency_ += detector_->latency();
    dryDelay_ = std::make_unique<standardLib::CDelay<float>>(channels, latency_);
    reset();
}

template <typename Detector>
CrackleEngine<Detector>::~CrackleEngine() = default;

template <typename Detector>
int CrackleEngine<Detector>::process(float** io, int n)
{
    float** residual = residualBuffer_.rows();
    // The dry copy is the input delayed straight into its own rows.
    dryDelay_->processSamples(io, dryBuffer_.rows(), n);
    detector_->process(markBuffer_.rows(), io, residual, n);
    wipeWarmupMarks();
    repair_->process(residual, residual, markBuffer_.rows());
    tonalDelay_->processSamples(io, io, n);
    mixPaths(io, n);
    return 0;
}

template <typename Detector>
void CrackleEngine<Detector>::wipeWarmupMarks()
{
    // Counted in calls, not samples: with small blocks the wipe ends before the
    // detector's start-up has passed.
    if (warmupBlocks_ < warmupBlockCount) {
        ++warmupBlocks_;
        markBuffer_.fill(0);
    }
}

template <typename Detector>
void CrackleEngine<Detector>::mixPaths(float** io, int n)
{
    // The whole pipeline runs in every mode; the flags only choose the output.
    for (int c = 0; c < channels_; ++c) {
        const float* residual = residualBuffer_[c];
        const float* dry = dryBuffer_[c];
        float* out = io[c];
        for (int i = 0; i < n; ++i) out[i] = residual[i] + out[i];
        if (differenceOutput_ == 1) {
            for (int i = 0; i < n; ++i) out[i] = out[i] - dry[i];
        }
        if (bypass_ == 1) std::copy_n(dry, n, out);
    }
}

template <typename Detector>
void CrackleEngine<Detector>::reset()
{
    detector_->reset();
    repair_->reset();
    tonalDelay_->reset();
    warmupBlocks_ = 0;
    dryBuffer_.fill(0.0f);
    residualBuffer_.fill(0.0f);
    markBuffer_.fill(0);
    dryDelay_->reset();
}

template <typename Detector>
void CrackleEngine<Detector>::clear()
{
    reset();
}

template <typename Detector>
void CrackleEngine<Detector>::setSpectralFloor(float spectralFloor)
{
    detector_->setSpectralFloor(spectralFloor);
}

template <typename Detector>
void CrackleEngine<Detector>::setReservedParameter(float)
{
}

template <typename Detector>
void CrackleEngine<Detector>::setSensitivity(float sensitivity)
{
    detector_->setSensitivity(sensitivity);
}

template <typename Detector>
void CrackleEngine<Detector>::enableDifferenceOutput()
{
    differenceOutput_ = 1;
}

template <typename Detector>
void CrackleEngine<Detector>::disableDifferenceOutput()
{
    differenceOutput_ = 0;
}

template <typename Detector>
void CrackleEngine<Detector>::enableBypass()
{
    bypass_ = 1;
}

template <typename Detector>
void CrackleEngine<Detector>::disableBypass()
{
    bypass_ = 0;
}

template <typename Detector>
float CrackleEngine<Detector>::getReservedParameter()
{
    return 0.0f;
}

template <typename Detector>
void CrackleEngine<Detector>::reservedHook()
{
}

template <typename Detector>
int CrackleEngine<Detector>::getLatency()
{
    return latency_;
}

template class CrackleEngine<FftCrackleDetector>;
template class CrackleEngine<FftCrackleDetectorOpt>;
