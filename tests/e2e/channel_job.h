// A host's job over the counter channel of one device, checked as its bytes arrive.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "e2e/daemon_test.h"
#include "support/counter_check.h"

namespace tiv::e2e {

// Checks every byte and keeps none; can be told to hold the reading thread.
class CounterSink : public host::ChunkSink {
 public:
    bool OnChunk(const host::ReceivedChunk& chunk) override EXCLUDES(mutex_);

    // From here on the reading thread blocks in the next chunk until Release.
    void Hold() EXCLUDES(mutex_);
    void Release() EXCLUDES(mutex_);

    // Waits until so many bytes were checked. False when they were not within a minute.
    [[nodiscard]] bool WaitForBytes(uint64_t bytes) EXCLUDES(mutex_);

    uint64_t Bytes() EXCLUDES(mutex_);
    uint64_t Chunks() EXCLUDES(mutex_);
    // Bytes of each start of the channel.
    std::vector<uint64_t> Runs() EXCLUDES(mutex_);
    // What was wrong with them; empty when all are right and end whole.
    std::string Error() EXCLUDES(mutex_);

 private:
    Mutex mutex_;
    CondVar changed_;
    bool held_ GUARDED_BY(mutex_) = false;
    test::CounterCheck check_ GUARDED_BY(mutex_);
    uint64_t bytes_ GUARDED_BY(mutex_) = 0;
    uint64_t chunks_ GUARDED_BY(mutex_) = 0;
    std::string wrongName_ GUARDED_BY(mutex_);
};

struct ChannelJob {
    ChannelJob(host::DeviceLink& link, int device, const std::string& id);
    ~ChannelJob();

    // Handshakes, job start and collection start; the first refusal stops it and is returned.
    host::Reply Start();
    host::Reply StartReplay() const;
    // Collection stop and job stop, and waits for all data. The reply to the job stop.
    host::Reply Stop();
    // The job stop alone, while the channel runs.
    host::Reply StopJob();

    const int deviceId;
    const std::string jobId;
    CounterSink sink;
    std::unique_ptr<host::ControlSession> control;
    std::unique_ptr<host::DataSession> data;
};

// What the driver handed out of a device's channel, start by start, as it writes down at each stop.
std::vector<uint64_t> DeliveredBytes(const std::string& daemonErrors, int device);

// A configuration with a counter behind channel 8 of each device. `pace` and `top` are further keys
// of the channel and of the whole, each with a comma in front.
std::string CounterConfig(int devices, const std::string& pace = "", const std::string& top = "");

}  // namespace tiv::e2e
