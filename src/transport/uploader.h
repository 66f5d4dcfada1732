// The thread that sends the chunks of one job.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>

#include "common/bound_queue.h"
#include "common/thread.h"
#include "hdc/file_chunk.h"
#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace analysis {
namespace rokt {
namespace transport {

// Takes chunks from a bounded queue and hands them to the job's data transport, one after the
// other.
//
//   created -> Init (queue exists) -> Start (thread runs) -> Flush -> Uninit or destruction
//
// A full queue blocks its producers: nothing is dropped for lack of room, and a slow link is felt
// all the way up to the driver's poller. A failed send is logged and its chunk is lost; there is no
// retry.
//
// Any number of producer threads. Init, Start, Stop and Uninit belong to one controlling thread. A
// forced stop that finds the thread inside a send waits for it, so that the last message of a job
// is not cut off, and closes the session only when the send outlives every time limit of the
// driver.
class Uploader : public common::thread::Thread {
 public:
    explicit Uploader(const std::shared_ptr<ITransport>& dataTransport);
    ~Uploader() override;
    Uploader(const Uploader&) = delete;
    Uploader& operator=(const Uploader&) = delete;

    // Makes the queue for `capacity` chunks. 0 or -1.
    [[nodiscard]] int Init(size_t capacity);

    // Queue a copy of `len` bytes that are an encoded message (first form) or a chunk, which
    // belongs to the queue from then on. 0, or -1 when nothing was queued. Block while the queue is
    // full.
    [[nodiscard]] int UploadData(const void* data, int len);
    [[nodiscard]] int UploadData(const std::shared_ptr<ProfileFileChunk>& chunk);

    // Returns when the queue is empty or the thread has ended. There is no time limit, and the
    // chunk in the thread's hand is not waited for.
    void Flush();

    using common::thread::Thread::Stop;
    // Ends the thread: after everything queued was sent, or with `force` after the chunk in hand.
    // Always 0; once in the life of an uploader.
    int Stop(bool force);

    // A forced stop, then lets go of the transport. What is still queued is dropped.
    void Uninit();

    std::shared_ptr<ITransport> GetTransport() EXCLUDES(stateMutex);

    // How long a forced stop waits for a send in progress before it closes the session. Has to be
    // longer than the driver's own limit for a send that makes no progress. Before Start.
    void SetStopLimit(std::chrono::milliseconds limit) { stopLimit = limit; }

    void Run(const common::thread::ErrorContext& threadContext) override;

 private:
    using ChunkQueue = common::queue::BoundQueue<std::shared_ptr<ProfileFileChunk>>;

    bool Enqueue(const std::shared_ptr<ProfileFileChunk>& chunk);
    void SendQueued();
    void SendOne(const std::shared_ptr<ITransport>& sender,
                 const std::shared_ptr<ProfileFileChunk>& chunk);
    void Upload(ITransport& sender, const std::shared_ptr<ProfileFileChunk>& chunk);
    void WaitForEnd();
    bool RunEndsInTime() EXCLUDES(stateMutex);
    bool HasRunEnded() EXCLUDES(stateMutex);

    std::shared_ptr<ITransport> transport GUARDED_BY(stateMutex);
    std::shared_ptr<ChunkQueue> queue;  // constant after Init
    std::atomic<bool> isInited{false};
    std::atomic<bool> forceQuit{false};
    std::atomic<bool> isStopped{false};

    std::chrono::milliseconds stopLimit{60000};
    tiv::Mutex stateMutex;
    tiv::CondVar runEndedCondition;
    bool runEnded GUARDED_BY(stateMutex) = false;  // Run has returned or is about to
};

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
