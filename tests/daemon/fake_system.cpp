// Doubles of the calls that the daemon shell makes past the OS abstraction.
#include "daemon/fake_system.h"

#include <fcntl.h>
#include <pthread.h>
#include <pwd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdarg>

namespace {

constexpr int NO_COMMAND = -1;
// The real user of the tests, whoever runs them: nobody else has a record.
constexpr uid_t REAL_USER = 4711;
constexpr int64_t NANO_PER_SECOND = 1000000000;

std::string homeText;
struct passwd userRecord;
bool hasRecord = true;
int failingCommand = NO_COMMAND;
std::atomic<bool> timedWaitsEnd{false};
std::atomic<int64_t> lastDeadlineNs{0};
std::atomic<int64_t> clockAheadNs{0};

}  // namespace

namespace tiv::test {

void SetHome(const std::string& home) {
    homeText = home;
    userRecord.pw_dir = homeText.data();
    hasRecord = true;
}

void SetNullHome() {
    userRecord.pw_dir = nullptr;
    hasRecord = true;
}

void SetNoUserRecord() { hasRecord = false; }

void FailFileControl(int command) { failingCommand = command; }

void EndTimedWaits(bool end) {
    timedWaitsEnd = end;
    clockAheadNs = 0;
}

std::chrono::steady_clock::time_point LastDeadline() {
    return std::chrono::steady_clock::time_point(std::chrono::nanoseconds(lastDeadlineNs));
}

}  // namespace tiv::test

// The program's own look-ups come before the system's.
extern "C" uid_t getuid() noexcept { return REAL_USER; }

extern "C" struct passwd* getpwuid(uid_t user) {
    return hasRecord && user == REAL_USER ? &userRecord : nullptr;
}

// The linker sends every fcntl of the program here.
extern "C" int __real_fcntl(int fd, int command, ...);

extern "C" int __wrap_fcntl(int fd, int command, ...) {
    if (command == failingCommand) {
        errno = EACCES;
        return -1;
    }
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return __real_fcntl(fd, command, argument);
}

// The linker sends every reading of the steady clock and every wait for one of its times here. A
// wait that is cut short takes the clock on to its deadline.
extern "C" int64_t __real__ZNSt6chrono3_V212steady_clock3nowEv();

extern "C" int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    return __real__ZNSt6chrono3_V212steady_clock3nowEv() + clockAheadNs;
}

extern "C" int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const struct timespec* deadline);

extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const struct timespec* deadline) {
    if (timedWaitsEnd) {
        lastDeadlineNs = deadline->tv_sec * NANO_PER_SECOND + deadline->tv_nsec;
        clockAheadNs = lastDeadlineNs - __real__ZNSt6chrono3_V212steady_clock3nowEv();
        return ETIMEDOUT;
    }
    return __real_pthread_cond_clockwait(condition, mutex, clock, deadline);
}
