// The system calls in front of the real ones.
#include "refused_calls.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <mutex>
#include <thread>

#include "support/before_every_test.h"

namespace {

std::mutex mutex;
std::string refused;
int error = 0;
int toPass = 0;
int toRefuse = 0;
int refusals = 0;
std::vector<uint32_t> groups;
bool groupsAreGiven = false;
int counterPipe[2] = {-1, -1};
std::vector<int> pauses;

[[maybe_unused]] const bool fresh = tiv::test::BeforeEveryTest([] {
    const std::lock_guard<std::mutex> lock(mutex);
    pauses.clear();
});

bool Refuses(const char* function) {
    const std::lock_guard<std::mutex> lock(mutex);
    if (refused != function || toRefuse == 0 || toPass-- > 0) {
        return false;
    }
    --toRefuse;
    ++refusals;
    errno = error;
    return true;
}

int GiveGroups(void* value, socklen_t* bytes) {
    const auto needed = static_cast<socklen_t>(groups.size() * sizeof(uint32_t));
    const bool fits = *bytes >= needed;
    *bytes = needed;
    if (!fits) {
        errno = ERANGE;
        return -1;
    }
    memcpy(value, groups.data(), needed);
    return 0;
}

}  // namespace

namespace tiv::test {

RefusedCall::RefusedCall(const char* function, int withError, int count, int skip) {
    const std::lock_guard<std::mutex> lock(mutex);
    refused = function;
    error = withError;
    toRefuse = count;
    toPass = skip;
    refusals = 0;
}

RefusedCall::~RefusedCall() {
    const std::lock_guard<std::mutex> lock(mutex);
    refused.clear();
}

int RefusedCall::Count() {
    const std::lock_guard<std::mutex> lock(mutex);
    return refusals;
}

bool RefusedCall::WaitForOne() {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (Count() == 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::yield();
    }
    return Count() > 0;
}

GroupsOfPeers::GroupsOfPeers(std::vector<uint32_t> given) {
    groups = std::move(given);
    groupsAreGiven = true;
}

GroupsOfPeers::~GroupsOfPeers() { groupsAreGiven = false; }

CountingMachine::CountingMachine() {
    if (pipe2(counterPipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        counterPipe[0] = -1;
    }
}

CountingMachine::~CountingMachine() {
    close(counterPipe[0]);
    close(counterPipe[1]);
    counterPipe[0] = -1;
}

void CountingMachine::Give(uint64_t count, uint64_t enabledNs, uint64_t runningNs) {
    const uint64_t values[] = {count, enabledNs, runningNs};
    (void)!write(counterPipe[1], values, sizeof(values));
}

std::vector<int> Pauses() {
    const std::lock_guard<std::mutex> lock(mutex);
    return pauses;
}

}  // namespace tiv::test

#define REFUSABLE(function, result, failure, parameters, arguments)          \
    result __real_##function parameters;                                     \
    result __wrap_##function parameters;                                     \
    result __wrap_##function parameters {                                    \
        return Refuses(#function) ? (failure) : __real_##function arguments; \
    }

extern "C" {

REFUSABLE(accept4, int, -1, (int fd, sockaddr* peer, socklen_t* bytes, int flags),
          (fd, peer, bytes, flags))
REFUSABLE(bind, int, -1, (int fd, const sockaddr* address, socklen_t bytes), (fd, address, bytes))
REFUSABLE(chmod, int, -1, (const char* path, mode_t mode), (path, mode))
REFUSABLE(connect, int, -1, (int fd, const sockaddr* address, socklen_t bytes),
          (fd, address, bytes))
REFUSABLE(lchown, int, -1, (const char* path, uid_t user, gid_t group), (path, user, group))
REFUSABLE(mmap, void*, MAP_FAILED,
          (void* at, size_t bytes, int protection, int flags, int fd, off_t offset),
          (at, bytes, protection, flags, fd, offset))
REFUSABLE(read, ssize_t, -1, (int fd, void* bytes, size_t count), (fd, bytes, count))
REFUSABLE(readlink, ssize_t, -1, (const char* path, char* target, size_t bytes),
          (path, target, bytes))
REFUSABLE(recvmsg, ssize_t, -1, (int fd, msghdr* message, int flags), (fd, message, flags))
REFUSABLE(sendmsg, ssize_t, -1, (int fd, const msghdr* message, int flags), (fd, message, flags))
REFUSABLE(setsockopt, int, -1, (int fd, int level, int name, const void* value, socklen_t bytes),
          (fd, level, name, value, bytes))
REFUSABLE(socket, int, -1, (int domain, int type, int protocol), (domain, type, protocol))

int __real_poll(pollfd* entries, nfds_t count, int milliseconds);
int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds);

int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds) {
    if (count == 0) {
        const std::lock_guard<std::mutex> lock(mutex);
        pauses.push_back(milliseconds);
        return 0;
    }
    return Refuses("poll") ? -1 : __real_poll(entries, count, milliseconds);
}

int __real_getsockopt(int fd, int level, int name, void* value, socklen_t* bytes);
int __wrap_getsockopt(int fd, int level, int name, void* value, socklen_t* bytes);

int __wrap_getsockopt(int fd, int level, int name, void* value, socklen_t* bytes) {
    if (Refuses("getsockopt")) {
        return -1;
    }
    if (name == SO_PEERGROUPS && groupsAreGiven) {
        return GiveGroups(value, bytes);
    }
    return __real_getsockopt(fd, level, name, value, bytes);
}

// Only perf_event_open comes this way.
long __real_syscall(long number, ...);
long __wrap_syscall(long number, void* attributes, int process, int cpu, int group,
                    unsigned long flags);

long __wrap_syscall(long number, void* attributes, int process, int cpu, int group,
                    unsigned long flags) {
    if (number != SYS_perf_event_open || counterPipe[0] < 0) {
        return __real_syscall(number, attributes, process, cpu, group, flags);
    }
    if (process != -1 || group != -1) {
        errno = EBADF;
        return -1;
    }
    if (cpu != 0) {
        errno = ENODEV;
        return -1;
    }
    return fcntl(counterPipe[0], F_DUPFD_CLOEXEC, 0);
}

}  // extern "C"
