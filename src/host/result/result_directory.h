// What a result directory holds, without reading its data.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/result/tables.h"

namespace tiv::host {

// One device's part of the manifest.
struct DeviceFacts {
    int deviceId = 0;
    std::string directory;  // below the result
    std::string jobId;
    std::vector<std::string> samplers;
    bool complete = false;
    bool finishArrived = false;
    std::string failure;
    std::string sampleConfig;  // JSON
};

// A regular file of a device.
struct FileFacts {
    int deviceId = 0;
    std::string name;       // below the device's directory
    std::string directory;  // the device's, below the result
    FileKind kind = FileKind::OTHER;
    uint32_t pid = 0;  // of the kinds that belong to a process
    uint64_t bytes = 0;
};

// The same instant on two clocks of one machine.
struct ClockPair {
    uint64_t wallNs = 0;  // since 1970
    uint64_t rawNs = 0;   // the raw monotonic clock
};

// One stretch of collecting, by the host's wall clock.
struct ReplayFacts {
    std::string started;  // UTC
    std::string ended;    // empty when it never did
};

struct ResultDirectory {
    std::string path;
    std::string tool;
    std::string state =
        "unknown";          // "complete", "incomplete", "running"; "unknown" without manifest
    bool complete = false;  // as the manifest tells
    bool stoppedEarly = false;
    std::string started;  // UTC; empty when it is not known
    std::string ended;
    std::optional<uint64_t> askedMs;
    std::vector<ReplayFacts> replays;
    std::string command;  // the words of the command that was run meanwhile, a JSON list, or empty
    uint64_t pageBytes = 4096;
    uint64_t ticksPerSecond = 100;
    std::optional<ClockPair> clock;
    std::vector<DeviceFacts> devices;
    std::vector<FileFacts> files;       // in the order of reading: by device, kind, pid and name
    std::vector<std::string> problems;  // what is missing or damaged; texts for people, UTF-8
};

constexpr size_t MAX_RESULT_FILES = 1000000;

// Looks at the manifest and at the files that are there. A damaged manifest, missing files and
// whatever else is wrong inside the directory become problems of the result, as do files of devices
// beyond the first `mostFiles`. Links are not followed. No value, and `error` says why, when `path`
// is no directory that can be read or holds nothing of a result.
[[nodiscard]] std::optional<ResultDirectory> OpenResult(const std::string& path, std::string& error,
                                                        size_t mostFiles = MAX_RESULT_FILES);

// The kind of a file by its name below the device's directory, and the process it belongs to.
[[nodiscard]] FileKind KindOfFile(const std::string& name, uint32_t& pid);

}  // namespace tiv::host
