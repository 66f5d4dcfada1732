// Writing a file and giving it its name.
#include "host/output_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/output_place.h"

namespace tiv::host {

namespace {

constexpr mode_t FILE_MODE = 0644;

}  // namespace

OutputFile::~OutputFile() {
    if (fd_ >= 0) {
        close(fd_);
    }
    if (isMade_) {
        unlink(temporary_.c_str());
    }
}

void OutputFile::Fail(const char* what, int reason) {
    if (error_.empty()) {
        error_ = fmt::format("cannot {} {}: {}", what, path_, std::strerror(reason));
    }
}

bool OutputFile::Open() {
    error_ = WhyNoFileFits(path_);
    if (!error_.empty()) {
        return false;
    }
    fd_ = open(temporary_.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, FILE_MODE);
    if (fd_ < 0) {
        Fail("write", errno);
        return false;
    }
    isMade_ = true;
    return true;
}

void OutputFile::Flush() {
    std::string_view rest = buffer_;
    while (!rest.empty() && error_.empty()) {
        const ssize_t written = write(fd_, rest.data(), rest.size());
        if (written < 0 && errno != EINTR) {
            Fail("write", errno);
        }
        rest.remove_prefix(written < 0 ? 0 : static_cast<size_t>(written));
    }
    buffer_.clear();
}

long OutputFile::ReadAt(char* room, size_t bytes, size_t offset) {
    ssize_t got = -1;
    do {
        got = pread(fd_, room, bytes, static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    if (got < 0) {
        Fail("read back", errno);
    }
    return got;
}

bool OutputFile::Commit() {
    Flush();
    const int fd = fd_;
    fd_ = -1;
    if (close(fd) != 0 && errno != EINTR) {
        Fail("write", errno);
    }
    if (!error_.empty()) {
        return false;
    }
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        Fail("name", errno);
        return false;
    }
    isMade_ = false;
    return true;
}

}  // namespace tiv::host
