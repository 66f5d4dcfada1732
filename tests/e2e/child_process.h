// A program that a test starts and watches.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace tiv::e2e {

using Environment = std::map<std::string, std::string>;

// Standard output and error go to files that can be read while the program runs. The destructor
// kills what still runs.
class ChildProcess {
 public:
    // `directory` takes the files <name>.out and <name>.err.
    ChildProcess(const std::string& directory, const std::string& name,
                 std::vector<std::string> words, const Environment& environment = {});
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    [[nodiscard]] pid_t Pid() const { return pid_; }
    void Signal(int signal) const;
    // Stops all its threads and returns when they stand still.
    void Pause() const;
    void Continue() const;
    // Kills it and waits for its end.
    void Kill();

    // The exit status, 128 + n for a program killed by signal n; empty when it has not ended in
    // time.
    std::optional<int> Wait(std::chrono::milliseconds limit = std::chrono::seconds(60));

    // Bytes that it has read from files so far: sampling shows as reading.
    [[nodiscard]] uint64_t BytesRead() const;
    // Waits until it has read `bytes` more. False when it does not within a minute.
    [[nodiscard]] bool WaitForReads(uint64_t bytes) const;

    [[nodiscard]] std::string Output() const;
    [[nodiscard]] std::string Errors() const;
    // Waits until the error output holds `text`. False when it does not within the time.
    [[nodiscard]] bool WaitForError(
        const std::string& text, std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

 private:
    std::string outputPath_;
    std::string errorPath_;
    pid_t pid_ = -1;
    std::optional<int> status_;
};

// The whole content of a file; empty when it cannot be read.
std::string FileContent(const std::string& path);

// Asks `condition` every few milliseconds until it holds. False when it does not within the time.
template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(60));

bool PauseUntil(std::chrono::steady_clock::time_point deadline);

template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (!PauseUntil(deadline)) {
            return condition();
        }
    }
    return true;
}

}  // namespace tiv::e2e
