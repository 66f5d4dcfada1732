// A fixed set of worker threads with one bounded queue each.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "common/bound_queue.h"
#include "common/thread.h"

namespace analysis::rokt::common::thread {

// A unit of work. Execute's result is ignored.
class Task {
 public:
    virtual ~Task() = default;
    virtual int Execute() = 0;
    // The number by which a binding pool chooses the worker.
    virtual long GetBindId() = 0;
};

// How a pool chooses the worker of a task.
constexpr uint32_t THREAD_POOL_ROTATE = 0;  // one after the other
constexpr uint32_t THREAD_POOL_BIND = 1;    // by the task's bind id

// Workers that run tasks, each from a queue of its own.
//
// A binding pool sends tasks of one bind id to one worker, so that they never run side by side and
// keep their order. A full queue blocks Dispatch: the caller is slowed down and no task is lost.
//
// Start, Stop and the setters belong to one controlling path; Dispatch may come from another thread
// between Start and Stop, and nobody dispatches while Stop runs.
class ThreadPool {
 public:
    ThreadPool(uint32_t dispatchPolicy, uint32_t workerCount);
    virtual ~ThreadPool();
    ThreadPool(const ThreadPool&) = delete;
    ThreadPool& operator=(const ThreadPool&) = delete;

    // To be called before Start.
    void SetThreadPoolNamePrefix(const std::string& prefix) { namePrefix = prefix; }
    void SetThreadPoolQueueSize(uint64_t size) { queueSize = size; }

    // Starts all workers or none that stays: when the system refuses one of them, the others are
    // stopped again and the pool is not started.
    void Start();

    // Refuses further tasks, lets every worker run its queue empty and joins it.
    void Stop();

    // 0 when the task was handed to a worker, -1 for a null task or a pool that is not started.
    // Blocks while the worker's queue is full.
    int Dispatch(const std::shared_ptr<Task>& task);

 private:
    // One worker.
    class InnnerThread : public Thread {
     public:
        explicit InnnerThread(uint64_t capacity);
        ~InnnerThread() override;

        int Start() override;
        int Stop() override;
        void Push(const std::shared_ptr<Task>& task);

     protected:
        void Run(const ErrorContext& context) override;

     private:
        void Execute(std::shared_ptr<Task>& task);

        std::atomic<bool> started{false};
        std::shared_ptr<queue::BoundQueue<std::shared_ptr<Task>>> taskQueue;
        const uint64_t queueCapacity;
    };

    // False when the workers cannot be allocated; `complete` tells whether the worker runs.
    bool StartWorker(uint32_t index, bool& complete);
    void StopWorkers();

    const uint32_t threadNum;
    std::atomic<uint32_t> nextIndex{0};
    const uint32_t policy;
    std::atomic<bool> started{false};
    std::vector<std::shared_ptr<InnnerThread>> threads;  // in index order; controlling path only
    std::string namePrefix;
    uint64_t queueSize = 64;  // tasks per worker
};

}  // namespace analysis::rokt::common::thread
