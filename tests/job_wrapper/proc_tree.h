// A process tree in a directory of its own, for tests in which processes come and go.
#pragma once

#include <filesystem>
#include <string>

#include "support/temp_dir.h"

namespace tiv::test {

// A tree of files that stands in for /proc and goes with the object.
class ProcTree {
 public:
    std::string Root() const { return root_.Path(); }
    std::string Path(const std::string& name) const { return root_.Path(name); }

    void Write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
        (void)root_.Write(name, text);
    }
    void MakeDirectory(const std::string& name) const { (void)root_.MakeDir(name); }
    void Remove(const std::string& name) const { std::filesystem::remove_all(Path(name)); }

    // A process with its three files.
    void AddProcess(const std::string& pid, const std::string& name) const {
        Write(pid + "/stat", pid + " (" + name + ") S\n");
        Write(pid + "/statm", "10 5 3\n");
        Write(pid + "/comm", name + "\n");
    }

 private:
    TempDir root_;
};

// The recorded tree beside the tests.
inline std::string RecordedProc() { return std::string(TIV_JOB_WRAPPER_TEST_DATA) + "/proc"; }

}  // namespace tiv::test
