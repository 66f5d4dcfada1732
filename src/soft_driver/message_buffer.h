// Memory of a driver message, and a place where a session keeps one for the next message.
#pragma once

#include <cstddef>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/mutex.h"

namespace tiv::soft_driver {

// Bytes that the kernel fills: never initialised, never shrunk. One thread at a time.
class MessageBuffer {
 public:
    // Room for `bytes`; what was in the buffer may be lost. False when memory is short.
    [[nodiscard]] bool Reserve(size_t bytes) {
        if (bytes <= capacity_ && data_ != nullptr) {
            return true;
        }
        const size_t wanted = bytes == 0 ? 1 : bytes;
        data_.reset();
        data_.reset(static_cast<char*>(malloc(wanted)));
        capacity_ = data_ == nullptr ? 0 : wanted;
        return data_ != nullptr;
    }

    [[nodiscard]] char* Data() { return data_.get(); }
    [[nodiscard]] size_t Size() const { return size_; }
    [[nodiscard]] size_t Capacity() const { return capacity_; }
    void SetSize(size_t bytes) { size_ = bytes; }

    void Swap(MessageBuffer& other) {
        std::swap(data_, other.data_);
        std::swap(capacity_, other.capacity_);
        std::swap(size_, other.size_);
    }

 private:
    struct Release {
        void operator()(char* data) const { free(data); }
    };
    std::unique_ptr<char, Release> data_;
    size_t capacity_ = 0;
    size_t size_ = 0;
};

// Keeps the buffer of the last freed message for the next one: a message lives for one read of the
// layer above, and fresh pages for every read cost more than the copy out of the socket. Holds at
// most one segment. Any thread.
class BufferShelf {
 public:
    void Take(MessageBuffer& buffer) EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        buffer.Swap(spare_);
    }
    // Keeps the larger of the two.
    void Give(MessageBuffer& buffer) EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        if (buffer.Capacity() > spare_.Capacity()) {
            buffer.Swap(spare_);
        }
    }

 private:
    Mutex mutex_;
    MessageBuffer spare_ GUARDED_BY(mutex_);
};

}  // namespace tiv::soft_driver
