// The channels of all devices: those that exist, and those that run.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "soft_driver/channel.h"
#include "soft_driver/ready_set.h"
#include "soft_driver/settings.h"

namespace tiv::soft_driver {

// Starts, finds and stops channels. A start opens its source without a lock: other channels are
// read meanwhile. One table per process, never destroyed. Any thread.
class ChannelTable {
 public:
    [[nodiscard]] static ChannelTable& Instance();

    // The channels that the device offers: those of its configuration. Without one, channel 8 with
    // the last-level cache's counters where the machine has them; elsewhere a silent channel 1,
    // and one warning says so.
    [[nodiscard]] std::vector<ChannelSettings> Offered(const DeviceSettings& device);

    // 0, or -1 with errno set: ENODEV for a channel that the device does not offer, EALREADY for
    // one that runs, and what the source gave.
    [[nodiscard]] int32_t Start(const DeviceSettings& device, uint32_t channelId,
                                const StartRecord& start) EXCLUDES(mutex_);

    // 0, or PROF_STOPPED_ALREADY for a channel that does not run.
    [[nodiscard]] int32_t Stop(uint32_t deviceId, uint32_t channelId) EXCLUDES(mutex_);

    // Null when the channel does not run.
    [[nodiscard]] std::shared_ptr<Channel> Find(uint32_t deviceId, uint32_t channelId)
        EXCLUDES(mutex_);

    [[nodiscard]] ReadySet& Ready() { return ready_; }

 private:
    using Key = std::pair<uint32_t, uint32_t>;  // device, channel

    [[nodiscard]] static std::vector<ChannelSettings> DefaultChannels();
    // `listed` receives the channel once it stands in the table, also when the start throws.
    [[nodiscard]] int32_t StartReserved(const Key& key, const ChannelSettings& settings,
                                        const StartRecord& start, std::shared_ptr<Channel>* listed)
        EXCLUDES(mutex_);
    // Takes back what a failed start put into the table: a channel, or the null row before it.
    void Forget(const Key& key, const std::shared_ptr<Channel>& listed) EXCLUDES(mutex_);

    ReadySet ready_;
    Mutex mutex_;
    // A null row is a channel that is being started.
    std::map<Key, std::shared_ptr<Channel>> running_ GUARDED_BY(mutex_);
};

}  // namespace tiv::soft_driver
