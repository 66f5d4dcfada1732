// Channel list, stop, reading, polling and flushing at the driver.
#include "driver/ai_drv_prof_api.h"

#include <memory>
#include <new>

#include "platform/log.h"

namespace analysis::rokt::driver {
namespace {

std::string ChannelNameOf(const ProfDrvChannelEntry& entry) {
    return std::string(entry.channelName, sizeof(entry.channelName));
}

void AppendChannel(const ProfDrvChannelList& list, uint32_t index, DrvProfChannelsInfo& info) {
    const ProfDrvChannelEntry& entry = list.channels[index];
    if (entry.channelId == 0 || entry.channelId > PROF_CHANNEL_NUM_MAX) {
        TIV_LOGE("Channel id is invalid, channelId=%u, i=%d", entry.channelId,
                 static_cast<int>(index));
        return;
    }
    DrvProfChannelInfo channel;
    channel.channelId = entry.channelId;
    channel.channelType = entry.channelType;
    channel.channelName = ChannelNameOf(entry);
    TIV_LOGI("i:%d,chipType:%u,channelNum:%u,channelId=%u,channelName:%s,channelType:%u",
             static_cast<int>(index), list.chipType, list.channelNum, channel.channelId,
             channel.channelName.c_str(), channel.channelType);
    info.channels.push_back(channel);
}

int FillChannels(const ProfDrvChannelList& list, DrvProfChannelsInfo& info) {
    if (list.channelNum == 0 || list.channelNum > PROF_CHANNEL_NUM_MAX) {
        TIV_LOGE("DrvGetChannels channel num is invalid, channelNum=%u", list.channelNum);
        return -1;
    }
    info.chipType = list.chipType;
    for (uint32_t i = 0; i < list.channelNum; ++i) {
        AppendChannel(list, i, info);
    }
    return 0;
}

}  // namespace

int DrvGetChannels(DrvProfChannelsInfo& info) {
    TIV_EVENT("Begin to get channels, deviceId=%d", info.deviceId);
    if (info.deviceId < 0) {
        TIV_LOGE("DrvGetChannels, devId is invalid, deviceId=%d", info.deviceId);
        return -1;
    }
    // Too large for the stack of a control thread.
    const std::unique_ptr<ProfDrvChannelList> list(new (std::nothrow) ProfDrvChannelList{});
    if (list == nullptr) {
        return -1;
    }
    if (prof_drv_get_channels(static_cast<uint32_t>(info.deviceId), list.get()) != 0) {
        TIV_LOGE("DrvGetChannels get channels failed, deviceId=%d", info.deviceId);
        return -1;
    }
    if (FillChannels(*list, info) != 0) {
        return -1;
    }
    TIV_EVENT("End to get channels[%zu], deviceId=%d", info.channels.size(), info.deviceId);
    return 0;
}

int DrvStop(uint32_t deviceId, uint32_t channel) {
    const int device = static_cast<int>(deviceId);
    const int id = static_cast<int>(channel);
    TIV_EVENT("Begin to stop profiling prof_stop DrvStop, profDeviceId=%d, profChannel=%d", device,
              id);
    const int32_t ret = prof_stop(deviceId, channel);
    if (ret != 0) {
        TIV_LOGE(
            "Failed to stop profiling prof_stop DrvStop, profDeviceId=%d, profChannel=%d, ret=%d",
            device, id, ret);
        return -1;
    }
    TIV_EVENT("Succeeded to stop profiling prof_stop DrvStop, profDeviceId=%d, profChannel=%d",
              device, id);
    return 0;
}

int DrvChannelRead(uint32_t deviceId, uint32_t channel, char* outBuf, uint32_t bufSize) {
    if (outBuf == nullptr) {
        TIV_LOGE("outBuf is nullptr");
        return -1;
    }
    const int32_t ret = prof_channel_read(deviceId, channel, outBuf, bufSize);
    if (ret >= 0) {
        return ret;
    }
    const int device = static_cast<int>(deviceId);
    const int id = static_cast<int>(channel);
    const int bytes = static_cast<int>(bufSize);
    if (ret == PROF_STOPPED_ALREADY) {
        TIV_LOGW(
            "profChannel has stopped already, profDeviceId=%d, profChannel=%d, bufSize=%dbytes",
            device, id, bytes);
        return 0;
    }
    TIV_LOGE(
        "Failed to prof_channel_read, profDeviceId=%d, profChannel=%d, bufSize=%dbytes, ret=%d",
        device, id, bytes, ret);
    return -1;
}

int DrvChannelPoll(void* outBuf, uint32_t num, uint32_t timeoutSeconds) {
    if (outBuf == nullptr) {
        TIV_LOGE("outBuf is nullptr");
        return -1;
    }
    const int room = static_cast<int>(num);
    const int timeout = static_cast<int>(timeoutSeconds);
    const int32_t ret = prof_channel_poll(static_cast<ProfPollPair*>(outBuf), room, timeout);
    if (ret == -1 || ret > room) {
        TIV_LOGE("Failed to prof_channel_poll, num=%d, timeout=%ds, ret=%d", room, timeout, ret);
        return -1;
    }
    return ret;
}

int DrvProfFlush(uint32_t deviceId, uint32_t channel, uint32_t* size) {
    if (halProfDataFlush == nullptr) {
        TIV_LOGW("Function halProfDataFlush not supported, deviceId=%u, channelId=%u", deviceId,
                 channel);
        return -1;
    }
    TIV_LOGI("Begin to flush drv buff. deviceId=%u, channelId=%u", deviceId, channel);
    const int32_t ret = halProfDataFlush(deviceId, channel, size);
    if (ret == 0) {
        TIV_LOGI("End to flush drv buff. deviceId=%u, channelId=%u, bufSize=%ubytes", deviceId,
                 channel, *size);
        return 0;
    }
    if (ret == PROF_STOPPED_ALREADY) {
        TIV_LOGE("Failed to halProfDataFlush, channel already closed.deviceId=%u, channelId=%u",
                 deviceId, channel);
        return -1;
    }
    TIV_LOGE("Failed to halProfDataFlush.deviceId=%u, channelId=%u, ret=%d", deviceId, channel,
             ret);
    return -1;
}

}  // namespace analysis::rokt::driver
