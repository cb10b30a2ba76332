#pragma once

#include <cstddef>

namespace TalvexTest {

// Counts calls of the global operator new made by this thread while alive: the test binary that
// links AllocationCounter.cpp replaces the global allocation functions.
class AllocationCounter {
  public:
    AllocationCounter();
    ~AllocationCounter();
    AllocationCounter(const AllocationCounter&) = delete;
    AllocationCounter& operator=(const AllocationCounter&) = delete;

    std::size_t Count() const;

  private:
    std::size_t start;
};

}  // namespace TalvexTest
