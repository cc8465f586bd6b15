// Runs task(i) once for every i in [0, count) on `threads` threads, the calling one
// among them: each index goes to whichever thread asks next, so a task whose output
// depends only on its index gives the same result however many threads run. A task
// that also takes a second int is told which thread runs it (0 .. threads - 1, the
// caller 0), to pick scratch of its own: no two tasks run on one thread at a time.
// Starts and joins the helpers on every call (tens of microseconds each): for work
// that outweighs that. Not for real-time paths.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <type_traits>
#include <vector>

// The processor's hardware threads, at least 1: the usual number to spread over.
inline int hardwareThreads() { return std::max(1, static_cast<int>(std::thread::hardware_concurrency())); }

template <typename Task>
void spreadOverThreads(int count, int threads, const Task& task)
{
    std::atomic<int> next{0};
    const auto work = [&](int thread) {
        for (int i = next++; i < count; i = next++) {
            if constexpr (std::is_invocable_v<const Task&, int, int>)
                task(i, thread);
            else
                task(i);
        }
    };
    const int helperCount = std::clamp(threads, 1, std::max(count, 1)) - 1;
    std::vector<std::jthread> helpers;
    helpers.reserve(static_cast<std::size_t>(helperCount));
    for (int t = 1; t <= helperCount; ++t) helpers.emplace_back(work, t);
    work(0);
}
