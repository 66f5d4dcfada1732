// Allocation failures on demand and a count of the blocks: operator new of the test program.
#include "support/failing_new.h"

#include <atomic>
#include <cstdlib>
#include <new>
#include <utility>

#include "support/before_every_test.h"

namespace {

thread_local bool armed = false;
thread_local size_t toPass = 0;
thread_local size_t toFail = 0;
thread_local size_t failed = 0;
thread_local const std::function<void()>* beforeFailure = nullptr;
thread_local long live = 0;

std::atomic<size_t> largeSize{0};
std::atomic<size_t> largeCount{0};

bool FailsOnThisThread() {
    if (!armed) {
        return false;
    }
    if (toPass > 0) {
        --toPass;
        return false;
    }
    if (toFail == 0) {
        return false;
    }
    --toFail;
    ++failed;
    if (*beforeFailure) {
        armed = false;
        (*beforeFailure)();
        armed = true;
    }
    return true;
}

bool FailsForSize(size_t size) {
    const size_t limit = largeSize.load(std::memory_order_relaxed);
    if (limit == 0 || size < limit) {
        return false;
    }
    size_t left = largeCount.load();
    while (left > 0) {
        if (largeCount.compare_exchange_weak(left, left - 1)) {
            return true;
        }
    }
    return false;
}

void* Allocate(size_t size, size_t alignment) {
    if (FailsOnThisThread() || FailsForSize(size)) {
        return nullptr;
    }
    const size_t bytes = size == 0 ? 1 : size;
    ++live;
    if (alignment <= alignof(std::max_align_t)) {
        return std::malloc(bytes);
    }
    return std::aligned_alloc(alignment, (bytes + alignment - 1) / alignment * alignment);
}

void* AllocateOrThrow(size_t size, size_t alignment) {
    void* memory = Allocate(size, alignment);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void Release(void* memory) {
    live -= memory == nullptr ? 0 : 1;
    std::free(memory);
}

}  // namespace

namespace tiv::test {

namespace {

[[maybe_unused]] const bool fresh = BeforeEveryTest([] { FailNextNewOfAtLeast(0); });

}  // namespace

FailingNew::FailingNew(size_t skip, size_t count, std::function<void()> onFailure)
    : onFailure_(std::move(onFailure)) {
    beforeFailure = &onFailure_;
    toPass = skip;
    toFail = count;
    failed = 0;
    armed = true;
}

FailingNew::~FailingNew() { armed = false; }

size_t FailingNew::Failed() const { return failed; }

void FailNextNewOfAtLeast(size_t bytes, size_t count) {
    largeCount = count;
    largeSize = bytes;
}

long LiveNewBlocks() { return live; }

}  // namespace tiv::test

void* operator new(size_t size) { return AllocateOrThrow(size, 0); }
void* operator new[](size_t size) { return AllocateOrThrow(size, 0); }
void* operator new(size_t size, const std::nothrow_t&) noexcept { return Allocate(size, 0); }
void* operator new[](size_t size, const std::nothrow_t&) noexcept { return Allocate(size, 0); }
void* operator new(size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<size_t>(alignment));
}
void* operator new[](size_t size, std::align_val_t alignment) {
    return AllocateOrThrow(size, static_cast<size_t>(alignment));
}
void operator delete(void* memory) noexcept { Release(memory); }
void operator delete[](void* memory) noexcept { Release(memory); }
void operator delete(void* memory, const std::nothrow_t&) noexcept { Release(memory); }
void operator delete[](void* memory, const std::nothrow_t&) noexcept { Release(memory); }
void operator delete(void* memory, size_t) noexcept { Release(memory); }
void operator delete[](void* memory, size_t) noexcept { Release(memory); }
void operator delete(void* memory, std::align_val_t) noexcept { Release(memory); }
void operator delete[](void* memory, std::align_val_t) noexcept { Release(memory); }
void operator delete(void* memory, size_t, std::align_val_t) noexcept { Release(memory); }
void operator delete[](void* memory, size_t, std::align_val_t) noexcept { Release(memory); }
