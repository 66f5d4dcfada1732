// A connected stream socket between two ends of the driver's link.
#include "soft_driver/link_socket.h"

#include <linux/sockios.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "soft_driver/notices.h"
#include "soft_driver/settings.h"
#include "soft_driver/socket_address.h"

namespace tiv::soft_driver {
namespace {

using Clock = std::chrono::steady_clock;

// Moves the parts past `bytes` that were sent. False when nothing is left.
bool Advance(iovec** parts, size_t* count, size_t bytes) {
    while (*count > 0 && bytes >= (*parts)->iov_len) {
        bytes -= (*parts)->iov_len;
        ++*parts;
        --*count;
    }
    if (*count > 0) {
        (*parts)->iov_base = static_cast<char*>((*parts)->iov_base) + bytes;
        (*parts)->iov_len -= bytes;
    }
    return *count > 0;
}

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return static_cast<int>(std::clamp<int64_t>(left, 0, INT32_MAX));
}

void SetBuffer(int fd, int forced, int plain, uint32_t bytes) {
    const int value = static_cast<int>(bytes);
    if (setsockopt(fd, SOL_SOCKET, forced, &value, sizeof(value)) != 0) {
        (void)setsockopt(fd, SOL_SOCKET, plain, &value, sizeof(value));
    }
}

void SetSendTimeout(int fd, uint32_t milliseconds) {
    const timeval limit{milliseconds / 1000, static_cast<suseconds_t>(milliseconds % 1000) * 1000};
    (void)setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof(limit));
}

}  // namespace

SendOutcome LinkSocket::Send(iovec* parts, size_t count, bool wait, uint32_t stallLimitMs) {
    bool more = Advance(&parts, &count, 0);
    while (more) {
        msghdr message{};
        message.msg_iov = parts;
        message.msg_iovlen = count;
        const ssize_t sent = sendmsg(fd_.Get(), &message, MSG_DONTWAIT | MSG_NOSIGNAL);
        if (sent > 0) {
            wait = true;
            more = Advance(&parts, &count, static_cast<size_t>(sent));
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno == EAGAIN && !wait) {
            return SendOutcome::WOULD_BLOCK;
        }
        if (errno != EAGAIN || !WaitForRoom(stallLimitMs)) {
            return SendOutcome::FAILED;
        }
    }
    return SendOutcome::SENT;
}

// The kernel calls a full socket writable when three quarters of it are free. A far end that reads
// slowly may need longer than the limit for that, so a time-out asks whether it took anything.
bool LinkSocket::WaitForRoom(uint32_t stallLimitMs) const {
    const auto limit = std::chrono::milliseconds(stallLimitMs);
    int unread = BytesUnread();
    Clock::time_point deadline = Clock::now() + limit;
    for (;;) {
        pollfd entry{fd_.Get(), POLLOUT, 0};
        const int ready = poll(&entry, 1, MillisecondsUntil(deadline));
        if (ready > 0) {
            return true;  // room, or an end that the next send reports
        }
        if (ready < 0 && errno != EINTR) {
            return false;
        }
        if (Clock::now() < deadline) {
            continue;
        }
        const int left = BytesUnread();
        if (left >= unread) {
            errno = ETIMEDOUT;
            return false;
        }
        unread = left;
        deadline = Clock::now() + limit;
    }
}

int LinkSocket::BytesUnread() const {
    int bytes = 0;
    (void)ioctl(fd_.Get(), SIOCOUTQ, &bytes);  // every stream socket answers
    return bytes;
}

ssize_t LinkSocket::Receive(iovec* parts, size_t count, bool wait) {
    msghdr message{};
    message.msg_iov = parts;
    message.msg_iovlen = count;
    for (;;) {
        const ssize_t received = recvmsg(fd_.Get(), &message, wait ? 0 : MSG_DONTWAIT);
        if (received >= 0 || errno != EINTR) {
            return received;
        }
    }
}

void LinkSocket::ShutDown() {
    const int saved = errno;
    (void)shutdown(fd_.Get(), SHUT_RDWR);
    errno = saved;
}

void SetSocketBuffers(int fd, const Settings& settings) {
    const int saved = errno;
    SetBuffer(fd, SO_SNDBUFFORCE, SO_SNDBUF, settings.sendBufferBytes);
    SetBuffer(fd, SO_RCVBUFFORCE, SO_RCVBUF, settings.receiveBufferBytes);
    errno = saved;
}

FileDescriptor ConnectTo(const std::string& path, const Settings& settings) {
    sockaddr_un address{};
    if (!FillSocketAddress(path, &address)) {
        Warn("socket path is too long: path=%s", path.c_str());
        errno = ENAMETOOLONG;
        return {};
    }
    FileDescriptor fd(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd.IsOpen()) {
        return {};
    }
    SetSocketBuffers(fd.Get(), settings);
    SetSendTimeout(fd.Get(), settings.stallLimitMs);
    int result = -1;
    do {
        result = connect(fd.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        return {};
    }
    SetSendTimeout(fd.Get(), 0);
    return fd;
}

}  // namespace tiv::soft_driver
