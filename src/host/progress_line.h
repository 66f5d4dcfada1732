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
    // `quiet` writes nothing at all.
    explicit ProgressLine(bool quiet);

    void Show(const Progress& progress) override;
    // Removes the line, so that a message can stand in its place.
    void Clear() override;

 private:
    std::string Text(const Progress& progress);

    const bool quiet_;
    const bool terminal_;
    bool painted_ = false;
    std::chrono::steady_clock::time_point lastShown_{};
    std::chrono::steady_clock::time_point lastRated_{};
    uint64_t ratedBytes_ = 0;
    double bytesPerSecond_ = 0;
};

}  // namespace tiv::host
