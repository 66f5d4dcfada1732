// A directory of its own for a test, removed with the object.
#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <system_error>

namespace tiv::test {

class TempDir {
 public:
    TempDir() {
        const char* base = getenv("TMPDIR");
        path_ = std::string(base == nullptr ? "/tmp" : base) + "/tiv_test_XXXXXX";
        if (mkdtemp(path_.data()) == nullptr) {
            abort();
        }
    }
    ~TempDir() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }
    TempDir(const TempDir&) = delete;
    TempDir& operator=(const TempDir&) = delete;

    const std::string& Path() const { return path_; }
    std::string Path(const std::string& name) const { return path_ + "/" + name; }

    std::string Write(const std::string& name, const std::string& content) const {
        std::ofstream(Path(name), std::ios::binary) << content;
        return Path(name);
    }
    std::string MakeDir(const std::string& name) const {
        std::filesystem::create_directories(Path(name));
        return Path(name);
    }
    std::string Read(const std::string& name) const {
        std::ifstream in(Path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    }

 private:
    std::string path_;
};

}  // namespace tiv::test
