// The method families behind process(): each takes over after the head of
// process has zeroed the two outputs and derived the counts.
#pragma once

#include "module/MethodTable.h"

struct RepairRequest {
    float** channels;
    int channelCount;
    int sampleRate;
    int start;
    int length;
    int method;
    MethodCounts counts;
};

// Method 0: a straight line through the two intact neighbours. Always 0.
int drawStraightLine(const RepairRequest& request);

// Methods 1 and 2: least-squares AR interpolation, ten passes or one.
int repairClick(const RepairRequest& request);

// Methods 3 to 6: waveform replacement with crossfades reported through the fades.
int replaceWaveform(const RepairRequest& request, int* leftFade, int* rightFade);

// Splice length of waveform replacement: a quarter of the region, held between 80
// and 500 samples.
int waveformCrossfade(int length);

// Which sides waveform replacement searches: 0 both (methods 3, 4), 1 left (5),
// 2 right (6).
int waveformSearchSide(int method);
