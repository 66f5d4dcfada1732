// The memory of a channel: a ring that a source fills and reads empty.
#pragma once

#include <cstddef>

namespace tiv::soft_driver {

// A run of bytes inside the ring.
struct RingRegion {
    char* data = nullptr;
    size_t size = 0;
};

// Bytes between two positions. It does not count what it holds: the producer is told the room and
// the reader the amount by the ready set, whose mutex also orders the two.
//
// The pages come from the kernel untouched and go back when the ring goes.
class ChannelRing {
 public:
    // Throws std::bad_alloc when the kernel has no memory.
    explicit ChannelRing(size_t capacity);
    ~ChannelRing();
    ChannelRing(const ChannelRing&) = delete;
    ChannelRing& operator=(const ChannelRing&) = delete;

    [[nodiscard]] size_t Capacity() const { return capacity_; }

    // Producer, while the ring is empty: starts again at the front, whose memory is warm.
    void Rewind() { head_ = tail_ = 0; }

    // Producer: the longest unbroken run of at most `room` free bytes.
    [[nodiscard]] RingRegion FreeRun(size_t room) const;
    void Produced(size_t bytes) { tail_ = (tail_ + bytes) % capacity_; }

    // Reader: moves `bytes` that are in the ring into `out`.
    void Read(char* out, size_t bytes);

 private:
    const size_t capacity_;
    char* memory_ = nullptr;
    size_t head_ = 0;  // next byte to read
    size_t tail_ = 0;  // next byte to fill
};

}  // namespace tiv::soft_driver
