// The wait for Ctrl-C.
#include "host/stop_signal.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <thread>

namespace tiv::host {
namespace {

using namespace std::chrono_literals;

// Whether a thread of this process waits in poll().
bool IsInPoll(pid_t thread) {
    std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/syscall");
    long number = -1;
    file >> number;
#ifdef SYS_poll
    return number == SYS_poll || number == SYS_ppoll;
#else
    return number == SYS_ppoll;
#endif
}

}  // namespace

TEST(StopSignal, SignalToAnotherThreadEndsTheWait) {
    StopSignal stop;
    const auto waiting = static_cast<pid_t>(syscall(SYS_gettid));
    sigset_t interrupt;
    sigemptyset(&interrupt);
    sigaddset(&interrupt, SIGINT);
    std::thread other([waiting, interrupt] {
        const auto limit = std::chrono::steady_clock::now() + 10s;
        while (!IsInPoll(waiting) && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        (void)pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);  // the starter may block it
        (void)pthread_kill(pthread_self(), SIGINT);
    });
    pthread_sigmask(SIG_BLOCK, &interrupt, nullptr);

    EXPECT_TRUE(stop.Wait(30s));

    pthread_sigmask(SIG_UNBLOCK, &interrupt, nullptr);
    other.join();
    EXPECT_TRUE(stop.Asked());
    EXPECT_EQ(SIGINT, stop.Signal());
    EXPECT_FALSE(stop.FromTerminal());
}

TEST(StopSignal, WaitWithoutASignalEndsWithItsTime) {
    StopSignal stop;

    EXPECT_FALSE(stop.Wait(1ms));

    EXPECT_FALSE(stop.Asked());
    EXPECT_EQ(0, stop.Signal());
}

}  // namespace tiv::host
