// Methods 3 to 6: one KorrInterp for all channels.
#include <algorithm>
#include <memory>

#include "module/Dispatch.h"
#include "waveform/KorrInterp.h"

int waveformCrossfade(int length) { return std::clamp(length / 4, 80, 500); }

int waveformSearchSide(int method) { return method == 5 ? 1 : method == 6 ? 2 : 0; }

int replaceWaveform(const RepairRequest& request, int* leftFade, int* rightFade)
{
    if (request.counts.maxGapSamples < request.length) return request.method == 6 ? 1 : -1;

    auto interp = std::make_unique<KorrInterp>(request.channelCount, request.sampleRate,
                                               request.counts.contextLength);
    const int crossfade = waveformCrossfade(request.length);
    *leftFade = crossfade;
    *rightFade = crossfade;
    return interp->interpolate(request.channels, request.channelCount, request.sampleRate,
                               request.start, request.length, *leftFade, crossfade,
                               waveformSearchSide(request.method));
}
