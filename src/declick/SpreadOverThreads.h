// Runs task(i) once for every i in [0, count) on `threads` threads, the calling one
// among them: each index goes to whichever thread asks next, so a task whose output
// depends only on its index gives the same result however many threads run. Starts
// and joins the helpers on every call (tens of microseconds each): for work that
// outweighs that. Not for real-time paths.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <thread>
#include <vector>

template <typename Task>
void spreadOverThreads(int count, int threads, const Task& task)
{
    std::atomic<int> next{0};
    const auto work = [&] {
        for (int i = next++; i < count; i = next++) task(i);
    };
    std::vector<std::jthread> helpers;
    helpers.reserve(static_cast<std::size_t>(std::max(threads - 1, 0)));
    for (int t = 1; t < threads; ++t) helpers.emplace_back(work);
    work();
}
