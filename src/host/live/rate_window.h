// Rates over the newest second of readings.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <vector>

namespace tiv::host {

// Sums up N amounts that go with intervals of time. A rate covers the newest second, or the newest
// interval when that is longer. Memory is bounded: intervals shorter than a twentieth of a second
// are put together.
template <size_t N>
class RateWindow {
 public:
    using Amounts = std::array<double, N>;

    // An interval of `intervalNs`, which is not 0, and what was counted in it.
    void Add(uint64_t endNs, uint64_t intervalNs, const Amounts& amounts) {
        if (parts_.empty() || parts_.back().intervalNs >= SHORTEST_NS) {
            parts_.push_back({endNs, 0, {}});
        }
        Part& part = parts_.back();
        part.endNs = endNs;
        part.intervalNs += intervalNs;
        for (size_t i = 0; i < N; ++i) {
            part.amounts[i] += amounts[i];
        }
        // Of a clock that went back the difference is huge.
        while (parts_.size() > 1 &&
               (endNs - parts_.front().endNs >= WINDOW_NS || parts_.size() > MAX_PARTS)) {
            parts_.pop_front();
        }
    }
    // Behind a gap nothing is known until the next interval.
    void Clear() { parts_.clear(); }

    // Amounts per second; absent without an interval.
    [[nodiscard]] std::optional<Amounts> PerSecond() const {
        double seconds = 0;
        Amounts sums = {};
        for (const Part& part : parts_) {
            seconds += static_cast<double>(part.intervalNs) / NS_PER_SECOND;
            for (size_t i = 0; i < N; ++i) {
                sums[i] += part.amounts[i];
            }
        }
        if (seconds <= 0) {
            return std::nullopt;
        }
        for (double& sum : sums) {
            sum /= seconds;
        }
        return sums;
    }

 private:
    static constexpr double NS_PER_SECOND = 1e9;
    static constexpr uint64_t WINDOW_NS = 1000000000;
    static constexpr uint64_t SHORTEST_NS = 50000000;
    static constexpr size_t MAX_PARTS = 32;

    struct Part {
        uint64_t endNs;
        uint64_t intervalNs;
        Amounts amounts;
    };
    std::deque<Part> parts_;
};

// Means of a value for each of the newest seconds of the device's clock.
class SecondHistory {
 public:
    static constexpr size_t SECONDS = 120;

    // `value` held for `weight`.
    void Add(uint64_t timeNs, double weight, double value) {
        const uint64_t second = timeNs / NS_PER_SECOND;
        Mean& mean = seconds_[second];
        mean.weight += weight;
        mean.sum += weight * value;
        while (seconds_.size() > 1 &&
               seconds_.rbegin()->first - seconds_.begin()->first >= SECONDS) {
            seconds_.erase(seconds_.begin());
        }
    }
    // The means up to the newest one, oldest first, at most SECONDS of them.
    [[nodiscard]] std::vector<std::optional<double>> Values() const {
        std::vector<std::optional<double>> values;
        for (const auto& [second, mean] : seconds_) {
            values.resize(std::min(SECONDS - 1, second - seconds_.begin()->first));
            values.emplace_back(mean.weight > 0 ? std::optional(mean.sum / mean.weight)
                                                : std::nullopt);
        }
        return values;
    }

 private:
    static constexpr uint64_t NS_PER_SECOND = 1000000000;
    struct Mean {
        double weight = 0;
        double sum = 0;
    };
    std::map<uint64_t, Mean> seconds_;
};

}  // namespace tiv::host
