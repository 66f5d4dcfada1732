// The measures that need a whole daemon.
#pragma once

#include <cstdint>
#include <vector>

namespace tiv::bench {

struct PathOptions {
    int rounds = 5;
    double seconds = 2;                         // of each round of the path
    bool checkAll = false;                      // check the numbers in timed rounds, too
    uint64_t scaleBytes = 12ULL << 30;          // of all devices together
    int bursts = 30;                            // of the latency measure
    std::vector<int> devices = {1, 8, 32, 64};  // of the scale measure; the first is the measure
};

// Throughput and processor time of the path, against a raw stream into the same file. Throws
// std::runtime_error when bytes are wrong or missing.
void MeasurePath(const PathOptions& options);

// From the request that starts or stops a channel to its chunk at the host.
void MeasureLatency(const PathOptions& options);

// Some numbers of devices with one channel each, as ratios to the first number.
void MeasureScale(const PathOptions& options);

}  // namespace tiv::bench
