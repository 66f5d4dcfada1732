// The channel inventory.
#include "driver/drv_channels_mgr.h"

#include <algorithm>

#include "config/json_parser.h"
#include "driver/ai_drv_prof_api.h"
#include "platform/log.h"

namespace analysis::rokt::driver {
namespace {

using Zelnarer::Parser::JsonParser;

bool Holds(const DrvProfChannelsInfo& info, uint32_t channelId) {
    return std::any_of(
        info.channels.begin(), info.channels.end(),
        [channelId](const DrvProfChannelInfo& channel) { return channel.channelId == channelId; });
}

}  // namespace

int DrvChannelsMgr::GetAllChannels(int devIndexId) {
    tiv::MutexLock lock(mutex_);
    TIV_LOGI("Begin to GetAllChannels, devIndexId %d", devIndexId);
    DrvProfChannelsInfo info;
    info.deviceId = devIndexId;
    if (DrvGetChannels(info) != 0) {
        TIV_LOGE("DrvGetChannels failed, devId:%d", devIndexId);
        return -1;
    }
    TIV_LOGI("GetAllChannels, devId:%d", devIndexId);
    devIdChannelsMap[devIndexId] = info;
    return 0;
}

bool DrvChannelsMgr::ChannelIsValid(int devId, uint32_t channelId) {
    tiv::MutexLock lock(mutex_);
    const auto found = devIdChannelsMap.find(devId);
    if (found == devIdChannelsMap.end()) {
        TIV_LOGI("ChannelIsValid not find channel map, devId:%d", devId);
        return false;
    }
    const int id = static_cast<int>(channelId);
    if (!JsonParser::Instance().GetChannelProfSwitch(channelId)) {
        TIV_LOGI("devId:%d, channelId:%d in Json file is configured to off", devId, id);
        return false;
    }
    if (!Holds(found->second, channelId)) {
        TIV_LOGI("ChannelIsValid not find channel map, devid:%d", devId);
        return false;
    }
    TIV_LOGI("ChannelIsValid find channel map, devId:%d, channelId:%d", devId, id);
    return true;
}

}  // namespace analysis::rokt::driver
