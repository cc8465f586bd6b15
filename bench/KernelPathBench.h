// The instruction-set path a kernel benchmark runs on, from its argument: named in
// the label, and skipped on a processor that lacks it.
#pragma once

#include <benchmark/benchmark.h>

#include "signal/KernelPath.h"

inline kernel_paths::Path benchPath(benchmark::State& state)
{
    const auto path = static_cast<kernel_paths::Path>(state.range(0));
    state.SetLabel(kernel_paths::pathName(path));
    if (!kernel_paths::pathSupported(path)) state.SkipWithError("path not supported on this CPU");
    return path;
}
