// The repair `auto` picks for a region of a given length: the gap filler, or one of
// the module's methods where it measured better. The table comes from the comparison
// on the project's music and speech (scripts/bench-inpaint.sh, README "Filling
// dropouts"): the filler led every method at every length from 0.1 to 249 ms on music
// and on speech, so every length goes to it. Pure function; any thread.
#pragma once

inline constexpr int autoUsesGapFiller = -1;

// autoUsesGapFiller, or a module method number (0 to 6).
inline int autoMethodFor(long long lengthSamples, int sampleRate)
{
    (void)lengthSamples;
    (void)sampleRate;
    return autoUsesGapFiller;
}
