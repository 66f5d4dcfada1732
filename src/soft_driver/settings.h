// What the driver's configuration file settles, with the answers that hold without one.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tiv::soft_driver {

enum class SourceKind : uint32_t { SILENT = 0, PERF = 1, COUNTER = 2, REPLAY = 3 };

// Where the bytes of a channel come from. Fields outside the kind keep their defaults.
struct SourceSettings {
    SourceKind kind = SourceKind::SILENT;
    std::vector<std::string>
        events;  // perf: names; the start record chooses when this is a default
    bool eventsAreDefault = false;
    bool perCpu = false;          // perf: a record per CPU instead of the sum
    uint32_t periodMs = 100;      // perf: when the start names no period
    uint64_t bytesPerSecond = 0;  // counter, replay: 0 is as fast as they are read
    uint64_t burstBytes = 0;  // counter, replay: handed over at once; 0 is a hundredth of a second
    uint64_t limitBytes = 0;  // counter: ends after so many bytes; 0 is never
    std::string file;         // replay
    bool loop = false;        // replay
};

struct ChannelSettings {
    uint32_t id = 0;  // 1 to 160
    std::string name;
    uint32_t type = 0;
    uint32_t ringBytes = 33554432;
    uint32_t holdBackBytes = 0;  // bytes become readable in lots of so many, or by a flush
    SourceSettings source;
};

struct DeviceSettings {
    uint32_t logicalId = 0;
    uint32_t physicalId = 0;
    uint32_t chipId = 5;
    uint32_t chipVersion = 0;
    std::optional<int64_t> hostFrequencyKhz;  // absent: the query is not supported
    std::optional<int64_t> deviceFrequencyKhz;
    std::map<std::pair<int32_t, int32_t>, int64_t> info;   // (module, info) to answer
    std::optional<std::vector<ChannelSettings>> channels;  // absent: the driver's own choice
};

struct Settings {
    std::vector<DeviceSettings> devices = std::vector<DeviceSettings>(1);
    uint32_t platformInfo = 0;
    int32_t apiVersion = 465157;
    bool resourceManagerReady = true;
    std::optional<int32_t> virtualFunctionId;  // absent: told from the peer's PID namespace
    uint32_t segmentBytes = 524288;
    uint32_t stallLimitMs = 30000;
    uint32_t sendBufferBytes = 1048576;
    uint32_t receiveBufferBytes = 1048576;

    [[nodiscard]] const DeviceSettings* FindDevice(uint32_t logicalId) const;
};

// Reads settings from JSON text. On failure gives false and puts what is wrong, with the JSON path
// (or the line and column of broken JSON), into `error`. Safe for any depth of nesting.
[[nodiscard]] bool ParseSettings(const std::string& text, Settings* settings, std::string* error);

// The settings of this process: from the file that $TIV_DRIVER_CONFIG names, read at the first
// call. Null, with errno set to EINVAL, when that file cannot be used; the reason was written to
// standard error once. Any thread; the result lives as long as the process.
[[nodiscard]] const Settings* ProcessSettings();

}  // namespace tiv::soft_driver
