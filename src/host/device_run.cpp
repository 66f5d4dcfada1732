// The steps of one device's job.
#include "host/device_run.h"

#include <fmt/format.h>

#include <algorithm>

#include "hdc/hdc_transport.h"
#include "host/duration.h"
#include "host/host_clock.h"

namespace tiv::host {

using analysis::rokt::transport::HDCTransport;

namespace {

constexpr std::chrono::milliseconds DRAIN_SLICE{100};
constexpr std::chrono::seconds STOP_REPLY_TIMEOUT{30};
constexpr std::chrono::seconds REFUSED_PATIENCE{2};

}  // namespace

DeviceRun::DeviceRun(DeviceLink& link, DeviceJob job, std::string directory, GiveUp giveUp,
                     const TapFiles& tap)
    : link_(link),
      job_(std::move(job)),
      directory_(std::move(directory)),
      giveUp_(std::move(giveUp)),
      files_(directory_),
      tap_(tap ? tap(job_.deviceId, files_) : nullptr) {}

DeviceRun::~DeviceRun() { Abandon(); }

bool DeviceRun::Check(const Reply& reply) {
    if (!reply.Accepted()) {
        failure_ = reply.message;
    }
    return reply.Accepted();
}

bool DeviceRun::Connect() {
    auto transport = link_.Connect(job_.deviceId, failure_);
    if (transport == nullptr) {
        return false;
    }
    const auto* session = dynamic_cast<const HDCTransport*>(transport.get());
    isHere_ = session != nullptr && IsDaemonHere(session->Attribute(HDC_ATTR_PEER_PID));
    control_ =
        std::make_unique<ControlSession>(job_.deviceId, job_.jobId, std::move(transport), giveUp_);
    if (!Check(control_->Handshake())) {
        return false;
    }
    transport = link_.Connect(job_.deviceId, failure_);
    if (transport == nullptr) {
        return false;
    }
    ChunkSink& sink = tap_ == nullptr ? files_ : *tap_;
    data_ = std::make_unique<DataSession>(job_.deviceId, job_.jobId, std::move(transport), sink,
                                          giveUp_);
    return Check(data_->Handshake());
}

bool DeviceRun::Start() { return Check(control_->StartJob(job_.configText)) && StartReplay(); }

bool DeviceRun::StartReplay() {
    ++replayId_;
    replaying_ = Check(control_->StartReplay(job_.ctrlCpuEvents, job_.llcEvents, replayId_));
    return replaying_;
}

bool DeviceRun::StopReplay() {
    replaying_ = false;
    return Check(control_->StopReplay(replayId_));
}

bool DeviceRun::Alive() {
    return !control_->Closed() && data_->GetState() == DataSession::State::STREAMING;
}

// A daemon that died ends both sessions: nothing can be sent, and the end of the data says it all.
bool DeviceRun::IsLost() {
    return control_->Closed() && data_->WaitForEnd(REFUSED_PATIENCE) == DataSession::State::BROKEN;
}

bool DeviceRun::Stop() {
    if (IsLost()) {
        return true;
    }
    if (replaying_ && !StopReplay()) {
        return false;
    }
    if (!control_->SendStopJob()) {
        failure_ = fmt::format("device {}: the job stop could not be sent", job_.deviceId);
        return false;
    }
    stoppedAt_ = std::chrono::steady_clock::now();
    return true;
}

bool DeviceRun::TakeStopAnswer() {
    stopAccepted_ = stopAccepted_ || Check(control_->WaitForReply(STOP_REPLY_TIMEOUT));
    return stopAccepted_;
}

void DeviceRun::NoteDataFailure() {
    const std::string writing = files_.Error();
    failure_ = writing.empty() ? data_->Failure() : writing;
}

DeviceRun::DrainStep DeviceRun::DrainOnce(std::chrono::milliseconds patience) {
    const DataSession::State state = data_->WaitForEnd(DRAIN_SLICE);
    if (state == DataSession::State::BROKEN) {
        NoteDataFailure();
        return DrainStep::FAILED;
    }
    // A device that refuses to stop the job will send no finish either.
    if ((state == DataSession::State::COMPLETE || control_->Answered()) && !TakeStopAnswer()) {
        (void)data_->WaitForEnd(REFUSED_PATIENCE);  // for what is still under way
        return DrainStep::FAILED;
    }
    if (state == DataSession::State::COMPLETE) {
        return DrainStep::DONE;
    }
    const auto silentSince = std::max(stoppedAt_, data_->LastArrival());
    if (std::chrono::steady_clock::now() - silentSince > patience) {
        failure_ = fmt::format(
            "device {}: nothing arrived for {} and the device did not say that it has sent "
            "everything: the rest is given up; the daemon is stuck or the link is down: see the "
            "daemon's log, or wait longer with --drain-timeout",
            job_.deviceId, FormatDuration(patience));
        return DrainStep::FAILED;
    }
    return DrainStep::GO_ON;
}

void DeviceRun::Abandon() {
    if (data_ != nullptr) {
        data_->Close();
    }
    if (control_ != nullptr) {
        control_->Close();
    }
}

bool DeviceRun::FinishArrived() {
    return data_ != nullptr && data_->GetState() == DataSession::State::COMPLETE;
}

bool DeviceRun::Complete() {
    return FinishArrived() && failure_.empty() && files_.RefusedNames().empty() &&
           files_.Error().empty();
}

uint64_t DeviceRun::Bytes() const { return data_ == nullptr ? 0 : data_->Bytes(); }

uint64_t DeviceRun::Chunks() const { return data_ == nullptr ? 0 : data_->Chunks(); }

}  // namespace tiv::host
