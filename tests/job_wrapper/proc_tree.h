// A process tree in a directory of its own, for tests in which processes come and go.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace tiv::test {

// A tree of files that stands in for /proc and goes with the object.
class ProcTree {
 public:
    ProcTree() {
        std::string name = (std::filesystem::temp_directory_path() / "proc_tree.XXXXXX").string();
        root_ = mkdtemp(name.data()) == nullptr ? "" : name;
    }
    ~ProcTree() { std::filesystem::remove_all(root_); }
    ProcTree(const ProcTree&) = delete;
    ProcTree& operator=(const ProcTree&) = delete;

    std::string Root() const { return root_; }
    std::string Path(const std::string& name) const { return root_ + "/" + name; }

    void Write(const std::string& name, const std::string& text) const {
        std::filesystem::create_directories(std::filesystem::path(Path(name)).parent_path());
        std::ofstream(Path(name)) << text;
    }
    void MakeDirectory(const std::string& name) const {
        std::filesystem::create_directories(Path(name));
    }
    void Remove(const std::string& name) const { std::filesystem::remove_all(Path(name)); }

    // A process with its three files.
    void AddProcess(const std::string& pid, const std::string& name) const {
        Write(pid + "/stat", pid + " (" + name + ") S\n");
        Write(pid + "/statm", "10 5 3\n");
        Write(pid + "/comm", name + "\n");
    }

 private:
    std::string root_;
};

// The recorded tree beside the tests.
inline std::string RecordedProc() { return std::string(TIV_JOB_WRAPPER_TEST_DATA) + "/proc"; }

}  // namespace tiv::test
