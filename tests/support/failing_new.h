// Allocation failures on demand and a count of the blocks: operator new of the test program.
#pragma once

#include <cstddef>
#include <functional>

namespace tiv::test {

// While it lives, allocations of the calling thread through operator new go through until `skip`
// of them have passed; the next `count` throw std::bad_alloc, each after a call of `onFailure`,
// whose own allocations go through. Other threads are not touched.
class FailingNew {
 public:
    explicit FailingNew(size_t skip = 0, size_t count = 1, std::function<void()> onFailure = {});
    ~FailingNew();
    FailingNew(const FailingNew&) = delete;
    FailingNew& operator=(const FailingNew&) = delete;

    // Allocations that have failed so far.
    size_t Failed() const;

 private:
    const std::function<void()> onFailure_;
};

// The same for the thread on which the next allocation of at least `bytes` happens, whichever it
// is; for code that allocates on a thread of its own. 0 switches it off.
void FailNextNewOfAtLeast(size_t bytes, size_t count = 1);

// Blocks that the calling thread has taken through operator new less those that it gave back;
// differences count only.
long LiveNewBlocks();

}  // namespace tiv::test
