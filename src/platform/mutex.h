// Mutex, condition variable and scoped lock with the annotations of clang's thread safety analysis.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

#if defined(__clang__)
#define TIV_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define TIV_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) TIV_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY TIV_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) TIV_THREAD_ANNOTATION(guarded_by(x))
#define PT_GUARDED_BY(x) TIV_THREAD_ANNOTATION(pt_guarded_by(x))
#define ACQUIRED_BEFORE(...) TIV_THREAD_ANNOTATION(acquired_before(__VA_ARGS__))
#define REQUIRES(...) TIV_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define ACQUIRE(...) TIV_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) TIV_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) TIV_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define EXCLUDES(...) TIV_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define RETURN_CAPABILITY(x) TIV_THREAD_ANNOTATION(lock_returned(x))
#define NO_THREAD_SAFETY_ANALYSIS TIV_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace tiv {

class CAPABILITY("mutex") Mutex {
 public:
    Mutex() = default;
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() ACQUIRE() { mutex_.lock(); }
    void unlock() RELEASE() { mutex_.unlock(); }
    bool try_lock() TRY_ACQUIRE(true) { return mutex_.try_lock(); }

 private:
    friend class CondVar;
    std::mutex mutex_;
};

// Holds a mutex for the life of the object. Unlock ends the hold early, Lock takes it again.
class SCOPED_CAPABILITY MutexLock {
 public:
    explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
    ~MutexLock() RELEASE() {
        if (held_) {
            mutex_.unlock();
        }
    }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    void Unlock() RELEASE() {
        held_ = false;
        mutex_.unlock();
    }
    void Lock() ACQUIRE() {
        mutex_.lock();
        held_ = true;
    }

 private:
    Mutex& mutex_;
    bool held_ = true;
};

// Waits are written as loops around Wait: the analysis does not look inside a predicate.
class CondVar {
 public:
    void Wait(Mutex& mutex) REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        condition_.wait(lock);
        lock.release();
    }

    // False when the time ran out.
    template <class Clock, class Duration>
    bool WaitUntil(Mutex& mutex, const std::chrono::time_point<Clock, Duration>& deadline)
        REQUIRES(mutex) {
        std::unique_lock<std::mutex> lock(mutex.mutex_, std::adopt_lock);
        const bool inTime = condition_.wait_until(lock, deadline) == std::cv_status::no_timeout;
        lock.release();
        return inTime;
    }

    void NotifyOne() { condition_.notify_one(); }
    void NotifyAll() { condition_.notify_all(); }

 private:
    std::condition_variable condition_;
};

}  // namespace tiv
