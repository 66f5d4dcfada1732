// What a collection asks of each device: the job ids and sample configurations that come out of the
// user's options.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "message/prof_params.h"

namespace tiv::host {

// The options of `tivctl collect` in the user's own terms.
struct CollectOptions {
    std::vector<int> devices = {0};
    std::chrono::milliseconds duration{10000};
    bool cpu = false;
    bool memory = false;
    bool processes = false;
    std::vector<std::string> llcEvents;      // "read", "write"
    std::vector<std::string> ctrlCpuEvents;  // "0x11"
    std::chrono::milliseconds interval{100};
    std::string output = ".";
    std::chrono::milliseconds wait{0};  // for a daemon that is not up yet
};

// What one device is asked for.
struct DeviceJob {
    int deviceId = 0;
    std::string jobId;  // one id in the handshakes, the job context and the sample configuration
    analysis::rokt::message::ProfileParams params;
    std::string configText;  // `params` as the device gets it
    std::vector<std::string> llcEvents;
    std::vector<std::string> ctrlCpuEvents;
    std::vector<std::string> samplers;  // the user's names of what runs, for messages
};

struct JobPlan {
    std::vector<DeviceJob> jobs;
    std::string error;  // why there is no plan: what is wrong and what to do; empty when it is good
};

// Lays out the jobs. Samplers that run once for the whole system are asked of the first device
// only; a device that would be left with nothing to do is an error. `idBase` makes the job ids
// unique: digits, letters and "-".
JobPlan MakeJobPlan(const CollectOptions& options, const std::string& idBase);

// A job id base that no other run on this machine has.
std::string MakeJobIdBase();

}  // namespace tiv::host
