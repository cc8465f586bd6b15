#include "RealtimeDeclicker.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <stdexcept>

#include "ar/ClassicRand.h"

namespace ferrotip::lv2 {
namespace {

constexpr double fadeSeconds = 0.020;
constexpr double levelWindowSeconds = 10.0;
// The prediction detector's level is a median over its last ten hops of 512: a
// lane brought in mid-stream runs that long past its latency before it is heard.
constexpr int settleHops = 10;
constexpr int detectorHop = 512;

int samplesIn(double seconds, double sampleRate)
{
    return std::max(1, static_cast<int>(std::lround(seconds * sampleRate)));
}

void copyRows(const standardLib::CBuffer2D<float>& from, standardLib::CBuffer2D<float>& to)
{
    for (int c = 0; c < from.rowCount(); ++c) std::copy_n(from[c], from.columnCount(), to[c]);
}

int largestBlock(std::span<const DeclickSettings> possible)
{
    int block = 0;
    for (const DeclickSettings& settings : possible) block = std::max(block, settings.block);
    for (const DeclickSettings& settings : possible)
        if (block % settings.block != 0) throw std::invalid_argument("engine blocks must divide the largest one");
    return block;
}

float listenValue(DeclickListen mode, float repaired, float dry)
{
    switch (mode) {
    case DeclickListen::difference: return repaired - dry;
    case DeclickListen::bypass: return dry;
    case DeclickListen::repaired: break;
    }
    return repaired;
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

RealtimeDeclicker::Lane::Lane(const DeclickSettings& chosen, int channels, int fifoBlock)
    : settings(chosen),
      declicker(chosen, std::vector<double>(static_cast<std::size_t>(channels), 0.0), false,
                DeclickListen::repaired, fifoBlock, 1),
      latency(declicker.latency()),
      repaired(channels, fifoBlock),
      dry(channels, fifoBlock),
      dryDelay(channels, latency)
{
}

RealtimeDeclicker::RealtimeDeclicker(int channels, double sampleRate, std::span<const DeclickSettings> possible)
    : channels_(channels),
      fifoBlock_(largestBlock(possible)),
      settleHopSamples_(settleHops * detectorHop),
      input_(channels, fifoBlock_),
      output_(channels, fifoBlock_),
      levels_(static_cast<std::size_t>(channels),
              LevelWindow((samplesIn(levelWindowSeconds, sampleRate) + fifoBlock_ - 1) / fifoBlock_)),
      meanSquares_(static_cast<std::size_t>(channels), 0.0),
      floors_(static_cast<std::size_t>(channels), 0.0f),
      target_(possible.front())
{
    for (const DeclickSettings& settings : possible)
        if (laneFor(settings) < 0) lanes_.push_back(std::make_unique<Lane>(settings, channels, fifoBlock_));
    laneRamp_.length = listenRamp_.length = samplesIn(fadeSeconds, sampleRate);
    reset();
}

RealtimeDeclicker::~RealtimeDeclicker() = default;

int RealtimeDeclicker::latency() const
{
    return lanes_[heard_]->latency + fifoBlock_;
}

bool RealtimeDeclicker::sameShape(const DeclickSettings& a, const DeclickSettings& b)
{
    return a.engine == b.engine && a.block == b.block && a.passCount == b.passCount;
}

int RealtimeDeclicker::laneFor(const DeclickSettings& settings) const
{
    for (std::size_t k = 0; k < lanes_.size(); ++k)
        if (sameShape(lanes_[k]->settings, settings)) return static_cast<int>(k);
    return -1;
}

void RealtimeDeclicker::setSettings(const DeclickSettings& settings, DeclickListen listen)
{
    target_ = settings;
    targetListen_ = listen;
}

void RealtimeDeclicker::reset()
{
    for (auto& lane : lanes_) {
        lane->declicker.reset();
        lane->dryDelay.reset();
    }
    input_.fill(0.0f);
    output_.fill(0.0f);
    for (LevelWindow& level : levels_) level.reset();
    position_ = 0;
    changingLane_ = false;
    laneRamp_.position = listenRamp_.position = -1;
    heard_ = std::max(laneFor(target_), 0);
    started_ = false;
    // A library loaded at run time gets its thread-local storage set up on a thread's
    // first touch: do it here, so a host that activates and runs on one thread never
    // meets that inside process().
    [[maybe_unused]] volatile std::uint32_t touch = ferrotip::detail::classicRandState;
}

void RealtimeDeclicker::process(const float* const* in, float* const* out, int n)
{
    for (int done = 0; done < n;) {
        const int count = std::min(n - done, fifoBlock_ - position_);
        // All inputs first: a host may hand the same buffer as input and output. A
        // sample that is not finite goes in as silence: it would stay in the filters.
        for (int c = 0; c < channels_; ++c)
            std::transform(in[c] + done, in[c] + done + count, input_[c] + position_,
                           [](float x) { return std::isfinite(x) ? x : 0.0f; });
        for (int c = 0; c < channels_; ++c) std::copy_n(output_[c] + position_, count, out[c] + done);
        position_ += count;
        done += count;
        if (position_ == fifoBlock_) {
            processEngineBlock();
            position_ = 0;
        }
    }
}

void RealtimeDeclicker::processEngineBlock()
{
    applySettings();
    runLane(*lanes_[heard_]);
    if (changingLane_) {
        runLane(*lanes_[incoming_]);
        settleLeft_ -= fifoBlock_;
        if (settleLeft_ <= 0 && !laneRamp_.running()) laneRamp_.position = 0;
    }
    writeOutput();
}

void RealtimeDeclicker::applySettings()
{
    const int wanted = laneFor(target_);
    if (!started_) {  // nothing has been heard since the reset: no fade needed
        if (wanted >= 0) heard_ = wanted;
        listen_ = targetListen_;
        started_ = true;
    }
    if (!changingLane_ && wanted >= 0 && wanted != heard_) startLaneChange(wanted);
    if (!listenRamp_.running() && targetListen_ != listen_) {
        nextListen_ = targetListen_;
        listenRamp_.position = 0;
    }
    if (wanted >= 0) lanes_[wanted]->settings = target_;
    measureLevels();
    for (auto& lane : lanes_) lane->declicker.retune(lane->settings, meanSquares_);
    for (int c = 0; c < channels_; ++c)
        floors_[c] = lanes_[heard_]->settings.passes[0].floor.floorFor(meanSquares_[c]);
}

void RealtimeDeclicker::measureLevels()
{
    for (int c = 0; c < channels_; ++c) {
        double sum = 0.0;
        for (int i = 0; i < fifoBlock_; ++i) sum += static_cast<double>(input_[c][i]) * input_[c][i];
        meanSquares_[c] = levels_[c].push(sum / fifoBlock_);
    }
}

void RealtimeDeclicker::startLaneChange(int next)
{
    incoming_ = next;
    changingLane_ = true;
    Lane& lane = *lanes_[next];
    settleLeft_ = lane.latency + settleHopSamples_;
    lane.declicker.reset();
    lane.dryDelay.reset();
}

void RealtimeDeclicker::runLane(Lane& lane)
{
    copyRows(input_, lane.dry);
    lane.dryDelay.processSamples(lane.dry.rows(), lane.dry.rows(), fifoBlock_);
    copyRows(input_, lane.repaired);
    lane.declicker.process(lane.repaired.rows(), fifoBlock_);
}

// What lane `heard_` (faded into `incoming_` while a change runs) gives in `mode`.
float RealtimeDeclicker::heardValue(DeclickListen mode, int i, int c) const
{
    const Lane& from = *lanes_[heard_];
    const float value = listenValue(mode, from.repaired[c][i], from.dry[c][i]);
    if (!laneRamp_.running()) return value;
    const Lane& to = *lanes_[incoming_];
    const float g = laneRamp_.gain();
    return (1.0f - g) * value + g * listenValue(mode, to.repaired[c][i], to.dry[c][i]);
}

void RealtimeDeclicker::writeOutput()
{
    for (int i = 0; i < fifoBlock_; ++i) {
        for (int c = 0; c < channels_; ++c) {
            float value = heardValue(listen_, i, c);
            if (listenRamp_.running()) {
                const float g = listenRamp_.gain();
                value = (1.0f - g) * value + g * heardValue(nextListen_, i, c);
            }
            output_[c][i] = value;
        }
        if (laneRamp_.running() && laneRamp_.advance()) {
            heard_ = incoming_;
            changingLane_ = false;
            laneRamp_.position = -1;
        }
        if (listenRamp_.running() && listenRamp_.advance()) {
            listen_ = nextListen_;
            listenRamp_.position = -1;
        }
    }
}

}  // namespace ferrotip::lv2
