// Real-time declicking of a fixed number of channels, in host blocks of any size.
//
// One crackle engine of each kind per channel, all built with a fixed engine block
// of 512 samples. Host samples pass through a FIFO of one engine block, so the
// output is the input `latency()` samples late (the engine's 1926 plus 512), and
// it does not depend on how the host cuts its blocks. Each engine draws its dither
// from its own generator state (saved and restored around every engine call), so
// the result does not depend on the calling thread either.
//
// Settings handed to setSettings are applied at the next engine-block edge:
// sensitivity and floor are written straight into the engines (they only move the
// split and the marks, never the sum, so they cannot click); a listen-mode change
// crossfades the two outputs over 20 ms; an engine change resets the other engine,
// lets it settle on the same input for its latency plus ten hops, then crossfades
// to it. The relative floor follows the mean square of all channels over the last
// ten seconds, measured per engine block.
//
// The constructor allocates everything; reset, setSettings and process allocate
// nothing, lock nothing and do no I/O. One thread at a time. In and out may alias.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "DeclickPresets.h"
#include "crackle/MetaDeCrackler.h"
#include "signal/CBuffer2D.h"
#include "signal/CDelay.h"

namespace ferrotip::lv2 {

class RealtimeDeclicker {
public:
    static constexpr int engineBlock = 512;

    RealtimeDeclicker(int channels, double sampleRate);
    ~RealtimeDeclicker();

    // Back to the just-built state: silence in every delay, engines reset, every
    // generator state at 1; the settings of the first engine block apply without fades.
    void reset();
    void setSettings(const DeclickSettings& settings) { target_ = settings; }
    void process(const float* const* in, float* const* out, int n);

    int latency() const { return engineLatency_ + engineBlock; }
    int channels() const { return channels_; }
    // The spectral floor in force (the last one written into the engines).
    float spectralFloor() const { return floor_; }

private:
    static constexpr int engineKinds = 2;

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

    struct ChannelEngines {
        std::array<std::unique_ptr<MetaDeCrackler>, engineKinds> engine;
        std::array<std::uint32_t, engineKinds> randState{};
    };

    void processEngineBlock();
    static std::vector<ChannelEngines> makeEngines(int channels);
    // At an engine-block edge: start fades, track the level, write floor and sensitivity.
    void applySettings();
    double inputMeanSquare() const;  // of the engine block in input_, all channels
    void startEngineChange(EngineKind next);
    void runEngines(EngineKind kind, standardLib::CBuffer2D<float>& rows);
    void writeOutput();
    float listenValue(ListenMode mode, float repaired, float dry) const;

    int channels_;
    std::vector<ChannelEngines> engines_;
    int engineLatency_;
    int settleSamples_;
    standardLib::CBuffer2D<float> input_;     // the engine block being filled
    standardLib::CBuffer2D<float> output_;    // the engine block being handed out
    standardLib::CBuffer2D<float> current_;   // repaired by the engine in use
    standardLib::CBuffer2D<float> incoming_;  // repaired by the engine being changed to
    standardLib::CBuffer2D<float> dry_;       // input, delayed like the repaired rows
    standardLib::CDelay<float> dryDelay_;
    LevelWindow level_;
    int position_ = 0;  // next sample of input_ and output_

    DeclickSettings target_;
    bool started_ = false;  // an engine block has been processed since the reset
    float floor_ = 0.0f;
    EngineKind engine_ = EngineKind::standard;
    EngineKind nextEngine_ = EngineKind::standard;
    bool changingEngine_ = false;
    int settleLeft_ = 0;  // samples the incoming engine still runs unheard
    Ramp engineRamp_;
    ListenMode listen_ = ListenMode::normal;
    ListenMode nextListen_ = ListenMode::normal;
    Ramp listenRamp_;
};

}  // namespace ferrotip::lv2
