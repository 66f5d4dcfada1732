// The terminal as a screen of lines.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/live/live_layout.h"

namespace tiv::host {

// Owns the alternate screen of the terminal on standard input and output, from Open to the
// destructor:
//
//   Open --> shown --Ctrl-C, SIGTERM, a fatal signal--> left for good
//              |  ^
//   Ctrl-Z     v  | SIGCONT
//           suspended
//
// Whatever ends the process, short of SIGKILL, leaves the terminal as it was found: signals leave
// the screen first and then do what they did before. Writing never blocks: while the terminal has
// not taken the last frame, the next ones are skipped. Only lines that changed are written.
//
// One screen per process. One thread at a time. The handlers of the signals that end the collection
// are there before it is opened and until it is destroyed.
class Screen {
 public:
    // Null, and `error` says what to do, when standard input or output is no such terminal.
    [[nodiscard]] static std::unique_ptr<Screen> Open(std::string& error);
    // Why there can be no screen; empty when there can.
    [[nodiscard]] static std::string WhyNot();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    // As the terminal reports it; 80 columns and 24 rows where it reports none.
    [[nodiscard]] ScreenSize Size() const;

    // Shows a frame, each line with its control sequences. False when it was skipped.
    bool Show(const std::vector<std::string>& lines);
    // Writes what the terminal has not taken yet, as far as it takes it.
    void Flush();
    [[nodiscard]] bool IsBehind() const { return !pending_.empty(); }

    // The keys that were pressed; empty when none was.
    [[nodiscard]] std::string Keys();
    // Waits for a key, a new size, or `wakeFd` to become readable; while a frame is not out yet,
    // also for the terminal to take more of it.
    void Wait(int wakeFd, int timeoutMs);

    // A signal has left the screen for good, or the terminal has gone.
    [[nodiscard]] bool IsLeft() const;
    [[nodiscard]] bool IsGone() const { return isGone_; }

    // Keeps the signals that leave the screen away from the calling thread, the one that paints, so
    // that none of them comes between its look at the state and its write.
    static void BlockSignals();

 private:
    explicit Screen(int fd);  // of a terminal whose mode is known
    void Leave();

    const int fd_;  // an open file of its own, so that not blocking is nobody else's matter
    std::string pending_;
    std::vector<std::string> shown_;  // what the terminal shows or is about to
    ScreenSize shownSize_;
    bool isGone_ = false;
};

}  // namespace tiv::host
