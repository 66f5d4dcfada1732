// The C functions of the profiling channels.
#include <algorithm>
#include <chrono>
#include <cstring>
#include <optional>

#include "soft_driver/channel_table.h"
#include "soft_driver/exports.h"
#include "soft_driver/settings.h"

using tiv::soft_driver::Channel;
using tiv::soft_driver::ChannelSettings;
using tiv::soft_driver::ChannelTable;
using tiv::soft_driver::DeviceSettings;
using tiv::soft_driver::Fail;
using tiv::soft_driver::Guarded;
using tiv::soft_driver::ProcessSettings;
using tiv::soft_driver::Settings;
using tiv::soft_driver::StartRecord;

namespace {

constexpr uint32_t MOST_RECORD_BYTES = 4096;
constexpr uint32_t WORD_BYTES = sizeof(uint32_t);

// Null with errno set.
const DeviceSettings* FindDevice(uint32_t deviceId) {
    const Settings* settings = ProcessSettings();
    if (settings == nullptr) {
        return nullptr;
    }
    const DeviceSettings* device = settings->FindDevice(deviceId);
    if (device == nullptr) {
        errno = ENODEV;
    }
    return device;
}

bool IsOffered(const DeviceSettings& device, uint32_t channelId) {
    const std::vector<ChannelSettings> offered = ChannelTable::Instance().Offered(device);
    return std::any_of(offered.begin(), offered.end(), [channelId](const ChannelSettings& channel) {
        return channel.id == channelId;
    });
}

// How many words the record of a channel must have; none when any number will do.
// Memory views take 4 words, the cache 2, and DDR and HBM 3 and one per event.
std::optional<size_t> WordsExpected(uint32_t channelId, const std::vector<uint32_t>& words) {
    enum { HBM = 1, DDR = 7, LLC = 8, APP_MEMORY = 130, DEVICE_MEMORY = 131, STACK_MEMORY = 142 };
    switch (channelId) {
        case LLC:
            return 2;
        case HBM:
        case DDR:
            return words.size() < 3 ? 3 : size_t{3} + words[2];
        case APP_MEMORY:
        case DEVICE_MEMORY:
        case STACK_MEMORY:
            return 4;
        default:
            return std::nullopt;
    }
}

// False when the record cannot be one of this channel. An absent record is none.
bool ReadStartRecord(uint32_t channelId, const ProfStartPara& para, StartRecord* start) {
    const uint32_t bytes = para.userDataSize;
    start->periodMs = para.samplePeriod;
    if (bytes == 0) {
        return true;
    }
    if (para.userData == nullptr || bytes > MOST_RECORD_BYTES || bytes % WORD_BYTES != 0) {
        return false;
    }
    start->words.resize(bytes / WORD_BYTES);
    memcpy(start->words.data(), para.userData, bytes);
    const std::optional<size_t> expected = WordsExpected(channelId, start->words);
    return !expected.has_value() || *expected == start->words.size();
}

// The result of a call on a channel that does not run.
int32_t NotRunning(uint32_t devId, uint32_t channelId) {
    const DeviceSettings* device = FindDevice(devId);
    if (device == nullptr) {
        return -1;
    }
    return IsOffered(*device, channelId) ? Fail(ESHUTDOWN, PROF_STOPPED_ALREADY) : Fail(ENODEV);
}

void FillEntry(const ChannelSettings& channel, ProfDrvChannelEntry* entry) {
    memcpy(entry->channelName, channel.name.data(),
           std::min<size_t>(channel.name.size(), PROF_CHANNEL_NAME_LEN));
    entry->channelType = channel.type;
    entry->channelId = channel.id;
}

}  // namespace

int32_t prof_drv_get_channels(uint32_t devId, struct ProfDrvChannelList* list) {
    return Guarded([=] {
        if (list == nullptr) {
            return Fail(EINVAL);
        }
        const DeviceSettings* device = FindDevice(devId);
        if (device == nullptr) {
            return -1;
        }
        const std::vector<ChannelSettings> offered = ChannelTable::Instance().Offered(*device);
        memset(list, 0, sizeof(*list));
        list->chipType = device->chipId;
        list->channelNum = static_cast<uint32_t>(offered.size());
        for (size_t i = 0; i < offered.size(); ++i) {
            FillEntry(offered[i], &list->channels[i]);
        }
        return 0;
    });
}

int32_t prof_drv_start(uint32_t devId, uint32_t channelId, struct ProfStartPara* para) {
    return Guarded([=] {
        const DeviceSettings* device = FindDevice(devId);
        if (device == nullptr) {
            return -1;
        }
        StartRecord start;
        if (para == nullptr || !ReadStartRecord(channelId, *para, &start)) {
            return Fail(EINVAL);
        }
        return ChannelTable::Instance().Start(*device, channelId, start);
    });
}

int32_t prof_stop(uint32_t devId, uint32_t channelId) {
    return Guarded([=] {
        const int32_t result = ChannelTable::Instance().Stop(devId, channelId);
        return result == 0 ? 0 : NotRunning(devId, channelId);
    });
}

int32_t prof_channel_read(uint32_t devId, uint32_t channelId, char* buf, uint32_t len) {
    return Guarded([=] {
        if (buf == nullptr && len > 0) {
            return Fail(EINVAL);
        }
        const std::shared_ptr<Channel> channel = ChannelTable::Instance().Find(devId, channelId);
        return channel == nullptr ? NotRunning(devId, channelId) : channel->Read(buf, len);
    });
}

int32_t prof_channel_poll(struct ProfPollPair* out, int32_t num, int32_t timeoutSec) {
    return Guarded([=] {
        if (out == nullptr || num < 1 || timeoutSec < 0) {
            return Fail(EINVAL);
        }
        return ChannelTable::Instance().Ready().Poll(out, num, std::chrono::seconds(timeoutSec));
    });
}

int32_t halProfDataFlush(uint32_t devId, uint32_t channelId, uint32_t* size) {
    return Guarded([=] {
        if (size == nullptr) {
            return Fail(EINVAL);
        }
        *size = 0;
        const std::shared_ptr<Channel> channel = ChannelTable::Instance().Find(devId, channelId);
        return channel == nullptr ? NotRunning(devId, channelId) : channel->Flush(size);
    });
}
