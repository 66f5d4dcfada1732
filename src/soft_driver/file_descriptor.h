// An owned file descriptor.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace tiv::soft_driver {

// Closes on destruction and leaves errno alone while it does.
class FileDescriptor {
 public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    ~FileDescriptor() { Reset(); }
    FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        const int taken = std::exchange(other.fd_, -1);
        Reset();
        fd_ = taken;
        return *this;
    }

    [[nodiscard]] int Get() const { return fd_; }
    [[nodiscard]] bool IsOpen() const { return fd_ >= 0; }

    void Reset() {
        if (fd_ >= 0) {
            const int saved = errno;
            (void)close(std::exchange(fd_, -1));
            errno = saved;
        }
    }

 private:
    int fd_ = -1;
};

}  // namespace tiv::soft_driver
