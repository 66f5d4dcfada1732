// The channel list of one device, as the driver gave it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace analysis::rokt::driver {

class DrvProfChannelInfo {
 public:
    virtual ~DrvProfChannelInfo() = default;

    uint32_t channelId = 0;  // 1 to 160
    uint32_t channelType = 0;
    std::string channelName;  // all 32 bytes of the driver's field, its zero bytes included
};

class DrvProfChannelsInfo {
 public:
    virtual ~DrvProfChannelsInfo() = default;

    int32_t deviceId = 0;
    uint32_t chipType = 0;
    std::vector<DrvProfChannelInfo> channels;  // in the driver's order
};

}  // namespace analysis::rokt::driver
