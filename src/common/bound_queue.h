// The bounded queue that slows its producers down.
#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <utility>

#include "platform/log.h"
#include "platform/mutex.h"

namespace analysis::rokt::common::queue {

// What a queue of any kind has: a capacity, its elements and a name for its messages.
template <class T>
class QueueBase {
 public:
    explicit QueueBase(size_t queueCapacity) : capacity(queueCapacity) {}
    virtual ~QueueBase() = default;
    QueueBase(const QueueBase&) = delete;
    QueueBase& operator=(const QueueBase&) = delete;

 protected:
    const size_t capacity;
    std::deque<T> queue;    // guarded by the lock of the derived class
    std::string queueName;  // the same
};

// A first-in first-out queue between any number of producers and consumers.
//
// A full queue blocks its producers; this is how a slow link reaches the threads that collect.
// After Quit pushes are refused, while what is queued can still be popped: a consumer drains the
// queue before it ends. One mutex guards everything, `notEmpty` wakes consumers, `notFull`
// producers.
template <class T>
class BoundQueue : public QueueBase<T> {
 public:
    explicit BoundQueue(size_t queueCapacity) : QueueBase<T>(queueCapacity) {
        this->queueName = "BoundQueue";
    }

    // An empty name is ignored.
    void SetQueueName(const std::string& name) EXCLUDES(mutex) {
        tiv::MutexLock lock(mutex);
        if (!name.empty()) {
            this->queueName = name;
        }
    }

    // Blocks while the queue is full. True when the element is stored, false when the queue quit.
    bool Push(const T& data) EXCLUDES(mutex) {
        tiv::MutexLock lock(mutex);
        CountPush();
        WarnWhenFull();
        while (IsFull() && !quit) {
            notFull.Wait(mutex);
        }
        if (quit) {
            return false;
        }
        this->queue.push_back(data);
        notEmpty.NotifyAll();
        return true;
    }

    // Never blocks. True when an element was taken.
    bool TryPop(T& data) EXCLUDES(mutex) {
        tiv::MutexLock lock(mutex);
        return TakeFront(data);
    }

    // Blocks while the queue is empty and did not quit; leaves `data` alone when it quit and
    // nothing is left.
    void Pop(T& data) EXCLUDES(mutex) {
        tiv::MutexLock lock(mutex);
        while (this->queue.empty() && !quit) {
            notEmpty.Wait(mutex);
        }
        (void)TakeFront(data);
    }

    // Refuses further pushes and wakes everybody who waits.
    void Quit() EXCLUDES(mutex) {
        tiv::MutexLock lock(mutex);
        if (!quit) {
            quit = true;
            notEmpty.NotifyAll();
            notFull.NotifyAll();
        }
    }

    size_t Size() EXCLUDES(mutex) {
        tiv::MutexLock lock(mutex);
        return this->queue.size();
    }

    // Warns each time it answers true. The caller holds the lock or is alone with the queue.
    bool IsFull() {
        if (this->queue.size() != this->capacity) {
            return false;
        }
        TIV_LOGW("IsFULL, QueueName: %s, QueueCapacity:%zu, QueueSize:%zu", this->queueName.c_str(),
                 this->capacity, this->queue.size());
        return true;
    }

 private:
    static constexpr size_t STATISTICS_INTERVAL = 500;  // pushes

    double Percent() const {
        return static_cast<double>(this->queue.size()) / static_cast<double>(this->capacity) *
               100.0;
    }

    void CountPush() REQUIRES(mutex) {
        ++pushCount;
        const size_t size = this->queue.size();
        if (size > hisMaxCut) {
            hisMaxCut = size;
        }
        if (pushCount % STATISTICS_INTERVAL != 0) {
            return;
        }
        pushCount = 0;
        if (this->capacity != 0) {
            TIV_LOGI(
                "QueueName: %s, QueueCapacity:%zu, QueueSize:%zu, HisMaxCut:%zu, Percent:%-7.4f%%",
                this->queueName.c_str(), this->capacity, size, hisMaxCut, Percent());
        }
    }

    void WarnWhenFull() REQUIRES(mutex) {
        if (IsFull() && this->capacity != 0) {
            TIV_LOGW("QueueFull,QueueName: %s, QueueCapacity:%zu, QueueSize:%zu, Percent:%-7.4f%%",
                     this->queueName.c_str(), this->capacity, this->queue.size(), Percent());
        }
    }

    bool TakeFront(T& data) REQUIRES(mutex) {
        if (this->queue.empty()) {
            return false;
        }
        data = std::move(this->queue.front());
        this->queue.pop_front();
        notFull.NotifyAll();
        return true;
    }

    bool quit GUARDED_BY(mutex) = false;
    size_t pushCount GUARDED_BY(mutex) = 0;  // since the last statistics line
    size_t hisMaxCut GUARDED_BY(mutex) = 0;  // largest size ever seen at a push
    tiv::Mutex mutex;
    tiv::CondVar notEmpty;
    tiv::CondVar notFull;
};

}  // namespace analysis::rokt::common::queue
