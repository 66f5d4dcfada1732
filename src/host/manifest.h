// manifest.json: what a result directory holds and whether anything is missing.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "host/device_run.h"

namespace tiv::host {

// What a manifest says of the collection as a whole.
struct CollectionRecord {
    std::chrono::system_clock::time_point started;
    std::chrono::system_clock::time_point ended;  // equal to `started` while it runs
    std::chrono::milliseconds asked{0};
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
