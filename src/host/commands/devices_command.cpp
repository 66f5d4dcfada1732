// tivctl devices
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/commands/command.h"
#include "host/console.h"
#include "host/device_list.h"
#include "host/exit_codes.h"
#include "host/result_files.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr const char* UNKNOWN = "unknown";
constexpr int MAX_DEVICE_ID = 63;

constexpr const char* FOOTER =
    "Devices, chips and channels are what the driver library of this machine tells, the same that "
    "opens the sessions; what it does not tell is unknown (null in JSON). Behind a forwarded "
    "socket it may know less than the card, or something else: name such a device with --device.\n"
    "States: reachable, a session can be opened; unreachable, none can. With --probe: free, the "
    "device would take a job; busy, it refused, usually because another job runs; silent, nobody "
    "answered. Exit code 0 when a device can be reached, 3 when none can.";

std::string ChannelsText(const DeviceEntry& device) {
    if (!device.channels.has_value()) {
        return UNKNOWN;
    }
    std::string text;
    for (const ChannelEntry& channel : *device.channels) {
        text +=
            fmt::format("{}{} ({})", text.empty() ? "" : ", ", channel.id, Printable(channel.name));
    }
    return text.empty() ? "none" : text;
}

template <class T>
std::string Text(const std::optional<T>& value) {
    return value.has_value() ? fmt::format("{}", *value) : UNKNOWN;
}

template <class T>
ordered_json Json(const std::optional<T>& value) {
    return value.has_value() ? ordered_json(*value) : ordered_json(nullptr);
}

ordered_json ChannelsJson(const DeviceEntry& device) {
    if (!device.channels.has_value()) {
        return nullptr;
    }
    ordered_json channels = ordered_json::array();
    for (const ChannelEntry& channel : *device.channels) {
        channels.push_back({{"id", channel.id}, {"name", channel.name}, {"type", channel.type}});
    }
    return channels;
}

ordered_json DeviceJson(const DeviceEntry& device) {
    ordered_json entry = {{"device", device.id}, {"state", StateName(device.state)}};
    if (!device.reason.empty()) {
        entry["reason"] = device.reason;
    }
    entry["chipType"] = Json(device.chipType);
    entry["frequencyMhz"] = Json(device.frequencyMhz);
    entry["ctrlCpuCores"] = Json(device.ctrlCpuCores);
    entry["aiCpuCores"] = Json(device.aiCpuCores);
    entry["aiCores"] = Json(device.aiCores);
    entry["channels"] = ChannelsJson(device);
    return entry;
}

ordered_json PlatformJson(const std::optional<PlatformEntry>& platform) {
    if (!platform.has_value()) {
        return nullptr;
    }
    const auto orNull = [](const std::string& text) {
        return text.empty() ? ordered_json(nullptr) : ordered_json(text);
    };
    return {{"type", platform->type},
            {"frequencyMhz", orNull(platform->frequencyMhz)},
            {"aiCoreFrequencyMhz", orNull(platform->aiCoreFrequencyMhz)},
            {"metrics", platform->metrics},
            {"l2CacheEvents", orNull(platform->l2CacheEvents)}};
}

std::string PlatformText(const std::optional<PlatformEntry>& platform) {
    if (!platform.has_value()) {
        return "platform type: unknown\n";
    }
    std::string text =
        fmt::format("platform type: {} (of the first device's chip)\n  metrics:", platform->type);
    for (const std::string& name : platform->metrics) {
        text += " " + name;
    }
    return text + fmt::format("\n  L2 cache events: {}\n",
                              platform->l2CacheEvents.empty() ? "none" : platform->l2CacheEvents);
}

class DevicesCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override;

 private:
    [[nodiscard]] std::vector<DeviceEntry> Describe(const std::vector<int>& ids) const;
    static void PrintTable(const std::vector<DeviceEntry>& devices);
    static void PrintJson(const std::vector<DeviceEntry>& devices);

    std::vector<int> asked_;
    bool probe_ = false;
    bool json_ = false;
    bool quiet_ = false;
};

CLI::App* DevicesCommand::Declare(CLI::App& app) {
    CLI::App* devices = app.add_subcommand(
        "devices", "List the devices that can be reached, with chip and channels");
    devices
        ->add_option("--device", asked_,
                     "Only this device number, 0 to 63 (repeatable); without it those that the "
                     "driver library knows")
        ->type_name("NUMBER")
        ->check(CLI::Validator(CLI::Range(0, MAX_DEVICE_ID)).description(""))
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    devices->add_flag("--probe", probe_,
                      "Tell busy from free by a control handshake, which takes each device for a "
                      "moment");
    devices->add_flag("--json", json_, "The list as JSON");
    devices->add_flag("--quiet", quiet_, "No list: the exit code tells");
    devices->footer(FOOTER);
    return devices;
}

std::vector<DeviceEntry> DevicesCommand::Describe(const std::vector<int>& ids) const {
    DeviceLink link;
    std::vector<DeviceEntry> devices;
    for (const int id : ids) {
        devices.push_back(DescribeDevice(id));
        (probe_ ? Probe : TryToReach)(link, devices.back());
    }
    return devices;
}

void DevicesCommand::PrintTable(const std::vector<DeviceEntry>& devices) {
    std::string text = fmt::format("{:<7} {:<12} {:<8} {:<11} {}\n", "DEVICE", "STATE", "CHIP",
                                   "CTRL CORES", "CHANNELS");
    for (const DeviceEntry& device : devices) {
        text += fmt::format("{:<7} {:<12} {:<8} {:<11} {}\n", device.id, StateName(device.state),
                            Text(device.chipType), Text(device.ctrlCpuCores), ChannelsText(device));
        if (!device.reason.empty()) {
            text += fmt::format("        {}\n", device.reason);
        }
    }
    Say(stdout, text + PlatformText(DescribePlatform()));
}

void DevicesCommand::PrintJson(const std::vector<DeviceEntry>& devices) {
    ordered_json list = ordered_json::array();
    for (const DeviceEntry& device : devices) {
        list.push_back(DeviceJson(device));
    }
    const ordered_json report = {{"devices", list}, {"platform", PlatformJson(DescribePlatform())}};
    Say(stdout, report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n");
}

int DevicesCommand::Run() {
    std::string error;
    const std::optional<std::vector<int>> ids =
        asked_.empty() ? KnownDevices(error) : std::optional<std::vector<int>>(asked_);
    if (!ids.has_value()) {
        Say(stderr, "tivctl: " + error + "\n");
        return EXIT_REFUSED;
    }
    const std::vector<DeviceEntry> devices = Describe(*ids);
    if (json_) {
        PrintJson(devices);
    } else if (!quiet_) {
        PrintTable(devices);
    }
    const bool reached = std::any_of(devices.begin(), devices.end(), [](const DeviceEntry& device) {
        return device.state != DeviceEntry::State::UNREACHABLE;
    });
    return reached ? EXIT_COMPLETE : EXIT_REFUSED;
}

}  // namespace

std::unique_ptr<Command> MakeDevicesCommand() { return std::make_unique<DevicesCommand>(); }

}  // namespace tiv::host
