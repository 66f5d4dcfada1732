// When each chunk of a device came.
#pragma once

#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

namespace tiv::host {

// Writes a line "<received_ns>,<bytes>,<file>" for each chunk that was kept, on the raw monotonic
// clock of this machine. Lines are gathered and written many at a time. One thread.
class ChunkTimes {
 public:
    // Begins the file at `path`; an empty one keeps nothing.
    explicit ChunkTimes(const std::string& path);

    // `file` holds no control characters.
    void Note(std::string_view file, uint64_t bytes);
    // 0, or the errno of the first line that could not be written.
    [[nodiscard]] int Close();

 private:
    void TakeFailure();

    std::ofstream lines_;
    int failure_ = 0;
};

// Where the times of the device stand whose data lies in `directory`: beside it.
[[nodiscard]] std::string ChunkTimesPath(const std::string& directory);

}  // namespace tiv::host
