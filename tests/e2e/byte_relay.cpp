// Forwarding of single bytes.
#include "e2e/byte_relay.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

namespace tiv::e2e {

namespace {

constexpr int BACKLOG = 16;

struct sockaddr_un AddressOf(const std::string& path) {
    struct sockaddr_un address {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    return address;
}

int NewSocket() { return socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0); }

}  // namespace

ByteRelay::ByteRelay(const std::string& path, const std::string& target,
                     const std::string& stallWord)
    : target_(target), stallWord_(stallWord), listener_(NewSocket()) {
    const struct sockaddr_un address = AddressOf(path);
    (void)bind(listener_, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address));
    (void)listen(listener_, BACKLOG);
    accepter_ = std::thread([this] { Accept(); });
}

ByteRelay::~ByteRelay() {
    (void)shutdown(listener_, SHUT_RDWR);
    accepter_.join();
    std::list<std::thread> forwarders;
    {
        MutexLock lock(mutex_);
        for (const int fd : sockets_) {
            (void)shutdown(fd, SHUT_RDWR);
        }
        forwarders.swap(forwarders_);
    }
    for (std::thread& forwarder : forwarders) {
        forwarder.join();
    }
    MutexLock lock(mutex_);
    for (const int fd : sockets_) {
        close(fd);
    }
    close(listener_);
}

void ByteRelay::Accept() {
    const struct sockaddr_un address = AddressOf(target_);
    for (;;) {
        const int host = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (host < 0) {
            return;
        }
        const int device = NewSocket();
        MutexLock lock(mutex_);
        sockets_.push_back(host);
        sockets_.push_back(device);
        if (connect(device, reinterpret_cast<const struct sockaddr*>(&address), sizeof(address)) !=
            0) {
            (void)shutdown(host, SHUT_RDWR);
            continue;
        }
        forwarders_.emplace_back([this, host, device] { Forward(host, device, stallWord_); });
        forwarders_.emplace_back([this, host, device] { Forward(device, host, ""); });
    }
}

void ByteRelay::Forward(int from, int to, const std::string& stallWord) {
    char piece[4096];
    ssize_t received = 0;
    while ((received = recv(from, piece, sizeof(piece), 0)) > 0) {
        const std::string_view text(piece, static_cast<size_t>(received));
        const bool stalls = !stallWord.empty() && text.find(stallWord) != std::string_view::npos;
        for (ssize_t i = 0; i < received && !stalled_; ++i) {
            if (stalls && i + 1 == received) {
                stalled_ = true;  // before the last byte can be answered
            }
            if (send(to, piece + i, 1, MSG_NOSIGNAL) != 1) {
                received = 0;
                break;
            }
            ++bytes_;
        }
        if (received == 0) {
            break;
        }
    }
    if (stalled_) {
        return;  // an end does not get through either
    }
    (void)shutdown(from, SHUT_RDWR);
    (void)shutdown(to, SHUT_RDWR);
}

}  // namespace tiv::e2e
