// The calls in front of the real ones.
#include "host/live_terminal_calls.h"

#include <fcntl.h>
#include <poll.h>
#include <termios.h>

#include <cerrno>

extern "C" {
ssize_t __real_write(int fd, const void* bytes, size_t size);
int __real_sched_yield();
int __real_poll(struct pollfd* files, nfds_t count, int timeoutMs);
int __real_open(const char* path, int flags, mode_t mode);
int __real_tcgetattr(int fd, struct termios* mode);
}

namespace tiv::test {

TerminalCalls& Calls() {
    static TerminalCalls calls;
    return calls;
}

ssize_t RealWrite(int fd, std::string_view bytes) {
    return __real_write(fd, bytes.data(), bytes.size());
}

void RealYield() {
    (void)__real_sched_yield();
    (void)__real_poll(nullptr, 0, 0);  // in such a call a sanitizer hands on the signals that came
}

}  // namespace tiv::test

extern "C" {
ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
    const auto& write = tiv::test::Calls().write;
    return write ? write(fd, {static_cast<const char*>(bytes), size})
                 : __real_write(fd, bytes, size);
}

int __wrap_sched_yield() {
    const auto& yield = tiv::test::Calls().yield;
    if (!yield) {
        return __real_sched_yield();
    }
    yield();
    return 0;
}

int __wrap_poll(struct pollfd* files, nfds_t count, int timeoutMs) {
    if (const auto& before = tiv::test::Calls().beforePoll; before) {
        before();
    }
    return __real_poll(files, count, timeoutMs);
}

// No caller in this program creates a file.
int __wrap_open(const char* path, int flags, ...) {
    const auto& refuses = tiv::test::Calls().refusesOpen;
    if (refuses && refuses(path)) {
        errno = EACCES;
        return -1;
    }
    return __real_open(path, flags, 0);
}

int __wrap_tcgetattr(int fd, struct termios* mode) {
    if (tiv::test::Calls().hasNoMode) {
        errno = EIO;
        return -1;
    }
    return __real_tcgetattr(fd, mode);
}
}
