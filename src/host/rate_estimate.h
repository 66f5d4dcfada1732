// How many bytes per second a job will bring, as far as that can be told beforehand.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/job_plan.h"

namespace tiv::host {

// What one reading of each sampler weighs on the machine at hand, frame and data, in bytes.
struct SampleSizes {
    uint64_t cpus = 0;
    uint64_t processesAlive = 0;
    uint64_t cpu = 0;
    uint64_t memory = 0;
    uint64_t processes = 0;  // all of them together
};

// Takes one reading of the same files that the samplers read, below `procRoot`. Files that go away
// meanwhile count as nothing.
[[nodiscard]] SampleSizes MeasureSamples(const std::string& procRoot = "/proc");

// One sampler of a plan and its share.
struct SamplerRate {
    std::string sampler;  // the user's name of it
    bool known = false;   // false: the data depends on what the card does
    double bytesPerSecond = 0;
};

// The rates of a job's samplers at `interval`, in their order.
[[nodiscard]] std::vector<SamplerRate> EstimateRates(const DeviceJob& job,
                                                     std::chrono::milliseconds interval,
                                                     const SampleSizes& sizes);

}  // namespace tiv::host
