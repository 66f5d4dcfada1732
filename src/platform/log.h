// The macros through which every message of the daemon reaches the log.
//
// Each message carries the prefix "[file:line] >>> (tid:n) " and a final newline. Debug, info and
// warning ask for their level first, so that a disabled message costs one call and formats nothing.
#pragma once

#include <sys/syscall.h>
#include <unistd.h>

#include "platform/log_api.h"

namespace tiv {

// Module id of the daemon at the log library.
constexpr int32_t LOG_MODULE_ID = 31;

// The part of a path behind its last slash. Evaluated at compile time for __FILE__.
constexpr const char* FileNameOf(const char* path) {
    const char* name = path;
    for (const char* p = path; *p != '\0'; ++p) {
        if (*p == '/') {
            name = p + 1;
        }
    }
    return name;
}

inline long LogThreadId() { return syscall(SYS_gettid); }

}  // namespace tiv

#define TIV_LOG_LINE(writer, format, ...)                                                        \
    do {                                                                                         \
        constexpr const char* tivLogFile = ::tiv::FileNameOf(__FILE__);                          \
        writer(::tiv::LOG_MODULE_ID, "[%s:%d] >>> (tid:%ld) " format "\n", tivLogFile, __LINE__, \
               ::tiv::LogThreadId(), ##__VA_ARGS__);                                             \
    } while (false)

#define TIV_LOG_GUARDED(level, writer, format, ...)            \
    do {                                                       \
        if (CheckLogLevel(::tiv::LOG_MODULE_ID, level) == 1) { \
            TIV_LOG_LINE(writer, format, ##__VA_ARGS__);       \
        }                                                      \
    } while (false)

#define TIV_LOGE(format, ...) TIV_LOG_LINE(DlogErrorInner, format, ##__VA_ARGS__)
#define TIV_EVENT(format, ...) TIV_LOG_LINE(DlogEventInner, format, ##__VA_ARGS__)
#define TIV_LOGW(format, ...) TIV_LOG_GUARDED(DLOG_WARN, DlogWarnInner, format, ##__VA_ARGS__)
#define TIV_LOGI(format, ...) TIV_LOG_GUARDED(DLOG_INFO, DlogInfoInner, format, ##__VA_ARGS__)
#define TIV_LOGD(format, ...) TIV_LOG_GUARDED(DLOG_DEBUG, DlogDebugInner, format, ##__VA_ARGS__)
