// The log of a plain Linux machine: lines on standard error.
//
// TIV_LOG_LEVEL (error, warning, info, debug) is the lowest level written, warning by default;
// errors and events are always written. A line is at most PIPE_BUF bytes and goes out in one
// write, so that lines of several processes on one pipe don't mix. When the service manager reads
// the stream, a line starts with the priority that its journal understands and leaves out the time.
//
// All state is atomic numbers without destructors: lines are written before dlog_init, from any
// thread and during exit.
#include <errno.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <atomic>

#include "platform/log_api.h"

namespace {

// Levels of lines; the first four are those of the interface.
enum Level { DEBUG = DLOG_DEBUG, INFO = DLOG_INFO, WARN = DLOG_WARN, ERROR = DLOG_ERROR, EVENT };

struct LevelForm {
    const char* name;      // value of TIV_LOG_LEVEL, null for none
    const char* priority;  // for the service manager's journal
    const char* label;
};

constexpr LevelForm FORMS[] = {
    {"debug", "<7>", "DEBUG"}, {"info", "<6>", "INFO"},   {"warning", "<4>", "WARNING"},
    {"error", "<3>", "ERROR"}, {nullptr, "<5>", "EVENT"},
};

constexpr size_t LINE_BYTES = PIPE_BUF;
constexpr char CUT_MARK[] = "...\n";
constexpr int UNREAD = -1;

std::atomic<int> threshold{UNREAD};
std::atomic<bool> ownedByJournal{false};

// The level of a text; WARN with `known` false when it is none.
Level LevelOf(const char* text, bool& known) {
    known = true;
    for (int level = DEBUG; level <= ERROR; ++level) {
        if (strcmp(text, FORMS[level].name) == 0) {
            return static_cast<Level>(level);
        }
    }
    known = false;
    return WARN;
}

// JOURNAL_STREAM holds device and inode of the stream that the service manager made; after a
// redirection it names another than standard error.
bool JournalReadsStandardError() {
    const char* stream = getenv("JOURNAL_STREAM");
    struct stat status = {};
    unsigned long device = 0;
    unsigned long inode = 0;
    return stream != nullptr && sscanf(stream, "%lu:%lu", &device, &inode) == 2 &&
           fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

// False when the environment names no level that exists.
bool ReadSettings() {
    const char* text = getenv("TIV_LOG_LEVEL");
    bool known = true;
    const int level = text == nullptr || *text == '\0' ? WARN : LevelOf(text, known);
    ownedByJournal.store(JournalReadsStandardError(), std::memory_order_relaxed);
    threshold.store(level, std::memory_order_release);
    return known;
}

bool Enabled(int level) {
    if (threshold.load(std::memory_order_acquire) == UNREAD) {
        ReadSettings();
    }
    return level >= ERROR || level >= threshold.load(std::memory_order_relaxed);
}

size_t WriteHead(char* line, Level level) {
    if (ownedByJournal.load(std::memory_order_relaxed)) {
        return static_cast<size_t>(snprintf(line, LINE_BYTES, "%s", FORMS[level].priority));
    }
    timespec now = {};
    tm local = {};
    clock_gettime(CLOCK_REALTIME, &now);
    localtime_r(&now.tv_sec, &local);
    const size_t length = strftime(line, LINE_BYTES, "%Y-%m-%d %H:%M:%S", &local);
    const int more = snprintf(line + length, LINE_BYTES - length, ".%03ld %s ",
                              now.tv_nsec / 1000000, FORMS[level].label);
    return length + static_cast<size_t>(more);
}

// One line per message, whatever a peer's text holds.
void Flatten(char* text, size_t length) {
    for (size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < ' ' || byte == 0x7f) {
            text[i] = ' ';
        }
    }
}

void Write(Level level, const char* fmt, va_list args) __attribute__((format(printf, 2, 0)));

void Write(Level level, const char* fmt, va_list args) {
    if (!Enabled(level)) {
        return;
    }
    const int error = errno;
    char line[LINE_BYTES];
    const size_t head = WriteHead(line, level);
    errno = error;  // for %m
    const int wanted = vsnprintf(line + head, LINE_BYTES - head, fmt, args);
    size_t length = head + (wanted < 0 ? 0 : static_cast<size_t>(wanted));
    if (length >= LINE_BYTES) {
        length = LINE_BYTES;
        memcpy(line + length - (sizeof(CUT_MARK) - 1), CUT_MARK, sizeof(CUT_MARK) - 1);
    } else if (length == head || line[length - 1] != '\n') {
        line[length++] = '\n';
    }
    Flatten(line, length - 1);
    while (write(STDERR_FILENO, line, length) < 0 && errno == EINTR) {
    }
    errno = error;
}

void WriteNote(const char* fmt, ...) __attribute__((format(printf, 1, 2)));

void WriteNote(const char* fmt, ...) {
    va_list args;
    va_start(args, fmt);
    Write(WARN, fmt, args);
    va_end(args);
}

}  // namespace

int32_t dlog_init(void) {
    if (!ReadSettings()) {
        WriteNote("Log level unknown, warning is used: TIV_LOG_LEVEL=%s\n",
                  getenv("TIV_LOG_LEVEL"));
    }
    return 0;
}

int32_t DlogSetAttr(struct DlogAttr) { return 0; }

int32_t CheckLogLevel(int32_t, int32_t level) { return Enabled(level) ? 1 : 0; }

#define TIV_LOG_WRITER(name, level)            \
    void name(int32_t, const char* fmt, ...) { \
        va_list args;                          \
        va_start(args, fmt);                   \
        Write(level, fmt, args);               \
        va_end(args);                          \
    }

TIV_LOG_WRITER(DlogErrorInner, ERROR)
TIV_LOG_WRITER(DlogWarnInner, WARN)
TIV_LOG_WRITER(DlogInfoInner, INFO)
TIV_LOG_WRITER(DlogDebugInner, DEBUG)
TIV_LOG_WRITER(DlogEventInner, EVENT)
