// Signal handling of the host tool.
#include "host/stop_signal.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>

#include "host/exit_codes.h"

namespace tiv::host {

namespace {

// Touched by the signal handler: lock-free atomics and a descriptor only.
std::atomic<int> askedTimes{0};
std::atomic<int> wakeFd{-1};
std::atomic<int> askedBy{0};
std::atomic<bool> askedFromTerminal{false};
struct sigaction oldInterrupt;
struct sigaction oldTerminate;

void OnSignal(int signal, siginfo_t* info, void*) {
    const int savedErrno = errno;
    if (askedTimes.load() > 0) {
        _exit(EXIT_INTERRUPTED);
    }
    askedBy = signal;
    askedFromTerminal = info->si_code == SI_KERNEL;
    askedTimes.fetch_add(1);
    const uint64_t one = 1;
    const ssize_t written = write(wakeFd, &one, sizeof(one));
    (void)written;  // the counter never overflows with one write
    errno = savedErrno;
}

}  // namespace

StopSignal::StopSignal() {
    askedTimes = 0;
    askedBy = 0;
    askedFromTerminal = false;
    wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    struct sigaction action {};
    action.sa_sigaction = OnSignal;
    action.sa_flags = SA_RESTART | SA_SIGINFO;
    (void)sigemptyset(&action.sa_mask);
    (void)sigaction(SIGINT, &action, &oldInterrupt);
    (void)sigaction(SIGTERM, &action, &oldTerminate);
}

StopSignal::~StopSignal() {
    (void)sigaction(SIGINT, &oldInterrupt, nullptr);
    (void)sigaction(SIGTERM, &oldTerminate, nullptr);
    close(wakeFd.exchange(-1));
}

bool StopSignal::Wait(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!Asked()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            return false;
        }
        struct pollfd waiter = {wakeFd, POLLIN, 0};
        (void)poll(&waiter, 1, static_cast<int>(std::min<int64_t>(left.count(), 1000000)));
    }
    return true;
}

bool StopSignal::Asked() const { return askedTimes > 0; }

int StopSignal::Signal() const { return askedBy; }

bool StopSignal::FromTerminal() const { return askedFromTerminal; }

}  // namespace tiv::host
