#include "harness/AllocationCounter.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t threadAllocations = 0;
std::atomic<std::uint64_t> processAllocations{0};

void count() {
    ++threadAllocations;
    processAllocations.fetch_add(1, std::memory_order_relaxed);
}

void* allocate(std::size_t size) {
    count();
    if (void* block = std::malloc(size == 0 ? 1 : size)) return block;
    throw std::bad_alloc();
}

void* allocateAligned(std::size_t size, std::align_val_t alignment) {
    count();
    const auto align = static_cast<std::size_t>(alignment);
    // aligned_alloc wants a multiple of the alignment.
    const std::size_t rounded = ((size == 0 ? 1 : size) + align - 1) / align * align;
    if (void* block = std::aligned_alloc(align, rounded)) return block;
    throw std::bad_alloc();
}

void* allocateOrNull(std::size_t size) noexcept {
    try {
        return allocate(size);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

// GCC takes the free() inside a replaced operator delete for a mismatched deallocation.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

// The deallocation functions must be replaced with the allocation ones.
void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocateOrNull(size);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return allocateAligned(size, alignment);
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
    return allocateAligned(size, alignment);
}
void operator delete(void* block) noexcept { std::free(block); }
void operator delete[](void* block) noexcept { std::free(block); }
void operator delete(void* block, std::size_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t) noexcept { std::free(block); }
void operator delete(void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::align_val_t) noexcept { std::free(block); }
void operator delete(void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }
void operator delete[](void* block, std::size_t, std::align_val_t) noexcept { std::free(block); }

namespace TalvexHarness {

AllocationCounter::AllocationCounter()
    : threadStart(threadAllocations), processStart(processAllocations.load()) {}

std::size_t AllocationCounter::Count() const { return threadAllocations - threadStart; }

std::uint64_t AllocationCounter::ProcessCount() const {
    return processAllocations.load() - processStart;
}

}  // namespace TalvexHarness
