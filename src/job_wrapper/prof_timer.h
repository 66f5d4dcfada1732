// The thread that calls every registered handler about once a millisecond.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

#include "common/thread.h"
#include "job_wrapper/timer_handler.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

struct TimerParam {
    uint64_t intervalUs = 0;  // the tick, in microseconds
};

// Ticks until it is stopped: calls Execute of every handler in the order of their tags, then sleeps
// for the tick. The time that handlers take is added to the tick and never made up for.
//
// The timer knows no sampling periods. A handler compares the clock with its own last sample and
// returns at once when its time has not come, so the tick only bounds how late a sample can be.
//
// handlerMutex is held during every Execute and Uninit: registering and removing wait out a running
// tick, and a handler must not call back into the timer. Start and Stop belong to one controlling
// thread at a time. A stopped timer is not started again.
class ProfTimer : public analysis::rokt::common::thread::Thread {
 public:
    explicit ProfTimer(const std::shared_ptr<TimerParam>& param);
    ~ProfTimer() override;
    ProfTimer(const ProfTimer&) = delete;
    ProfTimer& operator=(const ProfTimer&) = delete;

    // 0, or -1 when it runs already.
    int Start() override EXCLUDES(handlerMutex);
    // Ends the thread, then calls Uninit of all handlers and forgets them. Always 0.
    int Stop() override EXCLUDES(handlerMutex);

    // A handler that stood under the tag is dropped without Uninit.
    void RegisterTimerHandler(uint32_t tag, const std::shared_ptr<TimerHandler>& handler)
        EXCLUDES(handlerMutex);
    // Calls the handler's Uninit and forgets it.
    void RemoveTimerHandler(uint32_t tag) EXCLUDES(handlerMutex);

    void Run(const Analysis::Rokt::ZelnarErrMgr::ErrorContext& starterContext) override
        EXCLUDES(handlerMutex);

 private:
    void Tick() EXCLUDES(handlerMutex);

    std::atomic<bool> isStarted{false};
    std::shared_ptr<TimerParam> timerParam;  // constant after construction
    tiv::Mutex handlerMutex;
    std::map<uint32_t, std::shared_ptr<TimerHandler>> handlers GUARDED_BY(handlerMutex);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
