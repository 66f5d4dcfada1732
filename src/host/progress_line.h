// The live line of a running collection on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "host/collection_view.h"

namespace tiv::host {

// Repaints one line at most ten times a second on a terminal; elsewhere writes a plain line every
// five seconds. One thread.
class ProgressLine : public CollectionView {
 public:
    using Clock = std::chrono::steady_clock;

    // `quiet` writes nothing at all.
    explicit ProgressLine(bool quiet);

    void Show(const Progress& progress) override;
    // Removes the line, so that a message can stand in its place.
    void Clear() override;

    // "collecting  3.0s of 10.0s  1.2 GB  410 MB/s  7 files" at `now`. The rate is that of the last
    // half second or more between two calls.
    std::string Text(const Progress& progress, Clock::time_point now);

 private:
    const bool quiet_;
    const bool terminal_;
    bool painted_ = false;
    Clock::time_point lastShown_{};
    Clock::time_point lastRated_{};
    uint64_t ratedBytes_ = 0;
    double bytesPerSecond_ = 0;
};

}  // namespace tiv::host
