// A daemon with counter channels, and hosts that take what it sends.
#include "bench/daemon_bench.h"

#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace tiv::bench {
namespace {

constexpr std::chrono::seconds PATIENCE{120};

void Require(const host::Reply& reply) {
    if (!reply.Accepted()) {
        throw std::runtime_error(reply.message);
    }
}

}  // namespace

bool BenchSink::OnChunk(const host::ReceivedChunk& chunk) {
    if (ring_ != nullptr && !ring_->Write(chunk.data)) {
        return false;
    }
    const Clock::time_point now = Clock::now();
    MutexLock lock(mutex_);
    if (checking_) {
        check_.Feed(chunk.data);
    }
    lastArrival_ = now;
    bytes_ += chunk.data.size();
    arrived_.NotifyAll();
    return true;
}

Clock::time_point BenchSink::WaitForBytes(uint64_t bytes) {
    const auto deadline = Clock::now() + PATIENCE;
    MutexLock lock(mutex_);
    while (bytes_ < bytes) {
        if (!arrived_.WaitUntil(mutex_, deadline)) {
            throw std::runtime_error("the data does not arrive");
        }
    }
    return lastArrival_;
}

std::string BenchSink::CheckError() {
    MutexLock lock(mutex_);
    return check_.Error();
}

BenchJob::BenchJob(host::DeviceLink& link, int device, ResultRing* ring)
    : device_(device), jobId_("bench-" + std::to_string(device)), sink_(ring) {
    std::string error;
    auto first = link.Connect(device_, error);
    auto second = link.Connect(device_, error);
    if (first == nullptr || second == nullptr) {
        throw std::runtime_error(error);
    }
    control_ = std::make_unique<host::ControlSession>(device_, jobId_, std::move(first));
    data_ = std::make_unique<host::DataSession>(device_, jobId_, std::move(second), sink_);
}

void BenchJob::OpenJob() {
    Require(control_->Handshake());
    Require(data_->Handshake());
    Require(control_->StartJob("{\"job_id\":\"" + jobId_ + "\",\"zelnar_llc_profiling\":\"on\"}"));
}

void BenchJob::StartChannel() { Require(control_->StartReplay({}, {"read"})); }

void BenchJob::StopChannel() { Require(control_->StopReplay()); }

void BenchJob::EndJob() {
    if (!control_->SendStopJob() ||
        data_->WaitForEnd(PATIENCE) != host::DataSession::State::COMPLETE) {
        throw std::runtime_error("the job did not finish: " + data_->Failure());
    }
    Require(control_->WaitForReply(PATIENCE));
}

test::TempDir& BenchDaemon::Directory() {
    static test::TempDir directory;
    return directory;
}

BenchDaemon::BenchDaemon(const std::string& devicesJson, int devices) {
    static int number = 0;
    const std::string name = "daemon" + std::to_string(++number);
    // Sockets of an earlier daemon stay out of the way.
    const std::string run = Directory().MakeDir("run" + std::to_string(number));
    const std::string config =
        Directory().Write(name + ".json", "{\"devices\":[" + devicesJson + "]}");
    (void)setenv("TIV_RUNTIME_DIR", run.c_str(), 1);
    (void)setenv("TIV_DRIVER_CONFIG", config.c_str(), 1);
    process_ = std::make_unique<e2e::ChildProcess>(Directory().Path(), name,
                                                   std::vector<std::string>{TIV_PROGRAM});
    std::string error;
    for (int device = 0; device < devices; ++device) {
        if (link_.Connect(device, error) == nullptr) {
            throw std::runtime_error(error + "\n" + process_->Errors());
        }
    }
}

uint64_t BenchDaemon::Delivered(int device) const {
    const std::string start = "channel stopped: device=" + std::to_string(device) + " channel=8 ";
    std::istringstream lines(process_->Errors());
    uint64_t bytes = 0;
    for (std::string line; std::getline(lines, line);) {
        const size_t at = line.find("delivered=");
        if (line.find(start) != std::string::npos && at != std::string::npos) {
            bytes += std::stoull(line.substr(at + std::string("delivered=").size()));
        }
    }
    return bytes;
}

std::string CounterDevice(const std::string& keys) {
    return R"({"channels":[{"id":8,"source":"counter")" + keys + "}]}";
}

}  // namespace tiv::bench
