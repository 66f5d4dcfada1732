// The one timer of the process, shared by all sampling jobs.
#pragma once

#include <cstdint>
#include <memory>

#include "common/singleton.h"
#include "job_wrapper/prof_timer.h"
#include "job_wrapper/timer_handler.h"
#include "platform/mutex.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// Counts the jobs that need the timer: the first start makes and starts one, the last stop ends it.
// A job starts the timer before it registers its handler, and removes the handler before it stops.
//
// The count believes its callers. A stop without a start at a count of 0 wraps it to its maximum:
// no count stops the timer from then on, and the next start only brings the count back to 0.
//
// Any thread. managerMutex is taken before the timer's own and is held while the timer's thread is
// joined and while handlers finish.
class TimerManager : public analysis::rokt::common::singleton::Singleton<TimerManager> {
    friend class analysis::rokt::common::singleton::Singleton<TimerManager>;

 public:
    void StartProfTimer() EXCLUDES(managerMutex);
    void StopProfTimer() EXCLUDES(managerMutex);

    // Dropped without a word when no timer was ever started or the handler is empty.
    void RegisterTimerHandler(uint32_t tag, const std::shared_ptr<TimerHandler>& handler)
        EXCLUDES(managerMutex);
    void RemoveTimerHandler(uint32_t tag) EXCLUDES(managerMutex);

 protected:
    TimerManager() = default;

 private:
    [[nodiscard]] bool MakeAndStartTimer() REQUIRES(managerMutex);

    uint32_t refCount GUARDED_BY(managerMutex) = 0;
    tiv::Mutex managerMutex;
    // Stays set when stopped; the next start from a count of 0 puts another in its place.
    std::shared_ptr<ProfTimer> timer GUARDED_BY(managerMutex);
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
