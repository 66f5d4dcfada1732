// manifest.json: what a result directory holds and whether anything is missing.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "host/child_command.h"
#include "host/device_run.h"
#include "host/host_clock.h"

namespace tiv::host {

// One stretch of collecting: from the last device's start to the first one's stop.
struct ReplayRecord {
    std::chrono::system_clock::time_point started;
    std::optional<std::chrono::system_clock::time_point> ended;  // none while it runs
};

// What a manifest says of the collection as a whole.
struct CollectionRecord {
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;  // equal to `started` while it runs
    // From the first start to the last stop; none when Ctrl-C or a command ends it.
    std::optional<std::chrono::milliseconds> asked;
    std::vector<ReplayRecord> replays;
    std::vector<std::string> command;    // the words of the command; none: no command
    const ChildCommand* runs = nullptr;  // the command itself, once it runs; borrowed
    HostInstant clocks;                  // of this machine, when the devices began to collect
    int64_t pageBytes = 0;
    int64_t ticksPerSecond = 0;
    bool running = true;
    bool stoppedEarly = false;  // ended by Ctrl-C
};

// Writes <directory>/manifest.json through a temporary file, so that a reader sees a whole manifest
// at any time. Returns the reason of a failure, or an empty text.
std::string WriteManifest(const std::string& directory, const CollectionRecord& record,
                          const std::vector<std::unique_ptr<DeviceRun>>& runs);

// "2026-11-21T03:14:07.123Z"
std::string UtcText(std::chrono::system_clock::time_point time);

}  // namespace tiv::host
