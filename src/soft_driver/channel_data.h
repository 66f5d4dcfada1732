// What a read of a channel takes its bytes from.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>
#include <utility>

#include "soft_driver/channel_ring.h"
#include "soft_driver/counter_source.h"

namespace tiv::soft_driver {

// The reader's side of a channel. One reader at a time; it never asks for more than the ready set
// says is there.
class ChannelData {
 public:
    virtual ~ChannelData() = default;
    virtual void Read(char* out, size_t bytes) = 0;
};

// Bytes that a source put into a ring; the one copy on their way.
class RingData : public ChannelData {
 public:
    explicit RingData(size_t capacity) : ring_(capacity) {}
    [[nodiscard]] ChannelRing& Ring() { return ring_; }
    void Read(char* out, size_t bytes) override { ring_.Read(out, bytes); }

 private:
    ChannelRing ring_;
};

// A header, then rising numbers made where the reader wants them: a counter without a rate has
// nothing to wait for and nothing to keep.
class CounterData : public ChannelData {
 public:
    explicit CounterData(std::string header) : header_(std::move(header)) {}
    void Read(char* out, size_t bytes) override {
        const size_t head = std::min(bytes, header_.size() - headerRead_);
        memcpy(out, header_.data() + headerRead_, head);
        headerRead_ += head;
        stream_.Fill(out + head, bytes - head);
    }

 private:
    const std::string header_;
    size_t headerRead_ = 0;
    CounterStream stream_;
};

}  // namespace tiv::soft_driver
