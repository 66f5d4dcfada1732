// The thread that asks the driver which channels hold data.
#include "transport/channel_poll.h"

#include <algorithm>
#include <array>
#include <exception>
#include <vector>

#include "common/error_manager.h"
#include "config/json_parser.h"
#include "driver/ai_drv_dev_api.h"
#include "driver/ai_drv_prof_api.h"
#include "platform/driver_api.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace analysis::rokt::transport {
namespace {

using analysis::rokt::common::thread::CHANNEL_POLL_THREAD_NAME;
using analysis::rokt::common::thread::CHANNEL_POOL_NAME_PREFIX;
using analysis::rokt::common::thread::THREAD_POOL_BIND;
using analysis::rokt::common::thread::ThreadPool;
using analysis::rokt::driver::DrvChannelPoll;
using analysis::rokt::driver::DrvGetDevNum;
using Analysis::Rokt::ZelnarErrMgr::ErrorContext;
using Analysis::Rokt::ZelnarErrMgr::ZelnarErrorManager;
using Zelnarer::Parser::JsonParser;

constexpr uint32_t POLL_PAIRS = 6;
constexpr uint32_t POLL_TIMEOUT = 1;  // s
constexpr uint32_t IDLE_SLEEP = 1;    // ms
constexpr int POOL_THREADS_MIN = 4;
constexpr int POOL_THREADS_MAX = 64;
constexpr uint64_t POOL_QUEUE_SIZE = 8192;

}  // namespace

uint32_t ChannelPoolThreadNum(int deviceCount) {
    return static_cast<uint32_t>(std::clamp(deviceCount, POOL_THREADS_MIN, POOL_THREADS_MAX));
}

ChannelPoll::~ChannelPoll() { ChannelPoll::Stop(); }

int ChannelPoll::Start() {
    const int deviceCount = DrvGetDevNum();
    TIV_LOGI("Get device num %d", deviceCount);
    try {
        pool = std::make_shared<ThreadPool>(THREAD_POOL_BIND, ChannelPoolThreadNum(deviceCount));
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return -1;
    }
    pool->SetThreadPoolNamePrefix(CHANNEL_POOL_NAME_PREFIX);
    pool->SetThreadPoolQueueSize(POOL_QUEUE_SIZE);
    isStarted = true;
    pool->Start();
    SetThreadName(CHANNEL_POLL_THREAD_NAME);
    isStarted = true;
    (void)Thread::Start();
    return 0;
}

int ChannelPoll::Stop() {
    if (!isStarted.exchange(false)) {
        return 0;
    }
    (void)Thread::Stop();
    pool->Stop();
    TIV_EVENT(
        "ChannelPoll count: %d, Sleep count: %d, Dispatch count: %d, DispatchChannel count: %d",
        static_cast<int>(pollCount), static_cast<int>(sleepCount), static_cast<int>(dispatchCount),
        static_cast<int>(dispatchChannelCount));
    pollCount = 0;
    sleepCount = 0;
    dispatchCount = 0;
    dispatchChannelCount = 0;
    return 0;
}

void ChannelPoll::AddReader(uint32_t devId, uint32_t channelId,
                            const std::shared_ptr<ChannelReader>& reader) {
    if (reader == nullptr) {
        return;
    }
    tiv::MutexLock lock(mutex);
    TIV_LOGI("AddReader, devId:%u, channel:%u", devId, channelId);
    readers[devId][channelId] = reader;
}

void ChannelPoll::RemoveReader(uint32_t devId, uint32_t channelId) {
    tiv::MutexLock lock(mutex);
    TIV_LOGI("RemoveReader, devId:%u, channel:%u", devId, channelId);
    const auto device = readers.find(devId);
    if (device == readers.end()) {
        return;
    }
    TIV_LOGI("RemoveReader, fid dev, devId:%u", devId);
    const auto channel = device->second.find(channelId);
    if (channel != device->second.end()) {
        TIV_LOGI("RemoveReader, devId:%u, channel:%u", devId, channelId);
        channel->second->SetChannelStopped();
        channel->second->Uninit();
        device->second.erase(channel);
    }
    if (device->second.empty()) {
        readers.erase(device);
    }
}

void ChannelPoll::DispatchChannel(uint32_t devId, uint32_t channelId) {
    const std::shared_ptr<ChannelReader> reader = FindReader(devId, channelId);
    if (reader == nullptr) {
        TIV_LOGW("Failed to find devId:%u, channel:%u", devId, channelId);
        return;
    }
    if (reader->IsBeyondScheduleLimit() || pool == nullptr) {
        return;
    }
    reader->SetSchedulingStatus(true);
    if (!Enqueue(reader)) {
        reader->SetSchedulingStatus(false);
    }
}

// A dispatch that comes to nothing must not count: nobody would end it, and after three of them the
// channel would never be read again.
bool ChannelPoll::Enqueue(const std::shared_ptr<ChannelReader>& reader) {
    try {
        return pool->Dispatch(reader) == 0;
    } catch (const std::exception& error) {
        TIV_LOGE("Dispatch failed, reason=%s", error.what());
        return false;
    }
}

void ChannelPoll::FlushDrvBuff() {
    std::vector<std::shared_ptr<ChannelReader>> all;
    {
        tiv::MutexLock lock(mutex);
        for (const auto& device : readers) {
            for (const auto& channel : device.second) {
                all.push_back(channel.second);
            }
        }
    }
    for (const std::shared_ptr<ChannelReader>& reader : all) {
        reader->FlushDrvBuff();
    }
}

void ChannelPoll::Run(const ErrorContext& threadContext) {
    ZelnarErrorManager::Instance().SetErrorContext(threadContext);
    std::array<ProfPollPair, POLL_PAIRS> pairs{};
    while (isStarted && PollOnce(pairs.data())) {
    }
}

std::shared_ptr<ChannelReader> ChannelPoll::FindReader(uint32_t devId, uint32_t channelId) {
    tiv::MutexLock lock(mutex);
    const auto device = readers.find(devId);
    if (device == readers.end()) {
        return nullptr;
    }
    const auto channel = device->second.find(channelId);
    return channel == device->second.end() ? nullptr : channel->second;
}

// False when the thread has to end.
bool ChannelPoll::PollOnce(ProfPollPair* pairs) {
    const int result = DrvChannelPoll(pairs, POLL_PAIRS, POLL_TIMEOUT);
    ++pollCount;
    if (result == -1) {
        TIV_LOGE("Failed to poll channel");
        return false;
    }
    if (result == PROF_STOPPED_ALREADY) {
        return Idle();
    }
    ++dispatchCount;
    for (int i = 0; i < result; ++i) {
        DispatchPair(pairs[i], result);
    }
    return true;
}

// No channel is open: the driver answers at once until a job starts one.
bool ChannelPoll::Idle() {
    TIV_LOGD("DrvChannelPoll return PROF_STOPPED_ALREADY");
    if (IsQuit()) {
        TIV_LOGI("Exit poll channel thread.");
        return false;
    }
    (void)mmSleep(IDLE_SLEEP);
    ++sleepCount;
    return true;
}

void ChannelPoll::DispatchPair(const ProfPollPair& pair, int result) {
    TIV_LOGD("DispatchChannel devId: %d, channelID: %d, ret: %d", static_cast<int>(pair.devId),
             static_cast<int>(pair.channelId), result);
    if (!JsonParser::Instance().GetChannelReporterSwitch(pair.channelId)) {
        return;
    }
    DispatchChannel(pair.devId, pair.channelId);
    ++dispatchChannelCount;
}

}  // namespace analysis::rokt::transport
