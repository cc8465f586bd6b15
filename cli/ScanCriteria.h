// What counts as a digital dropout at a sample rate: runs of 0.5 to 250 ms with sound
// at or above -60 dBFS within 10 ms on both sides, and held values below clipping.
// `ferrotip scan` and the Python module's scan() use these same criteria.
#pragma once

#include "inpaint/DropoutScanner.h"

// `fullScale` is the samples' full scale (1 for the module's floats).
DropoutCriteria dropoutCriteria(int rate, double fullScale);
