// Counts heap allocations made through operator new on the calling thread, so a
// test can prove that a processing call allocates nothing. Link
// AllocationCounter.cpp into the test program; it replaces the global operator new.
#pragma once

#include <cstddef>

namespace testsupport {

std::size_t allocationCount();

// Number of allocations made while `body` runs.
template <typename Body>
std::size_t allocationsDuring(Body&& body)
{
    const std::size_t before = allocationCount();
    body();
    return allocationCount() - before;
}

}  // namespace testsupport
