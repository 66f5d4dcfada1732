// A relay between a host and a daemon that forwards every byte by itself.
#pragma once

#include <atomic>
#include <list>
#include <string>
#include <thread>

#include "platform/mutex.h"

namespace tiv::e2e {

// Listens at a path of its own and opens a connection to `target` for each that it accepts. What
// arrives on one side goes out on the other in one system call a byte, as a remote link may cut a
// stream anywhere. An end on either side ends both. The destructor ends all connections.
//
// It can play a link that stalls: once `stallWord` has gone to the target in one piece, nothing
// gets through any more, in no direction and on no connection, and every connection stays open.
class ByteRelay {
 public:
    ByteRelay(const std::string& path, const std::string& target,
              const std::string& stallWord = "");
    ~ByteRelay();
    ByteRelay(const ByteRelay&) = delete;
    ByteRelay& operator=(const ByteRelay&) = delete;

    // Bytes forwarded so far, both ways.
    [[nodiscard]] uint64_t Bytes() const { return bytes_; }

 private:
    void Accept();
    void Forward(int from, int to, const std::string& stallWord);

    const std::string target_;
    const std::string stallWord_;
    std::atomic<bool> stalled_{false};
    std::atomic<uint64_t> bytes_{0};
    int listener_ = -1;
    Mutex mutex_;
    std::list<int> sockets_ GUARDED_BY(mutex_);
    std::list<std::thread> forwarders_ GUARDED_BY(mutex_);
    std::thread accepter_;
};

}  // namespace tiv::e2e
