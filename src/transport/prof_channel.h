// The reader of one driver channel.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "common/perf_count.h"
#include "common/thread_pool.h"
#include "message/job_context.h"
#include "platform/mutex.h"
#include "transport/prof_channel_buffers.h"

namespace analysis::rokt::transport {

// Drains one channel into a buffer and hands full buffers to the uploader of its job.
//
//   new --Init--> inited --Execute (any number)--> SetChannelStopped --> Uninit
//
// The driver writes straight into the string that travels to the link: an upload swaps the buffer
// with a chunk's empty one. What is in the buffer below 1 MiB stays for a later round; Uninit sends
// the rest.
//
// The poll thread dispatches, one worker of the pool executes, a job's thread stops. `uploadMutex`
// is held for the whole of Execute and of each upload, also while a full queue blocks the push;
// `flushMutex` is taken under it, around the driver's read.
class ChannelReader : public analysis::rokt::common::thread::Task {
 public:
    // `relativeFileName` is the data file's name below the job's result directory.
    ChannelReader(int32_t deviceId, int32_t channelId, const std::string& relativeFileName,
                  const std::shared_ptr<analysis::rokt::message::JobContext>& jobCtx);
    ~ChannelReader() override;
    ChannelReader(const ChannelReader&) = delete;
    ChannelReader& operator=(const ChannelReader&) = delete;

    [[nodiscard]] int Init() EXCLUDES(uploadMutex);
    // Ends reading and a pending flush, waits for a running Execute and uploads the rest.
    void Uninit() EXCLUDES(uploadMutex, flushMutex);

    // Reads until the channel is empty or 32 MiB came. Always 0; failures are logged and end the
    // round only.
    int Execute() override EXCLUDES(uploadMutex, flushMutex);
    // Channel and device id: one channel always runs on one worker.
    long GetBindId() override;

    // The next Execute reads nothing; a pending flush ends.
    void SetChannelStopped() EXCLUDES(flushMutex);
    // Three dispatches are unfinished: a further one adds nothing.
    [[nodiscard]] bool IsBeyondScheduleLimit() const;
    // Counts a dispatch (true) or its end (false).
    void SetSchedulingStatus(bool scheduled);

    // On channels 44 and 45: makes the driver give up what it holds back and waits, without a
    // limit, until a worker has read it; then uploads. Returns at once on other channels.
    void FlushDrvBuff() EXCLUDES(uploadMutex, flushMutex);
    void FlushBuffToUpload() EXCLUDES(uploadMutex);

 private:
    using PerfCount = Analysis::Rokt::Common::Statistics::PerfCount;

    void DrainChannel() REQUIRES(uploadMutex) EXCLUDES(flushMutex);
    bool ReadRound(int64_t& roundBytes) REQUIRES(uploadMutex) EXCLUDES(flushMutex);
    int ReadChannel() REQUIRES(uploadMutex) EXCLUDES(flushMutex);
    void CountRead(uint64_t startTime, int length) REQUIRES(uploadMutex);
    void UploadData() REQUIRES(uploadMutex);
    std::shared_ptr<ProfileFileChunk> MakeChunk() const;
    bool WaitForDrvFlush() EXCLUDES(flushMutex);
    void AccountFlush(int length) REQUIRES(flushMutex);
    void EndFlush() REQUIRES(flushMutex);
    void OutPerfInfo() const;
    bool FlushesDriver() const;
    bool Reads() const;
    std::string JobId() const;
    std::string DevId() const;

    // Constant after construction.
    const int32_t deviceId;
    const int32_t channelId;
    const std::string relativeFileName;
    const uint32_t bufSize;  // bytes of the buffer in use, 1 MiB to 4 MiB

    uint32_t dataSize GUARDED_BY(uploadMutex) = 0;
    uint32_t spaceSize GUARDED_BY(uploadMutex) = CHANNEL_BUFFER_SIZE;
    std::string buffer GUARDED_BY(uploadMutex);
    int64_t hashId = 0;  // set by Init, before the first dispatch
    const std::shared_ptr<analysis::rokt::message::JobContext> jobCtx;
    std::atomic<int64_t> totalSize{0};
    std::atomic<bool> isChannelStopped{false};
    std::atomic<bool> isInited{false};
    std::shared_ptr<PerfCount> speedPerfCount;     // set by Init, before the first dispatch
    std::shared_ptr<PerfCount> speedAllPerfCount;  // likewise
    uint64_t lastEndRawTime GUARDED_BY(uploadMutex) = 0;
    std::atomic<int64_t> readCount{0};
    tiv::Mutex uploadMutex;
    std::atomic<uint32_t> schedulingCount{0};
    bool isFlushing GUARDED_BY(flushMutex) = false;
    uint32_t flushBufSize GUARDED_BY(flushMutex) = 0;  // bytes that the driver promised
    uint32_t flushedSize GUARDED_BY(flushMutex) = 0;   // bytes read since
    tiv::Mutex flushMutex;
    tiv::CondVar flushCond;
};

}  // namespace analysis::rokt::transport
