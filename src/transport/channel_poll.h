// The thread that asks the driver which channels hold data, and the table of their readers.
#pragma once

#include <atomic>
#include <cstdint>
#include <map>
#include <memory>

#include "common/thread.h"
#include "common/thread_pool.h"
#include "platform/driver_api.h"
#include "platform/mutex.h"
#include "transport/prof_channel.h"

namespace analysis::rokt::transport {

// Workers of the reader pool for a number of devices: at least 4, at most 64.
[[nodiscard]] uint32_t ChannelPoolThreadNum(int deviceCount);

// Dispatches the reader of each channel with data to a pool of workers.
//
//   created --Start--> polling <--> idle (the driver has no open channel) --Stop--> stopped
//                         |
//                         +-- poll failed: the thread is gone until the next Start, Stop still
//                         joins
//
// A channel is bound to one worker, so that its data stays in order. A full worker queue blocks the
// poll thread: that is how a slow link reaches the driver.
//
// The poll thread and job threads meet in `mutex`, which is never held during driver I/O, except
// that RemoveReader holds it while it waits for the reader's last upload.
class ChannelPoll : public analysis::rokt::common::thread::Thread {
 public:
    ChannelPoll() = default;
    ~ChannelPoll() override;
    ChannelPoll(const ChannelPoll&) = delete;
    ChannelPoll& operator=(const ChannelPoll&) = delete;

    [[nodiscard]] int Start() override;
    // Waits for the poll thread, at most a poll's time-out, and for the workers' queues to run
    // empty.
    int Stop() override;

    // Replaces a reader of the same channel as it is.
    void AddReader(uint32_t devId, uint32_t channelId, const std::shared_ptr<ChannelReader>& reader)
        EXCLUDES(mutex);
    // Stops the reader, uploads its rest and forgets it.
    void RemoveReader(uint32_t devId, uint32_t channelId) EXCLUDES(mutex);
    // Queues the reader's next round. Blocks while its worker's queue is full.
    void DispatchChannel(uint32_t devId, uint32_t channelId) EXCLUDES(mutex);
    // Flushes each reader in turn, outside the mutex.
    void FlushDrvBuff() EXCLUDES(mutex);

 protected:
    void Run(const Analysis::Rokt::ZelnarErrMgr::ErrorContext& threadContext) override;

 private:
    using ReaderMap = std::map<uint32_t, std::map<uint32_t, std::shared_ptr<ChannelReader>>>;

    std::shared_ptr<ChannelReader> FindReader(uint32_t devId, uint32_t channelId) EXCLUDES(mutex);
    // False when the reader is in no queue.
    bool Enqueue(const std::shared_ptr<ChannelReader>& reader);
    bool PollOnce(ProfPollPair* pairs);
    bool Idle();
    void DispatchPair(const ProfPollPair& pair, int result);

    std::shared_ptr<analysis::rokt::common::thread::ThreadPool> pool;  // set by Start
    ReaderMap readers GUARDED_BY(mutex);
    tiv::Mutex mutex;
    std::atomic<bool> isStarted{false};
    // The poll thread's, read after its join.
    uint32_t pollCount = 0;
    uint32_t sleepCount = 0;
    uint32_t dispatchCount = 0;
    uint32_t dispatchChannelCount = 0;
};

}  // namespace analysis::rokt::transport
