// Waiting that ends when the time is up or nobody wants it any more.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <utility>

#include "platform/mutex.h"

namespace tiv::host {

// True when the caller no longer wants what it waits for. Asked several times a second, by the
// waiting thread; an empty one never gives up.
using GiveUp = std::function<bool()>;

// One wait with a time limit. One thread.
class Patience {
 public:
    Patience(std::chrono::milliseconds limit, GiveUp giveUp)
        : deadline_(Clock::now() + limit), giveUp_(std::move(giveUp)) {}

    // Waits for a notice, a moment at most. False when waiting longer is of no use.
    [[nodiscard]] bool Wait(Mutex& mutex, CondVar& changed) REQUIRES(mutex) {
        (void)changed.WaitUntil(mutex, std::min(deadline_, Clock::now() + MOMENT));
        givenUp_ = giveUp_ && giveUp_();
        return !givenUp_ && Clock::now() < deadline_;
    }

    [[nodiscard]] bool GivenUp() const { return givenUp_; }

 private:
    using Clock = std::chrono::steady_clock;
    static constexpr std::chrono::milliseconds MOMENT{100};

    const Clock::time_point deadline_;
    const GiveUp giveUp_;
    bool givenUp_ = false;
};

}  // namespace tiv::host
