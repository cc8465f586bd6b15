#include "EdgeContinuedSource.h"

#include <algorithm>
#include <span>

#include "declick/EdgeContinuation.h"
#include "declick/SampleRange.h"

EdgeContinuedSource::EdgeContinuedSource(const DeclickSource& source, int channels, std::int64_t total, int edge,
                                         int chunk)
    : source_(source),
      channels_(channels),
      total_(total),
      edge_(edge),
      chunk_(chunk),
      ahead_(static_cast<std::size_t>(channels)),
      tail_(static_cast<std::size_t>(channels)),
      before_(static_cast<std::size_t>(channels), std::vector<float>(static_cast<std::size_t>(edge))),
      after_(static_cast<std::size_t>(channels), std::vector<float>(static_cast<std::size_t>(edge))),
      pointers_(static_cast<std::size_t>(channels))
{
    const auto kept = static_cast<std::size_t>(std::min<std::int64_t>(total, edge));
    for (auto& row : ahead_) row.reserve(kept);
    for (auto& row : tail_) row.reserve(2 * kept);
}

// Frames [offset, offset + frames) of rows from the source, checked, their tail kept.
void EdgeContinuedSource::readRecording(float* const* rows, std::int64_t offset, std::int64_t frames)
{
    for (std::int64_t done = 0; done < frames;) {
        const std::int64_t part = std::min<std::int64_t>(chunk_, frames - done);
        for (int c = 0; c < channels_; ++c) pointers_[c] = rows[c] + offset + done;
        source_(pointers_.data(), part);
        if (const auto beyond = firstSampleOutOfRange(pointers_.data(), channels_, part))
            throw SampleOutOfRangeError({beyond->channel, recordingRead_ + beyond->frame, beyond->value});
        if (edge_ > 0) keepTail(pointers_.data(), part);
        recordingRead_ += part;
        done += part;
    }
    if (recordingRead_ == total_ && edge_ > 0) continueEdges(false);
}

// The latest `edge` frames of the recording, for the continuation after it.
void EdgeContinuedSource::keepTail(const float* const* rows, std::int64_t frames)
{
    for (int c = 0; c < channels_; ++c) {
        std::vector<float>& tail = tail_[c];
        const std::int64_t kept = std::min<std::int64_t>(frames, edge_);
        tail.insert(tail.end(), rows[c] + frames - kept, rows[c] + frames);
        if (tail.size() > static_cast<std::size_t>(edge_)) tail.erase(tail.begin(), tail.end() - edge_);
    }
}

// The recording's first frames, which the continuation before it is made from.
void EdgeContinuedSource::readAhead()
{
    const std::int64_t frames = std::min<std::int64_t>(total_, edge_);
    for (auto& row : ahead_) row.resize(static_cast<std::size_t>(frames));
    std::vector<float*> rows;
    for (auto& row : ahead_) rows.push_back(row.data());
    readRecording(rows.data(), 0, frames);
    continueEdges(true);
}

void EdgeContinuedSource::continueEdges(bool before)
{
    for (int c = 0; c < channels_; ++c)
        continuePastEdge(before ? ahead_[c] : tail_[c], before, before ? before_[c] : after_[c], largestDeclickSample);
}

void EdgeContinuedSource::read(float* const* rows, std::int64_t frames)
{
    if (position_ == 0 && edge_ > 0) readAhead();
    const std::int64_t aheadFrames = static_cast<std::int64_t>(ahead_.front().size());
    for (std::int64_t i = 0; i < frames;) {
        const std::int64_t at = position_ + i;
        std::int64_t run = frames - i;
        if (at < edge_) {  // the continuation before the recording
            run = std::min<std::int64_t>(run, edge_ - at);
            for (int c = 0; c < channels_; ++c) std::copy_n(before_[c].begin() + at, run, rows[c] + i);
        } else if (at < edge_ + aheadFrames) {  // what was read ahead
            run = std::min<std::int64_t>(run, edge_ + aheadFrames - at);
            for (int c = 0; c < channels_; ++c) std::copy_n(ahead_[c].begin() + (at - edge_), run, rows[c] + i);
        } else if (at < edge_ + total_) {
            run = std::min<std::int64_t>(run, edge_ + total_ - at);
            readRecording(rows, i, run);
        } else if (at < edge_ + total_ + edge_) {  // the continuation after it
            const std::int64_t from = at - edge_ - total_;
            run = std::min<std::int64_t>(run, edge_ - from);
            for (int c = 0; c < channels_; ++c) std::copy_n(after_[c].begin() + from, run, rows[c] + i);
        } else {
            for (int c = 0; c < channels_; ++c) std::fill_n(rows[c] + i, run, 0.0f);
        }
        i += run;
    }
    position_ += frames;
}
