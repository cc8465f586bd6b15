// Real-time declicking of a fixed number of channels, in host blocks of any size.
//
// The engines are the declick library's, one per channel and pass. The declicker
// is built with every setting it may be asked to run; settings of the same shape
// (engine, block, pass count) share one set of engines, a lane, so each shape is
// allocated once. Host samples pass through a FIFO of one engine block (the largest
// block of the lanes; every lane's block divides it), so the output is the input
// `latency()` samples late (the lane's chained engines plus that block), and it does
// not depend on how the host cuts its blocks nor on the calling thread.
//
// Settings handed to setSettings are applied at the next engine-block edge.
// Sensitivities and floors are written straight into the running engines (they only
// move the split and the marks, never the sum, so they cannot click). A listen-mode
// change crossfades the two outputs over 20 ms. A change of shape resets the other
// lane, lets it settle on the same input for its latency plus ten hops, then
// crossfades to it; latency() then reports the new lane's. A setting whose shape
// was not given at construction is not followed. Relative floors follow each
// channel's mean square over the last ten seconds, measured per engine block.
//
// The constructor allocates everything; reset, setSettings and process allocate
// nothing, lock nothing and do no I/O. One thread at a time. In and out may alias.
#pragma once

#include <memory>
#include <span>
#include <vector>

#include "declick/DeclickPreset.h"
#include "declick/MultichannelDeclicker.h"
#include "signal/CBuffer2D.h"
#include "signal/CDelay.h"

namespace ferrotip::lv2 {

class RealtimeDeclicker {
public:
    RealtimeDeclicker(int channels, double sampleRate, std::span<const DeclickSettings> possible);
    ~RealtimeDeclicker();

    // Back to the just-built state: silence in every delay, engines reset, every
    // dither state at 1, the lane of the settings given last in use; the settings
    // of the first engine block apply without fades.
    void reset();
    void setSettings(const DeclickSettings& settings, DeclickListen listen);
    void process(const float* const* in, float* const* out, int n);

    // The delay of the lane heard, FIFO included.
    int latency() const;
    int fifoBlock() const { return fifoBlock_; }
    int channels() const { return channels_; }
    // The spectral floor in force on a channel's first pass (the last one written).
    float spectralFloor(int channel) const { return floors_[static_cast<std::size_t>(channel)]; }

private:
    // A linear gain ramp from 0 to 1 over `length` samples.
    struct Ramp {
        int length = 1;
        int position = -1;  // -1: not running
        bool running() const { return position >= 0; }
        float gain() const { return static_cast<float>(position) / static_cast<float>(length); }
        bool advance() { return ++position >= length; }  // true when it has ended
    };

    // Mean square over a window of the last `blocks` engine blocks.
    class LevelWindow {
    public:
        explicit LevelWindow(int blocks) : blockPowers_(static_cast<std::size_t>(blocks)) {}
        void reset() { next_ = filled_ = 0; }
        double push(double blockMeanSquare);

    private:
        std::vector<double> blockPowers_;
        int next_ = 0;
        int filled_ = 0;
    };

    // The engines of one shape, what they ran with last, their output and the
    // input delayed like it.
    struct Lane {
        Lane(const DeclickSettings& settings, int channels, int fifoBlock);
        DeclickSettings settings;
        MultichannelDeclicker declicker;
        int latency;
        standardLib::CBuffer2D<float> repaired;
        standardLib::CBuffer2D<float> dry;
        standardLib::CDelay<float> dryDelay;
    };

    static bool sameShape(const DeclickSettings& a, const DeclickSettings& b);
    int laneFor(const DeclickSettings& settings) const;  // -1: none
    void processEngineBlock();
    // At an engine-block edge: start fades, track the levels, retune the lanes.
    void applySettings();
    void measureLevels();
    void startLaneChange(int next);
    void runLane(Lane& lane);
    void writeOutput();
    float heardValue(DeclickListen mode, int i, int c) const;

    int channels_;
    int fifoBlock_;
    std::vector<std::unique_ptr<Lane>> lanes_;
    int settleHopSamples_;
    standardLib::CBuffer2D<float> input_;   // the engine block being filled
    standardLib::CBuffer2D<float> output_;  // the engine block being handed out
    std::vector<LevelWindow> levels_;       // one per channel
    std::vector<double> meanSquares_;
    std::vector<float> floors_;
    int position_ = 0;  // next sample of input_ and output_

    DeclickSettings target_;
    DeclickListen targetListen_ = DeclickListen::repaired;
    bool started_ = false;  // an engine block has been processed since the reset
    int heard_ = 0;
    int incoming_ = 0;
    bool changingLane_ = false;
    int settleLeft_ = 0;  // samples the incoming lane still runs unheard
    Ramp laneRamp_;
    DeclickListen listen_ = DeclickListen::repaired;
    DeclickListen nextListen_ = DeclickListen::repaired;
    Ramp listenRamp_;
};

}  // namespace ferrotip::lv2
