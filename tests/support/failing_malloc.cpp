// The C allocator's functions as the linker renames them, with failures and a count in front.
#include "support/failing_malloc.h"

#include <cerrno>

extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* block, size_t size);
void __real_free(void* block);
void* __wrap_malloc(size_t size);
void* __wrap_calloc(size_t count, size_t size);
void* __wrap_realloc(void* block, size_t size);
void __wrap_free(void* block);
}

namespace {

thread_local size_t failingSize = 0;
thread_local size_t toPass = 0;
thread_local size_t toFail = 0;
thread_local size_t failed = 0;
thread_local size_t watchedSize = 0;
thread_local size_t watched = 0;
thread_local long live = 0;

bool Fails(size_t size) {
    if (watchedSize != 0 && size >= watchedSize) {
        ++watched;
    }
    if (failingSize == 0 || size < failingSize || toFail == 0) {
        return false;
    }
    if (toPass > 0) {
        --toPass;
        return false;
    }
    --toFail;
    ++failed;
    errno = ENOMEM;
    return true;
}

void* Counted(void* block) {
    live += block == nullptr ? 0 : 1;
    return block;
}

}  // namespace

extern "C" {

void* __wrap_malloc(size_t size) { return Fails(size) ? nullptr : Counted(__real_malloc(size)); }

void* __wrap_calloc(size_t count, size_t size) {
    return Fails(count * size) ? nullptr : Counted(__real_calloc(count, size));
}

void* __wrap_realloc(void* block, size_t size) {
    if (Fails(size)) {
        return nullptr;
    }
    void* grown = __real_realloc(block, size);
    return block == nullptr ? Counted(grown) : grown;
}

void __wrap_free(void* block) {
    live -= block == nullptr ? 0 : 1;
    __real_free(block);
}

}  // extern "C"

namespace tiv::test {

FailingMalloc::FailingMalloc(size_t bytes, size_t skip, size_t count) {
    failingSize = bytes;
    toPass = skip;
    toFail = count;
    failed = 0;
}

FailingMalloc::~FailingMalloc() { failingSize = 0; }

size_t FailingMalloc::Failed() const { return failed; }

long LiveMallocBlocks() { return live; }

size_t WatchedMallocs() { return watched; }

void WatchMallocs(size_t bytes) {
    watchedSize = bytes;
    watched = 0;
}

}  // namespace tiv::test
