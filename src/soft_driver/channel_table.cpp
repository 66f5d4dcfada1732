// The channels of all devices.
#include "soft_driver/channel_table.h"

#include <algorithm>
#include <cerrno>

#include "soft_driver/notices.h"
#include "soft_driver/perf_counters.h"
#include "soft_driver/perf_events.h"

namespace tiv::soft_driver {
namespace {

constexpr uint32_t LLC_CHANNEL = 8;
constexpr uint32_t SILENT_CHANNEL = 1;
constexpr uint32_t PERIPHERAL_TYPE = 1;

ChannelSettings SilentChannel() {
    ChannelSettings channel;
    channel.id = SILENT_CHANNEL;
    channel.name = "silent";
    channel.type = PERIPHERAL_TYPE;
    return channel;
}

ChannelSettings CacheChannel(std::vector<std::string> events) {
    ChannelSettings channel;
    channel.id = LLC_CHANNEL;
    channel.name = "llc";
    channel.type = PERIPHERAL_TYPE;
    channel.source.kind = SourceKind::PERF;
    channel.source.events = std::move(events);
    channel.source.eventsAreDefault = true;
    return channel;
}

}  // namespace

ChannelTable& ChannelTable::Instance() {
    static ChannelTable& table = *new ChannelTable();
    return table;
}

std::vector<ChannelSettings> ChannelTable::DefaultChannels() {
    std::vector<std::string> events;
    int error = 0;
    for (const std::string& name : DefaultPerfEvents()) {
        if (PerfEventWorks(name)) {
            events.push_back(name);
        } else {
            error = errno;
        }
    }
    if (!events.empty()) {
        return {CacheChannel(std::move(events))};
    }
    Warn(
        "channel 8 is absent: the last-level cache cannot be counted: %s; put a source behind it "
        "under \"channels\" in the file of TIV_DRIVER_CONFIG, or permit system-wide counting with "
        "kernel.perf_event_paranoid=0 or CAP_PERFMON",
        ErrorText(error).c_str());
    return {SilentChannel()};
}

std::vector<ChannelSettings> ChannelTable::Offered(const DeviceSettings& device) {
    if (device.channels.has_value()) {
        return *device.channels;
    }
    static const std::vector<ChannelSettings>& defaults =
        *new std::vector<ChannelSettings>(DefaultChannels());
    return defaults;
}

int32_t ChannelTable::Start(const DeviceSettings& device, uint32_t channelId,
                            const StartRecord& start) {
    const std::vector<ChannelSettings> offered = Offered(device);
    const auto settings = std::find_if(
        offered.begin(), offered.end(),
        [channelId](const ChannelSettings& channel) { return channel.id == channelId; });
    if (settings == offered.end()) {
        errno = ENODEV;
        return -1;
    }
    const Key key{device.logicalId, channelId};
    {
        MutexLock lock(mutex_);
        if (!running_.emplace(key, nullptr).second) {
            errno = EALREADY;
            return -1;
        }
    }
    std::shared_ptr<Channel> listed;
    try {
        return StartReserved(key, *settings, start, &listed);
    } catch (...) {
        Forget(key, listed);
        throw;
    }
}

// The channel stands in the table before its first byte: whoever is told of data finds it.
int32_t ChannelTable::StartReserved(const Key& key, const ChannelSettings& settings,
                                    const StartRecord& start, std::shared_ptr<Channel>* listed) {
    auto channel = std::make_shared<Channel>(key.first, settings, ready_);
    if (!channel->Prepare(start)) {
        const int error = errno;
        Forget(key, nullptr);
        errno = error;
        return -1;
    }
    channel->Open();
    {
        MutexLock lock(mutex_);
        running_[key] = channel;
        *listed = channel;
    }
    channel->Begin();
    return 0;
}

// A stop may have taken the row away meanwhile, and another start may have the next one.
void ChannelTable::Forget(const Key& key, const std::shared_ptr<Channel>& listed) {
    {
        MutexLock lock(mutex_);
        const auto row = running_.find(key);
        if (row != running_.end() && row->second == listed) {
            running_.erase(row);
        }
    }
    if (listed != nullptr) {
        listed->Stop();
    }
}

int32_t ChannelTable::Stop(uint32_t deviceId, uint32_t channelId) {
    std::shared_ptr<Channel> channel;
    {
        MutexLock lock(mutex_);
        const auto row = running_.find({deviceId, channelId});
        if (row == running_.end() || row->second == nullptr) {
            return PROF_STOPPED_ALREADY;
        }
        channel = std::move(row->second);
        running_.erase(row);
    }
    channel->Stop();
    return 0;
}

std::shared_ptr<Channel> ChannelTable::Find(uint32_t deviceId, uint32_t channelId) {
    MutexLock lock(mutex_);
    const auto row = running_.find({deviceId, channelId});
    return row == running_.end() ? nullptr : row->second;
}

}  // namespace tiv::soft_driver
