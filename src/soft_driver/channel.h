// One channel between its start and its stop.
#pragma once

#include <cstdint>
#include <memory>
#include <thread>

#include "platform/mutex.h"
#include "soft_driver/channel_data.h"
#include "soft_driver/ready_set.h"
#include "soft_driver/settings.h"
#include "soft_driver/source.h"

namespace tiv::soft_driver {

// Made by every start and never used again after the stop: a read that comes late finds a stopped
// channel, not the next run's bytes.
//
//   Prepare -> Begin -> Read, Flush ... -> Stop
//
// A source with a rate has a thread, `tiv_drv_chan`, from Begin to Stop. Any thread reads; reads
// of one channel follow each other.
class Channel {
 public:
    Channel(uint32_t deviceId, const ChannelSettings& settings, ReadySet& ready);
    ~Channel();
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Opens the source and takes memory. False with errno set, told by a warning; may throw
    // std::bad_alloc.
    [[nodiscard]] bool Prepare(const StartRecord& start);

    // Counts as open from here on.
    void Open();

    // Writes the header and lets the source run. May throw std::system_error when there is no
    // thread for it; Stop is called then, too.
    void Begin() EXCLUDES(lifeMutex_);

    // Bytes read, 0 when there are none, PROF_STOPPED_ALREADY after Stop.
    [[nodiscard]] int32_t Read(char* out, uint32_t bytes) EXCLUDES(readMutex_);

    // Makes held-back bytes readable. 0, or PROF_STOPPED_ALREADY.
    [[nodiscard]] int32_t Flush(uint32_t* bytes);

    // Ends the source and joins its thread. Unread bytes are lost; how many, and how many were
    // read, is told in one line.
    // A stop during Begin waits for it; a Begin after a stop does nothing.
    void Stop() EXCLUDES(lifeMutex_, readMutex_);

 private:
    void RunSource();
    void Report() EXCLUDES(readMutex_);

    const uint32_t deviceId_;
    const ChannelSettings settings_;
    ReadySet& ready_;
    std::unique_ptr<Source> source_;  // null when the bytes need no thread
    std::string header_;
    uint64_t madeByReads_ = 0;  // bytes that exist only when they are read
    ReadySet::EntryPtr entry_;

    Mutex lifeMutex_;  // not taken by the source's thread, which is joined under it
    std::thread thread_ GUARDED_BY(lifeMutex_);
    bool stopped_ GUARDED_BY(lifeMutex_) = false;

    Mutex readMutex_;
    std::unique_ptr<ChannelData>
        data_;                  // Read under readMutex_; constant after Prepare; null: silent
    RingData* ring_ = nullptr;  // data_ when a source fills it
    uint64_t delivered_ GUARDED_BY(readMutex_) = 0;
};

}  // namespace tiv::soft_driver
