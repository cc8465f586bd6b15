// Streaming crackle remover, as its callers see it.
//
// An engine is built for a fixed channel count and block size. process(io, n)
// takes one block of n == blockSize samples per channel and replaces it in place
// with the repaired audio of getLatency() samples earlier. Construction allocates
// all buffers; process allocates nothing of the engine's own. The listen flags
// choose what process hands back (bypass wins over difference) and survive reset.
// One thread at a time; every call on the thread that calls process.
#pragma once

class MetaDeCrackler {
public:
    virtual ~MetaDeCrackler();

    // Processes one block in place; io holds one pointer per channel. Returns 0.
    virtual int process(float** io, int n) = 0;
    // Both return the engine to its just-built state, listen flags kept.
    virtual void reset() = 0;
    virtual void clear() = 0;
    // Power taken off each bin of the spectral split (spectra scaled by 1/frame size).
    virtual void setSpectralFloor(float spectralFloor) = 0;
    // Reserved; does nothing.
    virtual void setReservedParameter(float value) = 0;
    // Click threshold factor relative to the detector's level.
    virtual void setSensitivity(float sensitivity) = 0;
    // Difference mode hands back repaired minus input.
    virtual void enableDifferenceOutput() = 0;
    virtual void disableDifferenceOutput() = 0;
    // Bypass hands back the input, delayed by the same latency.
    virtual void enableBypass() = 0;
    virtual void disableBypass() = 0;
    // Reserved; always 0.0.
    virtual float getReservedParameter() = 0;
    // Reserved; does nothing.
    virtual void reservedHook() = 0;
    // Delay from input to output in samples.
    virtual int getLatency() = 0;
};
