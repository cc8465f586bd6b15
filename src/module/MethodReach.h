// How far around a damaged region process() reads and writes, per method, so a
// host can hand it arrays that cover everything. Samples are counted from the
// region's first sample: the method touches [start - before, start + after).
#pragma once

#include "module/MethodTable.h"

struct MethodReach {
    int before;  // samples read before the region's first sample
    int after;   // samples read from the region's first sample on (region included)
};

// methods 0: the two neighbours; 1, 2: the AR analysis span and model context;
// 3 to 6: the whole context of the row (the host's array is exactly contextLength long).
MethodReach methodReach(int method, const MethodCounts& counts, int length);

// Waveform replacement scans a 1000-sample template before the gap.
inline constexpr int waveformTemplateLength = 1000;
