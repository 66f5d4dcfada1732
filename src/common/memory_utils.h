// The checked allocators of the session layer and the daemon shell.
#pragma once

#include <cstddef>

// `size` zeroed bytes, or null when size is 0 or memory is short. Goes with IdeXfree.
[[nodiscard]] void* IdeXmalloc(size_t size);

// A zeroed block of `newSize` bytes that begins with the content of `ptr`, as far as it fits; null
// when newSize is 0 or memory is short. The old block stays with the caller, who frees it.
[[nodiscard]] void* IdeXrmalloc(const void* ptr, size_t oldSize, size_t newSize);

// Null is allowed.
void IdeXfree(void* ptr);
