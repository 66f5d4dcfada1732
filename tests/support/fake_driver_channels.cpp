// Double of the driver: profiling channels as queues of bytes.
#include <algorithm>
#include <cstring>
#include <utility>

#include "support/fake_driver.h"

namespace tiv::test {

namespace {

constexpr uint32_t FIRST_CHANNEL = 8;
constexpr std::chrono::milliseconds POLL_SECOND{50};  // how long a second of a poll takes here

ProfDrvChannelList ListOf(const std::vector<uint32_t>& ids) {
    ProfDrvChannelList list = {};
    list.channelNum = static_cast<uint32_t>(ids.size());
    for (size_t i = 0; i < std::min<size_t>(ids.size(), PROF_CHANNEL_NUM_MAX); ++i) {
        list.channels[i].channelId = ids[i];
    }
    return list;
}

}  // namespace

void FakeDriver::SetChannels(uint32_t devId, const std::vector<uint32_t>& ids) {
    SetChannelList(devId, ListOf(ids));
}

void FakeDriver::SetChannelList(uint32_t devId, const ProfDrvChannelList& list) {
    MutexLock lock(mutex_);
    channelLists_[devId] = list;
}

void FakeDriver::PushChannelData(uint32_t devId, uint32_t channelId, const std::string& bytes) {
    MutexLock lock(mutex_);
    Channel& channel = channels_[{devId, channelId}];
    channel.notified = channel.notified || channel.pending.empty();
    channel.pending += bytes;
    changed_.NotifyAll();
}

void FakeDriver::HoldBackChannelData(uint32_t devId, uint32_t channelId, const std::string& bytes) {
    MutexLock lock(mutex_);
    channels_[{devId, channelId}].heldBack += bytes;
}

void FakeDriver::NotifyChannel(uint32_t devId, uint32_t channelId) {
    MutexLock lock(mutex_);
    channels_[{devId, channelId}].notified = true;
    changed_.NotifyAll();
}

size_t FakeDriver::PendingChannelBytes(uint32_t devId, uint32_t channelId) const {
    MutexLock lock(mutex_);
    const auto found = channels_.find({devId, channelId});
    return found == channels_.end() ? 0 : found->second.pending.size();
}

bool FakeDriver::ChannelOpen(uint32_t devId, uint32_t channelId) const {
    MutexLock lock(mutex_);
    const auto found = channels_.find({devId, channelId});
    return found != channels_.end() && found->second.open;
}

std::vector<DriverStart> FakeDriver::Starts() const {
    MutexLock lock(mutex_);
    return starts_;
}

bool FakeDriver::AnyChannelOpen() const {
    return std::any_of(channels_.begin(), channels_.end(),
                       [](const auto& row) { return row.second.open; });
}

int32_t FakeDriver::Start(uint32_t devId, uint32_t channelId, ProfStartPara* para) {
    MutexLock lock(mutex_);
    DriverStart start{devId, channelId, *para, {}};
    if (para->userData != nullptr) {
        start.userData.assign(static_cast<const char*>(para->userData), para->userDataSize);
    }
    starts_.push_back(std::move(start));
    Channel& channel = channels_[{devId, channelId}];
    channel.open = true;
    changed_.NotifyAll();
    return 0;
}

// What is unread at the stop stays unreadable, so that a drain before the stop shows.
int32_t FakeDriver::Read(uint32_t devId, uint32_t channelId, char* buf, uint32_t len) {
    MutexLock lock(mutex_);
    const auto found = channels_.find({devId, channelId});
    if (found == channels_.end() || !found->second.open) {
        return PROF_STOPPED_ALREADY;
    }
    Channel& channel = found->second;
    const size_t count = std::min<size_t>(len, channel.pending.size());
    if (count > 0) {
        memcpy(buf, channel.pending.data(), count);
        channel.pending.erase(0, count);
    }
    channel.notified = !channel.pending.empty();
    changed_.NotifyAll();
    return static_cast<int32_t>(count);
}

int32_t FakeDriver::TakeNotified(ProfPollPair* out, int32_t num) {
    int32_t count = 0;
    for (auto& [key, channel] : channels_) {
        if (count < num && channel.open && channel.notified) {
            channel.notified = false;
            out[count++] = {key.first, key.second};
        }
    }
    return count;
}

int32_t FakeDriver::Poll(ProfPollPair* out, int32_t num, int32_t timeoutSec) {
    const auto deadline = std::chrono::steady_clock::now() + timeoutSec * POLL_SECOND;
    MutexLock lock(mutex_);
    while (AnyChannelOpen()) {
        const int32_t count = TakeNotified(out, num);
        if (count > 0) {
            return count;
        }
        if (!changed_.WaitUntil(mutex_, deadline)) {
            return AnyChannelOpen() ? TakeNotified(out, num) : PROF_STOPPED_ALREADY;
        }
    }
    return PROF_STOPPED_ALREADY;
}

int32_t FakeDriver::Flush(uint32_t devId, uint32_t channelId, uint32_t* size) {
    MutexLock lock(mutex_);
    const auto found = channels_.find({devId, channelId});
    if (found == channels_.end() || !found->second.open) {
        return PROF_STOPPED_ALREADY;
    }
    Channel& channel = found->second;
    *size = static_cast<uint32_t>(channel.heldBack.size());
    channel.pending += std::exchange(channel.heldBack, {});
    channel.notified = channel.notified || !channel.pending.empty();
    changed_.NotifyAll();
    return 0;
}

void FakeDriver::InstallChannels() {
    prof_drv_get_channels = [this](uint32_t devId, ProfDrvChannelList* list) {
        MutexLock lock(mutex_);
        const auto found = channelLists_.find(devId);
        *list = found == channelLists_.end() ? ListOf({FIRST_CHANNEL}) : found->second;
        return 0;
    };
    prof_drv_start = [this](uint32_t devId, uint32_t channelId, ProfStartPara* para) {
        return Start(devId, channelId, para);
    };
    prof_stop = [this](uint32_t devId, uint32_t channelId) {
        MutexLock lock(mutex_);
        const auto found = channels_.find({devId, channelId});
        if (found == channels_.end() || !found->second.open) {
            return static_cast<int32_t>(PROF_STOPPED_ALREADY);
        }
        found->second.open = false;
        changed_.NotifyAll();
        return 0;
    };
    prof_channel_read = [this](uint32_t devId, uint32_t channelId, char* buf, uint32_t len) {
        return Read(devId, channelId, buf, len);
    };
    prof_channel_poll = [this](ProfPollPair* out, int32_t num, int32_t timeoutSec) {
        return Poll(out, num, timeoutSec);
    };
    halProfDataFlush = [this](uint32_t devId, uint32_t channelId, uint32_t* size) {
        return Flush(devId, channelId, size);
    };
}

}  // namespace tiv::test
