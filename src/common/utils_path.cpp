// Paths and record files.
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "common/utils.h"
#include "platform/log.h"

namespace analysis::rokt::common::utils {

namespace {

constexpr int UNLOCK_ATTEMPTS = 2;

struct FreeText {
    void operator()(char* text) const { std::free(text); }
};
using OwnedText = std::unique_ptr<char, FreeText>;

bool Unlock(int fd) {
    for (int attempt = 0; attempt < UNLOCK_ATTEMPTS; ++attempt) {
        if (flock(fd, LOCK_UN) == 0) {
            return true;
        }
    }
    return false;
}

// The part of WriteFile between opening and closing.
int AppendLocked(FILE* file, const std::string& path, const std::string& data) {
    const int fd = fileno(file);
    if (fd < 0) {
        TIV_LOGE("Failed to get file description for %s", Utils::BaseName(path).c_str());
        return -1;
    }
    if (flock(fd, LOCK_SH) != 0) {
        TIV_LOGE("Failed to get file lock");
        return -1;
    }
    // The bytes leave the stream while the lock is held, not when it is closed.
    if (fwrite(data.data(), 1, data.size(), file) != data.size() || fflush(file) != 0) {
        (void)Unlock(fd);
        TIV_LOGE("Failed to write prof dir");
        return -1;
    }
    if (!Unlock(fd)) {
        TIV_LOGE("Failed to release file lock");
        return -1;
    }
    return 0;
}

}  // namespace

bool Utils::IsDir(const std::string& path) { return !path.empty() && mmIsDir(path.c_str()) == 0; }

bool Utils::IsDirAccessible(const std::string& path) {
    if (!IsDir(path)) {
        TIV_LOGE("Path %s is not a dir", BaseName(path).c_str());
        return false;
    }
    if (mmAccess2(path.c_str(), W_OK) != 0) {
        TIV_LOGE("No access to dir %s", BaseName(path).c_str());
        return false;
    }
    return true;
}

bool Utils::IsFileExist(const std::string& path) {
    return !path.empty() && mmAccess2(path.c_str(), F_OK) == 0;
}

bool Utils::IsSoftLink(const std::string& path) {
    struct stat target = {};
    int result = stat(path.c_str(), &target);
    if (result != 0) {
        const auto code = static_cast<unsigned int>(errno);
        TIV_LOGE("stat %s fail, ret=%d errno=%u", BaseName(path).c_str(), result, code);
        return true;
    }
    struct stat self = {};
    result = lstat(path.c_str(), &self);
    if (result != 0) {
        const auto code = static_cast<unsigned int>(errno);
        TIV_LOGE("lstat %s fail, ret=%d errno=%u", BaseName(path).c_str(), result, code);
        return true;
    }
    return target.st_ino != self.st_ino;
}

// The system's functions write to their argument, hence a copy for each half.
int Utils::SplitPath(const std::string& path, std::string& dir, std::string& base) {
    const OwnedText dirText(strdup(path.c_str()));
    const OwnedText baseText(strdup(path.c_str()));
    if (dirText == nullptr || baseText == nullptr) {
        TIV_LOGE("QTRX_STRDUP failed");
        return -1;
    }
    const char* const dirPart = mmDirName(dirText.get());
    const char* const basePart = mmBaseName(baseText.get());
    if (dirPart == nullptr || basePart == nullptr) {
        TIV_LOGE("OsalDirName or OsalBaseName failed");
        return -1;
    }
    dir = dirPart;
    base = basePart;
    return 0;
}

std::string Utils::CanonicalizePath(const std::string& path) {
    const std::unique_ptr<char[]> resolved(new char[MAX_PATH_LENGTH]());
    const int32_t result =
        mmRealPath(path.c_str(), resolved.get(), static_cast<int32_t>(MAX_PATH_LENGTH));
    if (result != 0) {
        TIV_LOGE("OsalRealPath ret=%d.", result);
        return "";
    }
    std::string canonical = resolved.get();
    TIV_LOGI("Input path:%s, canonicalized path:%s", BaseName(path).c_str(),
             BaseName(canonical).c_str());
    return canonical;
}

std::string Utils::BaseName(const std::string& path) {
    std::string dir;
    std::string base;
    return path.empty() || SplitPath(path, dir, base) != 0 ? "" : base;
}

std::string Utils::DirName(const std::string& path) {
    std::string dir;
    std::string base;
    return path.empty() || SplitPath(path, dir, base) != 0 ? "" : dir;
}

std::string Utils::AppendSlash(const std::string& path) {
    return path.empty() || path.back() == '/' ? path : path + "/";
}

std::string Utils::JoinPath(const std::string& dir, const std::string& name) {
    return AppendSlash(dir) + name;
}

int Utils::RelativePath(const std::string& path, const std::string& dir, std::string& out) {
    const size_t found = path.find(dir);
    if (found == std::string::npos) {
        TIV_LOGE("Failed to find \"%s\" from \"%s\"", BaseName(dir).c_str(),
                 BaseName(path).c_str());
        return -1;
    }
    out = TrimLeft(path.substr(found + dir.size()), "/\\");
    return 0;
}

int64_t Utils::GetFileSize(const std::string& path) {
    uint64_t size = 0;
    return mmGetFileSize(path.c_str(), &size) == 0 ? static_cast<int64_t>(size) : -1;
}

int Utils::WriteFile(const std::string& path, const std::string& data) {
    FILE* const file = fopen(path.c_str(), "ae");
    if (file == nullptr) {
        TIV_LOGE("Failed to open %s", BaseName(path).c_str());
        return -1;
    }
    const int result = AppendLocked(file, path, data);
    (void)fclose(file);
    return result;
}

std::string Utils::GetSelfPath() {
    const std::unique_ptr<char[]> path(new char[MAX_PATH_LENGTH]());
    ssize_t length = readlink("/proc/self/exe", path.get(), MAX_PATH_LENGTH - 1);
    if (length < 0) {
        length = readlink("/local/proc/self/exe", path.get(), MAX_PATH_LENGTH - 1);
    }
    if (length < 0) {
        TIV_LOGW("Can't Get self bin directory");
        return "";
    }
    TIV_LOGI("Get self bin directory len: %d", static_cast<int>(length));
    return std::string(path.get(), static_cast<size_t>(length));
}

}  // namespace analysis::rokt::common::utils
