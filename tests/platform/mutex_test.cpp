// Tests of the annotated lock wrappers.
#include "platform/mutex.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using tiv::CondVar;
using tiv::Mutex;
using tiv::MutexLock;

// Asked on another thread: a mutex must not be tried by its own holder.
bool IsFree(Mutex& mutex) {
    bool taken = false;
    std::thread([&]() NO_THREAD_SAFETY_ANALYSIS {
        taken = mutex.try_lock();
        if (taken) {
            mutex.unlock();
        }
    }).join();
    return taken;
}

TEST(MutexLock, HoldsForItsLife) {
    Mutex mutex;
    {
        MutexLock lock(mutex);
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(MutexLock, LetsGoEarlyAndTakesAgain) {
    Mutex mutex;
    {
        MutexLock lock(mutex);
        lock.Unlock();
        EXPECT_TRUE(IsFree(mutex));
        lock.Lock();
        EXPECT_FALSE(IsFree(mutex));
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(MutexLock, EndsWithoutTheMutexAfterAnEarlyUnlock) {
    Mutex mutex;
    {
        MutexLock lock(mutex);
        lock.Unlock();
    }
    EXPECT_TRUE(IsFree(mutex));
}

TEST(CondVar, WaitLetsGoOfTheMutexAndTakesItAgain) {
    Mutex mutex;
    CondVar changed;
    bool ready = false;
    MutexLock lock(mutex);

    std::thread other([&] {
        MutexLock inner(mutex);
        ready = true;
        changed.NotifyOne();
    });
    while (!ready) {
        changed.Wait(mutex);
    }

    EXPECT_FALSE(IsFree(mutex));
    lock.Unlock();
    other.join();
}

TEST(CondVar, WaitUntilTellsThatTheTimeRanOut) {
    Mutex mutex;
    CondVar changed;
    MutexLock lock(mutex);

    EXPECT_FALSE(changed.WaitUntil(mutex, std::chrono::steady_clock::now()));

    EXPECT_FALSE(IsFree(mutex));
}

TEST(CondVar, NotifyAllWakesEveryWaiter) {
    Mutex mutex;
    CondVar changed;
    bool ready = false;
    const auto wait = [&] {
        MutexLock lock(mutex);
        while (!ready) {
            changed.Wait(mutex);
        }
    };
    std::thread first(wait);
    std::thread second(wait);

    {
        MutexLock lock(mutex);
        ready = true;
    }
    changed.NotifyAll();

    first.join();
    second.join();
    EXPECT_TRUE(IsFree(mutex));
}

}  // namespace
