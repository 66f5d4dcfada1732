// Whether the end of a job takes so long that the person wants to know how to leave.
#pragma once

#include <chrono>

namespace tiv::host {

// One end of one job. One thread.
class SlowEnd {
 public:
    using Clock = std::chrono::steady_clock;

    void Begin(Clock::time_point now) { begunAt_ = now; }

    // True once: when it is asked for the first time after more than a second.
    [[nodiscard]] bool IsNews(Clock::time_point now) {
        if (isTold_ || now - begunAt_ <= LONG) {
            return false;
        }
        isTold_ = true;
        return true;
    }

 private:
    static constexpr std::chrono::seconds LONG{1};

    Clock::time_point begunAt_;
    bool isTold_ = false;
};

}  // namespace tiv::host
