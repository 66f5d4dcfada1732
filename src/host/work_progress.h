// The live line of a piece of work whose size is known, on standard error.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace tiv::host {

// Silent for the first second. From then on repaints one line at most ten times a second on a
// terminal; elsewhere writes a plain line every five seconds. One thread.
class WorkProgress {
 public:
    using Clock = std::chrono::steady_clock;

    // `what` begins the line. `quiet` writes nothing at all.
    WorkProgress(std::string what, bool quiet);
    ~WorkProgress() { Clear(); }
    WorkProgress(const WorkProgress&) = delete;
    WorkProgress& operator=(const WorkProgress&) = delete;

    // `bytes` of `total` are done.
    void Show(uint64_t bytes, uint64_t total);
    // All bytes are done and what comes behind them takes its time.
    void ShowFinishing();
    // Removes the line, so that a message can stand in its place.
    void Clear();

    // "exporting  43%  1.2 GB of 2.8 GB  310 MB/s  5.2s left"
    [[nodiscard]] std::string Text(uint64_t bytes, uint64_t total, Clock::duration elapsed) const;

 private:
    [[nodiscard]] bool IsDue();
    void Paint(std::string text);

    const std::string what_;
    const bool quiet_;
    const bool terminal_;
    const Clock::time_point start_;
    bool painted_ = false;
    Clock::time_point next_;
};

}  // namespace tiv::host
