#include "RealtimeDeclicker.h"

#include <algorithm>
#include <cmath>

#include "ar/ClassicRand.h"
#include "crackle/AdvancedFftDeCrackler.h"
#include "crackle/AdvancedFftDeCracklerOpt.h"

namespace ferrotip::lv2 {
namespace {

constexpr double fadeSeconds = 0.020;
constexpr double levelWindowSeconds = 10.0;
// The prediction detector's level is a median over its last ten hops of 512: an
// engine brought in mid-stream runs that long past its latency before it is heard.
constexpr int settleHops = 10;
constexpr int detectorHop = 512;

std::unique_ptr<MetaDeCrackler> makeEngine(EngineKind kind)
{
    constexpr int block = RealtimeDeclicker::engineBlock;
    if (kind == EngineKind::prediction) return std::make_unique<AdvancedFftDeCracklerOpt>(1, block);
    return std::make_unique<AdvancedFftDeCrackler>(1, block);
}

int samplesIn(double seconds, double sampleRate)
{
    return std::max(1, static_cast<int>(std::lround(seconds * sampleRate)));
}

void copyRows(const standardLib::CBuffer2D<float>& from, standardLib::CBuffer2D<float>& to)
{
    for (int c = 0; c < from.rowCount(); ++c) std::copy_n(from[c], from.columnCount(), to[c]);
}

}  // namespace

double RealtimeDeclicker::LevelWindow::push(double blockMeanSquare)
{
    const int size = static_cast<int>(blockPowers_.size());
    blockPowers_[static_cast<std::size_t>(next_)] = blockMeanSquare;
    next_ = (next_ + 1) % size;
    filled_ = std::min(filled_ + 1, size);
    // Summed afresh each block: no drift, and the same history gives the same bits.
    double sum = 0.0;
    for (int k = 0; k < filled_; ++k) sum += blockPowers_[static_cast<std::size_t>(k)];
    return sum / filled_;
}

RealtimeDeclicker::RealtimeDeclicker(int channels, double sampleRate)
    : channels_(channels),
      engines_(makeEngines(channels)),
      engineLatency_(engines_[0].engine[0]->getLatency()),
      settleSamples_(engineLatency_ + settleHops * detectorHop),
      input_(channels, engineBlock),
      output_(channels, engineBlock),
      current_(channels, engineBlock),
      incoming_(channels, engineBlock),
      dry_(channels, engineBlock),
      dryDelay_(channels, engineLatency_),
      level_((samplesIn(levelWindowSeconds, sampleRate) + engineBlock - 1) / engineBlock)
{
    engineRamp_.length = listenRamp_.length = samplesIn(fadeSeconds, sampleRate);
    reset();
}

RealtimeDeclicker::~RealtimeDeclicker() = default;

std::vector<RealtimeDeclicker::ChannelEngines> RealtimeDeclicker::makeEngines(int channels)
{
    std::vector<ChannelEngines> engines(static_cast<std::size_t>(channels));
    for (ChannelEngines& channel : engines)
        for (int kind = 0; kind < engineKinds; ++kind) channel.engine[kind] = makeEngine(static_cast<EngineKind>(kind));
    return engines;
}

void RealtimeDeclicker::reset()
{
    for (ChannelEngines& channel : engines_) {
        for (auto& engine : channel.engine) engine->reset();
        channel.randState.fill(1u);
    }
    input_.fill(0.0f);
    output_.fill(0.0f);
    dryDelay_.reset();
    level_.reset();
    position_ = 0;
    changingEngine_ = false;
    engineRamp_.position = listenRamp_.position = -1;
    started_ = false;
    // A library loaded at run time gets its thread-local storage set up on a thread's
    // first touch: do it here, so a host that activates and runs on one thread never
    // meets that inside process().
    [[maybe_unused]] volatile std::uint32_t touch = ferrotip::detail::classicRandState;
}

void RealtimeDeclicker::process(const float* const* in, float* const* out, int n)
{
    for (int done = 0; done < n;) {
        const int count = std::min(n - done, engineBlock - position_);
        // All inputs first: a host may hand the same buffer as input and output.
        for (int c = 0; c < channels_; ++c) std::copy_n(in[c] + done, count, input_[c] + position_);
        for (int c = 0; c < channels_; ++c) std::copy_n(output_[c] + position_, count, out[c] + done);
        position_ += count;
        done += count;
        if (position_ == engineBlock) {
            processEngineBlock();
            position_ = 0;
        }
    }
}

void RealtimeDeclicker::processEngineBlock()
{
    applySettings();
    copyRows(input_, dry_);
    dryDelay_.processSamples(dry_.rows(), dry_.rows(), engineBlock);
    copyRows(input_, current_);
    runEngines(engine_, current_);
    if (changingEngine_) {
        copyRows(input_, incoming_);
        runEngines(nextEngine_, incoming_);
        settleLeft_ -= engineBlock;
        if (settleLeft_ <= 0 && !engineRamp_.running()) engineRamp_.position = 0;
    }
    writeOutput();
}

void RealtimeDeclicker::applySettings()
{
    if (!started_) {  // nothing has been heard since the reset: no fade needed
        engine_ = target_.engine;
        listen_ = target_.listen;
        started_ = true;
    }
    if (!changingEngine_ && target_.engine != engine_) startEngineChange(target_.engine);
    if (!listenRamp_.running() && target_.listen != listen_) {
        nextListen_ = target_.listen;
        listenRamp_.position = 0;
    }
    const double meanSquare = level_.push(inputMeanSquare());
    floor_ = target_.absoluteFloor ? target_.floor : static_cast<float>(target_.floorRatio * meanSquare);
    for (ChannelEngines& channel : engines_) {
        for (auto& engine : channel.engine) {
            engine->setSensitivity(target_.sensitivity);
            engine->setSpectralFloor(floor_);
        }
    }
}

double RealtimeDeclicker::inputMeanSquare() const
{
    double sum = 0.0;
    for (int c = 0; c < channels_; ++c)
        for (int i = 0; i < engineBlock; ++i) sum += static_cast<double>(input_[c][i]) * input_[c][i];
    return sum / (static_cast<double>(engineBlock) * channels_);
}

void RealtimeDeclicker::startEngineChange(EngineKind next)
{
    nextEngine_ = next;
    changingEngine_ = true;
    settleLeft_ = settleSamples_;
    for (ChannelEngines& channel : engines_) {
        channel.engine[static_cast<int>(next)]->reset();
        channel.randState[static_cast<int>(next)] = 1u;
    }
}

void RealtimeDeclicker::runEngines(EngineKind kind, standardLib::CBuffer2D<float>& rows)
{
    std::uint32_t& threadState = ferrotip::detail::classicRandState;
    const std::uint32_t callerState = threadState;
    for (int c = 0; c < channels_; ++c) {
        ChannelEngines& channel = engines_[static_cast<std::size_t>(c)];
        const int k = static_cast<int>(kind);
        threadState = channel.randState[k];
        float* row[1] = {rows[c]};
        channel.engine[k]->process(row, engineBlock);
        channel.randState[k] = threadState;
    }
    threadState = callerState;
}

float RealtimeDeclicker::listenValue(ListenMode mode, float repaired, float dry) const
{
    switch (mode) {
    case ListenMode::difference: return repaired - dry;
    case ListenMode::bypass: return dry;
    case ListenMode::normal: break;
    }
    return repaired;
}

void RealtimeDeclicker::writeOutput()
{
    for (int i = 0; i < engineBlock; ++i) {
        for (int c = 0; c < channels_; ++c) {
            float repaired = current_[c][i];
            if (engineRamp_.running()) {
                const float g = engineRamp_.gain();
                repaired = (1.0f - g) * repaired + g * incoming_[c][i];
            }
            float value = listenValue(listen_, repaired, dry_[c][i]);
            if (listenRamp_.running()) {
                const float g = listenRamp_.gain();
                value = (1.0f - g) * value + g * listenValue(nextListen_, repaired, dry_[c][i]);
            }
            output_[c][i] = value;
        }
        if (engineRamp_.running() && engineRamp_.advance()) {
            engine_ = nextEngine_;
            changingEngine_ = false;
            engineRamp_.position = -1;
        }
        if (listenRamp_.running() && listenRamp_.advance()) {
            listen_ = nextListen_;
            listenRamp_.position = -1;
        }
    }
}

}  // namespace ferrotip::lv2
