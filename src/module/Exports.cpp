// The three exported entry points and method 0.
#include <ferrotip/ferrotip.h>

#include <cstring>

#include "module/Dispatch.h"
#include "module/MethodTable.h"

namespace {
// Written by init and read by nothing; volatile keeps the store the host asked for.
void* volatile hostContext = nullptr;
}

extern "C" FERROTIP_API void getMethodDescription(MethodDescription* record)
{
    if (record->index >= methodCount) return;
    std::memcpy(record, &methodRow(record->index), sizeof(MethodDescription));
}

extern "C" FERROTIP_API void init(void* /*ignored*/, void* hostValue) { hostContext = hostValue; }

extern "C" FERROTIP_API int32_t process(void* /*reserved*/, float** channels, int32_t channelCount,
                                        int32_t sampleRate, int32_t start, int32_t length,
                                        int32_t method, int32_t* leftFade, int32_t* rightFade)
{
    if (method >= methodCount) return 0;  // past the table: nothing touched, not even the fades
    *rightFade = 0;
    *leftFade = 0;
    if (method < 0) return -1;

    const RepairRequest request{channels, channelCount, sampleRate, start, length, method,
                                deriveCounts(methodRow(method), sampleRate, length)};
    if (method == 0) return drawStraightLine(request);
    if (method <= 2) return repairClick(request);
    return replaceWaveform(request, leftFade, rightFade);
}

int drawStraightLine(const RepairRequest& request)
{
    const int start = request.start;
    const int length = request.length;
    for (int channel = 0; channel < request.channelCount; ++channel) {
        float* x = request.channels[channel];
        const float left = x[start - 1];
        const float right = x[start + length];
        const float slope = (right - left) / (static_cast<float>(length) + 1.0f);
        for (int i = 1; i <= length; ++i) x[start + i - 1] = static_cast<float>(i) * slope + left;
    }
    return 0;
}
