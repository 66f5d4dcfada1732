// Ctrl-C as an event that a collection can wait for.
#pragma once

#include <chrono>

namespace tiv::host {

// The first SIGINT or SIGTERM asks for an orderly end; the second ends the process at once with
// exit code 130. One object per process; the signals get their old handlers back in its destructor.
class StopSignal {
 public:
    StopSignal();
    ~StopSignal();
    StopSignal(const StopSignal&) = delete;
    StopSignal& operator=(const StopSignal&) = delete;

    // Waits until the end is asked for or the time is up. True when it was asked for.
    bool Wait(std::chrono::milliseconds timeout);

    [[nodiscard]] bool Asked() const;
    // The signal that asked, 0 before; and whether it came from the terminal, which sends it to
    // every process that runs there.
    [[nodiscard]] int Signal() const;
    [[nodiscard]] bool FromTerminal() const;
};

}  // namespace tiv::host
