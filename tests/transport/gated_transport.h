// Double of a transport whose sends can be held up, refused or made to throw.
#pragma once

#include <chrono>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace tiv::test {

// Lists what it sends: "raw:<bytes>" or "chunk:<bytes>". While the gate is shut a send waits; a
// close lets it fail. Thread-safe.
class GatedTransport : public analysis::rokt::transport::ITransport {
 public:
    int SendBuffer(const void* buffer, int length) override {
        const std::string bytes(static_cast<const char*>(buffer), static_cast<size_t>(length));
        return Pass("raw:" + bytes) ? length + lengthError : -1;
    }

    int SendBuffer(const std::shared_ptr<analysis::rokt::ProfileFileChunk>& chunk) override {
        return Pass("chunk:" + chunk->chunk) ? chunkResult : -1;
    }

    int CloseSession() override {
        MutexLock lock(mutex_);
        ++closes_;
        closed_ = true;
        changed_.NotifyAll();
        return 0;
    }

    void Hook0() override {}

    void Shut() EXCLUDES(mutex_) { SetOpen(false); }
    void Open() EXCLUDES(mutex_) { SetOpen(true); }

    // False when no send is held up within ten seconds.
    bool WaitForHeldSend() EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        while (held_ == 0) {
            if (!changed_.WaitUntil(mutex_, Deadline())) {
                return held_ != 0;
            }
        }
        return true;
    }

    // False when not `count` sends went through within ten seconds.
    bool WaitForSent(size_t count) EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        while (sent_.size() < count) {
            if (!changed_.WaitUntil(mutex_, Deadline())) {
                return sent_.size() >= count;
            }
        }
        return true;
    }

    std::vector<std::string> Sent() const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return sent_;
    }

    int Closes() const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return closes_;
    }

    // To be set before the thread that sends starts.
    int lengthError = 0;       // added to the length that a raw send gives
    int chunkResult = 0;       // what the send of a chunk gives
    std::string throwingText;  // a send of this text throws

 private:
    static std::chrono::steady_clock::time_point Deadline() {
        return std::chrono::steady_clock::now() + std::chrono::seconds(10);
    }

    void SetOpen(bool open) {
        MutexLock lock(mutex_);
        open_ = open;
        changed_.NotifyAll();
    }

    bool Pass(const std::string& text) {
        if (text == throwingText) {
            throw std::runtime_error("broken");
        }
        MutexLock lock(mutex_);
        ++held_;
        changed_.NotifyAll();
        while (!open_ && !closed_) {
            changed_.Wait(mutex_);
        }
        --held_;
        if (closed_) {
            return false;
        }
        sent_.push_back(text);
        changed_.NotifyAll();
        return true;
    }

    mutable Mutex mutex_;
    CondVar changed_;
    bool open_ GUARDED_BY(mutex_) = true;
    bool closed_ GUARDED_BY(mutex_) = false;
    int held_ GUARDED_BY(mutex_) = 0;
    int closes_ GUARDED_BY(mutex_) = 0;
    std::vector<std::string> sent_ GUARDED_BY(mutex_);
};

}  // namespace tiv::test
