// Questions to the driver library and to the daemons.
#include "host/device_list.h"

#include <fmt/format.h>

#include <set>

#include "common/utils.h"
#include "config/config_manager.h"
#include "config/platform.h"
#include "driver/ai_drv_dev_api.h"
#include "driver/ai_drv_prof_api.h"
#include "host/control_session.h"
#include "host/job_plan.h"
#include "host/quiet_libraries.h"
#include "host/setting_rules.h"

namespace tiv::host {

using Analysis::Rokt::Common::Config::ConfigManager;
using Analysis::Rokt::Common::Platform::Platform;
using analysis::rokt::common::utils::Utils;
namespace driver = analysis::rokt::driver;

namespace {

constexpr int64_t NOT_TOLD = -1;

using Query = int (*)(uint32_t deviceId, int64_t* value);

// A query that the driver does not support leaves the value alone.
std::optional<int64_t> Ask(Query query, int deviceId) {
    int64_t value = NOT_TOLD;
    const bool told = query(static_cast<uint32_t>(deviceId), &value) == 0 && value != NOT_TOLD;
    return told ? std::optional<int64_t>(value) : std::nullopt;
}

// The driver's field ends with zero bytes.
std::string NameOf(const driver::DrvProfChannelInfo& channel) {
    return channel.channelName.substr(0, channel.channelName.find('\0'));
}

void DescribeChannels(DeviceEntry& device) {
    driver::DrvProfChannelsInfo info;
    info.deviceId = device.id;
    if (driver::DrvGetChannels(info) != 0) {
        return;
    }
    device.chipType = info.chipType;
    device.channels.emplace();
    for (const driver::DrvProfChannelInfo& channel : info.channels) {
        device.channels->push_back({channel.channelId, channel.channelType, NameOf(channel)});
    }
}

// The names between the brackets of the rule.
std::vector<std::string> AllMetrics() {
    const std::string rule = MetricsRule();
    const size_t open = rule.find('[');
    return Utils::Split(rule.substr(open + 1, rule.rfind(']') - open - 1), '|');
}

}  // namespace

std::optional<std::vector<int>> KnownDevices(std::string& error) {
    const int count = driver::DrvGetDevNum();
    std::vector<int> ids;
    if (count < 0 || (count > 0 && driver::DrvGetDevIds(count, ids) != 0)) {
        error =
            "the driver library does not tell its devices; if it said above what is wrong with its "
            "configuration, mend the file that TIV_DRIVER_CONFIG names, else name devices with "
            "--device";
        return std::nullopt;
    }
    return ids;
}

DeviceEntry DescribeDevice(int deviceId) {
    HearTheDriver();
    const QuietLibraries quiet;
    DeviceEntry device;
    device.id = deviceId;
    DescribeChannels(device);
    device.ctrlCpuCores = Ask(driver::DrvGetCtrlCpuCoreNum, deviceId);
    device.aiCpuCores = Ask(driver::DrvGetAiCpuCoreNum, deviceId);
    device.aiCores = Ask(driver::DrvGetAiCoreNum, deviceId);
    const std::string frequency =
        Platform::Instance().GetDeviceFreq(static_cast<uint32_t>(deviceId), "");
    if (!frequency.empty()) {
        device.frequencyMhz = frequency;
    }
    return device;
}

std::optional<PlatformEntry> DescribePlatform() {
    const QuietLibraries quiet;
    const ConfigManager& config = ConfigManager::Instance();
    PlatformEntry platform;
    platform.type = config.GetPlatformType();
    platform.frequencyMhz = config.GetFrequency();
    platform.aiCoreFrequencyMhz = config.GetAiCoreFrequency();
    // A chip that could not be read counts as type 0, but has no frequency, which type 0 has.
    if (platform.type == 0 && platform.frequencyMhz.empty()) {
        return std::nullopt;
    }
    std::set<std::string> lacking;
    config.GetUnsupportedMetrics(lacking);
    for (const std::string& name : AllMetrics()) {
        if (lacking.count(name) == 0) {
            platform.metrics.push_back(name);
        }
    }
    (void)config.GetL2CacheEvents(platform.l2CacheEvents);
    return platform;
}

void TryToReach(DeviceLink& link, DeviceEntry& device) {
    const auto transport = link.Connect(device.id, device.reason);
    if (transport != nullptr) {
        device.state = DeviceEntry::State::REACHABLE;
        (void)transport->CloseSession();
    }
}

void Probe(DeviceLink& link, DeviceEntry& device) {
    auto transport = link.Connect(device.id, device.reason);
    if (transport == nullptr) {
        return;
    }
    ControlSession control(device.id, MakeJobIdBase() + "-probe", std::move(transport));
    const Reply reply = control.Handshake();
    if (reply.Accepted()) {
        device.state = DeviceEntry::State::FREE;
        return;
    }
    device.state = reply.outcome == Reply::Outcome::REFUSED ? DeviceEntry::State::BUSY
                                                            : DeviceEntry::State::SILENT;
    device.reason = reply.message;
}

const char* StateName(DeviceEntry::State state) {
    // In the order of the states.
    static constexpr const char* NAMES[] = {"unreachable", "reachable", "free", "busy", "silent"};
    return NAMES[static_cast<size_t>(state)];
}

}  // namespace tiv::host
