#include "ScanCriteria.h"

#include <cmath>

namespace {
constexpr double shortestMs = 0.5, longestMs = 250.0, guardMs = 10.0, floorDb = -60.0;
}  // namespace

DropoutCriteria dropoutCriteria(int rate, double fullScale)
{
    DropoutCriteria c;
    c.minRun = static_cast<int>(std::ceil(shortestMs * rate / 1000.0));
    c.maxRun = static_cast<int>(std::floor(longestMs * rate / 1000.0));
    c.guard = static_cast<int>(std::lround(guardMs * rate / 1000.0));
    c.floor = std::pow(10.0, floorDb / 20.0) * fullScale;
    c.clipLevel = 0.99 * fullScale;
    c.step = fullScale > 1.0 ? 1.0 : 0.0;  // integer PCM arrives as raw integers
    return c;
}
