// Requests and answers of the control session.
#include "host/control_session.h"

#include <fmt/format.h>

#include <exception>

#include "host/console.h"
#include "host/wire_reply.h"
#include "message/codec.h"
#include "message/job_context.h"
#include "message/profiler.pb.h"

namespace tiv::host {

using analysis::rokt::message::Codec;
using analysis::rokt::message::JobContext;
using analysis::rokt::transport::KbxTransport;
namespace proto = analysis::rokt::proto;

namespace {

constexpr std::chrono::seconds REPLY_TIMEOUT{30};
// Requests are made one at a time: a device that answers more than it is asked is not listened to.
constexpr size_t MOST_WAITING_REPLIES = 16;

}  // namespace

ControlSession::ControlSession(int deviceId, std::string jobId,
                               std::shared_ptr<KbxTransport> transport, GiveUp giveUp)
    : deviceId_(deviceId),
      jobId_(std::move(jobId)),
      transport_(std::move(transport)),
      giveUp_(std::move(giveUp)) {
    reader_ = std::thread([this] { ReadReplies(); });
}

ControlSession::~ControlSession() {
    Close();
    reader_.join();
}

void ControlSession::Close() {
    closing_ = true;
    (void)transport_->CloseSession();
}

std::string ControlSession::JobContextText() const {
    JobContext context;
    context.dev_id = std::to_string(deviceId_);
    context.job_id = jobId_;
    return context.ToString();
}

bool ControlSession::Send(const google::protobuf::Message& request) {
    const std::shared_ptr<google::protobuf::Message> copy(request.New());
    copy->CopyFrom(request);
    const std::string frame = Codec::EncodeMessage(copy);
    return transport_->SendBuffer(frame.data(), static_cast<int>(frame.size())) >= 0;
}

Reply ControlSession::Request(const google::protobuf::Message& request, const std::string& what) {
    waitingFor_ = what;
    if (!Send(request)) {
        return {
            Reply::Outcome::CLOSED,
            fmt::format("device {}: the {} could not be sent: the session is closed or the link "
                        "is stalled; check that `tiv` runs",
                        deviceId_, what)};
    }
    return WaitForReply(REPLY_TIMEOUT);
}

Reply ControlSession::Handshake() {
    proto::CtrlChannelHandshake handshake;
    handshake.set_jobid(jobId_);
    handshake.set_devid(deviceId_);
    return Request(handshake, "control handshake");
}

Reply ControlSession::StartJob(const std::string& sampleConfig) {
    proto::JobStartReq request;
    request.mutable_hdr()->set_job_ctx(JobContextText());
    request.set_sampleconfig(sampleConfig);
    return Request(request, "job start");
}

Reply ControlSession::StartReplay(const std::vector<std::string>& ctrlCpuEvents,
                                  const std::vector<std::string>& llcEvents, int replayId) {
    proto::ReplayStartReq request;
    request.set_replayid(replayId);
    request.mutable_hdr()->set_job_ctx(JobContextText());
    for (const std::string& event : ctrlCpuEvents) {
        request.add_ctrl_cpu_events(event);
    }
    for (const std::string& event : llcEvents) {
        request.add_llc_events(event);
    }
    return Request(request, "collection start");
}

Reply ControlSession::StopReplay(int replayId) {
    proto::ReplayStopReq request;
    request.set_replayid(replayId);
    request.mutable_hdr()->set_job_ctx(JobContextText());
    return Request(request, "collection stop");
}

bool ControlSession::SendStopJob() {
    proto::JobStopReq request;
    request.mutable_hdr()->set_job_ctx(JobContextText());
    request.set_jobid(jobId_);
    waitingFor_ = "job stop";
    return Send(request);
}

Reply ControlSession::WaitForReply(std::chrono::milliseconds timeout) {
    Patience patience(timeout, giveUp_);
    MutexLock lock(mutex_);
    bool goOn = true;
    while (replies_.empty() && !closed_ && goOn) {
        goOn = patience.Wait(mutex_, changed_);
    }
    if (!replies_.empty()) {
        Reply reply = std::move(replies_.front());
        replies_.pop_front();
        reply.message = fmt::format("device {}: {}", deviceId_,
                                    reply.Accepted() ? waitingFor_ + " accepted"
                                                     : waitingFor_ + " refused: " + reply.message);
        return reply;
    }
    if (closed_) {
        return {Reply::Outcome::CLOSED,
                fmt::format("device {}: the daemon closed the session instead of answering the {}; "
                            "see its log for the reason",
                            deviceId_, waitingFor_)};
    }
    if (patience.GivenUp()) {
        return {
            Reply::Outcome::GIVEN_UP,
            fmt::format("device {}: given up before the {} was answered", deviceId_, waitingFor_)};
    }
    return {Reply::Outcome::TIMED_OUT,
            fmt::format("device {}: no answer to the {} within {}s; the daemon is busy or stopped: "
                        "look at its log, or try again later",
                        deviceId_, waitingFor_,
                        std::chrono::duration_cast<std::chrono::seconds>(timeout).count())};
}

bool ControlSession::Answered() {
    MutexLock lock(mutex_);
    return !replies_.empty();
}

bool ControlSession::Closed() {
    MutexLock lock(mutex_);
    return closed_ && replies_.empty();
}

void ControlSession::TakePacket(std::string_view value) {
    Reply reply;
    if (!ParseReply(value, reply)) {
        return;  // not an answer: a device sends nothing else here
    }
    MutexLock lock(mutex_);
    if (replies_.size() < MOST_WAITING_REPLIES) {
        replies_.push_back(std::move(reply));
        changed_.NotifyAll();
    }
}

void ControlSession::MarkClosed() {
    MutexLock lock(mutex_);
    closed_ = true;
    changed_.NotifyAll();
}

void ControlSession::ReadReplies() {
    try {
        ReadPackets(*transport_, closing_, [this](std::string_view value) {
            TakePacket(value);
            return true;
        });
    } catch (const std::exception& error) {
        Say(stderr,
            fmt::format("tivctl: device {}: cannot read answers: {}\n", deviceId_, error.what()));
    }
    MarkClosed();
}

}  // namespace tiv::host
