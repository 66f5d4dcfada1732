// A directory that lives as long as its object.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace tiv::test {

class TempDir {
 public:
    TempDir() {
        std::string name = (std::filesystem::temp_directory_path() / "tiv_common_XXXXXX").string();
        path_ = mkdtemp(name.data());
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    // The directory, or an entry in it.
    std::string Path(const std::string& name = "") const {
        return name.empty() ? path_ : path_ + "/" + name;
    }
    void Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
    }
    std::string Read(const std::string& name) const {
        std::ifstream file(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    }

 private:
    std::string path_;
};

}  // namespace tiv::test
