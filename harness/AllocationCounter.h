#pragma once

#include <cstddef>
#include <cstdint>

namespace TalvexHarness {

// Counts calls of the global operator new: a program that uses it links this harness's
// replacements of the global allocation functions.
class AllocationCounter {
  public:
    AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    // Made by this thread since construction.
    std::size_t Count() const;
    // Made by the whole process, the library's other threads included, since construction.
    std::uint64_t ProcessCount() const;

  private:
    std::size_t threadStart;
    std::uint64_t processStart;
};

}  // namespace TalvexHarness
