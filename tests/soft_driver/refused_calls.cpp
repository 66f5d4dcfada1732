// The system calls in front of the real ones.
#include "refused_calls.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <mutex>
#include <thread>

#include "support/before_every_test.h"

namespace {

using tiv::test::Refuses;

std::mutex mutex;
std::vector<uint32_t> groups;
bool groupsAreGiven = false;
int counterPipe[2] = {-1, -1};
std::vector<int> pauses;
std::vector<int64_t> sendTimeouts;
std::function<void()> meanwhile;
std::vector<int> taken;
std::chrono::steady_clock::time_point clockOfPolls;

[[maybe_unused]] const bool fresh = tiv::test::BeforeEveryTest([] {
    const std::lock_guard<std::mutex> lock(mutex);
    pauses.clear();
    sendTimeouts.clear();
});

int GiveGroups(void* value, socklen_t* bytes) {
    const auto needed = static_cast<socklen_t>(groups.size() * sizeof(uint32_t));
    const bool fits = *bytes >= needed;
    *bytes = needed;
    if (!fits) {
        errno = ERANGE;
        return -1;
    }
    std::copy(groups.begin(), groups.end(), static_cast<uint32_t*>(value));
    return 0;
}

int PollByTheClock(pollfd* entries, nfds_t count, int milliseconds) {
    const int ready = poll(entries, count, 0);
    if (ready != 0) {
        return ready;
    }
    taken.push_back(milliseconds);
    meanwhile();
    clockOfPolls += std::chrono::milliseconds(std::max(milliseconds, 0));
    return poll(entries, count, 0);
}

}  // namespace

namespace tiv::test {

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

bool CountingMachine::AllRead() {
    int bytes = -1;
    (void)ioctl(counterPipe[0], FIONREAD, &bytes);
    return bytes == 0;
}

TimeOfPolls::TimeOfPolls(std::function<void()> given) {
    clockOfPolls = std::chrono::steady_clock::now();
    taken.clear();
    meanwhile = std::move(given);
}

TimeOfPolls::~TimeOfPolls() { meanwhile = nullptr; }

std::vector<int> TimeOfPolls::Taken() { return taken; }

std::vector<int> Pauses() {
    const std::lock_guard<std::mutex> lock(mutex);
    return pauses;
}

std::vector<int64_t> SendTimeouts() {
    const std::lock_guard<std::mutex> lock(mutex);
    return sendTimeouts;
}

}  // namespace tiv::test

extern "C" {

TIV_REFUSABLE(accept4, int, -1, (int fd, sockaddr* peer, socklen_t* bytes, int flags),
              (fd, peer, bytes, flags))
TIV_REFUSABLE(bind, int, -1, (int fd, const sockaddr* address, socklen_t bytes),
              (fd, address, bytes))
TIV_REFUSABLE(chmod, int, -1, (const char* path, mode_t mode), (path, mode))
TIV_REFUSABLE(connect, int, -1, (int fd, const sockaddr* address, socklen_t bytes),
              (fd, address, bytes))
TIV_REFUSABLE(flock, int, -1, (int fd, int operation), (fd, operation))
TIV_REFUSABLE(lchown, int, -1, (const char* path, uid_t user, gid_t group), (path, user, group))
TIV_REFUSABLE(listen, int, -1, (int fd, int backlog), (fd, backlog))
TIV_REFUSABLE(lstat, int, -1, (const char* path, struct stat* status), (path, status))
TIV_REFUSABLE(mmap, void*, MAP_FAILED,
              (void* at, size_t bytes, int protection, int flags, int fd, off_t offset),
              (at, bytes, protection, flags, fd, offset))
TIV_REFUSABLE(read, ssize_t, -1, (int fd, void* bytes, size_t count), (fd, bytes, count))
TIV_REFUSABLE(readlink, ssize_t, -1, (const char* path, char* target, size_t bytes),
              (path, target, bytes))
TIV_REFUSABLE(recvmsg, ssize_t, -1, (int fd, msghdr* message, int flags), (fd, message, flags))
TIV_REFUSABLE(sendmsg, ssize_t, -1, (int fd, const msghdr* message, int flags),
              (fd, message, flags))
TIV_REFUSABLE(socket, int, -1, (int domain, int type, int protocol), (domain, type, protocol))
TIV_REFUSABLE(unlink, int, -1, (const char* path), (path))

int __real_setsockopt(int fd, int level, int name, const void* value, socklen_t bytes);
int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t bytes);

int __wrap_setsockopt(int fd, int level, int name, const void* value, socklen_t bytes) {
    if (Refuses("setsockopt")) {
        return -1;
    }
    if (name == SO_SNDTIMEO) {
        const auto* limit = static_cast<const timeval*>(value);
        const std::lock_guard<std::mutex> lock(mutex);
        sendTimeouts.push_back(limit->tv_sec * 1000000 + limit->tv_usec);
    }
    return __real_setsockopt(fd, level, name, value, bytes);
}

int __real_poll(pollfd* entries, nfds_t count, int milliseconds);
int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds);

int __wrap_poll(pollfd* entries, nfds_t count, int milliseconds) {
    if (count == 0) {
        const std::lock_guard<std::mutex> lock(mutex);
        pauses.push_back(milliseconds);
        return 0;
    }
    if (Refuses("poll")) {
        return -1;
    }
    return meanwhile && milliseconds != 0 ? PollByTheClock(entries, count, milliseconds)
                                          : __real_poll(entries, count, milliseconds);
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
    if (Refuses("syscall")) {
        return -1;
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

std::chrono::steady_clock::time_point RealNow() __asm__(
    "__real__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point WrappedNow() __asm__(
    "__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

std::chrono::steady_clock::time_point WrappedNow() { return meanwhile ? clockOfPolls : RealNow(); }
