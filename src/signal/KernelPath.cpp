#include "signal/KernelPath.h"

#include <initializer_list>

#include "signal/FftKernelPaths.h"

namespace kernel_paths {
namespace {

Path detectFastestPath()
{
    for (Path path : {Path::avx512, Path::avx2, Path::vector})
        if (pathSupported(path)) return path;
    return Path::plain;
}

}  // namespace

bool pathSupported(Path path)
{
    switch (path) {
    case Path::plain:
    case Path::vector: return true;
#if defined(__x86_64__)
    case Path::avx2: return standardLib::fft::isaAvailable(standardLib::fft::Isa::Avx2);
    case Path::avx512: return standardLib::fft::isaAvailable(standardLib::fft::Isa::Avx512);
#else
    case Path::avx2:
    case Path::avx512: return false;
#endif
    }
    return false;
}

Path fastestPath()
{
    static const Path fastest = detectFastestPath();
    return fastest;
}

const char* pathName(Path path)
{
    switch (path) {
    case Path::plain: return "plain";
    case Path::vector: return "vector";
    case Path::avx2: return "avx2";
    case Path::avx512: return "avx512";
    }
    return "unknown";
}

}  // namespace kernel_paths
