// The crackle engine shell shared by both implementations: owns a detector, the AR
// repair and the delays, aligns the tonal and residual paths and applies the listen
// flags. Detector is FftCrackleDetector or FftCrackleDetectorOpt.
//
// Block road: dry copy delayed by the total latency; detector splits io into tonal
// (in io) and residual paths with marks, both 1566 samples late (frame size 2048);
// the marks of the first two blocks after a reset are wiped; the repair mends the
// residual 360 samples later; the tonal path is delayed by the same 360; the paths
// are added. Latency 1566 + 360 = 1926, taken from the parts. n must equal
// blockSize. Construction allocates; process allocates nothing of its own (the
// variant's detector has no allocation either). One thread at a time.
#pragma once

#include <memory>

#include "crackle/ArCrackleRepair.h"
#include "crackle/MetaDeCrackler.h"
#include "signal/CBuffer2D.h"
#include "signal/CDelay.h"

template <typename Detector>
class CrackleEngine : public MetaDeCrackler {
public:
    static constexpr int frameSize = 2048;

    CrackleEngine(int channels, int blockSize);
    ~CrackleEngine() override;

    int process(float** io, int n) override;
    void reset() override;
    void clear() override;
    void setSpectralFloor(float spectralFloor) override;
    void setReservedParameter(float value) override;
    void setSensitivity(float sensitivity) override;
    void enableDifferenceOutput() override;
    void disableDifferenceOutput() override;
    void enableBypass() override;
    void disableBypass() override;
    float getReservedParameter() override;
    void reservedHook() override;
    int getLatency() override;

    int channels() const { return channels_; }
    int blockSize() const { return blockSize_; }
    bool differenceOutput() const { return differenceOutput_ != 0; }
    bool bypass() const { return bypass_ != 0; }
    // The marks of the samples of the last block handed out.
    const int* marks(int channel) const { return markBuffer_[channel]; }
    const Detector& detector() const { return *detector_; }
    const ArCrackleRepair& repair() const { return *repair_; }
    ArCrackleRepair& repair() { return *repair_; }

private:
    static constexpr int warmupBlockCount = 2;
    static constexpr int repairPasses = 2;

    void wipeWarmupMarks();
    void mixPaths(float** io, int n);

    int differenceOutput_ = 0;
    int bypass_ = 0;
    int latency_ = 0;
    int channels_;
    int blockSize_;
    standardLib::CBuffer2D<float> residualBuffer_;
    standardLib::CBuffer2D<float> dryBuffer_;
    standardLib::CBuffer2D<int> markBuffer_;
    std::unique_ptr<Detector> detector_;
    std::unique_ptr<ArCrackleRepair> repair_;
    std::unique_ptr<standardLib::CDelay<float>> tonalDelay_;
    std::unique_ptr<standardLib::CDelay<float>> dryDelay_;
    int warmupBlocks_ = 0;
};
