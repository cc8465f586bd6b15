/*
 * ferrotip: the C interface of the audio repair module.
 *
 * A host lists the repair methods with getMethodDescription (indices 0 to 6),
 * shows their names and descriptions, and calls process to mend a damaged
 * region of every channel in place. Samples are 32-bit floats, one array per
 * channel; positions are sample indices shared by all channels. The module keeps
 * nothing between calls. The arrays carry no length: every position a method
 * reads or writes must exist (docs/host-guide.md tells how far each reaches). Methods
 * 3 to 6 also index from the array's first sample, so for them the array begins
 * exactly the method's reach before the region (start equals that reach, at least
 * 1000) and runs on as far as the reach after it.
 *
 * Usable from C and C++. Build the module as libferrotip.so (Linux) or
 * Ferrotip_x64.dll (64-bit Windows); both export exactly these three functions
 * by plain name.
 */
#ifndef FERROTIP_FERROTIP_H
#define FERROTIP_FERROTIP_H

#include <stddef.h>
#include <stdint.h>

#if defined(FERROTIP_BUILDING) && !defined(_WIN32)
#  define FERROTIP_API __attribute__((visibility("default")))
#else
#  define FERROTIP_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* One repair method. The layout is fixed: 48 bytes, 8-byte aligned. */
typedef struct MethodDescription {
    const char* name;        /* short name for the host's list; owned by the module */
    const char* description; /* sentence for the user; owned by the module */
    int32_t index;           /* row number 0..6; the only field read on entry */
    int32_t category;        /* 0 straight line, 16/17 AR family, 32..35 waveform family */
    int32_t maxGapMs;        /* longest region the method takes, in ms */
    int32_t contextBeforeMs; /* reach before the region, in ms */
    int32_t contextAfterMs;  /* reach after the region, in ms */
    uint8_t reserved[12];    /* zero */
} MethodDescription;

/* The module is built for 64-bit targets only (x86-64 Linux, Windows x64). */
#if defined(UINTPTR_MAX) && UINTPTR_MAX != 0xFFFFFFFFFFFFFFFFu
#  error "ferrotip.h: the ferrotip module exists for 64-bit targets only"
#endif

/* The layout is checked where the language can (C11, C++11); older dialects
 * compile the header without the checks. */
#if defined(__cplusplus) && __cplusplus >= 201103L
#  define FERROTIP_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#  define FERROTIP_ALIGNOF(type) alignof(type)
#elif !defined(__cplusplus) && defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#  define FERROTIP_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#  define FERROTIP_ALIGNOF(type) _Alignof(type)
#endif
#ifdef FERROTIP_STATIC_ASSERT
FERROTIP_STATIC_ASSERT(sizeof(MethodDescription) == 48, "MethodDescription is 48 bytes");
FERROTIP_STATIC_ASSERT(FERROTIP_ALIGNOF(MethodDescription) == 8, "8-byte aligned");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, name) == 0, "name at 0");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, description) == 8, "description at 8");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, index) == 16, "index at 16");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, category) == 20, "category at 20");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, maxGapMs) == 24, "maxGapMs at 24");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, contextBeforeMs) == 28, "contextBeforeMs at 28");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, contextAfterMs) == 32, "contextAfterMs at 32");
FERROTIP_STATIC_ASSERT(offsetof(MethodDescription, reserved) == 36, "reserved at 36");
#endif

/* Number of rows getMethodDescription answers; nothing in the table signals its end. */
#define FERROTIP_METHOD_COUNT 7

/* Copies row record->index over *record. An index of 7 or more changes nothing. */
FERROTIP_API void getMethodDescription(MethodDescription* record);

/* Stores hostValue; nothing reads it. Calling init is optional. */
FERROTIP_API void init(void* ignored, void* hostValue);

/*
 * Repairs samples start .. start+length-1 of every channel with the given method.
 * Returns 0 on success (also for a method of 7 or more, which touches nothing),
 * -1 for a negative method, 1 when a click method's region is too long, and -1
 * (methods 3 to 5) or +1 (method 6) when a waveform method's region is too long.
 * *leftFade and *rightFade receive the crossfade lengths of methods 3 to 6, else 0.
 */
FERROTIP_API int32_t process(void* reserved, float** channels, int32_t channelCount,
                             int32_t sampleRate, int32_t start, int32_t length,
                             int32_t method, int32_t* leftFade, int32_t* rightFade);

/* Function pointer types for hosts that load the module at run time. */
typedef void (*FerrotipGetMethodDescriptionFn)(MethodDescription*);
typedef void (*FerrotipInitFn)(void*, void*);
typedef int32_t (*FerrotipProcessFn)(void*, float**, int32_t, int32_t, int32_t, int32_t,
                                     int32_t, int32_t*, int32_t*);

#ifdef __cplusplus
}
#endif

#endif /* FERROTIP_FERROTIP_H */
