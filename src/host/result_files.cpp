// Writing of received chunks.
#include "host/result_files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace tiv::host {

namespace {

constexpr const char* HINT = "make room there, or choose another directory with --output";
constexpr size_t MAX_OPEN_FILES = 128;
constexpr size_t MAX_COMPONENT_BYTES = 255;
constexpr size_t MAX_REFUSED_NAMES = 100;
constexpr mode_t DIRECTORY_MODE = 0755;
constexpr mode_t FILE_MODE = 0644;

// Opens `name` below `directory` for appending, one component at a time without following links.
// A descriptor, or -1 with errno.
int OpenBelow(const std::string& directory, const std::string& name) {
    int parent = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    size_t start = 0;
    for (size_t slash = name.find('/'); parent >= 0 && slash != std::string::npos;
         slash = name.find('/', start)) {
        const std::string component = name.substr(start, slash - start);
        if (mkdirat(parent, component.c_str(), DIRECTORY_MODE) != 0 && errno != EEXIST) {
            close(parent);
            return -1;
        }
        const int next =
            openat(parent, component.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        close(parent);
        parent = next;
        start = slash + 1;
    }
    if (parent < 0) {
        return -1;
    }
    const int fd = openat(parent, name.c_str() + start,
                          O_WRONLY | O_CREAT | O_APPEND | O_NOFOLLOW | O_CLOEXEC, FILE_MODE);
    const int reason = errno;
    close(parent);
    errno = reason;
    return fd;
}

bool WriteAll(int fd, std::string_view data) {
    while (!data.empty()) {
        const ssize_t written = write(fd, data.data(), data.size());
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written < 0) {
            return false;
        }
        data.remove_prefix(static_cast<size_t>(written));
    }
    return true;
}

// A device that uses one name as a file and as a directory, or too long a path, has sent a bad
// name; nothing is wrong with this machine.
bool NameIsToBlame(int reason) {
    return reason == ENOTDIR || reason == EISDIR || reason == ELOOP || reason == ENAMETOOLONG;
}

}  // namespace

bool IsSafeFileName(std::string_view name) {
    if (name.empty() || name.find('\0') != std::string_view::npos) {
        return false;
    }
    while (true) {
        const size_t slash = name.find('/');
        const std::string_view component = name.substr(0, slash);
        if (component.empty() || component == "." || component == ".." ||
            component.size() > MAX_COMPONENT_BYTES) {
            return false;
        }
        if (slash == std::string_view::npos) {
            return true;
        }
        name.remove_prefix(slash + 1);
    }
}

std::string Printable(std::string_view text) {
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x20 && byte < 0x7f) {
            out += c;
        } else {
            out += fmt::format("\\x{:02x}", byte);
        }
    }
    return out;
}

ResultFiles::ResultFiles(std::string directory)
    : directory_(std::move(directory)), times_(ChunkTimesPath(directory_)) {}

ResultFiles::~ResultFiles() {
    for (const OpenFile& file : open_) {
        close(file.fd);
    }
}

// False when data that was written to the file is lost.
bool ResultFiles::CloseOldest() {
    const OpenFile oldest = std::move(open_.back());
    openByName_.erase(oldest.name);
    open_.pop_back();
    if (close(oldest.fd) == 0 || errno == EINTR) {
        return true;
    }
    Fail(oldest.name, errno);
    return false;
}

// Other devices' files take descriptors, too: a shortage is met by closing more of the own ones.
int ResultFiles::OpenNew(const std::string& name) {
    while (open_.size() >= MAX_OPEN_FILES) {
        (void)CloseOldest();
    }
    int fd = OpenBelow(directory_, name);
    while (fd < 0 && (errno == EMFILE || errno == ENFILE) && !open_.empty()) {
        (void)CloseOldest();
        fd = OpenBelow(directory_, name);
    }
    return fd;
}

int ResultFiles::Descriptor(const std::string& name) {
    const auto known = openByName_.find(name);
    if (known != openByName_.end()) {
        open_.splice(open_.begin(), open_, known->second);
        return open_.front().fd;
    }
    const int fd = OpenNew(name);
    if (fd >= 0) {
        open_.push_front({name, fd});
        openByName_[name] = open_.begin();
    }
    return fd;
}

void ResultFiles::Fail(const std::string& name, int reason) {
    MutexLock lock(mutex_);
    if (!error_.empty()) {
        return;  // the first one says most
    }
    error_ = fmt::format("cannot write {}/{}: {}; {}", directory_, Printable(name),
                         std::strerror(reason), HINT);
}

ResultFiles::Written ResultFiles::Write(const std::string& name, std::string_view data) {
    const int fd = Descriptor(name);
    if (fd < 0 && NameIsToBlame(errno)) {
        return Written::REFUSED;
    }
    if (fd < 0 || !WriteAll(fd, data)) {
        Fail(name, errno);
        return Written::FAILED;
    }
    return Written::KEPT;
}

void ResultFiles::Count(const std::string& name, const ReceivedChunk& chunk) {
    MutexLock lock(mutex_);
    FileSummary& summary = summaries_[name];
    summary.bytes += chunk.data.size();
    ++summary.chunks;
    summary.dataModule = chunk.dataModule;
}

void ResultFiles::Refuse(std::string_view name) {
    MutexLock lock(mutex_);
    const std::string printable = Printable(name);
    if (refused_.size() < MAX_REFUSED_NAMES || refused_.count(printable) != 0) {
        ++refused_[printable];
    } else {
        ++refused_["(more names)"];
    }
}

bool ResultFiles::OnFinish() {
    while (!open_.empty()) {
        (void)CloseOldest();
    }
    if (const int reason = times_.Close(); reason != 0) {
        Fail("times of the chunks", reason);
    }
    return Error().empty();
}

bool ResultFiles::OnChunk(const ReceivedChunk& chunk) {
    if (!IsSafeFileName(chunk.fileName)) {
        Refuse(chunk.fileName);
        return true;
    }
    const std::string name(chunk.fileName);
    switch (Write(name, chunk.data)) {
        case Written::KEPT:
            Count(name, chunk);
            times_.Note(Printable(name), chunk.data.size());
            return Error().empty();
        case Written::REFUSED:
            Refuse(name);
            return true;
        default:
            return false;
    }
}

std::map<std::string, FileSummary> ResultFiles::Summaries() {
    MutexLock lock(mutex_);
    return summaries_;
}

uint64_t ResultFiles::FileCount() {
    MutexLock lock(mutex_);
    return summaries_.size();
}

std::map<std::string, uint64_t> ResultFiles::RefusedNames() {
    MutexLock lock(mutex_);
    return refused_;
}

std::string ResultFiles::Error() {
    MutexLock lock(mutex_);
    return error_;
}

}  // namespace tiv::host
