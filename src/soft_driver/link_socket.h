// A connected stream socket between two ends of the driver's link.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "soft_driver/file_descriptor.h"

namespace tiv::soft_driver {

struct Settings;

enum class SendOutcome { SENT, WOULD_BLOCK, FAILED };

// Sends whole byte runs and receives what is there. Every wait is one in the kernel, ended by
// bytes, by the far end's death, or by ShutDown from another thread; no wait polls.
//
// One thread sends and one receives at a time; ShutDown comes from any thread at any time.
class LinkSocket {
 public:
    explicit LinkSocket(FileDescriptor fd) : fd_(std::move(fd)) {}

    // Sends all `count` parts, changing the array as it goes. With `wait` it blocks while the
    // socket is full and fails with ETIMEDOUT when no byte moves for `stallLimitMs`: neither into
    // the socket nor out of it at the far end. Without, a full socket gives WOULD_BLOCK; but once
    // the first byte is in, the rest follows under the rules of the waiting form, for a part of a
    // message would tear the stream. On FAILED errno tells why.
    [[nodiscard]] SendOutcome Send(iovec* parts, size_t count, bool wait, uint32_t stallLimitMs);

    // Receives at least one byte into the parts. 0 when the far end is gone or ShutDown was
    // called; -1 with errno set (EAGAIN: nothing there, and `wait` is false).
    [[nodiscard]] ssize_t Receive(iovec* parts, size_t count, bool wait);

    // Ends both directions and wakes whoever is blocked here or at the far end.
    void ShutDown();

    [[nodiscard]] int Get() const { return fd_.Get(); }

 private:
    [[nodiscard]] bool WaitForRoom(uint32_t stallLimitMs) const;
    [[nodiscard]] int BytesUnread() const;

    const FileDescriptor fd_;
};

// Sets the buffers that the configuration asks for: past the system's limit where the kernel
// permits that, up to the limit otherwise.
void SetSocketBuffers(int fd, const Settings& settings);

// Connects to the socket at `path`, waiting up to the stall limit while its queue of connections
// is full. Not open, with errno set, on failure.
[[nodiscard]] FileDescriptor ConnectTo(const std::string& path, const Settings& settings);

}  // namespace tiv::soft_driver
