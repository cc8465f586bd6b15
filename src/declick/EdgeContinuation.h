// Continues audio past an edge of a recording, so that a stage run past the
// recording's start or end sees the sound go on there rather than a step to
// silence, which a declicker takes for a click.
//
// Far from the edge the continuation is the point reflection of the audio about the
// edge sample, y(e + j) = 2 x(e) - x(e - j): value and slope go on unbroken, the
// spectrum is the audio's own, and it cannot run away whatever damage lies near the
// edge, since it only mirrors it. Its curvature flips at the edge, though, which a
// steady tone shows up; so the first `predicted` samples are linear prediction
// (order `order`, fitted by the autocorrelation method over the `fitLength` samples
// next to the edge), crossfaded into the reflection over the next `predicted`. The
// outer half of the continuation then fades to silence with a half cosine, so the
// silence beyond starts without a step either; past the recording's own length the
// reflection holds its last value.
//
// Double arithmetic in a fixed order, rounded once to float: the same bits on every
// path. It allocates only the model fit's scratch rows; any thread.
#pragma once

#include <span>

namespace edgecontinuation {

inline constexpr int order = 16;
inline constexpr int fitLength = 1024;
inline constexpr int predicted = 32;

}  // namespace edgecontinuation

// Writes out.size() samples continuing `samples` (in time order): before its first
// sample when `before`, else after its last; `out` is in time order. Silence when
// `samples` is empty. Each value is held within ±limit.
void continuePastEdge(std::span<const float> samples, bool before, std::span<float> out, float limit);
