// The checked allocators of the session layer and the daemon shell.
#include "common/memory_utils.h"

#include <cstdlib>

#include "platform/bounds_checked.h"
#include "platform/log.h"

void* IdeXmalloc(size_t size) {
    if (size == 0) {
        return nullptr;
    }
    void* const block = std::malloc(size);
    if (block == nullptr) {
        TIV_LOGE("ran out of memory while trying to allocate %lu bytes",
                 static_cast<unsigned long>(size));
        return nullptr;
    }
    const int32_t result = memset_s(block, size, 0, size);
    if (result != 0) {
        TIV_LOGE("[IdeXmalloc]memory clear failed, err: %d", result);
        std::free(block);
        return nullptr;
    }
    return block;
}

void* IdeXrmalloc(const void* ptr, size_t oldSize, size_t newSize) {
    if (newSize == 0) {
        return nullptr;
    }
    void* const block = IdeXmalloc(newSize);
    if (block == nullptr || ptr == nullptr) {
        return block;
    }
    const size_t kept = oldSize < newSize ? oldSize : newSize;
    if (memcpy_s(block, newSize, ptr, kept) != 0) {
        IdeXfree(block);
        return nullptr;
    }
    return block;
}

void IdeXfree(void* ptr) {
    if (ptr != nullptr) {
        std::free(ptr);
    }
}
