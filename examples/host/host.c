/*
 * A small host for the ferrotip module: lists the repair methods, then damages
 * a stretch of a generated two-channel recording and mends it with each method
 * (or with the methods named on the command line), reporting how close each
 * came to the undamaged original.
 *
 *   ferrotip_example_host [METHOD...]
 *
 * The exit status is 0 when every repair returned 0 and left finite samples.
 * docs/host-guide.md explains the rules this program follows.
 */
#include <ferrotip/ferrotip.h>

#include <math.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { CHANNELS = 2, RATE = 44100, FRAMES = 2 * RATE, REGION_START = RATE };

static const double pi = 3.14159265358979323846;

static void listMethods(void)
{
    for (int32_t index = 0; index < FERROTIP_METHOD_COUNT; ++index) {
        MethodDescription row;
        memset(&row, 0, sizeof row);
        row.index = index;
        getMethodDescription(&row);
        printf("%d  %-26s  up to %5d ms  reach %4d/%4d ms  %s\n", (int)row.index, row.name,
               (int)row.maxGapMs, (int)row.contextBeforeMs, (int)row.contextAfterMs,
               row.description);
    }
}

/* Two tones and a little noise per channel; both channels repeat every 600 samples,
 * so a waveform method can find a matching passage. */
static void makeRecording(float* channels[CHANNELS])
{
    uint32_t noise = 12345u;
    for (int c = 0; c < CHANNELS; ++c)
        for (int32_t n = 0; n < FRAMES; ++n) {
            noise = noise * 1664525u + 1013904223u;
            const double t = (double)n / RATE;
            channels[c][n] = (float)(0.5 * sin(2 * pi * (220.5 + 73.5 * c) * t) +
                                     0.25 * sin(2 * pi * 441.0 * t) +
                                     0.002 * ((double)(noise >> 8) / 16777216.0 - 0.5));
        }
}

/* A burst of noise over the region, as a click or a dropout leaves. */
static void damage(float* channels[CHANNELS], int32_t start, int32_t length)
{
    uint32_t noise = 777u;
    for (int c = 0; c < CHANNELS; ++c)
        for (int32_t n = start; n < start + length; ++n) {
            noise = noise * 1664525u + 1013904223u;
            channels[c][n] = 0.8f * ((float)(noise >> 8) / 16777216.0f - 0.5f) + 0.3f;
        }
}

static double rmsError(float* const a[CHANNELS], float* const b[CHANNELS], int32_t start,
                       int32_t length)
{
    double sum = 0.0;
    for (int c = 0; c < CHANNELS; ++c)
        for (int32_t n = start; n < start + length; ++n) {
            const double d = (double)a[c][n] - (double)b[c][n];
            sum += d * d;
        }
    return sqrt(sum / ((double)CHANNELS * length));
}

/*
 * How far beyond the window that its row describes a method may read: the
 * click methods' analysis and model and the waveform splice stay within one
 * more such window plus twice the method's longest region on each side. A host
 * that wants the exact figure per method and rate has it in the module's
 * sources (docs/host-guide.md, "Reach"); this bound is simpler and always enough.
 */
static int32_t slackFor(const MethodDescription* row, int32_t length)
{
    const int32_t perMs = RATE / 1000;
    return length + (row->contextBeforeMs + row->contextAfterMs + 2 * row->maxGapMs) * perMs;
}

/*
 * Mends recording[start, start + length) with `method`. The module reads
 * around the region on trust, so the samples go into a working window that
 * covers the method's reach, with silence where the recording ends; then the
 * samples the method may change are copied back.
 */
static int32_t repair(float* recording[CHANNELS], int32_t start, int32_t length,
                      const MethodDescription* row, int32_t* leftFade, int32_t* rightFade)
{
    const int32_t perMs = RATE / 1000;
    const int32_t before = row->contextBeforeMs * perMs;
    const int32_t after = row->contextAfterMs * perMs;
    const int32_t slack = slackFor(row, length);
    const int32_t width = slack + before + length + after + slack;
    const int32_t first = start - before - slack; /* recording position of window[0] */

    float* storage = calloc((size_t)CHANNELS * (size_t)width, sizeof *storage);
    if (!storage) return INT32_MIN;
    float* window[CHANNELS];
    for (int c = 0; c < CHANNELS; ++c) {
        float* all = storage + (size_t)c * (size_t)width;
        for (int32_t i = 0; i < width; ++i)
            if (first + i >= 0 && first + i < FRAMES) all[i] = recording[c][first + i];
        /* The array process sees starts `before` samples ahead of the region. */
        window[c] = all + slack;
    }

    const int32_t result = process(NULL, window, CHANNELS, RATE, before, length, row->index,
                                   leftFade, rightFade);

    /* The waveform methods crossfade into the audio beside the region: fade - 1
     * samples on each side change too. */
    const int32_t from = -(*leftFade > 1 ? *leftFade - 1 : 0);
    const int32_t to = length + (*rightFade > 1 ? *rightFade - 1 : 0);
    for (int c = 0; c < CHANNELS; ++c)
        for (int32_t i = from; i < to; ++i)
            if (start + i >= 0 && start + i < FRAMES)
                recording[c][start + i] = window[c][before + i];
    free(storage);
    return result;
}

static int allFinite(float* const channels[CHANNELS])
{
    for (int c = 0; c < CHANNELS; ++c)
        for (int32_t n = 0; n < FRAMES; ++n)
            if (!isfinite(channels[c][n])) return 0;
    return 1;
}

static int repairWith(int32_t method, float* clean[CHANNELS], float* work[CHANNELS])
{
    MethodDescription row;
    memset(&row, 0, sizeof row);
    row.index = method;
    getMethodDescription(&row);

    /* Half the longest region the method takes, and at most 2000 samples. */
    int32_t length = row.maxGapMs * (RATE / 1000) / 2;
    if (length > 2000) length = 2000;

    for (int c = 0; c < CHANNELS; ++c) memcpy(work[c], clean[c], FRAMES * sizeof(float));
    damage(work, REGION_START, length);
    const double damaged = rmsError(work, clean, REGION_START, length);

    int32_t leftFade = 0, rightFade = 0;
    const int32_t result = repair(work, REGION_START, length, &row, &leftFade, &rightFade);
    const double repaired = rmsError(work, clean, REGION_START, length);
    printf("%d %-26s %4d samples: result %d, fades %d/%d, rms error %.4f -> %.4f\n",
           (int)method, row.name, (int)length, (int)result, (int)leftFade, (int)rightFade,
           damaged, repaired);
    return result == 0 && allFinite(work);
}

int main(int argc, char** argv)
{
    listMethods();

    float* clean[CHANNELS];
    float* work[CHANNELS];
    for (int c = 0; c < CHANNELS; ++c) {
        clean[c] = malloc(FRAMES * sizeof(float));
        work[c] = malloc(FRAMES * sizeof(float));
        if (!clean[c] || !work[c]) return 2;
    }
    makeRecording(clean);

    int ok = 1;
    if (argc > 1) {
        for (int i = 1; i < argc; ++i) {
            /* The module trusts the index it is given: keep it inside the table. */
            char* end = NULL;
            const long method = strtol(argv[i], &end, 10);
            if (*argv[i] == '\0' || *end != '\0' || method < 0 || method >= FERROTIP_METHOD_COUNT) {
                fprintf(stderr, "no method '%s': give a number from 0 to %d\n", argv[i],
                        FERROTIP_METHOD_COUNT - 1);
                ok = 0;
                continue;
            }
            ok &= repairWith((int32_t)method, clean, work);
        }
    } else {
        for (int32_t method = 0; method < FERROTIP_METHOD_COUNT; ++method)
            ok &= repairWith(method, clean, work);
    }

    for (int c = 0; c < CHANNELS; ++c) {
        free(clean[c]);
        free(work[c]);
    }
    return ok ? 0 : 1;
}
