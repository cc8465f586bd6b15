// The constant table of the seven repair methods and the sample counts derived
// from a row. Read-only; safe on any thread.
#pragma once

#include <ferrotip/ferrotip.h>

inline constexpr int methodCount = FERROTIP_METHOD_COUNT;

// Row of method `index`, 0 to 6. No bound test: the caller keeps the index in range.
const MethodDescription& methodRow(int index);

// Sample counts that the dispatcher derives from a row, in signed 32-bit arithmetic.
struct MethodCounts {
    int samplesPerMs;   // sampleRate * 0.001, truncated toward zero
    int contextLength;  // length plus both reaches, in samples
    int maxGapSamples;  // maxGapMs in samples
};

MethodCounts deriveCounts(const MethodDescription& row, int sampleRate, int length);
