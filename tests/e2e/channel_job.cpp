// Jobs over counter channels.
#include "e2e/channel_job.h"

#include <sstream>

namespace tiv::e2e {
namespace {

constexpr std::chrono::seconds PATIENCE{60};
constexpr const char* LLC_FILE = "data/llc.data";

}  // namespace

bool CounterSink::OnChunk(const host::ReceivedChunk& chunk) {
    MutexLock lock(mutex_);
    while (held_) {
        changed_.Wait(mutex_);
    }
    if (chunk.fileName != LLC_FILE) {
        wrongName_ = chunk.fileName;
    }
    check_.Feed(chunk.data);
    bytes_ += chunk.data.size();
    ++chunks_;
    changed_.NotifyAll();
    return true;
}

void CounterSink::Hold() {
    MutexLock lock(mutex_);
    held_ = true;
}

void CounterSink::Release() {
    MutexLock lock(mutex_);
    held_ = false;
    changed_.NotifyAll();
}

bool CounterSink::WaitForBytes(uint64_t bytes) {
    const auto deadline = std::chrono::steady_clock::now() + PATIENCE;
    MutexLock lock(mutex_);
    bool inTime = true;
    while (bytes_ < bytes && inTime) {
        inTime = changed_.WaitUntil(mutex_, deadline);
    }
    return bytes_ >= bytes;
}

uint64_t CounterSink::Bytes() {
    MutexLock lock(mutex_);
    return bytes_;
}

uint64_t CounterSink::Chunks() {
    MutexLock lock(mutex_);
    return chunks_;
}

std::vector<uint64_t> CounterSink::Runs() {
    MutexLock lock(mutex_);
    std::vector<uint64_t> bytes;
    for (const test::CounterCheck::Run& run : check_.Runs()) {
        bytes.push_back(run.Bytes());
    }
    return bytes;
}

std::string CounterSink::Error() {
    MutexLock lock(mutex_);
    if (!wrongName_.empty()) {
        return "file " + wrongName_;
    }
    if (!check_.Error().empty()) {
        return check_.Error();
    }
    return check_.EndsWhole() ? "" : "the bytes end within a number";
}

ChannelJob::ChannelJob(host::DeviceLink& link, int device, const std::string& id)
    : deviceId(device), jobId(id) {
    std::string error;
    auto first = link.Connect(deviceId, error);
    auto second = link.Connect(deviceId, error);
    if (first == nullptr || second == nullptr) {
        ADD_FAILURE() << error;
        return;
    }
    control = std::make_unique<host::ControlSession>(deviceId, jobId, std::move(first));
    data = std::make_unique<host::DataSession>(deviceId, jobId, std::move(second), sink);
}

ChannelJob::~ChannelJob() { sink.Release(); }

host::Reply ChannelJob::Start() {
    host::Reply reply = control->Handshake();
    if (reply.Accepted()) {
        reply = data->Handshake();
    }
    if (reply.Accepted()) {
        reply = control->StartJob(SampleConfig(jobId, {{"zelnar_llc_profiling", "on"}}));
    }
    return reply.Accepted() ? StartReplay() : reply;
}

host::Reply ChannelJob::StartReplay() const { return control->StartReplay({}, {"read"}); }

host::Reply ChannelJob::Stop() {
    host::Reply reply = control->StopReplay();
    return reply.Accepted() ? StopJob() : reply;
}

host::Reply ChannelJob::StopJob() {
    if (!control->SendStopJob()) {
        return {host::Reply::Outcome::CLOSED, "the job stop could not be sent"};
    }
    const host::Reply reply = control->WaitForReply(PATIENCE);
    (void)data->WaitForEnd(PATIENCE);
    return reply;
}

std::vector<uint64_t> DeliveredBytes(const std::string& daemonErrors, int device) {
    const std::string start =
        "channel stopped: device=" + std::to_string(device) + " channel=8 source=counter ";
    const std::string count = "delivered=";
    std::vector<uint64_t> delivered;
    std::istringstream lines(daemonErrors);
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find(count);
        if (line.find(start) != std::string::npos && at != std::string::npos) {
            delivered.push_back(std::stoull(line.substr(at + count.size())));
        }
    }
    return delivered;
}

std::string CounterConfig(int devices, const std::string& pace, const std::string& top) {
    return "{\"devices\":" + std::to_string(devices) +
           ",\"channels\":[{\"id\":8,\"source\":\"counter\"" + pace + "}]" + top + "}";
}

}  // namespace tiv::e2e
