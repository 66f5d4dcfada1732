// The directory of an export that consists of several files.
#pragma once

#include <string>

namespace tiv::host {

// Goes again with this object when it made the directory and nothing was put into it. Files that
// are removed in time leave nothing of an export that failed. One thread.
class OutputDirectory {
 public:
    explicit OutputDirectory(std::string path) : path_(std::move(path)) {}
    ~OutputDirectory();
    OutputDirectory(const OutputDirectory&) = delete;
    OutputDirectory& operator=(const OutputDirectory&) = delete;

    // Makes the directory when it is not there; its parent exists. Gives why that failed, else "".
    [[nodiscard]] std::string Make();

    [[nodiscard]] const std::string& Path() const { return path_; }

 private:
    const std::string path_;
    bool isMade_ = false;
};

}  // namespace tiv::host
