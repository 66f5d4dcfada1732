// Allocation failures of the C allocator on demand, and a count of its blocks.
#pragma once

#include <cstddef>

namespace tiv::test {

// While it lives, malloc, calloc and realloc called from the objects of this program (not from
// shared libraries) fail for sizes of at least `bytes`: `skip` of them pass, the next `count` fail.
class FailingMalloc {
 public:
    explicit FailingMalloc(size_t bytes, size_t skip = 0, size_t count = 1);
    ~FailingMalloc();
    FailingMalloc(const FailingMalloc&) = delete;
    FailingMalloc& operator=(const FailingMalloc&) = delete;

    // Allocations that have failed so far.
    size_t Failed() const;
};

// Blocks of the calling thread's C allocations less those that it freed; differences count only.
long LiveMallocBlocks();
// Allocations of the calling thread of at least the size given to WatchMallocs.
size_t WatchedMallocs();
void WatchMallocs(size_t bytes);

}  // namespace tiv::test
