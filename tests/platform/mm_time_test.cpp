// Tests of the clocks and the sleep.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <time.h>

#include <atomic>
#include <thread>

#include "platform/mm_api.h"
#include "platform/system_calls.h"

namespace {

constexpr int64_t NANO = 1000000000;

int64_t RawNow() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return now.tv_sec * NANO + now.tv_nsec;
}

int64_t TickNow() {
    const mmTimespec now = mmGetTickCount();
    return now.tv_sec * NANO + now.tv_nsec;
}

void IgnoreSignal(int) {}

// Without SA_RESTART, so that the signal interrupts.
void CatchSignal(int number) {
    struct sigaction action = {};
    action.sa_handler = IgnoreSignal;
    sigaction(number, &action, nullptr);
}

TEST(MmGetTickCount, ReadsTheRawMonotonicClock) {
    const int64_t before = RawNow();
    const int64_t tick = TickNow();
    const int64_t after = RawNow();

    EXPECT_LE(before, tick);
    EXPECT_LE(tick, after);
}

TEST(MmSleep, TakesWholeMilliseconds) {
    const int64_t before = TickNow();

    EXPECT_EQ(0, mmSleep(3));

    EXPECT_GE(TickNow() - before, 2900000);
}

TEST(MmSleep, GoesOnAfterASignal) {
    CatchSignal(SIGUSR1);
    std::atomic<bool> done{false};
    int64_t slept = 0;
    std::thread sleeper([&] {
        const int64_t before = TickNow();
        mmSleep(50);
        slept = TickNow() - before;
        done = true;
    });

    while (!done) {
        pthread_kill(sleeper.native_handle(), SIGUSR1);
        sched_yield();
    }
    sleeper.join();

    EXPECT_GE(slept, 49000000);
}

TEST(MmSleep, DeadlineCarriesFullSeconds) {
    const tiv::test::FixedClock clock = {CLOCK_MONOTONIC, {5, 999000000}, 0};
    timespec deadline = {};
    tiv::test::fixedClock = &clock;
    tiv::test::sleepDeadline = &deadline;

    EXPECT_EQ(0, mmSleep(1));
    EXPECT_EQ(6, deadline.tv_sec);
    EXPECT_EQ(0, deadline.tv_nsec);
    EXPECT_EQ(0, mmSleep(3002));
    EXPECT_EQ(9, deadline.tv_sec);
    EXPECT_EQ(1000000, deadline.tv_nsec);

    tiv::test::sleepDeadline = nullptr;
    tiv::test::fixedClock = nullptr;
}

TEST(MmSleep, ClockThatFailsIsAFailure) {
    const tiv::test::FixedClock clock = {CLOCK_MONOTONIC, {5, 6}, -1};
    timespec deadline = {};
    tiv::test::fixedClock = &clock;
    tiv::test::sleepDeadline = &deadline;

    EXPECT_EQ(-1, mmSleep(1));

    tiv::test::sleepDeadline = nullptr;
    tiv::test::fixedClock = nullptr;
    EXPECT_EQ(0, deadline.tv_sec) << "it slept";
}

TEST(MmGetTickCount, ClockThatFailsGivesZero) {
    const tiv::test::FixedClock clock = {CLOCK_MONOTONIC_RAW, {5, 6}, -1};
    tiv::test::fixedClock = &clock;

    const mmTimespec now = mmGetTickCount();

    tiv::test::fixedClock = nullptr;
    EXPECT_EQ(0, now.tv_sec);
    EXPECT_EQ(0, now.tv_nsec);
}

TEST(MmGetLocalTime, ClockThatFailsIsAFailure) {
    const tiv::test::FixedClock clock = {CLOCK_REALTIME, {5, 6}, -1};
    mmSystemTime local = {};
    tiv::test::fixedClock = &clock;

    EXPECT_EQ(-1, mmGetLocalTime(&local));

    tiv::test::fixedClock = nullptr;
}

// Not time(), whose clock stands still between two ticks of the kernel.
time_t SecondsNow() {
    timespec now = {};
    EXPECT_EQ(0, clock_gettime(CLOCK_REALTIME, &now));
    return now.tv_sec;
}

TEST(MmGetLocalTime, IsTheLocalTimeOfDay) {
    const time_t before = SecondsNow();
    mmSystemTime local = {};
    ASSERT_EQ(0, mmGetLocalTime(&local));
    const time_t after = SecondsNow();

    tm parts = {};
    parts.tm_year = local.wYear - 1900;
    parts.tm_mon = local.wMonth - 1;
    parts.tm_mday = local.wDay;
    parts.tm_hour = local.wHour;
    parts.tm_min = local.wMinute;
    parts.tm_sec = local.wSecond;
    parts.tm_isdst = -1;
    const time_t told = mktime(&parts);
    EXPECT_LE(before, told);
    EXPECT_LE(told, after);
}

TEST(MmGetLocalTime, HoldsMillisecondsBelowAThousand) {
    mmSystemTime local = {};

    ASSERT_EQ(0, mmGetLocalTime(&local));

    EXPECT_GE(local.wMilliseconds, 0);
    EXPECT_LT(local.wMilliseconds, 1000);
}

TEST(MmGetLocalTime, RefusesNull) { EXPECT_NE(0, mmGetLocalTime(nullptr)); }

}  // namespace
