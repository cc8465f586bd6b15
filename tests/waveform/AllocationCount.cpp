#include "waveform/AllocationCount.h"

#include <cstdlib>
#include <new>

namespace {

thread_local long allocations = 0;

void* allocate(std::size_t size)
{
    ++allocations;
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}

}  // namespace

long waveform_test::allocationCount() noexcept { return allocations; }

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
