// The listening socket of one device and service type.
#pragma once

#include <sys/types.h>

#include <atomic>
#include <memory>
#include <string>

#include "platform/mutex.h"
#include "soft_driver/file_descriptor.h"

namespace tiv::soft_driver {

// Listens at a path in the runtime directory and admits who may connect.
//
// The right to the path is a file lock on <path>.lock, which the kernel drops with the process:
// whoever holds it may replace a socket that a dead process left behind, and nobody can take the
// place of a live one. The lock file stays; removing it would let two processes hold two locks.
//
// Any thread. Close wakes blocked accepts.
class ListeningSocket {
 public:
    // Null with errno set: EADDRINUSE when a live server has the path.
    [[nodiscard]] static std::unique_ptr<ListeningSocket> Open(const std::string& directory,
                                                               const std::string& path);
    ~ListeningSocket();

    // Waits for a peer that may connect; others are closed, with one warning each, before a byte
    // of theirs is read. When the process has no descriptor left, the connection is dropped and
    // the wait goes on. Not open, with errno set, when Close was called (EBADF), a signal came
    // (EINTR) or the socket failed.
    [[nodiscard]] FileDescriptor Accept(pid_t* peerPid) EXCLUDES(spareMutex_);

    // Removes the socket from the directory and ends every Accept.
    void Close();

 private:
    ListeningSocket(std::string path, FileDescriptor lock, FileDescriptor fd, gid_t group);
    [[nodiscard]] FileDescriptor AcceptAny();
    [[nodiscard]] bool Admits(int fd, pid_t* peerPid) const;
    void DropConnection() EXCLUDES(spareMutex_);

    const std::string path_;
    const FileDescriptor lock_;
    const FileDescriptor fd_;
    const gid_t group_;  // of the runtime directory
    dev_t device_ = 0;   // identity of the socket file, so that only our own is removed
    ino_t inode_ = 0;
    std::atomic<bool> closed_{false};
    std::atomic<bool> exhausted_{false};  // the shortage of descriptors was told
    Mutex spareMutex_;
    FileDescriptor spare_ GUARDED_BY(spareMutex_);  // given up to accept what must be dropped
};

}  // namespace tiv::soft_driver
