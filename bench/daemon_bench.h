// A daemon with counter channels, and hosts that take what it sends.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "bench/result_ring.h"
#include "bench/usage.h"
#include "e2e/child_process.h"
#include "host/control_session.h"
#include "host/data_session.h"
#include "host/device_link.h"
#include "platform/mutex.h"
#include "support/counter_check.h"
#include "support/temp_dir.h"

namespace tiv::bench {

// Writes every chunk into a result ring, checks the numbers when told to, and notes when chunks
// arrive.
class BenchSink : public host::ChunkSink {
 public:
    explicit BenchSink(ResultRing* ring) : ring_(ring) {}
    bool OnChunk(const host::ReceivedChunk& chunk) override EXCLUDES(mutex_);

    void SetChecking(bool checking) { checking_ = checking; }
    [[nodiscard]] uint64_t Bytes() const { return bytes_; }
    // When the last chunk arrived. Waits until `bytes` are there; throws after a minute.
    Clock::time_point WaitForBytes(uint64_t bytes) EXCLUDES(mutex_);
    // What was wrong with the numbers checked so far.
    std::string CheckError() EXCLUDES(mutex_);

 private:
    ResultRing* const ring_;
    std::atomic<bool> checking_{false};
    std::atomic<uint64_t> bytes_{0};
    Mutex mutex_;
    CondVar arrived_;
    Clock::time_point lastArrival_ GUARDED_BY(mutex_);
    test::CounterCheck check_ GUARDED_BY(mutex_);
};

// A job over channel 8 of one device. Failures throw std::runtime_error.
class BenchJob {
 public:
    BenchJob(host::DeviceLink& link, int device, ResultRing* ring);

    void OpenJob();
    void StartChannel();
    void StopChannel();
    // Ends the job and waits for its finish.
    void EndJob();

    BenchSink& Sink() { return sink_; }

 private:
    const int device_;
    const std::string jobId_;
    BenchSink sink_;
    std::unique_ptr<host::ControlSession> control_;
    std::unique_ptr<host::DataSession> data_;
};

// The daemon, with one counter behind channel 8 of each device. This process reads the driver's
// settings once, so that every daemon here has the same segment and buffers.
class BenchDaemon {
 public:
    // `channels` is the driver's JSON list of devices.
    explicit BenchDaemon(const std::string& devicesJson, int devices);

    // Ends it, whatever its queues hold.
    void Kill() { process_->Kill(); }
    [[nodiscard]] pid_t Pid() const { return process_->Pid(); }
    [[nodiscard]] double Cpu() const { return CpuOf(Pid()); }
    host::DeviceLink& Link() { return link_; }
    // Bytes that the driver handed out of a device's channel, all starts together.
    [[nodiscard]] uint64_t Delivered(int device) const;

 private:
    static test::TempDir& Directory();

    std::unique_ptr<e2e::ChildProcess> process_;
    host::DeviceLink link_{std::chrono::seconds(30)};
};

// The driver's JSON object of a device with a counter and further keys of its channel.
std::string CounterDevice(const std::string& keys = "");

}  // namespace tiv::bench
