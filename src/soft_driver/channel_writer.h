// The producer's end of a channel.
#pragma once

#include <cstddef>
#include <utility>

#include "soft_driver/channel_ring.h"
#include "soft_driver/ready_set.h"

namespace tiv::soft_driver {

// Puts bytes into the ring of one channel and tells the ready set. One thread: the source's.
class ChannelWriter {
 public:
    ChannelWriter(ChannelRing& ring, ReadySet& ready, ReadySet::EntryPtr entry)
        : ring_(ring), ready_(ready), entry_(std::move(entry)) {}

    // Waits for room and gives an unbroken run of it to be filled. Empty when the channel stops.
    [[nodiscard]] RingRegion WaitForRoom();

    // The first `bytes` of the run were filled.
    void Commit(size_t bytes);

    // Appends all of it, or nothing when there is not room enough. Does not wait.
    [[nodiscard]] bool TryAppend(const char* data, size_t bytes);

    // False when the channel stops before the time comes.
    [[nodiscard]] bool SleepUntil(ReadySet::Clock::time_point deadline) {
        return ready_.SleepUntil(entry_, deadline);
    }

 private:
    ChannelRing& ring_;
    ReadySet& ready_;
    const ReadySet::EntryPtr entry_;
};

}  // namespace tiv::soft_driver
