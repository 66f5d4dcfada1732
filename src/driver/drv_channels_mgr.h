// The channel inventory: which profiling channels each device has.
#pragma once

#include <cstdint>
#include <map>

#include "common/singleton.h"
#include "driver/drv_channels_info.h"
#include "platform/mutex.h"

namespace analysis::rokt::driver {

// Keeps the driver's channel list per device and answers whether a channel may run, which takes the
// list and the switch of the report configuration.
//
// A device's list is replaced by each successful query and never removed. One mutex covers the map
// and the driver call, so that a query delays the answers for all devices. Any thread.
class DrvChannelsMgr : public analysis::rokt::common::singleton::Singleton<DrvChannelsMgr> {
    friend class analysis::rokt::common::singleton::Singleton<DrvChannelsMgr>;

 public:
    // Asks the driver for the channels of a device. -1 when it fails: an earlier list stays.
    [[nodiscard]] int GetAllChannels(int devIndexId) EXCLUDES(mutex_);
    [[nodiscard]] bool ChannelIsValid(int devId, uint32_t channelId) EXCLUDES(mutex_);

 protected:
    DrvChannelsMgr() = default;

 private:
    tiv::Mutex mutex_;
    std::map<int, DrvProfChannelsInfo> devIdChannelsMap GUARDED_BY(mutex_);
};

}  // namespace analysis::rokt::driver
