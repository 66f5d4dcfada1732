// A timer handler that writes down what the timer does with it.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "job_wrapper/timer_handler.h"
#include "platform/mutex.h"

namespace tiv::test {

// The calls of several handlers in their order: "execute 3", "uninit 3".
class CallList {
 public:
    void Add(const std::string& call) EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        calls_.push_back(call);
        added_.NotifyAll();
    }
    std::vector<std::string> All() EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return calls_;
    }
    size_t Count(const std::string& call) EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return CountLocked(call);
    }
    // Waits until `call` has come at least `count` times.
    bool WaitFor(const std::string& call, size_t count) EXCLUDES(mutex_) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        MutexLock lock(mutex_);
        while (CountLocked(call) < count) {
            if (!added_.WaitUntil(mutex_, deadline)) {
                return false;
            }
        }
        return true;
    }

 private:
    size_t CountLocked(const std::string& call) REQUIRES(mutex_) {
        size_t count = 0;
        for (const std::string& entry : calls_) {
            count += entry == call ? 1 : 0;
        }
        return count;
    }

    Mutex mutex_;
    CondVar added_;
    std::vector<std::string> calls_ GUARDED_BY(mutex_);
};

class RecordingHandler : public Analysis::Rokt::JobWrapper::TimerHandler {
 public:
    RecordingHandler(uint32_t handlerTag, CallList& calls, int result = 0)
        : TimerHandler(handlerTag), calls_(calls), result_(result) {}
    ~RecordingHandler() override { calls_.Add("destroy " + std::to_string(tag)); }

    int Execute() override {
        calls_.Add("execute " + std::to_string(tag));
        return result_;
    }
    int Init() override { return 0; }
    int Uninit() override {
        calls_.Add("uninit " + std::to_string(tag));
        return result_;
    }

 private:
    CallList& calls_;
    int result_;
};

class ThrowingHandler : public Analysis::Rokt::JobWrapper::TimerHandler {
 public:
    using TimerHandler::TimerHandler;
    int Execute() override { throw std::runtime_error("no room"); }
    int Init() override { return 0; }
    int Uninit() override { throw std::runtime_error("no room either"); }
};

}  // namespace tiv::test
