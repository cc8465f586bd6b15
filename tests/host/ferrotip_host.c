/*
 * ferrotip_host: a stand-in for the host audio editor.
 *
 * Loads the module at run time (LoadLibrary on Windows, dlopen elsewhere),
 * checks the method table that getMethodDescription hands out, runs process
 * for every method on a fixed three-channel signal made here from integer and
 * IEEE arithmetic only (no C library randomness, no libm), checks what can be
 * checked without a reference (result codes, fade outputs, samples outside the
 * region a method may write), and prints one digest line per run.
 *
 * The digest lines are meant to be compared between builds of the module for
 * different platforms: equal lines mean bit-identical repairs.
 *
 *   ferrotip_host MODULE_PATH [--dump DIR] [--instance-rva HEX]
 *
 * --dump writes every run's channel arrays to DIR/<run>.f32 (raw little-endian
 * 32-bit floats, channel after channel) for a closer look at a difference.
 * --instance-rva (Windows) gives the relative address of the variable in which
 * the load entry records the instance handle, read from the DLL's symbol
 * table; the program then checks that it holds the handle LoadLibrary gave.
 * The exit status is 0 when every check passed, 1 otherwise, 2 on a usage or
 * loading error.
 */
#include <ferrotip/ferrotip.h>

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#ifdef _WIN32
#  include <windows.h>
#else
#  include <dlfcn.h>
#  include <pthread.h>
#endif

/* ------------------------------------------------------------------------- */
/* Loading the module                                                         */

typedef void (*AnyFunction)(void);

#ifdef _WIN32
typedef HMODULE ModuleHandle;

static ModuleHandle openModule(const char* path) { return LoadLibraryA(path); }

static AnyFunction findFunction(ModuleHandle module, const char* name)
{
    return (AnyFunction)GetProcAddress(module, name);
}

static int closeModule(ModuleHandle module) { return FreeLibrary(module) ? 0 : -1; }

static const char* loadError(void) { return "LoadLibrary failed"; }
#else
typedef void* ModuleHandle;

static ModuleHandle openModule(const char* path) { return dlopen(path, RTLD_NOW | RTLD_LOCAL); }

static AnyFunction findFunction(ModuleHandle module, const char* name)
{
    void* symbol = dlsym(module, name);
    AnyFunction function;
    memcpy(&function, &symbol, sizeof function);
    return function;
}

static int closeModule(ModuleHandle module) { return dlclose(module); }

static const char* loadError(void) { return dlerror(); }
#endif

static FerrotipGetMethodDescriptionFn getMethodDescriptionFn;
static FerrotipInitFn initFn;
static FerrotipProcessFn processFn;

/* ------------------------------------------------------------------------- */
/* Reporting                                                                  */

static int failures;
static int checks;

static void check(int ok, const char* what, const char* detail)
{
    ++checks;
    if (!ok) {
        ++failures;
        printf("FAIL %s%s%s\n", what, detail ? ": " : "", detail ? detail : "");
    }
}

/* printf's 64-bit conversions differ between C libraries; this does not. */
static void formatHex64(uint64_t value, char out[17])
{
    static const char digits[] = "0123456789abcdef";
    for (int i = 15; i >= 0; --i) {
        out[i] = digits[value & 15u];
        value >>= 4;
    }
    out[16] = '\0';
}

static uint32_t floatBits(float value)
{
    uint32_t bits;
    memcpy(&bits, &value, sizeof bits);
    return bits;
}

/* FNV-1a, 64 bits. The hosts this runs on are little-endian, as the module's
 * boundary is, so the bytes hashed are the little-endian ones everywhere. */
typedef struct Digest {
    uint64_t state;
} Digest;

static void digestStart(Digest* digest) { digest->state = 0xcbf29ce484222325ull; }

static void digestBytes(Digest* digest, const void* data, size_t size)
{
    const unsigned char* bytes = (const unsigned char*)data;
    for (size_t i = 0; i < size; ++i) {
        digest->state ^= bytes[i];
        digest->state *= 0x100000001b3ull;
    }
}

static void digestInt32(Digest* digest, int32_t value) { digestBytes(digest, &value, sizeof value); }

/* ------------------------------------------------------------------------- */
/* The method table                                                           */

typedef struct ExpectedRow {
    int32_t category;
    int32_t maxGapMs;
    int32_t contextBeforeMs;
    int32_t contextAfterMs;
    const char* name;
    const char* description;
} ExpectedRow;

static const ExpectedRow expectedRows[FERROTIP_METHOD_COUNT] = {
    {0, 10000, 1, 1, "Linear Interpolation",
     "Interpolate between the first and the last selected sample with a simple straight line"},
    {16, 1, 10, 10, "Optimal Small Clicks",
     "Interpolate in a mathematical optimal sense, but only for clicks smaller than 1ms"},
    {17, 3, 50, 50, "Normal Clicks",
     "Interpolate in an optimal sense, but only for clicks smaller than 3ms"},
    {32, 250, 4000, 4000, "Waveform Replacment",
     "Replace the corrupted samples by the best fit of neighbourhood samples, Looking in both "
     "direction up to 4s"},
    {33, 250, 500, 500, "Waveform Replacment Near",
     "Replace the corrupted samples by the best fit of neighbourhood samples, Looking in both "
     "direction up to 500ms"},
    {34, 250, 6000, 6000, "Waveform Replacment Left",
     "Replace the corrupted samples by the best fit of leftside neighbourhood samples, Looking in "
     "both direction up to 6s"},
    {35, 250, 6000, 6000, "Waveform Replacment Right",
     "Replace the corrupted samples by the best fit of rightside neighbourhood samples, Looking "
     "in both direction up to 6s"},
};

/* The row as the module hands it out, read back from raw bytes at the fixed
 * offsets of the boundary record rather than through the header's struct. */
typedef struct RawRow {
    const char* name;
    const char* description;
    int32_t index, category, maxGapMs, contextBeforeMs, contextAfterMs;
    unsigned char reserved[12];
} RawRow;

static int32_t readInt32(const unsigned char* bytes, size_t offset)
{
    int32_t value;
    memcpy(&value, bytes + offset, sizeof value);
    return value;
}

static RawRow readRow(const unsigned char bytes[48])
{
    RawRow row;
    memcpy(&row.name, bytes + 0, sizeof row.name);
    memcpy(&row.description, bytes + 8, sizeof row.description);
    row.index = readInt32(bytes, 16);
    row.category = readInt32(bytes, 20);
    row.maxGapMs = readInt32(bytes, 24);
    row.contextBeforeMs = readInt32(bytes, 28);
    row.contextAfterMs = readInt32(bytes, 32);
    memcpy(row.reserved, bytes + 36, sizeof row.reserved);
    return row;
}

static void checkLayout(void)
{
    check(sizeof(MethodDescription) == 48 && sizeof(void*) == 8, "record is 48 bytes, pointers 8",
          NULL);
    check(offsetof(MethodDescription, name) == 0 && offsetof(MethodDescription, description) == 8 &&
              offsetof(MethodDescription, index) == 16 &&
              offsetof(MethodDescription, category) == 20 &&
              offsetof(MethodDescription, maxGapMs) == 24 &&
              offsetof(MethodDescription, contextBeforeMs) == 28 &&
              offsetof(MethodDescription, contextAfterMs) == 32 &&
              offsetof(MethodDescription, reserved) == 36,
          "record field offsets", NULL);
}

/* Enumerates the table as a host does and prints one line per row. */
static void checkTable(Digest* tableDigest)
{
    char label[64];
    for (int32_t index = 0; index < FERROTIP_METHOD_COUNT; ++index) {
        /* 16 bytes of slack on each side catch a write past the record. */
        unsigned char buffer[16 + 48 + 16];
        unsigned char* record = buffer + 16;
        memset(buffer, 0xA5, sizeof buffer);
        memcpy(record + 16, &index, sizeof index);
        getMethodDescriptionFn((MethodDescription*)(void*)record);

        snprintf(label, sizeof label, "table row %d", (int)index);
        int slackIntact = 1;
        for (size_t i = 0; i < 16; ++i)
            if (buffer[i] != 0xA5 || buffer[16 + 48 + i] != 0xA5) slackIntact = 0;
        check(slackIntact, label, "wrote outside the 48-byte record");

        const RawRow row = readRow(record);
        const ExpectedRow* expected = &expectedRows[index];
        check(row.index == index, label, "index changed");
        check(row.category == expected->category, label, "category");
        check(row.maxGapMs == expected->maxGapMs, label, "maxGapMs");
        check(row.contextBeforeMs == expected->contextBeforeMs, label, "contextBeforeMs");
        check(row.contextAfterMs == expected->contextAfterMs, label, "contextAfterMs");
        int reservedZero = 1;
        for (size_t i = 0; i < sizeof row.reserved; ++i)
            if (row.reserved[i] != 0) reservedZero = 0;
        check(reservedZero, label, "reserved bytes not zero");
        check(row.name != NULL && strcmp(row.name, expected->name) == 0, label, "name");
        check(row.description != NULL && strcmp(row.description, expected->description) == 0,
              label, "description");

        /* The record through the header's own struct says the same. */
        MethodDescription viaStruct;
        memset(&viaStruct, 0, sizeof viaStruct);
        viaStruct.index = index;
        getMethodDescriptionFn(&viaStruct);
        check(memcmp(&viaStruct, record, 48) == 0, label, "differs between two reads");

        /* A second enumeration returns the same text pointers: the module owns them. */
        check(viaStruct.name == row.name && viaStruct.description == row.description, label,
              "text pointers not stable");

        digestInt32(tableDigest, row.index);
        digestInt32(tableDigest, row.category);
        digestInt32(tableDigest, row.maxGapMs);
        digestInt32(tableDigest, row.contextBeforeMs);
        digestInt32(tableDigest, row.contextAfterMs);
        digestBytes(tableDigest, row.reserved, sizeof row.reserved);
        if (row.name) digestBytes(tableDigest, row.name, strlen(row.name) + 1);
        if (row.description) digestBytes(tableDigest, row.description, strlen(row.description) + 1);

        printf("row %d category %d maxGapMs %d context %d %d name \"%s\"\n", (int)row.index,
               (int)row.category, (int)row.maxGapMs, (int)row.contextBeforeMs,
               (int)row.contextAfterMs, row.name ? row.name : "(null)");
    }

    /* Past the table's end nothing is touched, not even the index. */
    const int32_t pastEnd[] = {7, 8, 1000, INT32_MAX};
    for (size_t k = 0; k < sizeof pastEnd / sizeof pastEnd[0]; ++k) {
        unsigned char record[48], before[48];
        for (size_t i = 0; i < sizeof record; ++i) record[i] = (unsigned char)(0x3C + 7 * i);
        memcpy(record + 16, &pastEnd[k], sizeof pastEnd[k]);
        memcpy(before, record, sizeof before);
        getMethodDescriptionFn((MethodDescription*)(void*)record);
        snprintf(label, sizeof label, "table index %ld", (long)pastEnd[k]);
        check(memcmp(record, before, sizeof record) == 0, label, "record changed");
    }
}

/* ------------------------------------------------------------------------- */
/* The test signal                                                            */

enum {
    CHANNELS = 3,
    /* Room for the widest reach: 6000 ms on each side at 8000 Hz, or 1024
     * samples of analysis on each side of a click, plus the longest region. */
    MARGIN = 4096,
    REACH = 48000,
    LONGEST_REGION = 2048,
    GAP_POSITION = MARGIN + REACH,
    TOTAL = MARGIN + REACH + LONGEST_REGION + REACH + MARGIN
};

static float original[CHANNELS][TOTAL];
static float work[CHANNELS][TOTAL];

/* Numerical Recipes' 32-bit LCG: the same numbers on every platform. */
static uint32_t lcgState;

static uint32_t lcgNext(void)
{
    lcgState = lcgState * 1664525u + 1013904223u;
    return lcgState;
}

/* Uniform in [-0.5, 0.5), exact in double. */
static double lcgUniform(void) { return (double)(lcgNext() >> 8) / 16777216.0 - 0.5; }

/*
 * Each channel: two undamped resonators (y[n] = k y[n-1] - y[n-2], only
 * multiplications and subtractions, so every platform computes the same bits),
 * a slow amplitude ramp, a little noise, a short repeated motif every 3000
 * samples that the waveform search can find, and damage over the region.
 */
static void makeSignal(void)
{
    static const double resonance[CHANNELS][2] = {
        {1.9753766811902755, 1.8270909152852017},
        {1.9876883405951378, 1.6180339887498949},
        {1.9602203552285305, 1.7289686274214116},
    };
    lcgState = 20240611u;
    for (int c = 0; c < CHANNELS; ++c) {
        double a1 = 0.0, a0 = 0.3 + 0.05 * c;
        double b1 = 0.0, b0 = 0.12;
        for (int n = 0; n < TOTAL; ++n) {
            const double a = resonance[c][0] * a0 - a1;
            a1 = a0;
            a0 = a;
            const double b = resonance[c][1] * b0 - b1;
            b1 = b0;
            b0 = b;
            const double ramp = 0.6 + 0.4 * (double)(n % 20000) / 20000.0;
            double value = ramp * (a + b) + 0.01 * lcgUniform();
            const int phase = n % 3000;
            if (phase < 200) value += 0.25 * (double)(phase % 50 - 25) / 25.0;
            original[c][n] = (float)value;
        }
        /* Crackle and a burst over the damaged stretch. */
        for (int n = GAP_POSITION; n < GAP_POSITION + LONGEST_REGION; ++n) {
            const uint32_t r = lcgNext();
            if ((r >> 28) == 0) original[c][n] = (r & 1u) ? 0.95f : -0.9f;
            else original[c][n] += (float)(0.4 * lcgUniform());
        }
    }
}

/* ------------------------------------------------------------------------- */
/* Runs of process                                                            */

typedef struct Run {
    const char* label;
    int32_t method;
    int32_t sampleRate;
    int32_t length;
    int32_t result;  /* expected */
    int touches;     /* whether samples may change */
} Run;

static int32_t crossfadeFor(int32_t length)
{
    int32_t fade = length / 4;
    if (fade < 80) fade = 80;
    if (fade > 500) fade = 500;
    return fade;
}

static int32_t contextBeforeSamples(int32_t method, int32_t sampleRate)
{
    if (method < 0 || method >= FERROTIP_METHOD_COUNT) return 0;
    return expectedRows[method].contextBeforeMs * (sampleRate / 1000);
}

/* Sentinel for outputs that must stay unwritten. */
enum { UNTOUCHED_FADE = 0x5EED };

typedef struct Outcome {
    int32_t result;
    int32_t leftFade;
    int32_t rightFade;
    uint64_t digest;
    uint64_t channelDigest[CHANNELS];
} Outcome;

/*
 * The host's view: each channel array starts the method's full left reach
 * before the region, and start is that reach. The click methods read further
 * than their row's reach; the arrays extend that far before their first
 * element, inside this program's buffers.
 */
static Outcome runProcess(const Run* run)
{
    memcpy(work, original, sizeof work);
    const int32_t before = contextBeforeSamples(run->method, run->sampleRate);
    float* channels[CHANNELS];
    for (int c = 0; c < CHANNELS; ++c) channels[c] = &work[c][GAP_POSITION - before];

    Outcome outcome;
    outcome.leftFade = UNTOUCHED_FADE;
    outcome.rightFade = UNTOUCHED_FADE;
    outcome.result = processFn(NULL, channels, CHANNELS, run->sampleRate, before, run->length,
                               run->method, &outcome.leftFade, &outcome.rightFade);

    Digest all;
    digestStart(&all);
    digestInt32(&all, outcome.result);
    digestInt32(&all, outcome.leftFade);
    digestInt32(&all, outcome.rightFade);
    for (int c = 0; c < CHANNELS; ++c) {
        Digest one;
        digestStart(&one);
        digestBytes(&one, work[c], sizeof work[c]);
        outcome.channelDigest[c] = one.state;
        digestBytes(&all, work[c], sizeof work[c]);
    }
    outcome.digest = all.state;
    return outcome;
}

static void printOutcome(const char* prefix, const Run* run, const Outcome* outcome)
{
    char hex[17];
    formatHex64(outcome->digest, hex);
    printf("%s %s method %d rate %d length %d result %d fades %d %d digest %s", prefix, run->label,
           (int)run->method, (int)run->sampleRate, (int)run->length, (int)outcome->result,
           (int)outcome->leftFade, (int)outcome->rightFade, hex);
    for (int c = 0; c < CHANNELS; ++c) {
        formatHex64(outcome->channelDigest[c], hex);
        printf(" ch%d %s", c, hex);
    }
    printf("\n");
}

static void dumpRun(const char* directory, const Run* run)
{
    char path[1024];
    snprintf(path, sizeof path, "%s/%s.f32", directory, run->label);
    FILE* file = fopen(path, "wb");
    if (!file) {
        check(0, "dump", path);
        return;
    }
    for (int c = 0; c < CHANNELS; ++c) fwrite(work[c], sizeof(float), TOTAL, file);
    fclose(file);
}

/* Method 0 is simple enough to recompute here, in the same 32-bit steps. */
static void checkStraightLine(const Run* run)
{
    int exact = 1;
    for (int c = 0; c < CHANNELS; ++c) {
        const float left = original[c][GAP_POSITION - 1];
        const float right = original[c][GAP_POSITION + run->length];
        const float slope = (right - left) / ((float)run->length + 1.0f);
        for (int32_t i = 1; i <= run->length; ++i) {
            const float expected = (float)i * slope + left;
            if (floatBits(work[c][GAP_POSITION + i - 1]) != floatBits(expected)) exact = 0;
        }
    }
    check(exact, run->label, "straight line differs from its 32-bit recomputation");
}

/* Samples may change only where the method writes: the region, and for the
 * waveform methods fade - 1 samples on each side of it. */
static void checkWrites(const Run* run, const Outcome* outcome)
{
    int32_t from = GAP_POSITION, to = GAP_POSITION;
    if (run->touches) {
        to = GAP_POSITION + run->length;
        if (run->method >= 3 && outcome->leftFade > 1) from -= outcome->leftFade - 1;
        if (run->method >= 3 && outcome->rightFade > 1) to += outcome->rightFade - 1;
    }
    int outside = 0, changedInside = 0;
    for (int c = 0; c < CHANNELS; ++c)
        for (int32_t n = 0; n < TOTAL; ++n) {
            const int differs = floatBits(work[c][n]) != floatBits(original[c][n]);
            if (n < from || n >= to) outside |= differs;
            else changedInside |= differs;
        }
    check(!outside, run->label, "samples changed outside the region the method may write");
    if (run->touches && run->length > 0) check(changedInside, run->label, "nothing was repaired");
}

static void checkOutcome(const Run* run, const Outcome* outcome)
{
    char detail[96];
    snprintf(detail, sizeof detail, "result %d, expected %d", (int)outcome->result,
             (int)run->result);
    check(outcome->result == run->result, run->label, detail);

    int32_t fade = 0;
    if (run->method >= FERROTIP_METHOD_COUNT) fade = UNTOUCHED_FADE;
    else if (run->method >= 3 && run->touches) fade = crossfadeFor(run->length);
    snprintf(detail, sizeof detail, "fades %d %d, expected %d", (int)outcome->leftFade,
             (int)outcome->rightFade, (int)fade);
    check(outcome->leftFade == fade && outcome->rightFade == fade, run->label, detail);

    checkWrites(run, outcome);
    if (run->method == 0 && run->touches) checkStraightLine(run);
}

/* Every method on the same signal, then the refusals and the table's edges.
 * The click methods consume the module's dither generator, whose state each
 * thread keeps and continues across calls: the order of this list is part of
 * what the digests say. */
static const Run runs[] = {
    {"m0-8k", 0, 8000, 37, 0, 1},
    {"m1-8k", 1, 8000, 5, 0, 1},
    {"m2-8k", 2, 8000, 17, 0, 1},
    {"m3-8k", 3, 8000, 400, 0, 1},
    {"m4-8k", 4, 8000, 400, 0, 1},
    {"m5-8k", 5, 8000, 400, 0, 1},
    {"m6-8k", 6, 8000, 400, 0, 1},
    /* The click methods at a common rate: full 1024-sample analysis for method 2. */
    {"m0-44k", 0, 44100, 1500, 0, 1},
    {"m1-44k", 1, 44100, 44, 0, 1},
    {"m2-44k", 2, 44100, 132, 0, 1},
    {"m2-44k-short", 2, 44100, 3, 0, 1},
    /* The longest region each waveform method takes at 8000 Hz. */
    {"m4-8k-longest", 4, 8000, 2000, 0, 1},
    /* Refusals: one sample over the limit. */
    {"m1-8k-over", 1, 8000, 9, 1, 0},
    {"m2-8k-over", 2, 8000, 25, 1, 0},
    {"m3-8k-over", 3, 8000, 2001, -1, 0},
    {"m4-8k-over", 4, 8000, 2001, -1, 0},
    {"m5-8k-over", 5, 8000, 2001, -1, 0},
    {"m6-8k-over", 6, 8000, 2001, 1, 0},
    {"m1-999hz", 1, 999, 1, 1, 0},
    {"m6-999hz", 6, 999, 1, 1, 0},
    /* Method numbers outside the table. */
    {"m7", 7, 8000, 10, 0, 0},
    {"m1000", 1000, 8000, 10, 0, 0},
    {"m-1", -1, 8000, 10, -1, 0},
};

enum { RUN_COUNT = (int)(sizeof runs / sizeof runs[0]) };

/* ------------------------------------------------------------------------- */
/* A repair on a thread of its own                                            */

/* A new thread starts its own dither sequence, so method 1 on a fresh thread
 * repeats the main thread's first method 1 run bit for bit. */
static Outcome threadOutcome;

#ifdef _WIN32
static DWORD WINAPI threadBody(LPVOID argument)
{
    threadOutcome = runProcess((const Run*)argument);
    return 0;
}

static int runOnThread(const Run* run)
{
    HANDLE thread = CreateThread(NULL, 0, threadBody, (LPVOID)run, 0, NULL);
    if (!thread) return -1;
    WaitForSingleObject(thread, INFINITE);
    CloseHandle(thread);
    return 0;
}
#else
static void* threadBody(void* argument)
{
    threadOutcome = runProcess((const Run*)argument);
    return NULL;
}

static int runOnThread(const Run* run)
{
    pthread_t thread;
    if (pthread_create(&thread, NULL, threadBody, (void*)run) != 0) return -1;
    return pthread_join(thread, NULL);
}
#endif

/* ------------------------------------------------------------------------- */

int main(int argc, char** argv)
{
    const char* modulePath = NULL;
    const char* dumpDirectory = NULL;
    const char* instanceRva = NULL;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--dump") == 0 && i + 1 < argc) dumpDirectory = argv[++i];
        else if (strcmp(argv[i], "--instance-rva") == 0 && i + 1 < argc) instanceRva = argv[++i];
        else if (!modulePath) modulePath = argv[i];
        else modulePath = NULL, i = argc;
    }
    if (!modulePath) {
        fprintf(stderr, "usage: %s MODULE_PATH [--dump DIR] [--instance-rva HEX]\n", argv[0]);
        return 2;
    }

    ModuleHandle module = openModule(modulePath);
    if (!module) {
        fprintf(stderr, "cannot load %s: %s\n", modulePath, loadError());
        return 2;
    }
    getMethodDescriptionFn =
        (FerrotipGetMethodDescriptionFn)findFunction(module, "getMethodDescription");
    initFn = (FerrotipInitFn)findFunction(module, "init");
    processFn = (FerrotipProcessFn)findFunction(module, "process");
    if (!getMethodDescriptionFn || !initFn || !processFn) {
        fprintf(stderr, "%s lacks an entry point\n", modulePath);
        return 2;
    }

#ifdef _WIN32
    {
        /* The load entry reported success (else LoadLibrary failed); a second
         * load finds the same module, under the name its export table gives. */
        HMODULE again = LoadLibraryA(modulePath);
        check(again == module, "load entry", "second LoadLibrary gave another handle");
        if (again) FreeLibrary(again);
        check(GetModuleHandleA("Ferrotip_x64.dll") == module, "load entry",
              "module not known as Ferrotip_x64.dll");
        /* The handle of a module is its base address. */
        if (instanceRva) {
            const uintptr_t offset = (uintptr_t)strtoull(instanceRva, NULL, 16);
            HINSTANCE recorded;
            memcpy(&recorded, (const char*)module + offset, sizeof recorded);
            check(recorded == module, "load entry", "instance handle not recorded on process attach");
        }
    }
#else
    (void)instanceRva;
#endif

    checkLayout();

    /* init is optional and changes nothing: call it before and between runs. */
    initFn(NULL, (void*)(uintptr_t)0x1234);

    Digest tableDigest;
    digestStart(&tableDigest);
    checkTable(&tableDigest);
    char hex[17];
    formatHex64(tableDigest.state, hex);
    printf("table digest %s\n", hex);

    makeSignal();
    Digest signalDigest;
    digestStart(&signalDigest);
    digestBytes(&signalDigest, original, sizeof original);
    formatHex64(signalDigest.state, hex);
    printf("signal digest %s\n", hex);

    Outcome firstSmallClicks;
    int haveFirstSmallClicks = 0;
    for (int r = 0; r < RUN_COUNT; ++r) {
        if (r == RUN_COUNT / 2) initFn((void*)(uintptr_t)1, NULL);
        const Run* run = &runs[r];
        const Outcome outcome = runProcess(run);
        printOutcome("run", run, &outcome);
        checkOutcome(run, &outcome);
        if (dumpDirectory) dumpRun(dumpDirectory, run);
        if (run->method == 1 && run->touches && !haveFirstSmallClicks) {
            firstSmallClicks = outcome;
            haveFirstSmallClicks = 1;
        }
    }

    /* The main thread's first dither-consuming run was runs[1], method 1. */
    if (runOnThread(&runs[1]) != 0) {
        check(0, "thread", "could not start a thread");
    } else {
        printOutcome("thread", &runs[1], &threadOutcome);
        check(haveFirstSmallClicks && threadOutcome.digest == firstSmallClicks.digest, "thread",
              "a fresh thread's repair differs from the main thread's first one");
    }

    check(closeModule(module) == 0, "unload", NULL);

    printf("host: %d checks, %d failed\n", checks, failures);
    return failures == 0 ? 0 : 1;
}
