// Painting of the progress line.
#include "host/progress_line.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "host/console.h"
#include "host/duration.h"
#include "host/terminal.h"

namespace tiv::host {

namespace {

constexpr std::chrono::milliseconds REPAINT_INTERVAL{100};
constexpr std::chrono::seconds PLAIN_INTERVAL{5};
constexpr std::chrono::milliseconds RATE_INTERVAL{500};

}  // namespace

ProgressLine::ProgressLine(bool quiet)
    : quiet_(quiet), terminal_(IsPaintableTerminal(STDERR_FILENO)) {}

std::string ProgressLine::Text(const Progress& progress, Clock::time_point now) {
    if (now - lastRated_ >= RATE_INTERVAL) {
        const double seconds = std::chrono::duration<double>(now - lastRated_).count();
        if (lastRated_ != Clock::time_point()) {
            bytesPerSecond_ = static_cast<double>(progress.bytes - ratedBytes_) / seconds;
        }
        ratedBytes_ = progress.bytes;
        lastRated_ = now;
    }
    const std::string time = progress.total.count() == 0
                                 ? FormatDuration(progress.elapsed)
                                 : fmt::format("{} of {}", FormatDuration(progress.elapsed),
                                               FormatDuration(progress.total));
    return fmt::format("{}  {}  {}  {}/s  {} files", progress.phase, time,
                       FormatBytes(static_cast<double>(progress.bytes)),
                       FormatBytes(bytesPerSecond_), progress.files);
}

void ProgressLine::Show(const Progress& progress) {
    const auto now = Clock::now();
    const auto interval = terminal_ ? std::chrono::milliseconds(REPAINT_INTERVAL)
                                    : std::chrono::milliseconds(PLAIN_INTERVAL);
    if (quiet_ || now - lastShown_ < interval) {
        return;
    }
    lastShown_ = now;
    std::string text = Text(progress, now);
    if (terminal_) {
        text.resize(std::min(text.size(), TerminalColumns(STDERR_FILENO) - 1));
        Say(stderr, "\r\033[K" + text);
        painted_ = true;
    } else {
        Say(stderr, text + "\n");
    }
}

void ProgressLine::Clear() {
    if (painted_) {
        Say(stderr, "\r\033[K");
        painted_ = false;
    }
}

}  // namespace tiv::host
