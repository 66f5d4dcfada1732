// Which open channels hold data, and how much.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <memory>

#include "platform/mutex.h"
#include "soft_driver/exports.h"

namespace tiv::soft_driver {

// The accounts of all open channels, and the queue from which the poll reports them.
//
// A channel is queued when it turns from empty to holding readable bytes, and after each read of
// it that leaves some; it is queued once, and reported once between two reads. A poll takes from
// the front, so a busy channel waits behind the others.
//
// The bytes lie elsewhere: one producer and one reader per channel move them between two calls of
// this class, whose mutex orders their work. Any thread.
class ReadySet {
 public:
    using Clock = std::chrono::steady_clock;

    // One open channel. Its fields belong to the set and its mutex.
    struct Entry {
        ProfPollPair id{};
        uint64_t holdBack = 0;  // held bytes become readable together when they reach this
        uint64_t readable = 0;
        uint64_t held = 0;
        bool isQueued = false;
        bool isOpen = true;
        CondVar room;  // bytes were read, or the channel was closed
        CondVar closed;
    };
    using EntryPtr = std::shared_ptr<Entry>;

    [[nodiscard]] EntryPtr Open(ProfPollPair id, uint64_t holdBack) EXCLUDES(mutex_);

    // Ends every wait on the channel. What is in it will not be read any more.
    void Close(const EntryPtr& entry) EXCLUDES(mutex_);

    // Producer: `bytes` lie behind those that were there.
    void Add(const EntryPtr& entry, uint64_t bytes) EXCLUDES(mutex_);

    // Bytes in the channel, readable or held, also after Close. The producer's business.
    [[nodiscard]] uint64_t Used(const EntryPtr& entry) EXCLUDES(mutex_);

    // Producer: waits until the channel holds fewer than `capacity` bytes and gives how many.
    // False when the channel was closed.
    [[nodiscard]] bool WaitForRoom(const EntryPtr& entry, uint64_t capacity, uint64_t* used)
        EXCLUDES(mutex_);

    // Producer: false when the channel was closed before the time came.
    [[nodiscard]] bool SleepUntil(const EntryPtr& entry, Clock::time_point deadline)
        EXCLUDES(mutex_);

    // Reader: bytes that may be read. False when the channel was closed.
    [[nodiscard]] bool Readable(const EntryPtr& entry, uint64_t* bytes) EXCLUDES(mutex_);

    // Reader: `bytes`, perhaps 0, were read.
    void Take(const EntryPtr& entry, uint64_t bytes) EXCLUDES(mutex_);

    // Makes held bytes readable and gives their number. False when the channel was closed.
    [[nodiscard]] bool Flush(const EntryPtr& entry, uint64_t* bytes) EXCLUDES(mutex_);

    // Fills in up to `count` channels. The number of them; 0 when the time ran out;
    // PROF_STOPPED_ALREADY at once, or as soon as the last channel closes, when none is open.
    // Blocks in the kernel.
    [[nodiscard]] int32_t Poll(ProfPollPair* out, int32_t count, std::chrono::seconds timeout)
        EXCLUDES(mutex_);

 private:
    void MakeReadable(const EntryPtr& entry, uint64_t bytes) REQUIRES(mutex_);
    void Enqueue(const EntryPtr& entry) REQUIRES(mutex_);
    [[nodiscard]] int32_t Collect(ProfPollPair* out, int32_t count) REQUIRES(mutex_);

    Mutex mutex_;
    CondVar ready_;  // a channel was queued, or the last one closed
    std::deque<EntryPtr> queue_ GUARDED_BY(mutex_);
    uint32_t openCount_ GUARDED_BY(mutex_) = 0;
};

}  // namespace tiv::soft_driver
