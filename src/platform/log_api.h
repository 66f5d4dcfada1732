// The log library's C interface. The stand-in for plain Linux writes to standard error.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { DLOG_DEBUG = 0, DLOG_INFO = 1, DLOG_WARN = 2, DLOG_ERROR = 3 };

// Attributes of the calling process, handed over by value.
struct DlogAttr {
    uint32_t type;  // 1: an ordinary process
    uint32_t pid;
    uint32_t devId;
    uint8_t reserved[52];
};

int32_t dlog_init(void);

// Non-zero means that the attributes were refused.
int32_t DlogSetAttr(struct DlogAttr attr);

// 1 when a message of `level` (DLOG_DEBUG, DLOG_INFO or DLOG_WARN) is to be written, else 0.
// Errors and events are always written and need no question.
int32_t CheckLogLevel(int32_t moduleId, int32_t level);

// One call writes one line. Callable before dlog_init, from any thread and during exit; long texts
// are cut.
void DlogErrorInner(int32_t moduleId, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void DlogWarnInner(int32_t moduleId, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void DlogInfoInner(int32_t moduleId, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void DlogDebugInner(int32_t moduleId, const char* fmt, ...) __attribute__((format(printf, 2, 3)));
void DlogEventInner(int32_t moduleId, const char* fmt, ...) __attribute__((format(printf, 2, 3)));

#ifdef __cplusplus
}
#endif
