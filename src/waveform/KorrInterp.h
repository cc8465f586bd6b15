// Placeholder until the waveform subsystem lands: the interface the dispatcher calls.
#pragma once

class KorrInterp {
public:
    KorrInterp(int channelCount, int sampleRate, int contextLength);
    virtual ~KorrInterp();
    int interpolate(float** channels, int channelCount, int sampleRate, int start, int length,
                    int leftFade, int rightFade, int searchSide);
};
