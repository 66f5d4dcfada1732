// The control session of one device: requests go out, each is answered by one Response.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <google/protobuf/message.h>

#include "hdc/i_transport.h"
#include "host/patience.h"
#include "host/reply.h"
#include "platform/mutex.h"

namespace tiv::host {

// Sends the requests of a job and waits for their answers.
//
// The driver's read has no time-out, so a thread of the session's own reads for as long as the
// session is open; waiting for an answer is waiting for that thread. Requests are made one at a
// time, by one thread; `giveUp` ends its waits early. The destructor closes the session and joins
// the reader.
class ControlSession {
 public:
    ControlSession(int deviceId, std::string jobId,
                   std::shared_ptr<analysis::rokt::transport::KbxTransport> transport,
                   GiveUp giveUp = {});
    ~ControlSession();
    ControlSession(const ControlSession&) = delete;
    ControlSession& operator=(const ControlSession&) = delete;

    [[nodiscard]] Reply Handshake();
    [[nodiscard]] Reply StartJob(const std::string& sampleConfig);
    [[nodiscard]] Reply StartReplay(const std::vector<std::string>& ctrlCpuEvents,
                                    const std::vector<std::string>& llcEvents, int replayId = 0);
    [[nodiscard]] Reply StopReplay(int replayId = 0);
    // Sends the request only: the answer comes when the data session is drained, which the caller
    // watches. WaitForReply collects it.
    [[nodiscard]] bool SendStopJob();

    // Waits for the next answer.
    [[nodiscard]] Reply WaitForReply(std::chrono::milliseconds timeout);

    // True when an answer is there: WaitForReply gives it at once.
    [[nodiscard]] bool Answered();

    // True when the far end has closed the session.
    [[nodiscard]] bool Closed();

    void Close();

 private:
    Reply Request(const google::protobuf::Message& request, const std::string& what);
    bool Send(const google::protobuf::Message& request);
    std::string JobContextText() const;
    void ReadReplies();
    void TakePacket(std::string_view value);
    void MarkClosed();

    const int deviceId_;
    const std::string jobId_;
    const std::shared_ptr<analysis::rokt::transport::KbxTransport> transport_;
    const GiveUp giveUp_;
    std::atomic<bool> closing_{false};
    std::string waitingFor_;  // the request under way, for messages; the requesting thread

    Mutex mutex_;
    CondVar changed_;
    std::deque<Reply> replies_ GUARDED_BY(mutex_);
    bool closed_ GUARDED_BY(mutex_) = false;

    std::thread reader_;
};

}  // namespace tiv::host
