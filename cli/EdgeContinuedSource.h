// A recording as the declick engines read it: each edge continued by `edge` frames
// of sound (continuePastEdge), then silence, so that a recording starting or stopping
// mid-signal steps neither from nor to silence at its own edges. Stream frame `edge`
// is the recording's first frame.
//
// It reads the recording's first `edge` frames ahead, before anything is handed on,
// and checks each frame of the recording's against ±largestDeclickSample as it reads
// it (SampleOutOfRangeError, in the recording's positions). Allocates at
// construction only.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>


// Fills rows[c][0, frames) with the next frames of the recording (full scale 1) and
// returns how many it gave; 0 only when the source ended early.
using DeclickSource = std::function<std::int64_t(float* const* rows, std::int64_t frames)>;

class EdgeContinuedSource {
public:
    // `chunk`: the most frames one call to `source` may ask for.
    EdgeContinuedSource(const DeclickSource& source, int channels, std::int64_t total, int edge, int chunk);

    // Frames in the stream: the recording and both continuations.
    std::int64_t streamFrames() const { return total_ + 2 * edge_; }

    // Fills rows[c][0, frames) with the stream's next frames (silence past its end).
    void read(float* const* rows, std::int64_t frames);

private:
    void readRecording(float* const* rows, std::int64_t offset, std::int64_t frames);
    void readAhead();
    void keepTail(const float* const* rows, std::int64_t frames);
    void continueEdges(bool before);

    DeclickSource source_;
    int channels_;
    std::int64_t total_;
    int edge_;
    int chunk_;
    std::int64_t position_ = 0;     // in the stream
    std::int64_t recordingRead_ = 0;  // frames taken from the source
    std::vector<std::vector<float>> ahead_;   // the recording's first frames, read ahead
    std::vector<std::vector<float>> tail_;    // its latest frames, at most `edge`
    std::vector<std::vector<float>> before_;  // the continuation before the first frame
    std::vector<std::vector<float>> after_;   // and after the last
    std::vector<float*> pointers_;
};
