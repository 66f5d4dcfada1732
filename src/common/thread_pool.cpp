// A fixed set of worker threads with one bounded queue each.
#include "common/thread_pool.h"

#include <exception>

#include "platform/log.h"

namespace analysis::rokt::common::thread {

using Analysis::Rokt::ZelnarErrMgr::ZelnarErrorManager;

ThreadPool::InnnerThread::InnnerThread(uint64_t capacity) : queueCapacity(capacity) {}

ThreadPool::InnnerThread::~InnnerThread() {
    (void)InnnerThread::Stop();
    taskQueue.reset();
}

int ThreadPool::InnnerThread::Start() {
    try {
        taskQueue = std::make_shared<queue::BoundQueue<std::shared_ptr<Task>>>(queueCapacity);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return -1;
    }
    taskQueue->SetQueueName(GetThreadName());
    if (Thread::Start() != 0) {
        return -1;
    }
    started.store(true);
    return 0;
}

int ThreadPool::InnnerThread::Stop() {
    if (!started.load()) {
        return 0;
    }
    started.store(false);
    taskQueue->Quit();
    return Thread::Stop();
}

void ThreadPool::InnnerThread::Push(const std::shared_ptr<Task>& task) {
    (void)taskQueue->Push(task);
}

// The quit flag counts only once the queue is empty: whatever was dispatched before a stop is done.
void ThreadPool::InnnerThread::Run(const ErrorContext& starterContext) {
    ZelnarErrorManager::Instance().SetErrorContext(starterContext);
    while (true) {
        std::shared_ptr<Task> task;
        if (!taskQueue->TryPop(task)) {
            if (IsQuit()) {
                return;
            }
            taskQueue->Pop(task);
        }
        if (task != nullptr) {
            Execute(task);
        }
    }
}

void ThreadPool::InnnerThread::Execute(std::shared_ptr<Task>& task) {
    try {
        (void)task->Execute();
    } catch (const std::exception& error) {
        TIV_LOGE("Task ended by an exception, thread=%s, reason=%s", GetThreadName().c_str(),
                 error.what());
    }
}

ThreadPool::ThreadPool(uint32_t dispatchPolicy, uint32_t workerCount)
    : threadNum(workerCount), policy(dispatchPolicy) {}

ThreadPool::~ThreadPool() { Stop(); }

void ThreadPool::Start() {
    if (threadNum == 0 || started.load()) {
        return;
    }
    bool complete = true;
    for (uint32_t index = 0; index < threadNum; ++index) {
        if (!StartWorker(index, complete)) {
            return;
        }
    }
    if (!complete) {
        StopWorkers();
        return;
    }
    started.store(true);
}

bool ThreadPool::StartWorker(uint32_t index, bool& complete) {
    try {
        auto worker = std::make_shared<InnnerThread>(queueSize);
        worker->SetThreadName(namePrefix + std::to_string(index));
        if (worker->Start() != 0) {
            complete = false;
            return true;
        }
        threads.push_back(worker);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return false;
    }
    return true;
}

void ThreadPool::Stop() {
    started.store(false);
    StopWorkers();
}

void ThreadPool::StopWorkers() {
    for (const auto& worker : threads) {
        if (worker->Stop() != 0) {
            TIV_LOGE("Failed to stop thread: %s", worker->GetThreadName().c_str());
        }
    }
    threads.clear();
}

int ThreadPool::Dispatch(const std::shared_ptr<Task>& task) {
    if (task == nullptr || !started.load()) {
        return -1;
    }
    const long selector =
        policy == THREAD_POOL_BIND ? task->GetBindId() : static_cast<long>(nextIndex.fetch_add(1));
    const uint32_t index = static_cast<uint32_t>(selector) % threadNum;
    threads[index]->Push(task);
    return 0;
}

}  // namespace analysis::rokt::common::thread
