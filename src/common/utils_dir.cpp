// Making, listing and removing directories.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

#include "common/utils.h"
#include "platform/log.h"

namespace analysis::rokt::common::utils {

namespace {

constexpr uint32_t DIR_MODE = S_IRWXU | S_IRGRP | S_IXGRP;  // 0750

// The entries of a directory without "." and "..".
class DirectoryList {
 public:
    explicit DirectoryList(const std::string& path)
        : count_(mmScandir(path.c_str(), &entries_, nullptr, nullptr)) {}
    ~DirectoryList() {
        if (count_ >= 0) {
            mmScandirFree(entries_, count_);
        }
    }
    DirectoryList(const DirectoryList&) = delete;
    DirectoryList& operator=(const DirectoryList&) = delete;

    bool Failed() const { return count_ < 0; }

    template <class Visitor>
    void ForEach(Visitor visit) const {
        for (int32_t i = 0; i < count_; ++i) {
            const mmDirent& entry = *entries_[i];
            if (strcmp(entry.d_name, ".") != 0 && strcmp(entry.d_name, "..") != 0) {
                visit(entry);
            }
        }
    }

 private:
    mmDirent** entries_ = nullptr;
    int32_t count_;
};

// One directory whose parent exists.
int MakeOneDir(const std::string& path) {
    const std::string name = Utils::BaseName(path);
    TIV_LOGI("CreateDir dir %s with 750", name.c_str());
    if (mmMkdir(path.c_str(), DIR_MODE) != 0 && mmGetErrorCode() != EEXIST) {
        return -1;
    }
    // The umask may have cut the mode.
    if (mmChmod(path.c_str(), DIR_MODE) != 0) {
        TIV_LOGW("Chmod : %s unsuccessfully", name.c_str());
    }
    TIV_LOGI("Success to mkdir, FilePath : %s, FileMode : %o", name.c_str(), DIR_MODE);
    return 0;
}

void RemoveContent(const std::string& path) {
    const DirectoryList list(path);
    if (list.Failed()) {
        const int32_t code = mmGetErrorCode();
        TIV_LOGW("OsalScandir failed %s. ErrorCode : %d", Utils::BaseName(path).c_str(), code);
        return;
    }
    list.ForEach([&path](const mmDirent& entry) {
        const std::string child = Utils::JoinPath(path, entry.d_name);
        (void)(entry.d_type == DT_DIR ? mmRmdir(child.c_str()) : mmUnlink(child.c_str()));
    });
}

std::vector<std::string> ListEntries(const std::string& dir, bool directories) {
    std::vector<std::string> paths;
    const DirectoryList list(dir);
    list.ForEach([&](const mmDirent& entry) {
        if ((entry.d_type == DT_DIR) == directories) {
            paths.push_back(Utils::JoinPath(dir, entry.d_name));
        }
    });
    return paths;
}

}  // namespace

// Climbs to the first directory that exists, then makes what is missing from there down. A path may
// have thousands of components, hence no recursion.
int Utils::CreateDir(const std::string& path) {
    if (path.empty() || path.size() >= MAX_PATH_LENGTH) {
        return -1;
    }
    std::vector<std::string> missing;
    std::string current = path;
    while (!IsFileExist(current)) {
        std::string dir;
        std::string base;
        const int result = SplitPath(current, dir, base);
        if (result != 0) {
            TIV_LOGE("Split path failed");
            return result;
        }
        missing.push_back(current);
        if (dir == current) {
            return -1;  // even the root of the climb is missing
        }
        current = dir;
    }
    TIV_LOGD("The file already exists, %s", BaseName(current).c_str());
    for (auto next = missing.rbegin(); next != missing.rend(); ++next) {
        if (MakeOneDir(*next) != 0) {
            return -1;
        }
    }
    return 0;
}

void Utils::RemoveDir(const std::string& path, bool removeSelf) {
    if (path.empty() || path == "/") {
        TIV_LOGE("empty compare failed.");
        return;
    }
    const std::string name = BaseName(path);
    TIV_LOGI("RemoveDir dir %s", name.c_str());
    if (!removeSelf) {
        RemoveContent(path);
        return;
    }
    if (mmRmdir(path.c_str()) != 0) {
        const int32_t code = mmGetErrorCode();
        TIV_LOGW("OsalRmdir failed %s. ErrorCode : %d", name.c_str(), code);
    }
}

std::vector<std::string> Utils::GetFiles(const std::string& dir) { return ListEntries(dir, false); }

std::vector<std::string> Utils::GetChildDirs(const std::string& dir) {
    return ListEntries(dir, true);
}

}  // namespace analysis::rokt::common::utils
