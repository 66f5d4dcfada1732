// Cuts a rate in bytes per second into portions and their times.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "soft_driver/ready_set.h"

namespace tiv::soft_driver {

// A rate of 0 has no times: portions follow each other at once. One thread.
class Pacer {
 public:
    Pacer(uint64_t bytesPerSecond, uint64_t burstBytes, ReadySet::Clock::time_point start)
        : rate_(bytesPerSecond), portion_(Portion(bytesPerSecond, burstBytes)), next_(start) {}

    [[nodiscard]] bool IsPaced() const { return rate_ != 0; }
    [[nodiscard]] uint64_t PortionBytes() const { return portion_; }

    // When the next portion is due. Portions that a full ring delayed are not made up for beyond
    // a tenth of a second: the rate is what the reader sees, not an average since the start.
    [[nodiscard]] ReadySet::Clock::time_point Next(ReadySet::Clock::time_point now) {
        const auto step =
            std::chrono::duration_cast<ReadySet::Clock::duration>(std::chrono::duration<double>(
                static_cast<double>(portion_) / static_cast<double>(rate_)));
        next_ = std::max(next_ + step, now - std::chrono::milliseconds(100));
        return next_;
    }

 private:
    [[nodiscard]] static uint64_t Portion(uint64_t rate, uint64_t burst) {
        constexpr uint64_t unpaced = 1048576;
        constexpr uint64_t perSecond = 100;
        if (rate == 0) {
            return unpaced;
        }
        return burst != 0 ? burst : std::max<uint64_t>(rate / perSecond / 8 * 8, 8);
    }

    const uint64_t rate_;
    const uint64_t portion_;
    ReadySet::Clock::time_point next_;
};

}  // namespace tiv::soft_driver
