// Counts the samples in the text of a CPU profile.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tiv::host {

// Takes the text apart, however it is cut into pieces. A sample is a head line, the frames of its
// stack, and an empty line:
//
//   <command> <thread> [<cpu>] <seconds>.<fraction>: <period> <event>:
//   \t<address> <symbol> (<object>)
//   ...
//
// The head lines are counted. Command names and symbols come from the programs that were running
// and may hold anything; a line end in a command name makes no sample more or less.
//
// Memory is bounded: the rest of a line behind its first 256 bytes is skipped. One thread.
class ProfileSampleCounter {
 public:
    void Feed(std::string_view bytes);
    // The stream has ended: what is left is a line without its end.
    void Finish();

    [[nodiscard]] uint64_t Samples() const { return samples_; }

 private:
    void Append(std::string_view part);
    void EndLine();

    std::string line_;  // what is kept of the line so far
    uint64_t samples_ = 0;
};

}  // namespace tiv::host
