// How far around a damaged region process() reads and writes, per method, so a
// host can hand it arrays that cover everything. Samples are counted from the
// region's first sample: the method touches [start - before, start + after).
//
// Methods 0 to 2 read only relative to `start`, so any array that covers the reach
// will do. Waveform replacement (3 to 6) also reads at absolute indices: its search
// windows begin at the array's first sample and the winning lag is applied as an
// index from there. Its arrays must therefore begin exactly `before` samples ahead
// of the region (start == before) and run on for `after` samples; `before` is the
// row's left context, at least the 1000-sample template.
//
// Valid for every method 0..6, every rate >= 1 Hz and every length >= 0, also
// lengths the method refuses (refusals read what the method reads before refusing).
// Pure arithmetic: no allocation, any thread.
#pragma once

#include "module/MethodTable.h"

struct MethodReach {
    int before;  // samples read before the region's first sample
    int after;   // samples read or written from the region's first sample on (region included)
};

MethodReach methodReach(int method, const MethodCounts& counts, int length);

// Waveform replacement scans a 1000-sample template before the gap.
inline constexpr int waveformTemplateLength = 1000;
