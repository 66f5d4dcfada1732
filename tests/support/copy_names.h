// In front of a source of the product: its bounds-checked copies are those of failing_copy.cpp.
#pragma once

#include "platform/bounds_checked.h"

int32_t TestMemcpyS(void* dst, size_t room, const void* src, size_t count);
int32_t TestMemsetS(void* dst, size_t room, int32_t c, size_t count);

#define memcpy_s TestMemcpyS
#define memset_s TestMemsetS
