// The checks of ParamValidation on lists of hardware events and cores.
#include <algorithm>
#include <cstdlib>

#include "common/utils.h"
#include "config/param_validation.h"
#include "platform/log.h"

namespace analysis::rokt::common::validation {

using utils::Utils;

namespace {

constexpr int32_t MAX_EVENT_SIZE = 8;
constexpr int32_t MAX_AI_CORE_EVENT_SIZE = 10;
constexpr int32_t MAX_CORES_SIZE = 50;
constexpr long MIN_AI_CORE_EVENT = 0x1;
constexpr long MAX_AI_CORE_EVENT = 0x50E;

constexpr const char* L2_CACHE_EVENTS[] = {
    "0x59", "0x5b", "0x5c", "0x62", "0x6a", "0x6c", "0x71", "0x74", "0x77",
    "0x78", "0x79", "0x7c", "0x7d", "0x7e", "0xfb", "0xfc", "0x9a", "0xf6",
    "0xfd", "0xfe", "0x9c", "0x9d", "0x90", "0x91", "0x96", "0xbf",
};

bool IsL2CacheEvent(const std::string& event) {
    return std::find(std::begin(L2_CACHE_EVENTS), std::end(L2_CACHE_EVENTS), event) !=
           std::end(L2_CACHE_EVENTS);
}

// Text that is no number counts as 0.
bool IsAiCoreEvent(const std::string& event) {
    const long value = std::strtol(event.c_str(), nullptr, 16);
    return value >= MIN_AI_CORE_EVENT && value <= MAX_AI_CORE_EVENT;
}

bool IsHbmEvent(const std::string& event) { return event == "read" || event == "write"; }

}  // namespace

bool ParamValidation::CheckCoresSizeIsValid(int32_t coresSize) const {
    return coresSize <= MAX_CORES_SIZE;
}

int32_t ParamValidation::CheckEventsSize(const std::string& events) const {
    if (events.empty()) {
        TIV_LOGI("events is empty");
        return 0;
    }
    if (Utils::Split(events, ',').size() > static_cast<std::size_t>(MAX_EVENT_SIZE)) {
        TIV_LOGE("events Size is incorrect. %s", events.c_str());
        return -1;
    }
    return 0;
}

bool ParamValidation::CheckL2CacheEventsIsValid(const std::vector<std::string>& events) const {
    if (!CheckEventSizeIsValid(static_cast<int32_t>(events.size()))) {
        TIV_LOGE("L2Cache events size(%u) is bigger than %d", static_cast<uint32_t>(events.size()),
                 MAX_EVENT_SIZE);
        return false;
    }
    for (const std::string& given : events) {
        TIV_LOGD("l2Cacheevents:%s", given.c_str());
        const std::string event = Utils::Trim(Utils::ToLower(given), " ");
        TIV_LOGD("l2Cacheevent:%s", event.c_str());
        if (!IsL2CacheEvent(event)) {
            TIV_LOGE("l2Cacheevent:%s is invalid", event.c_str());
            return false;
        }
    }
    return true;
}

bool ParamValidation::CheckAiCoreEventsIsValid(const std::vector<std::string>& events) const {
    if (events.size() > static_cast<std::size_t>(MAX_AI_CORE_EVENT_SIZE)) {
        TIV_LOGE("ai core events size(%u) is bigger than %d", static_cast<uint32_t>(events.size()),
                 MAX_AI_CORE_EVENT_SIZE);
        return false;
    }
    if (!std::all_of(events.begin(), events.end(), IsAiCoreEvent)) {
        TIV_LOGE("ai core event out of range, which should be in 1-1294(0x1-0x50E)");
        return false;
    }
    return true;
}

bool ParamValidation::CheckAiVectorCoreEventsIsValid(const std::vector<std::string>& events) const {
    return CheckAiCoreEventsIsValid(events);
}

bool ParamValidation::CheckAiCoreEventCoresIsValid(const std::vector<int32_t>& cores) const {
    if (!CheckCoresSizeIsValid(static_cast<int32_t>(cores.size()))) {
        TIV_LOGE("ai core events cores size(%zu) is bigger than %d", cores.size(), MAX_CORES_SIZE);
        return false;
    }
    return std::all_of(cores.begin(), cores.end(), [](int32_t core) { return core >= 0; });
}

bool ParamValidation::CheckAiVectorCoreEventCoresIsValid(const std::vector<int32_t>& cores) const {
    return CheckAiCoreEventCoresIsValid(cores);
}

// A list that asks for a master id is left to the driver.
bool ParamValidation::CheckDdrEventsIsValid(const std::vector<std::string>& events) const {
    if (!CheckEventSizeIsValid(static_cast<int32_t>(events.size()))) {
        TIV_LOGE("ddr events size(%zu) is bigger than %d", events.size(), MAX_EVENT_SIZE);
        return false;
    }
    if (std::find(events.begin(), events.end(), "master_id") != events.end()) {
        return true;
    }
    return CheckHbmEventsIsValid(events);
}

bool ParamValidation::CheckHbmEventsIsValid(const std::vector<std::string>& events) const {
    if (!CheckEventSizeIsValid(static_cast<int32_t>(events.size()))) {
        TIV_LOGE("hbm events size(%zu) is bigger than %d", events.size(), MAX_EVENT_SIZE);
        return false;
    }
    return std::all_of(events.begin(), events.end(), IsHbmEvent);
}

}  // namespace analysis::rokt::common::validation
