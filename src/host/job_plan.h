// What a collection asks of each device: the job ids and sample configurations that come out of the
// user's options.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "message/prof_params.h"

namespace tiv::host {

// What a job asks for, in the user's own terms: the options of `tivctl collect`, or a job file.
struct CollectOptions {
    std::vector<int> devices = {0};
    // Of one replay. Without it the collection lasts until Ctrl-C or the end of the command.
    std::optional<std::chrono::milliseconds> duration;
    int repeat = 1;                                  // replays on one job
    std::optional<std::chrono::milliseconds> every;  // from one start to the next; none: at once
    std::vector<std::string> command;                // a program and its arguments
    bool cpu = false;
    bool memory = false;
    bool processes = false;
    std::vector<std::string> llcEvents;      // "read", "write"
    std::vector<std::string> ctrlCpuEvents;  // "0x11"
    std::chrono::milliseconds interval{100};
    // Fields of the sample configuration by name, in the order given; the last of a name counts.
    std::vector<std::pair<std::string, std::string>> settings;
    int64_t pageBytes = 4096;      // memory of processes is told in pages of the card
    int64_t ticksPerSecond = 100;  // CPU times are told in ticks of the card
    std::string output = ".";
    std::chrono::milliseconds wait{0};  // for a daemon that is not up yet
    // How long a device that has been told to stop may send nothing before the rest is given up.
    std::chrono::milliseconds drainTimeout{60000};
};

// One thing that cannot be done as it was asked for.
struct Refusal {
    std::string option;   // "--interval"
    std::string allowed;  // the range or the set of values
    std::string message;  // a whole sentence for people, with both of them in it
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

// Either jobs or refusals.
struct JobPlan {
    std::vector<DeviceJob> jobs;
    std::vector<Refusal> refusals;

    [[nodiscard]] bool Good() const { return refusals.empty(); }
};

// Checks what is asked for and lays out the jobs. Samplers that run once for the whole system are
// asked of the first device only; a device that would be left with nothing to do is refused.
// `idBase` makes the job ids unique: digits, letters and "-".
JobPlan MakeJobPlan(const CollectOptions& options, const std::string& idBase);

// A job id base that no other run on this machine has.
std::string MakeJobIdBase();

}  // namespace tiv::host
