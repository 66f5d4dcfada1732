// Directory lists and the removal of directory trees of the OS abstraction.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "platform/mm_api.h"

namespace {

constexpr int OPEN_FLAGS = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

int32_t Refuse(int error) {
    errno = error;
    return -1;
}

bool IsDot(const char* name) { return strcmp(name, ".") == 0 || strcmp(name, "..") == 0; }

// The type of an entry without following a link; some file systems leave it to be asked for.
unsigned char TypeOf(int dirFd, const dirent& entry) {
    if (entry.d_type != DT_UNKNOWN) {
        return entry.d_type;
    }
    struct stat status = {};
    if (fstatat(dirFd, entry.d_name, &status, AT_SYMLINK_NOFOLLOW) != 0) {
        return DT_UNKNOWN;
    }
    return static_cast<unsigned char>(IFTODT(status.st_mode));
}

// An open directory; closed with the object.
class Directory {
 public:
    Directory() = default;
    ~Directory() { Close(); }
    Directory(const Directory&) = delete;
    Directory& operator=(const Directory&) = delete;

    // Moves on to `name`, seen from `from`. On failure nothing is open.
    bool Open(int from, const char* name) {
        const int fd = openat(from, name, OPEN_FLAGS);
        DIR* stream = fd < 0 ? nullptr : fdopendir(fd);
        const int error = errno;
        if (stream == nullptr && fd >= 0) {
            close(fd);
        }
        Close();
        stream_ = stream;
        errno = error;
        return stream_ != nullptr;
    }

    // Next entry but "." and ".."; null at the end and on failure, then with errno.
    const dirent* Next() {
        const dirent* entry = nullptr;
        do {
            errno = 0;
            entry = readdir(stream_);
        } while (entry != nullptr && IsDot(entry->d_name));
        return entry;
    }

    int Fd() const { return dirfd(stream_); }

 private:
    void Close() {
        if (stream_ != nullptr) {
            closedir(stream_);
            stream_ = nullptr;
        }
    }

    DIR* stream_ = nullptr;
};

// Removes a tree from the leaves up with one directory open at a time: neither the depth of the
// tree nor its width costs stack or descriptors. The way up is "..", which is believed only while
// it is the directory that the way down came through.
class TreeRemover {
 public:
    // `path` names a directory, not a link to one. 0, or the error that ended the work.
    int Remove(const std::string& path) {
        if (!current_.Open(AT_FDCWD, path.c_str())) {
            return errno;
        }
        for (;;) {
            const int error = RemoveEntries();
            if (error != 0) {
                return error;
            }
            if (descended_) {
                continue;
            }
            const int step = way_.empty() ? RemoveRoot(path.c_str()) : Ascend();
            if (done_ || step != 0) {
                return step;
            }
        }
    }

 private:
    struct Step {
        std::string name;  // of the directory gone into
        dev_t device;      // of the directory it lies in
        ino_t inode;
    };

    // Removes what can go at once; at the first directory with content goes into it.
    int RemoveEntries() {
        descended_ = false;
        const dirent* entry = nullptr;
        while ((entry = current_.Next()) != nullptr) {
            const bool isDirectory = TypeOf(current_.Fd(), *entry) == DT_DIR;
            if (unlinkat(current_.Fd(), entry->d_name, isDirectory ? AT_REMOVEDIR : 0) == 0 ||
                errno == ENOENT) {
                continue;
            }
            if (!isDirectory || (errno != ENOTEMPTY && errno != EEXIST)) {
                return errno;
            }
            descended_ = true;
            return Descend(entry->d_name);
        }
        return errno;
    }

    int Descend(const std::string& name) {
        struct stat status = {};
        if (fstat(current_.Fd(), &status) != 0) {
            return errno;
        }
        if (!current_.Open(current_.Fd(), name.c_str())) {
            return errno;
        }
        way_.push_back({name, status.st_dev, status.st_ino});
        return 0;
    }

    int Ascend() {
        const size_t depth = way_.size();
        const Step step = std::move(way_.back());
        way_.pop_back();
        struct stat status = {};
        if (!current_.Open(current_.Fd(), "..") || fstat(current_.Fd(), &status) != 0) {
            return errno;
        }
        if (status.st_dev != step.device || status.st_ino != step.inode) {
            return EBUSY;
        }
        if (unlinkat(current_.Fd(), step.name.c_str(), AT_REMOVEDIR) == 0 || errno == ENOENT) {
            rounds_.resize(depth);
            return 0;
        }
        return MayReadAgain(depth) ? 0 : errno;
    }

    int RemoveRoot(const char* path) {
        if (rmdir(path) == 0) {
            done_ = true;
            return 0;
        }
        return MayReadAgain(0) && current_.Open(AT_FDCWD, path) ? 0 : errno;
    }

    // A reader of a directory that shrinks under it may miss entries: then they are read again.
    // Whoever keeps on filling it, be it with directories, must not keep the work going.
    bool MayReadAgain(size_t depth) {
        if (errno != ENOTEMPTY) {
            return false;
        }
        rounds_.resize(depth + 1);
        return ++rounds_[depth] < MOST_ROUNDS;
    }

    static constexpr int MOST_ROUNDS = 16;

    Directory current_;
    bool descended_ = false;
    bool done_ = false;
    std::vector<int> rounds_;  // by depth, of the directories on the way
    std::vector<Step> way_;
};

// A slash at the end would make the system follow a link.
std::string WithoutEndSlashes(const char* path) {
    std::string text = path;
    while (text.size() > 1 && text.back() == '/') {
        text.pop_back();
    }
    return text;
}

bool EndsInDot(const std::string& path) {
    const size_t slash = path.rfind('/');
    return IsDot(path.c_str() + (slash == std::string::npos ? 0 : slash + 1));
}

int32_t RemoveTree(const char* path) {
    const std::string root = WithoutEndSlashes(path);
    if (root == "/" || EndsInDot(root)) {
        return Refuse(EINVAL);
    }
    const int error = TreeRemover().Remove(root);
    return error == 0 ? 0 : Refuse(error);
}

mmDirent Describe(int dirFd, const dirent& entry) {
    mmDirent copy = {};
    copy.d_type = TypeOf(dirFd, entry);
    memcpy(copy.d_name, entry.d_name, strnlen(entry.d_name, sizeof(copy.d_name) - 1));
    return copy;
}

// 0, or the error that ended the reading.
int ReadEntries(DIR* stream, mmFilter filter, std::vector<mmDirent>& entries) {
    for (;;) {
        errno = 0;
        const dirent* entry = readdir(stream);
        if (entry == nullptr) {
            return errno;
        }
        const mmDirent copy = Describe(dirfd(stream), *entry);
        if (filter == nullptr || filter(&copy) != 0) {
            entries.push_back(copy);
        }
    }
}

int CompareBy(const void* left, const void* right, void* sort) {
    const auto leftEntry = static_cast<const mmDirent**>(const_cast<void*>(left));
    const auto rightEntry = static_cast<const mmDirent**>(const_cast<void*>(right));
    return (*static_cast<mmSort*>(sort))(leftEntry, rightEntry);
}

int32_t HandOut(const std::vector<mmDirent>& entries, mmSort sort, struct mmDirent*** list) {
    const size_t count = entries.size();
    auto out = static_cast<mmDirent**>(calloc(count + 1, sizeof(void*)));
    for (size_t i = 0; out != nullptr && i < count; ++i) {
        out[i] = static_cast<mmDirent*>(malloc(sizeof(mmDirent)));
        if (out[i] == nullptr) {
            mmScandirFree(out, static_cast<int32_t>(i));
            out = nullptr;
            break;
        }
        *out[i] = entries[i];
    }
    if (out == nullptr) {
        return Refuse(ENOMEM);
    }
    if (sort != nullptr) {
        qsort_r(out, count, sizeof(void*), CompareBy, &sort);
    }
    *list = out;
    return static_cast<int32_t>(count);
}

}  // namespace

int32_t mmRmdir(const char* path) {
    if (path == nullptr || *path == '\0') {
        return Refuse(path == nullptr ? EINVAL : ENOENT);
    }
    try {
        return RemoveTree(path);
    } catch (const std::exception&) {
        return Refuse(ENOMEM);
    }
}

int32_t mmScandir(const char* path, struct mmDirent*** list, mmFilter filter, mmSort sort) {
    if (path == nullptr || list == nullptr) {
        return Refuse(EINVAL);
    }
    DIR* stream = opendir(path);
    if (stream == nullptr) {
        return -1;
    }
    int32_t result = -1;
    try {
        std::vector<mmDirent> entries;
        const int error = ReadEntries(stream, filter, entries);
        result = error == 0 ? HandOut(entries, sort, list) : Refuse(error);
    } catch (const std::exception&) {
        result = Refuse(ENOMEM);
    }
    const int error = errno;
    closedir(stream);
    errno = error;
    return result;
}

void mmScandirFree(struct mmDirent** list, int32_t count) {
    if (list == nullptr) {
        return;
    }
    for (int32_t i = 0; i < count; ++i) {
        free(list[i]);
    }
    free(list);
}
