// The data session of one device: everything that it collected arrives here.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <thread>

#include "hdc/i_transport.h"
#include "host/chunk_sink.h"
#include "host/patience.h"
#include "host/reply.h"
#include "platform/mutex.h"

namespace tiv::host {

// Reads the chunks of a job and hands them to a sink until the device says that it has sent
// everything.
//
//   OPENING --answer--> STREAMING --finish message--> COMPLETE
//      |                    |
//      +----- closed, broken or a sink that failed ---> BROKEN
//
// The finish message stands behind all data in one ordered stream: COMPLETE proves that nothing is
// missing and that the sink has kept it. A session that breaks is closed at once, so that the
// device does not wait for a reader that has gone. The reading thread is the session's own; the
// destructor closes the session and joins it.
class DataSession {
 public:
    enum class State { OPENING, STREAMING, COMPLETE, BROKEN };

    // `sink` is borrowed and outlives the session; `giveUp` ends the handshake's wait early.
    DataSession(int deviceId, std::string jobId,
                std::shared_ptr<analysis::rokt::transport::KbxTransport> transport, ChunkSink& sink,
                GiveUp giveUp = {});
    ~DataSession();
    DataSession(const DataSession&) = delete;
    DataSession& operator=(const DataSession&) = delete;

    // Asks the device for the session and waits for its answer.
    [[nodiscard]] Reply Handshake();

    // Waits until the session is COMPLETE or BROKEN, or the time is up. Returns the state.
    State WaitForEnd(std::chrono::milliseconds timeout);

    State GetState();
    // Why the session is BROKEN; empty otherwise.
    std::string Failure();

    // Payload bytes and chunks so far. Any thread.
    [[nodiscard]] uint64_t Bytes() const { return bytes_; }
    [[nodiscard]] uint64_t Chunks() const { return chunks_; }
    // When the last chunk arrived; the session's beginning before the first one. Any thread.
    [[nodiscard]] std::chrono::steady_clock::time_point LastArrival() const { return lastArrival_; }
    // Messages that were neither a chunk nor an answer nor the finish.
    [[nodiscard]] uint64_t Unreadable() const { return unreadable_; }

    void Close();

 private:
    void ReadData();
    bool TakePacket(std::string_view value);
    bool TakeChunk(std::string_view body);
    void TakeReply(std::string_view value);
    void TakeFinish();
    void SetState(State state, const std::string& failure);

    const int deviceId_;
    const std::string jobId_;
    const std::shared_ptr<analysis::rokt::transport::KbxTransport> transport_;
    std::atomic<bool> closing_{false};
    ChunkSink& sink_;
    const GiveUp giveUp_;

    std::atomic<uint64_t> bytes_{0};
    std::atomic<uint64_t> chunks_{0};
    std::atomic<uint64_t> unreadable_{0};
    std::atomic<std::chrono::steady_clock::time_point> lastArrival_{
        std::chrono::steady_clock::now()};

    Mutex mutex_;
    CondVar changed_;
    State state_ GUARDED_BY(mutex_) = State::OPENING;
    std::string failure_ GUARDED_BY(mutex_);
    Reply handshakeReply_ GUARDED_BY(mutex_);

    std::thread reader_;
};

}  // namespace tiv::host
