// Bounds-checked copies and formatting: a check in front of the C library's own functions. With
// constant sizes the compiler removes the checks.
#pragma once

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <stdio.h>
#include <string.h>

// 0, or non-zero when a pointer is null, room is 0, count exceeds room or the ranges overlap.
// A count of 0 with room above 0 succeeds.
static inline int32_t memcpy_s(void* dst, size_t room, const void* src, size_t count) {
    if (!dst || !src || room == 0 || count > room) {
        return -1;
    }
    const uintptr_t to = (uintptr_t)dst;
    const uintptr_t from = (uintptr_t)src;
    const uintptr_t distance = to > from ? to - from : from - to;
    if (distance < count) {
        return -1;
    }
    memcpy(dst, src, count);
    return 0;
}

// 0, or non-zero when the pointer is null, room is 0 or count exceeds room.
static inline int32_t memset_s(void* dst, size_t room, int32_t c, size_t count) {
    if (!dst || room == 0 || count > room) {
        return -1;
    }
    memset(dst, c, count);
    return 0;
}

static inline int32_t tiv_vsnprintf_s(char* dst, size_t room, size_t count, const char* fmt,
                                      va_list args) __attribute__((format(printf, 4, 0)));

static inline int32_t tiv_vsnprintf_s(char* dst, size_t room, size_t count, const char* fmt,
                                      va_list args) {
    if (!dst || room == 0 || !fmt || count >= room) {
        return -1;
    }
    const int written = vsnprintf(dst, count + 1, fmt, args);
    return written < 0 || (size_t)written > count ? -1 : written;
}

// Characters written without the final zero, or -1 on truncation or bad arguments. At most `count`
// characters are written; room must exceed count.
static inline int32_t snprintf_s(char* dst, size_t room, size_t count, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

static inline int32_t snprintf_s(char* dst, size_t room, size_t count, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int32_t written = tiv_vsnprintf_s(dst, room, count, fmt, args);
    va_end(args);
    return written;
}

// The same with room - 1 as the count.
static inline int32_t sprintf_s(char* dst, size_t room, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));

static inline int32_t sprintf_s(char* dst, size_t room, const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    const int32_t written = room == 0 ? -1 : tiv_vsnprintf_s(dst, room, room - 1, fmt, args);
    va_end(args);
    return written;
}
