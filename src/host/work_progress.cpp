// Painting of the line.
#include "host/work_progress.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>

#include "host/console.h"
#include "host/duration.h"
#include "host/terminal.h"

namespace tiv::host {

namespace {

constexpr std::chrono::seconds FIRST{1};
constexpr std::chrono::milliseconds REPAINT_INTERVAL{100};
constexpr std::chrono::milliseconds PLAIN_INTERVAL{5000};
constexpr double PERCENT = 100.0;

}  // namespace

WorkProgress::WorkProgress(std::string what, bool quiet)
    : what_(std::move(what)),
      quiet_(quiet),
      terminal_(IsPaintableTerminal(STDERR_FILENO)),
      start_(Clock::now()),
      next_(start_ + FIRST) {}

std::string WorkProgress::Text(uint64_t bytes, uint64_t total, Clock::duration elapsed) const {
    // A file that grows while it is read makes more of it than was known.
    const auto whole = static_cast<double>(std::max(bytes, total));
    const auto done = static_cast<double>(bytes);
    const double seconds = std::chrono::duration<double>(elapsed).count();
    const double rate = seconds > 0 ? done / seconds : 0;
    std::string left;
    if (rate > 0) {
        const std::chrono::duration<double> rest((whole - done) / rate);
        left = fmt::format(
            "  {} left",
            FormatDuration(std::chrono::duration_cast<std::chrono::milliseconds>(rest)));
    }
    return fmt::format("{}  {:.0f}%  {} of {}  {}/s{}", what_,
                       whole > 0 ? PERCENT * done / whole : PERCENT, FormatBytes(done),
                       FormatBytes(whole), FormatBytes(rate), left);
}

bool WorkProgress::IsDue() {
    const auto now = Clock::now();
    if (quiet_ || now < next_) {
        return false;
    }
    next_ = now + (terminal_ ? REPAINT_INTERVAL : PLAIN_INTERVAL);
    return true;
}

void WorkProgress::Paint(std::string text) {
    if (!terminal_) {
        Say(stderr, text + "\n");
        return;
    }
    text.resize(std::min(text.size(), TerminalColumns(STDERR_FILENO) - 1));
    Say(stderr, "\r\033[K" + text);
    painted_ = true;
}

void WorkProgress::Show(uint64_t bytes, uint64_t total) {
    if (IsDue()) {
        Paint(Text(bytes, total, Clock::now() - start_));
    }
}

void WorkProgress::ShowFinishing() {
    if (IsDue()) {
        const auto elapsed =
            std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start_);
        Paint(fmt::format("{}  finishing  {}", what_, FormatDuration(elapsed)));
    }
}

void WorkProgress::Clear() {
    if (painted_) {
        Say(stderr, "\r\033[K");
        painted_ = false;
    }
}

}  // namespace tiv::host
