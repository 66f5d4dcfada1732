// The count of the jobs that need the timer.
#include "job_wrapper/timer_manager.h"

#include <exception>

#include "platform/log.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

namespace {

constexpr uint64_t TICK_US = 1000;

}  // namespace

void TimerManager::StartProfTimer() {
    const tiv::MutexLock lock(managerMutex);
    if (refCount == 0 && !MakeAndStartTimer()) {
        return;
    }
    ++refCount;
}

bool TimerManager::MakeAndStartTimer() {
    try {
        const auto param = std::make_shared<TimerParam>();
        param->intervalUs = TICK_US;
        timer = std::make_shared<ProfTimer>(param);
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return false;
    }
    if (timer->Start() != 0) {
        TIV_LOGE("StartProfTimer failed");
        return false;
    }
    TIV_LOGI("StartProfTimer end");
    return true;
}

void TimerManager::StopProfTimer() {
    const tiv::MutexLock lock(managerMutex);
    --refCount;
    if (timer == nullptr || refCount != 0) {
        return;
    }
    TIV_LOGI("StopProfTimer begin");
    if (timer->Stop() != 0) {
        TIV_LOGE("StopProfTimer failed");
    }
    TIV_LOGI("StopProfTimer end");
}

void TimerManager::RegisterTimerHandler(uint32_t tag,
                                        const std::shared_ptr<TimerHandler>& handler) {
    const tiv::MutexLock lock(managerMutex);
    if (timer != nullptr && handler != nullptr) {
        timer->RegisterTimerHandler(tag, handler);
    }
}

void TimerManager::RemoveTimerHandler(uint32_t tag) {
    const tiv::MutexLock lock(managerMutex);
    if (timer != nullptr) {
        timer->RemoveTimerHandler(tag);
    }
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
