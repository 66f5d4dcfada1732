// The interface of everything that the timer calls.
#pragma once

#include <cstdint>

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// One tag stands for one handler in the whole process.
//
// Init runs on the job's thread before the handler is registered, Execute on the timer's thread,
// Uninit on the thread that removes the handler or stops the timer. The timer's mutex is held
// during the latter two, so neither they nor a destructor may call the timer.
class TimerHandler {
 public:
    explicit TimerHandler(uint32_t handlerTag) : tag(handlerTag) {}
    virtual ~TimerHandler() = default;
    TimerHandler(const TimerHandler&) = delete;
    TimerHandler& operator=(const TimerHandler&) = delete;

    // One tick. Nobody looks at the result.
    virtual int Execute() = 0;
    [[nodiscard]] virtual int Init() = 0;
    virtual int Uninit() = 0;

    [[nodiscard]] uint32_t GetTag() const { return tag; }

 protected:
    uint32_t tag;
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
