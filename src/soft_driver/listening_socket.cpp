// The listening socket of one device and service type.
#include "soft_driver/listening_socket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "soft_driver/notices.h"
#include "soft_driver/peer_check.h"
#include "soft_driver/socket_address.h"

namespace tiv::soft_driver {
namespace {

constexpr int BACKLOG = 128;
constexpr mode_t SOCKET_MODE = 0660;
constexpr int RETRY_MS = 10;

// Held for the life of the server. A second holder, in this process or another, is refused.
FileDescriptor LockPath(const std::string& path) {
    FileDescriptor lock(
        open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (lock.IsOpen() && flock(lock.Get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EWOULDBLOCK) {
            errno = EADDRINUSE;
        }
        lock.Reset();
    }
    return lock;
}

// Tells whether somebody listens at the path without holding the lock: a forwarded socket.
bool SomebodyListens(const sockaddr_un& address) {
    const FileDescriptor probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const int result =
        connect(probe.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    return result == 0 || errno != ECONNREFUSED;
}

// Only a socket that nobody serves is swept away: what else stands at the path is somebody's.
bool IsSocket(const char* path) {
    struct stat status {};
    return lstat(path, &status) == 0 && S_ISSOCK(status.st_mode);
}

bool Bind(int fd, const sockaddr_un& address) {
    const auto* plain = reinterpret_cast<const sockaddr*>(&address);
    (void)fchmod(fd, 0600);  // nobody else gets in before the group is right
    if (bind(fd, plain, sizeof(address)) == 0) {
        return true;
    }
    if (errno != EADDRINUSE) {
        return false;
    }
    if (!IsSocket(address.sun_path) || SomebodyListens(address)) {
        errno = EADDRINUSE;
        return false;
    }
    return unlink(address.sun_path) == 0 && bind(fd, plain, sizeof(address)) == 0;
}

bool IsShortage(int error) {
    return error == EMFILE || error == ENFILE || error == ENOBUFS || error == ENOMEM;
}

}  // namespace

std::unique_ptr<ListeningSocket> ListeningSocket::Open(const std::string& directory,
                                                       const std::string& path) {
    sockaddr_un address{};
    if (!FillSocketAddress(path, &address)) {
        Warn("socket path is too long: path=%s", path.c_str());
        errno = ENAMETOOLONG;
        return nullptr;
    }
    struct stat status {};
    if (stat(directory.c_str(), &status) != 0) {
        return nullptr;
    }
    FileDescriptor lock = LockPath(path);
    FileDescriptor fd(lock.IsOpen() ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1);
    if (!fd.IsOpen() || !Bind(fd.Get(), address)) {
        return nullptr;
    }
    // A new file has the process's group; members of the directory's group must get in.
    if (lchown(path.c_str(), static_cast<uid_t>(-1), status.st_gid) != 0) {
        Warn("group of the socket cannot be set: path=%s: %s", path.c_str(),
             ErrorText(errno).c_str());
    }
    if (chmod(path.c_str(), SOCKET_MODE) != 0 || listen(fd.Get(), BACKLOG) != 0) {
        return nullptr;
    }
    return std::unique_ptr<ListeningSocket>(
        new ListeningSocket(path, std::move(lock), std::move(fd), status.st_gid));
}

ListeningSocket::ListeningSocket(std::string path, FileDescriptor lock, FileDescriptor fd,
                                 gid_t group)
    : path_(std::move(path)),
      lock_(std::move(lock)),
      fd_(std::move(fd)),
      group_(group),
      spare_(open("/dev/null", O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0) {
        device_ = status.st_dev;
        inode_ = status.st_ino;
    }
}

ListeningSocket::~ListeningSocket() { Close(); }

void ListeningSocket::Close() {
    if (closed_.exchange(true)) {
        return;
    }
    const int saved = errno;
    struct stat status {};
    if (lstat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_) {
        (void)unlink(path_.c_str());
    }
    (void)shutdown(fd_.Get(), SHUT_RDWR);
    (void)flock(lock_.Get(), LOCK_UN);  // the path is free although an accept may still be leaving
    errno = saved;
}

FileDescriptor ListeningSocket::Accept(pid_t* peerPid) {
    for (;;) {
        FileDescriptor fd = AcceptAny();
        if (fd.IsOpen() && !closed_) {
            exhausted_ = false;
            if (Admits(fd.Get(), peerPid)) {
                return fd;
            }
        } else if (closed_) {
            errno = EBADF;
            return {};
        } else if (IsShortage(errno)) {
            DropConnection();
        } else if (errno != ECONNABORTED) {
            return {};
        }
    }
}

// The kernel tells of a shortage at once, also while nobody connects: the wait is made here then.
FileDescriptor ListeningSocket::AcceptAny() {
    FileDescriptor fd(accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    if (!fd.IsOpen() && IsShortage(errno)) {
        pollfd entry{fd_.Get(), POLLIN, 0};
        (void)poll(&entry, 1, -1);
        fd = FileDescriptor(accept4(fd_.Get(), nullptr, nullptr, SOCK_CLOEXEC));
    }
    return fd;
}

bool ListeningSocket::Admits(int fd, pid_t* peerPid) const {
    PeerIdentity peer;
    if (!ReadPeerIdentity(fd, &peer)) {
        Warn("connection refused: path=%s: no credentials: %s", path_.c_str(),
             ErrorText(errno).c_str());
        return false;
    }
    if (!PeerIsAllowed(fd, peer, group_)) {
        Warn(
            "connection refused: path=%s uid=%u gid=%u pid=%d: neither this user, nor root, nor "
            "a member of group %u",
            path_.c_str(), peer.uid, peer.gid, peer.pid, group_);
        return false;
    }
    *peerPid = peer.pid;
    return true;
}

// Makes room for one descriptor, takes the connection with it and closes it. Another thread may
// snatch the room; a short pause then keeps the retry from burning a core.
void ListeningSocket::DropConnection() {
    const int error = errno;
    if (!exhausted_.exchange(true)) {
        Warn("connections are dropped: path=%s: %s", path_.c_str(), ErrorText(error).c_str());
    }
    bool dropped = false;
    {
        MutexLock lock(spareMutex_);
        spare_.Reset();
        pollfd entry{fd_.Get(), POLLIN, 0};
        dropped = poll(&entry, 1, 0) == 1 && AcceptAny().IsOpen();
        spare_ = FileDescriptor(open("/dev/null", O_RDONLY | O_CLOEXEC));
    }
    if (!dropped) {
        (void)poll(nullptr, 0, RETRY_MS);
    }
}

}  // namespace tiv::soft_driver
