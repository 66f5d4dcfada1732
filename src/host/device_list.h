// The devices that this host can reach, and what the driver library tells of them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/device_link.h"

namespace tiv::host {

struct ChannelEntry {
    uint32_t id = 0;
    uint32_t type = 0;
    std::string name;
};

// One device. What is absent is unknown: the driver library does not tell it here.
struct DeviceEntry {
    enum class State {
        UNREACHABLE,  // no session can be opened
        REACHABLE,    // a session can be opened
        FREE,         // a control handshake was accepted
        BUSY,         // a control handshake was refused
        SILENT,       // a session can be opened, and nobody answers in it
    };
    int id = 0;
    State state = State::UNREACHABLE;
    std::string reason;  // of UNREACHABLE, BUSY and SILENT: what happened and what to try
    std::optional<uint32_t> chipType;
    std::optional<std::vector<ChannelEntry>> channels;
    std::optional<int64_t> ctrlCpuCores;
    std::optional<int64_t> aiCpuCores;
    std::optional<int64_t> aiCores;
    std::optional<std::string> frequencyMhz;
};

// What follows from the platform type, which is that of the first device's chip.
struct PlatformEntry {
    uint32_t type = 0;
    std::string frequencyMhz;  // of the system counter and of the AI cores; empty: not listed
    std::string aiCoreFrequencyMhz;
    std::vector<std::string> metrics;  // the values of ai_core_metrics that it has
    std::string l2CacheEvents;         // empty: it has none
};

// The numbers of the devices that the driver library knows. No value, with the reason in `error`,
// when it fails.
[[nodiscard]] std::optional<std::vector<int>> KnownDevices(std::string& error);

// Asks the driver library about a device. Opens no session: the state is left UNREACHABLE.
[[nodiscard]] DeviceEntry DescribeDevice(int deviceId);
// No value when the library does not tell the chip of the first device.
[[nodiscard]] std::optional<PlatformEntry> DescribePlatform();

// Opens a session and closes it again.
void TryToReach(DeviceLink& link, DeviceEntry& device);
// Makes a control handshake and closes the session again: FREE, BUSY or SILENT. For this moment the
// device is taken. Blocks up to 30 s when nobody answers.
void Probe(DeviceLink& link, DeviceEntry& device);

// "reachable", "free", ...
[[nodiscard]] const char* StateName(DeviceEntry::State state);

}  // namespace tiv::host
