// The start operations of the driver's channels and the records they build.
#include <algorithm>
#include <cstdlib>
#include <new>

#include "common/utils.h"
#include "driver/ai_drv_prof_api.h"
#include "message/prof_params.h"
#include "platform/log.h"

namespace analysis::rokt::driver {
namespace {

using analysis::rokt::common::utils::Utils;
using analysis::rokt::message::ProfileParams;

constexpr uint32_t CHANNEL_TYPE_PERIPHERAL = 1;
constexpr uint32_t CHANNEL_TYPE_OTHER = 0;
constexpr uint32_t AICORE_SAMPLE_MODE = 1;
constexpr uint32_t AICORE_ALMOST_FULL = 0x6666;
constexpr uint32_t CORES_PER_MASK = 32;
constexpr uint32_t TS_MEMCPY_BITS = 0x82000001U | 0x84000001U;
constexpr uint32_t TS_FW_BITS = 0x81000001U;

// What the messages of a start tell and the driver's start parameters hold.
struct StartCall {
    const char* operation;
    int32_t deviceId;
    uint32_t channel;
    int32_t shownPeriod;  // ms, in the messages
    uint32_t channelType = CHANNEL_TYPE_OTHER;
    int32_t samplePeriod = 0;  // ms, for the driver
};

StartCall CallOf(const char* operation, const DrvPeripheralProfileCfg& cfg) {
    StartCall call{operation, cfg.profDeviceId, cfg.profChannel, cfg.profSamplePeriod};
    call.samplePeriod = cfg.profSamplePeriod;
    return call;
}

void LogBegin(const StartCall& call) {
    TIV_EVENT("Begin to start profiling %s, profDeviceId=%d, profChannel=%d, profSamplePeriod=%dms",
              call.operation, call.deviceId, static_cast<int>(call.channel), call.shownPeriod);
}

// Hands the record to the driver, which must not keep its address.
int StartChannel(const StartCall& call, void* record, uint32_t size) {
    ProfStartPara para{};
    para.channelType = call.channelType;
    para.samplePeriod = static_cast<uint32_t>(call.samplePeriod);
    para.realTime = 1;
    para.userData = record;
    para.userDataSize = size;
    const int32_t ret = prof_drv_start(static_cast<uint32_t>(call.deviceId), call.channel, &para);
    if (ret != 0) {
        TIV_LOGE(
            "Failed to start profiling %s, profDeviceId=%d, profChannel=%d, profSamplePeriod=%dms, "
            "ret=%d",
            call.operation, call.deviceId, static_cast<int>(call.channel), call.shownPeriod, ret);
        return -1;
    }
    TIV_EVENT(
        "Succeeded to start profiling %s, profDeviceId=%d, profChannel=%d, profSamplePeriod=%dms",
        call.operation, call.deviceId, static_cast<int>(call.channel), call.shownPeriod);
    return 0;
}

template <class Record>
int StartWith(const StartCall& call, Record& record) {
    return StartChannel(call, &record, static_cast<uint32_t>(sizeof(record)));
}

int StartWithWords(const StartCall& call, std::vector<uint32_t>& words) {
    return StartChannel(call, words.data(), static_cast<uint32_t>(words.size() * sizeof(uint32_t)));
}

// Fields are narrower than what the text can say; the upper bits fall away.
template <class Field>
Field EventOf(const std::string& text) {
    return static_cast<Field>(std::strtol(text.c_str(), nullptr, 16));
}

std::string JoinEvents(const std::vector<std::string>& events) { return Utils::Join(events, ","); }

uint32_t CoreMaskOf(const std::vector<int>& coreIds) {
    uint32_t mask = 0;
    for (const int id : coreIds) {
        mask |= 1U << (static_cast<uint32_t>(id) % CORES_PER_MASK);
    }
    return mask;
}

uint32_t TagWord() { return Utils::IsDynProfMode() ? 1 : 0; }

uint32_t SwitchWord(const std::string& text) { return text == "on" ? 1 : 0; }

bool EventsFit(const std::vector<std::string>& events) {
    if (events.size() <= PMU_EVENT_MAX) {
        return true;
    }
    TIV_LOGE("profiling events size over %d, event_num=%zu", static_cast<int>(PMU_EVENT_MAX),
             events.size());
    return false;
}

void SetAicoreEvents(const std::vector<std::string>& events, AicoreRecord& record) {
    record.eventNum = static_cast<uint32_t>(events.size());
    for (size_t i = 0; i < events.size(); ++i) {
        record.event[i] = EventOf<uint32_t>(events[i]);
    }
    record.tag = TagWord();
}

// A record of words: `head` in front, then one word per event. False when memory is short.
bool BuildWords(const std::vector<uint32_t>& head, const std::vector<std::string>& events,
                std::vector<uint32_t>& words) {
    try {
        words.reserve(head.size() + events.size());
        words = head;
        for (const std::string& event : events) {
            words.push_back(EventOf<uint32_t>(event));
        }
    } catch (const std::bad_alloc&) {
        return false;
    }
    return true;
}

uint32_t MemCpyWord(const ProfileParams& params) {
    return (params.ts_memcpy == "on" ? TS_MEMCPY_BITS : 0) |
           (params.taskTsfw == "on" ? TS_FW_BITS : 0);
}

}  // namespace

int DrvPeripheralStart(const DrvPeripheralProfileCfg& cfg) {
    StartCall call = CallOf("DrvPeripheralStart", cfg);
    call.channelType = CHANNEL_TYPE_PERIPHERAL;
    LogBegin(call);
    return StartChannel(call, cfg.configBuffer, cfg.configSize);
}

int DrvTsCpuStart(const DrvPeripheralProfileCfg& cfg, const std::vector<std::string>& events) {
    const StartCall call = CallOf("DoProfTsCpuStart", cfg);
    LogBegin(call);
    std::vector<uint32_t> words;
    if (!BuildWords(
            {static_cast<uint32_t>(cfg.profSamplePeriod), static_cast<uint32_t>(events.size())},
            events, words)) {
        return -1;
    }
    return StartWithWords(call, words);
}

int DrvAicoreStart(const DrvPeripheralProfileCfg& cfg, const std::vector<int>& coreIds,
                   const std::vector<std::string>& events) {
    if (!EventsFit(events)) {
        return -1;
    }
    const StartCall call = CallOf("DrvAicoreStart", cfg);
    LogBegin(call);
    AicoreRecord record{};
    record.mode = AICORE_SAMPLE_MODE;
    record.almostFull = AICORE_ALMOST_FULL;
    record.period = static_cast<uint32_t>(cfg.profSamplePeriod);
    record.coreMask = CoreMaskOf(coreIds);
    SetAicoreEvents(events, record);
    TIV_LOGI("DrvAicoreStart, period=%d, event_num=%d, events=%s, tag=%d", cfg.profSamplePeriod,
             static_cast<int>(record.eventNum), JoinEvents(events).c_str(),
             static_cast<int>(record.tag));
    return StartWith(call, record);
}

int DrvAicoreTaskBasedStart(int32_t deviceId, uint32_t channel,
                            const std::vector<std::string>& events) {
    if (!EventsFit(events)) {
        return -1;
    }
    const StartCall call{"DrvAicoreTaskBasedStart", deviceId, channel, 0};
    LogBegin(call);
    AicoreRecord record{};
    SetAicoreEvents(events, record);
    TIV_LOGI("DrvAicoreTaskBasedStart, event_num=%d, events=%s, tag=%d",
             static_cast<int>(record.eventNum), JoinEvents(events).c_str(),
             static_cast<int>(record.tag));
    return StartWith(call, record);
}

int DrvL2CacheTaskStart(int32_t deviceId, uint32_t channel,
                        const std::vector<std::string>& events) {
    const StartCall call{"DrvL2CacheTaskStart", deviceId, channel, 0};
    LogBegin(call);
    std::vector<uint32_t> words;
    if (!BuildWords({static_cast<uint32_t>(events.size())}, events, words)) {
        return -1;
    }
    for (size_t i = 1; i < words.size(); ++i) {
        TIV_LOGI("Receice DrvL2CacheTaskEvent EventId=%d, EventCode=0x%x", static_cast<int>(i - 1),
                 words[i]);
    }
    TIV_LOGI("DrvL2CacheTaskStart, eventNum=%d, events=%s", static_cast<int>(events.size()),
             JoinEvents(events).c_str());
    return StartWithWords(call, words);
}

int DrvTsFwStart(const DrvPeripheralProfileCfg& cfg, const ProfileParams& params) {
    const StartCall call = CallOf("DrvTsFwStart", cfg);
    LogBegin(call);
    TsFwRecord record{};
    record.period = static_cast<uint32_t>(cfg.profSamplePeriod);
    record.taskTrack = SwitchWord(params.ts_task_track);
    record.cpuUsage = SwitchWord(params.ts_cpu_usage);
    record.aiCoreStatus = SwitchWord(params.ai_core_status);
    record.timeLine = SwitchWord(params.ts_timeline);
    record.aiVecStatus = SwitchWord(params.ai_vector_status);
    record.keyPoint = SwitchWord(params.ts_keypoint);
    record.memCpy = MemCpyWord(params);
    return StartWith(call, record);
}

int DrvStarsSocLogStart(const DrvPeripheralProfileCfg& cfg, const ProfileParams& params) {
    const StartCall call = CallOf("DrvStarsSocLogStart", cfg);
    LogBegin(call);
    StarsSocLogRecord record{};
    record.acsq_task = SwitchWord(params.stars_acsq_task);
    record.ffts_context_task = SwitchWord(params.stars_acsq_task);
    record.ffts_block = SwitchWord(params.taskBlock);
    record.tag = TagWord();
    return StartWith(call, record);
}

void DrvPackPmuParam(int mode, const DrvPeripheralProfileCfg& cfg, const std::vector<int>& coreIds,
                     const std::vector<std::string>& events, FftsPmuRecord& record) {
    const int32_t period = mode == 0 ? cfg.profSamplePeriod : cfg.profSamplePeriodSecond;
    const size_t eventNum = std::min(events.size(), PMU_EVENT_MAX);
    record.type = cfg.cfgType;
    record.period = static_cast<uint32_t>(period);
    record.coreMask = CoreMaskOf(coreIds);
    record.eventNum = static_cast<uint32_t>(eventNum);
    for (size_t i = 0; i < eventNum; ++i) {
        record.event[i] = EventOf<uint16_t>(events[i]);
    }
    TIV_LOGI("DrvPackPmuParam, mode:%d, period=%d, event_num=%d, events=%s", mode, period,
             static_cast<int>(eventNum), JoinEvents(events).c_str());
}

int DrvFftsProfileStart(const DrvPeripheralProfileCfg& cfg, const std::vector<int>& aiCoreIds,
                        const std::vector<std::string>& aiCoreEvents,
                        const std::vector<int>& vectorCoreIds,
                        const std::vector<std::string>& vectorCoreEvents) {
    const StartCall call{"DrvFftsProfileStart", cfg.profDeviceId, cfg.profChannel,
                         cfg.profSamplePeriod};
    LogBegin(call);
    FftsRecord record{};
    record.cfgMode = cfg.cfgMode;
    DrvPackPmuParam(0, cfg, aiCoreIds, aiCoreEvents, record.pmu[0]);
    DrvPackPmuParam(1, cfg, vectorCoreIds, vectorCoreEvents, record.pmu[1]);
    record.tag = TagWord();
    TIV_LOGI("DrvFftsProfileStart : cfgMode=%u, tag=%d", record.cfgMode,
             static_cast<int>(record.tag));
    return StartWith(call, record);
}

int DrvInstrProfileStart(int32_t deviceId, uint32_t channel, uint32_t period) {
    const StartCall call{"DrvInstrProfileStart", deviceId, channel, static_cast<int32_t>(period)};
    LogBegin(call);
    return StartWith(call, period);
}

int DrvHwtsLogStart(int32_t deviceId, uint32_t channel) {
    const StartCall call{"DrvHwtsLogStart", deviceId, channel, 0};
    LogBegin(call);
    uint32_t tag = TagWord();
    return StartWith(call, tag);
}

int DrvFmkDataStart(int32_t deviceId, uint32_t channel) {
    const StartCall call{"DrvFmkDataStart", deviceId, channel, 0};
    LogBegin(call);
    uint32_t word = 0;
    return StartWith(call, word);
}

}  // namespace analysis::rokt::driver
