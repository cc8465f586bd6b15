#include "support/AllocationCounter.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace testsupport {
namespace {

thread_local long allocations = 0;
ReleaseProbe probe;

void* allocate(std::size_t size)
{
    ++allocations;
    if (void* block = std::malloc(size == 0 ? 1 : size))
        return block;
    throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t alignment)
{
    ++allocations;
    const auto align = static_cast<std::size_t>(alignment);
    const std::size_t rounded = (size + align - 1) / align * align;
    if (void* block = std::aligned_alloc(align, rounded == 0 ? align : rounded))
        return block;
    throw std::bad_alloc();
}

void releaseArray(void* block) noexcept
{
    if (block != nullptr && block == probe.address) {
        std::memcpy(probe.seen, block, static_cast<std::size_t>(probe.slots) * sizeof(void*));
        probe.released = true;
        probe.address = nullptr;
    }
    std::free(block);
}

}  // namespace

long allocationCount() noexcept
{
    return allocations;
}

void watchRelease(const void* address, int slots) noexcept
{
    probe = ReleaseProbe{};
    probe.address = address;
    probe.slots = slots < ReleaseProbe::capacity ? slots : ReleaseProbe::capacity;
}

const ReleaseProbe& releaseProbe() noexcept
{
    return probe;
}

}  // namespace testsupport

void* operator new(std::size_t size) { return testsupport::allocate(size); }
void* operator new[](std::size_t size) { return testsupport::allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept
{
    try { return testsupport::allocate(size); } catch (...) { return nullptr; }
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept
{
    try { return testsupport::allocate(size); } catch (...) { return nullptr; }
}
void* operator new(std::size_t size, std::align_val_t a) { return testsupport::allocateAligned(size, a); }
void* operator new[](std::size_t size, std::align_val_t a) { return testsupport::allocateAligned(size, a); }

void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { testsupport::releaseArray(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { testsupport::releaseArray(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { std::free(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { testsupport::releaseArray(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
