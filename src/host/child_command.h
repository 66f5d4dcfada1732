// The command whose life a collection lasts.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tiv::host {

// Runs one program beside a collection. It shares streams, terminal and process group with tivctl,
// so that a Ctrl-C of the terminal reaches both; with a log it has none of these. A command that
// still runs when the object goes is left running. One thread.
class ChildCommand {
 public:
    ChildCommand() = default;
    ChildCommand(const ChildCommand&) = delete;
    ChildCommand& operator=(const ChildCommand&) = delete;

    // Starts words[0], looked up in PATH, with the rest as arguments. Returns when the program
    // runs, with an empty text, or with the reason why it does not. Once per object. With a `log`
    // the program writes into that new file instead of the terminal and reads nothing.
    [[nodiscard]] std::string Start(const std::vector<std::string>& words,
                                    const std::string& log = "");

    // Does not block. False for a command that never started.
    [[nodiscard]] bool Running();
    // Reaches the program, and everything that it has started when it has a group of its own.
    void Signal(int signal) const;
    // A signal of the terminal does not reach it.
    [[nodiscard]] bool HasOwnGroup() const { return hasOwnGroup_; }

    // How it ended; no value while it runs or for a command that a signal ended.
    [[nodiscard]] std::optional<int> ExitStatus() const { return exitStatus_; }
    [[nodiscard]] std::optional<int> EndSignal() const { return endSignal_; }
    // "exit status 3" or "ended by signal 9 (Killed)"; "its end is not known" while it runs, and
    // when somebody else in this process has waited for it.
    [[nodiscard]] std::string StatusText() const;

 private:
    pid_t pid_ = -1;  // -1 before the start and after the end
    bool hasOwnGroup_ = false;
    std::optional<int> exitStatus_;
    std::optional<int> endSignal_;
};

}  // namespace tiv::host
