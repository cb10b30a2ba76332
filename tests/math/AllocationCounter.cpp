#include "AllocationCounter.h"

#include <cstdlib>
#include <new>

namespace {

thread_local std::size_t allocations = 0;

void* allocate(std::size_t size) {
    ++allocations;
    if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
    throw std::bad_alloc();
}

}  // namespace

void* operator new(std::size_t size) { return allocate(size); }
void* operator new[](std::size_t size) { return allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, std::size_t) noexcept { std::free(memory); }

namespace TalvexTest {

AllocationCounter::AllocationCounter() : start(allocations) {}
AllocationCounter::~AllocationCounter() = default;
std::size_t AllocationCounter::Count() const { return allocations - start; }

}  // namespace TalvexTest
