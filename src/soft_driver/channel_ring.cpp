// The memory of a channel.
#include "soft_driver/channel_ring.h"

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <new>

namespace tiv::soft_driver {

ChannelRing::ChannelRing(size_t capacity) : capacity_(capacity) {
    void* memory =
        mmap(nullptr, capacity_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED) {
        throw std::bad_alloc();
    }
    memory_ = static_cast<char*>(memory);
}

ChannelRing::~ChannelRing() { (void)munmap(memory_, capacity_); }

RingRegion ChannelRing::FreeRun(size_t room) const {
    return {memory_ + tail_, std::min(room, capacity_ - tail_)};
}

void ChannelRing::Read(char* out, size_t bytes) {
    const size_t first = std::min(bytes, capacity_ - head_);
    memcpy(out, memory_ + head_, first);
    memcpy(out + first, memory_, bytes - first);
    head_ = (head_ + bytes) % capacity_;
}

}  // namespace tiv::soft_driver
