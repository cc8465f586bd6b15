// Test support: a test program that links AllocationCounter.cpp replaces the global allocation functions so a test
// can count the allocations made by a call on the current thread, and can look at
// a block's contents at the moment it is released.
#pragma once

#include <cstddef>

namespace testsupport {

// Allocations made on this thread so far, by any form of operator new.
long allocationCount() noexcept;

// Counts the allocations made while it lives.
// Number of allocations made while `body` runs.
template <typename Body>
std::size_t allocationsDuring(Body&& body)
{
    const long before = allocationCount();
    body();
    return static_cast<std::size_t>(allocationCount() - before);
}

class AllocationScope {
public:
    AllocationScope() noexcept : start_(allocationCount()) {}
    long count() const noexcept { return allocationCount() - start_; }

private:
    long start_;
};

// Watches one block: when it is released through operator delete[], its first
// pointer-sized slots are recorded before the storage goes back.
struct ReleaseProbe {
    static constexpr int capacity = 16;
    const void* address = nullptr;
    int slots = 0;
    bool released = false;
    const void* seen[capacity] = {};
};

void watchRelease(const void* address, int slots) noexcept;
const ReleaseProbe& releaseProbe() noexcept;

}  // namespace testsupport
