// Tests of threads, mutexes and semaphores.
#include <errno.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>

#include <atomic>
#include <string>
#include <thread>

#include "platform/mm_api.h"
#include "platform/system_calls.h"

namespace {

constexpr uint32_t SMALL_STACK = 131072;

struct Seen {
    size_t stackSize = 0;
    int detachState = -1;
    std::atomic<bool> done{false};
};

void* LookAround(void* argument) {
    auto* seen = static_cast<Seen*>(argument);
    pthread_attr_t attributes;
    pthread_getattr_np(pthread_self(), &attributes);
    pthread_attr_getstacksize(&attributes, &seen->stackSize);
    pthread_attr_getdetachstate(&attributes, &seen->detachState);
    pthread_attr_destroy(&attributes);
    seen->done = true;
    return nullptr;
}

TEST(MmCreateTask, HonoursTheStackSizeWhenItsFlagIsSet) {
    Seen seen;
    mmUserBlock block = {LookAround, &seen};
    mmThreadAttr attr = {};
    attr.threadStackFlag = 1;
    attr.stackSize = SMALL_STACK;
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    // A sanitizer adds room of its own.
    EXPECT_GE(seen.stackSize, SMALL_STACK);
    EXPECT_LT(seen.stackSize, 8 * SMALL_STACK);
}

TEST(MmCreateTask, GivesTheDefaultStackWhenTheFlagIsClear) {
    Seen seen;
    mmUserBlock block = {LookAround, &seen};
    mmThreadAttr attr = {};
    attr.stackSize = SMALL_STACK;
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_GT(seen.stackSize, 8 * SMALL_STACK);
}

TEST(MmCreateTask, DetachesWhenAsked) {
    Seen seen;
    mmUserBlock block = {LookAround, &seen};
    mmThreadAttr attr = {};
    attr.detachFlag = 1;
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    while (!seen.done) {
        sched_yield();
    }

    EXPECT_EQ(PTHREAD_CREATE_DETACHED, seen.detachState);
}

TEST(MmCreateTask, IsJoinableOtherwise) {
    Seen seen;
    mmUserBlock block = {LookAround, &seen};
    const mmThreadAttr attr = {};
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_EQ(PTHREAD_CREATE_JOINABLE, seen.detachState);
}

void* SetFlag(void* argument) {
    static_cast<std::atomic<int>*>(argument)->store(1);
    return nullptr;
}

TEST(MmCreateTask, KeepsNoPointerToTheBlock) {
    std::atomic<int> wanted{0};
    std::atomic<int> other{0};
    mmUserBlock block = {SetFlag, &wanted};
    const mmThreadAttr attr = {};
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    block = {nullptr, &other};
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_EQ(1, wanted);
    EXPECT_EQ(0, other);
}

TEST(MmCreateTask, FailsWithAStackBelowTheSystemsMinimum) {
    std::atomic<int> flag{0};
    const mmUserBlock block = {SetFlag, &flag};
    mmThreadAttr attr = {};
    attr.threadStackFlag = 1;
    attr.stackSize = 1;
    mmThread handle = 0;

    EXPECT_NE(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    EXPECT_EQ(EINVAL, mmGetErrorCode());
}

TEST(MmCreateTask, FailsWithoutAttributesAndGivesNoneBack) {
    std::atomic<int> flag{0};
    const mmUserBlock block = {SetFlag, &flag};
    const mmThreadAttr attr = {};
    mmThread handle = 0;
    const int before = tiv::test::liveThreadAttributes;
    tiv::test::refusal = ENOMEM;

    const int32_t result = mmCreateTaskWithThreadAttr(&handle, &block, &attr);
    tiv::test::refusal = 0;

    EXPECT_NE(0, result);
    EXPECT_EQ(ENOMEM, mmGetErrorCode());
    EXPECT_EQ(before, tiv::test::liveThreadAttributes);
}

TEST(MmCreateTask, RefusesAPriorityThatItsPolicyLacks) {
    std::atomic<int> flag{0};
    const mmUserBlock block = {SetFlag, &flag};
    mmThreadAttr attr = {};
    attr.priorityFlag = 1;
    attr.priority = 5;
    mmThread handle = 0;

    EXPECT_NE(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    EXPECT_EQ(EINVAL, mmGetErrorCode());
}

void* TellPolicy(void* argument) {
    *static_cast<int*>(argument) = sched_getscheduler(0);
    return nullptr;
}

// While it lives, the calling thread has the policy SCHED_BATCH.
class BatchPolicy {
 public:
    BatchPolicy() : before_(sched_getscheduler(0)) { Set(SCHED_BATCH); }
    ~BatchPolicy() { Set(before_); }
    BatchPolicy(const BatchPolicy&) = delete;
    BatchPolicy& operator=(const BatchPolicy&) = delete;

 private:
    static void Set(int policy) {
        const sched_param none = {};
        EXPECT_EQ(0, sched_setscheduler(0, policy, &none));
    }

    const int before_;
};

TEST(MmCreateTask, TakesItsPolicyAndNotItsMakersWhenTheFlagIsSet) {
    const BatchPolicy ofTheMaker;
    int policy = -1;
    const mmUserBlock block = {TellPolicy, &policy};
    mmThreadAttr attr = {};
    attr.policyFlag = 1;
    attr.policy = SCHED_OTHER;
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_EQ(SCHED_OTHER, policy);
}

TEST(MmCreateTask, RefusesAPolicyThatDoesNotExist) {
    std::atomic<int> flag{0};
    const mmUserBlock block = {SetFlag, &flag};
    mmThreadAttr attr = {};
    attr.policyFlag = 1;
    attr.policy = 77;
    mmThread handle = 0;

    EXPECT_NE(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    EXPECT_EQ(EINVAL, mmGetErrorCode());
}

TEST(MmCreateTask, GivesItsAttributesBack) {
    std::atomic<int> flag{0};
    const mmUserBlock block = {SetFlag, &flag};
    const mmThreadAttr attr = {};
    mmThread handle = 0;
    const int before = tiv::test::liveThreadAttributes;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_EQ(before, tiv::test::liveThreadAttributes);
}

TEST(MmCreateTask, RefusesAMissingFunction) {
    const mmUserBlock block = {nullptr, nullptr};
    const mmThreadAttr attr = {};
    mmThread handle = 0;

    EXPECT_NE(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    EXPECT_NE(0, mmCreateTaskWithThreadAttr(&handle, nullptr, &attr));
}

TEST(MmJoinTask, RefusesNull) {
    EXPECT_NE(0, mmJoinTask(nullptr));
    EXPECT_EQ(EINVAL, mmGetErrorCode());
}

TEST(MmJoinTask, OfTheThreadItselfFails) {
    mmThread self = pthread_self();

    EXPECT_NE(0, mmJoinTask(&self));
    EXPECT_EQ(EDEADLK, mmGetErrorCode());
}

std::string NameAfter(const char* name) {
    char now[16] = {};
    std::thread([&] {
        EXPECT_EQ(0, mmSetCurrentThreadName(name));
        pthread_getname_np(pthread_self(), now, sizeof(now));
    }).join();
    return now;
}

TEST(MmSetCurrentThreadName, CutsToFifteenBytesAndSucceeds) {
    EXPECT_EQ("ide_hdc_process", NameAfter("ide_hdc_process_profiling"));
    EXPECT_EQ("QTRX_ChanPool_1", NameAfter("QTRX_ChanPool_10"));
    EXPECT_EQ("QTRX_ChanPool_9", NameAfter("QTRX_ChanPool_9"));
}

TEST(MmSetCurrentThreadName, TakesTheEmptyNameAndRefusesNull) {
    EXPECT_EQ("", NameAfter(""));
    EXPECT_NE(0, mmSetCurrentThreadName(nullptr));
}

TEST(MmMutex, KeepsOthersOutUntilUnlocked) {
    mmMutex mutex;
    ASSERT_EQ(0, mmMutexInit(&mutex));

    ASSERT_EQ(0, mmMutexLock(&mutex));
    EXPECT_EQ(EBUSY, pthread_mutex_trylock(&mutex));
    ASSERT_EQ(0, mmMutexUnLock(&mutex));
    EXPECT_EQ(0, pthread_mutex_trylock(&mutex));

    EXPECT_EQ(0, mmMutexUnLock(&mutex));
    EXPECT_EQ(0, mmMutexDestroy(&mutex));
}

TEST(MmMutex, RefusesNull) {
    EXPECT_NE(0, mmMutexInit(nullptr));
    EXPECT_NE(0, mmMutexLock(nullptr));
    EXPECT_NE(0, mmMutexUnLock(nullptr));
    EXPECT_NE(0, mmMutexDestroy(nullptr));
}

TEST(MmSem, CountsDownFromItsFirstValue) {
    mmSem sem;
    int value = -1;
    ASSERT_EQ(0, mmSemInit(&sem, 2));

    EXPECT_EQ(0, mmSemWait(&sem));
    EXPECT_EQ(0, mmSemWait(&sem));
    sem_getvalue(&sem, &value);

    EXPECT_EQ(0, value);
    EXPECT_EQ(0, mmSemDestroy(&sem));
}

TEST(MmSem, PostLetsAWaiterThrough) {
    mmSem sem;
    ASSERT_EQ(0, mmSemInit(&sem, 0));
    std::thread waiter([&] { EXPECT_EQ(0, mmSemWait(&sem)); });

    EXPECT_EQ(0, mmSemPost(&sem));

    waiter.join();
    EXPECT_EQ(0, mmSemDestroy(&sem));
}

void IgnoreSignal(int) {}

TEST(MmSem, AWaitInterruptedByASignalFailsWithErrorCodeFour) {
    struct sigaction action = {};
    action.sa_handler = IgnoreSignal;
    sigaction(SIGUSR2, &action, nullptr);
    mmSem sem;
    ASSERT_EQ(0, mmSemInit(&sem, 0));
    std::atomic<bool> done{false};
    std::thread waiter([&] {
        EXPECT_NE(0, mmSemWait(&sem));
        EXPECT_EQ(4, mmGetErrorCode());
        done = true;
    });

    while (!done) {
        pthread_kill(waiter.native_handle(), SIGUSR2);
        sched_yield();
    }

    waiter.join();
    EXPECT_EQ(0, mmSemDestroy(&sem));
}

TEST(MmSem, RefusesNull) {
    EXPECT_NE(0, mmSemInit(nullptr, 0));
    EXPECT_NE(0, mmSemWait(nullptr));
    EXPECT_NE(0, mmSemPost(nullptr));
    EXPECT_NE(0, mmSemDestroy(nullptr));
}

}  // namespace
