// The tick, and the start and stop of the timer's thread.
#include "job_wrapper/prof_timer.h"

#include <exception>

#include "common/error_manager.h"
#include "common/thread_names.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

namespace {

constexpr uint64_t US_PER_MS = 1000;

// One handler's failure must neither end the thread nor keep the others from their tick.
void ExecuteGuarded(TimerHandler& handler) {
    try {
        (void)handler.Execute();
    } catch (const std::exception& e) {
        TIV_LOGE("Timer handler failed, tag=%u, reason: %s", handler.GetTag(), e.what());
    }
}

// A handler that fails here is given up: the others are finished and the timer ends all the same.
void UninitGuarded(TimerHandler& handler) {
    try {
        (void)handler.Uninit();
    } catch (const std::exception& e) {
        TIV_LOGE("Timer handler not finished, tag=%u, reason: %s", handler.GetTag(), e.what());
    }
}

}  // namespace

ProfTimer::ProfTimer(const std::shared_ptr<TimerParam>& param) : timerParam(param) {}

ProfTimer::~ProfTimer() { (void)ProfTimer::Stop(); }

int ProfTimer::Start() {
    TIV_LOGI("Start ProfTimer begin");
    int result = 0;
    const tiv::MutexLock lock(handlerMutex);
    if (isStarted) {
        TIV_LOGE("ProfTimer is running");
        result = -1;
    } else {
        isStarted = true;
        SetThreadName(analysis::rokt::common::thread::PROF_TIMER_THREAD_NAME);
        (void)Thread::Start();
        TIV_LOGI("Start ProfTimer succ");
    }
    TIV_LOGI("Start ProfTimer end");
    return result;
}

int ProfTimer::Stop() {
    TIV_LOGI("Stop ProfTimer begin");
    if (isStarted) {
        isStarted = false;
        // The join comes before the mutex: a tick in progress needs it.
        (void)Thread::Stop();
        const tiv::MutexLock lock(handlerMutex);
        for (const auto& entry : handlers) {
            UninitGuarded(*entry.second);
        }
        handlers.clear();
        TIV_LOGI("Stop ProfTimer succ");
    }
    TIV_LOGI("Stop ProfTimer end");
    return 0;
}

void ProfTimer::RegisterTimerHandler(uint32_t tag, const std::shared_ptr<TimerHandler>& handler) {
    TIV_LOGI("ProfTimer RegisterTimerHandler tag %u", tag);
    // Receives the replaced handler, so that what it owns goes after the mutex.
    std::shared_ptr<TimerHandler> replaced = handler;
    const tiv::MutexLock lock(handlerMutex);
    handlers[tag].swap(replaced);
}

void ProfTimer::RemoveTimerHandler(uint32_t tag) {
    TIV_LOGI("ProfTimer RemoveTimerHandler tag %u begin", tag);
    std::shared_ptr<TimerHandler> removed;
    const tiv::MutexLock lock(handlerMutex);
    const auto found = handlers.find(tag);
    if (found != handlers.end()) {
        removed = found->second;
        UninitGuarded(*removed);
        handlers.erase(found);
    }
    TIV_LOGI("ProfTimer RemoveTimerHandler tag %u succ", tag);
}

void ProfTimer::Run(const ZelnarErrMgr::ErrorContext& starterContext) {
    ZelnarErrMgr::ZelnarErrorManager::Instance().SetErrorContext(starterContext);
    do {
        Tick();
        (void)mmSleep(static_cast<uint32_t>(timerParam->intervalUs / US_PER_MS));
    } while (isStarted);
}

void ProfTimer::Tick() {
    const tiv::MutexLock lock(handlerMutex);
    for (const auto& entry : handlers) {
        ExecuteGuarded(*entry.second);
    }
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
