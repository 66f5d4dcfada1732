// Reading of the data session.
#include "host/data_session.h"

#include <fmt/format.h>

#include <exception>

#include "host/file_chunk_view.h"
#include "host/wire_reply.h"
#include "message/codec.h"
#include "message/profiler.pb.h"

namespace tiv::host {

using analysis::rokt::message::Codec;
using analysis::rokt::transport::KbxTransport;
namespace proto = analysis::rokt::proto;

namespace {

constexpr std::chrono::seconds HANDSHAKE_TIMEOUT{30};
constexpr const char* CHUNK_TYPE = "analysis.rokt.proto.FileChunkReq";
constexpr const char* FINISH_TYPE = "analysis.rokt.proto.DataChannelFinish";

bool Ended(DataSession::State state) {
    return state == DataSession::State::COMPLETE || state == DataSession::State::BROKEN;
}

}  // namespace

DataSession::DataSession(int deviceId, std::string jobId, std::shared_ptr<KbxTransport> transport,
                         ChunkSink& sink, GiveUp giveUp)
    : deviceId_(deviceId),
      jobId_(std::move(jobId)),
      transport_(std::move(transport)),
      sink_(sink),
      giveUp_(std::move(giveUp)) {
    reader_ = std::thread([this] { ReadData(); });
}

DataSession::~DataSession() {
    Close();
    reader_.join();
}

void DataSession::Close() {
    closing_ = true;
    (void)transport_->CloseSession();
}

Reply DataSession::Handshake() {
    const auto handshake = std::make_shared<proto::DataChannelHandshake>();
    handshake->set_jobid(jobId_);
    handshake->set_devid(deviceId_);
    const std::string frame = Codec::EncodeMessage(handshake);
    if (transport_->SendBuffer(frame.data(), static_cast<int>(frame.size())) < 0) {
        return {
            Reply::Outcome::CLOSED,
            fmt::format("device {}: the data handshake could not be sent; check that `tiv` runs",
                        deviceId_)};
    }
    Patience patience(HANDSHAKE_TIMEOUT, giveUp_);
    MutexLock lock(mutex_);
    bool goOn = true;
    while (state_ == State::OPENING && goOn) {
        goOn = patience.Wait(mutex_, changed_);
    }
    if (state_ == State::STREAMING || state_ == State::COMPLETE ||
        handshakeReply_.outcome == Reply::Outcome::REFUSED) {
        return handshakeReply_;
    }
    if (state_ == State::BROKEN) {
        return {Reply::Outcome::CLOSED, failure_};
    }
    if (patience.GivenUp()) {
        return {
            Reply::Outcome::GIVEN_UP,
            fmt::format("device {}: given up before the data handshake was answered", deviceId_)};
    }
    return {
        Reply::Outcome::TIMED_OUT,
        fmt::format("device {}: no answer to the data handshake within {}s; look at the daemon's "
                    "log, or try again later",
                    deviceId_, HANDSHAKE_TIMEOUT.count())};
}

DataSession::State DataSession::WaitForEnd(std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    MutexLock lock(mutex_);
    bool inTime = true;
    while (!Ended(state_) && inTime) {
        inTime = changed_.WaitUntil(mutex_, deadline);
    }
    return state_;
}

DataSession::State DataSession::GetState() {
    MutexLock lock(mutex_);
    return state_;
}

std::string DataSession::Failure() {
    MutexLock lock(mutex_);
    return failure_;
}

void DataSession::SetState(State state, const std::string& failure) {
    MutexLock lock(mutex_);
    if (Ended(state_)) {
        return;
    }
    state_ = state;
    failure_ = failure;
    changed_.NotifyAll();
}

void DataSession::TakeReply(std::string_view value) {
    Reply reply;
    if (!ParseReply(value, reply)) {
        ++unreadable_;
        return;
    }
    reply.message = reply.Accepted() ? "data session open"
                                     : fmt::format("device {}: data handshake refused: {}",
                                                   deviceId_, reply.message);
    const State next = reply.Accepted() ? State::STREAMING : State::BROKEN;
    const std::string failure = reply.Accepted() ? "" : reply.message;
    {
        MutexLock lock(mutex_);
        handshakeReply_ = std::move(reply);
    }
    SetState(next, failure);
}

bool DataSession::TakeChunk(std::string_view body) {
    FileChunkView view;
    if (!ParseFileChunk(body, view)) {
        ++unreadable_;
        return true;
    }
    bytes_ += view.chunk.size();
    ++chunks_;
    lastArrival_ = std::chrono::steady_clock::now();
    if (!sink_.OnChunk({view.fileName, view.dataModule, view.chunk})) {
        SetState(State::BROKEN,
                 fmt::format("device {}: the result could not be written", deviceId_));
        return false;
    }
    return true;
}

void DataSession::TakeFinish() {
    if (GetState() == State::OPENING) {
        SetState(State::BROKEN,
                 fmt::format("device {}: the device ended the data session before it answered the "
                             "handshake",
                             deviceId_));
    } else if (unreadable_ != 0) {
        SetState(State::BROKEN, fmt::format("device {}: {} messages were unreadable", deviceId_,
                                            unreadable_.load()));
    } else if (!sink_.OnFinish()) {
        SetState(State::BROKEN,
                 fmt::format("device {}: the result could not be written", deviceId_));
    } else {
        SetState(State::COMPLETE, "");
    }
}

// False when nothing more is to be read.
bool DataSession::TakePacket(std::string_view value) {
    FrameView frame;
    if (!ParseFrame(value, frame)) {
        TakeReply(value);
        return true;
    }
    if (frame.typeName == CHUNK_TYPE) {
        return TakeChunk(frame.body);
    }
    if (frame.typeName == FINISH_TYPE) {
        TakeFinish();
        return false;
    }
    TakeReply(value);
    return true;
}

void DataSession::ReadData() {
    try {
        ReadPackets(*transport_, closing_,
                    [this](std::string_view value) { return TakePacket(value); });
    } catch (const std::exception& error) {
        SetState(State::BROKEN, fmt::format("device {}: the result could not be taken: {}",
                                            deviceId_, error.what()));
    }
    SetState(State::BROKEN,
             fmt::format("device {}: the data session ended before the device had sent everything: "
                         "the daemon died or the link broke; see the daemon's log",
                         deviceId_));
    if (GetState() == State::BROKEN) {
        Close();
    }
}

}  // namespace tiv::host
