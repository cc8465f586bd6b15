// Methods 1 and 2: one LsarInterp per channel and pass.
#include <memory>

#include "ar/LsarInterp.h"
#include "module/Dispatch.h"

namespace {

// Method 1 repeats ten times: each pass estimates its model from audio that holds
// the previous pass's repair, so the estimate converges towards the clean signal.
constexpr int smallClickPasses = 10;

int runPass(const RepairRequest& request, int mode)
{
    for (int channel = 0; channel < request.channelCount; ++channel) {
        auto interp = std::make_unique<LsarInterp>(request.counts.contextLength,
                                                   request.counts.maxGapSamples);
        const int result =
            interp->interpolate(request.channels[channel], request.start, request.length, mode);
        if (result != 0) return result;
    }
    return 0;
}

}  // namespace

int repairClick(const RepairRequest& request)
{
    const bool smallClicks = request.method == 1;
    const int passes = smallClicks ? smallClickPasses : 1;
    const int mode = smallClicks ? 1 : 2;
    for (int pass = 0; pass < passes; ++pass) {
        if (const int result = runPass(request, mode); result != 0) return result;
    }
    return 0;
}
