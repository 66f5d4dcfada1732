// The checks of ParamValidation on a whole sample configuration.
#include "config/param_validation.h"

#include <algorithm>
#include <cstdlib>
#include <exception>

#include "common/utils.h"
#include "config/ascii_chars.h"
#include "message/prof_params.h"
#include "platform/log.h"

namespace analysis::rokt::common::validation {

using message::ProfileParams;
using utils::Utils;

namespace {

struct IntervalField {
    int32_t ProfileParams::*field;
    const char* label;
};

constexpr IntervalField INTERVALS[] = {
    {&ProfileParams::aiv_sampling_interval, "aiv"},
    {&ProfileParams::vmlkInterval, "vmcl"},
    {&ProfileParams::pcieInterval, "pcie"},
    {&ProfileParams::roceInterval, "roce"},
    {&ProfileParams::llc_interval, "llc"},
    {&ProfileParams::ddr_interval, "ddr"},
    {&ProfileParams::hbmInterval, "hbm"},
    {&ProfileParams::cpu_sampling_interval, "cpu_profiling"},
};

// The RoCE interval stands in both tables, under two labels.
constexpr IntervalField INTERVALS_TWO[] = {
    {&ProfileParams::sys_sampling_interval, "sys_profiling"},
    {&ProfileParams::pid_sampling_interval, "pid_profiling"},
    {&ProfileParams::hardware_mem_sampling_interval, "hardware_mem"},
    {&ProfileParams::io_sampling_interval, "io_profiling"},
    {&ProfileParams::interconnection_sampling_interval, "interconnection_profiling"},
    {&ProfileParams::vimg_sampling_interval, "vimg_profiling"},
    {&ProfileParams::nicInterval, "nicProfiling"},
    {&ProfileParams::roceInterval, "roceProfiling"},
    {&ProfileParams::aicore_sampling_interval, "aicore_profiling"},
};

using SwitchField = std::string ProfileParams::*;

constexpr SwitchField TS_SWITCHES[] = {
    &ProfileParams::ts_task_track,  &ProfileParams::ts_cpu_usage, &ProfileParams::ai_core_status,
    &ProfileParams::ts_timeline,    &ProfileParams::ts_keypoint,  &ProfileParams::ai_vector_status,
    &ProfileParams::ts_fw_training, &ProfileParams::hwts_log,     &ProfileParams::hwts_log1,
    &ProfileParams::ts_memcpy,
};

constexpr SwitchField PMU_SWITCHES[] = {
    &ProfileParams::ai_core_profiling, &ProfileParams::aiv_profiling, &ProfileParams::ddr_profiling,
    &ProfileParams::vmlkProfiling,     &ProfileParams::pcieProfiling, &ProfileParams::hbmProfiling,
};

constexpr SwitchField SYSTEM_TRACE_SWITCHES[] = {
    &ProfileParams::cpu_profiling,      &ProfileParams::tsCpuProfiling,
    &ProfileParams::aiCtrlCpuProfiling, &ProfileParams::sys_profiling,
    &ProfileParams::pid_profiling,      &ProfileParams::hardware_mem,
    &ProfileParams::io_profiling,       &ProfileParams::interconnection_profiling,
    &ProfileParams::vimg_profiling,     &ProfileParams::nicProfiling,
    &ProfileParams::roceProfiling,
};

constexpr uint32_t STORAGE_LIMIT_MIN_LEN = 3;
constexpr std::size_t STORAGE_UNIT_LEN = 2;
constexpr std::size_t STORAGE_MAX_DIGITS = 10;
constexpr uint32_t STORAGE_MIN = 200;         // MB
constexpr uint32_t STORAGE_MAX = 4294967295;  // MB

template <std::size_t N>
bool AllIntervalsValid(const ParamValidation& validation, const ProfileParams& params,
                       const IntervalField (&fields)[N]) {
    return std::all_of(std::begin(fields), std::end(fields), [&](const IntervalField& interval) {
        return validation.CheckIntervalIsValid(params.*interval.field, interval.label);
    });
}

template <std::size_t N>
bool AllSwitchesValid(const ParamValidation& validation, const ProfileParams& params,
                      const SwitchField (&fields)[N]) {
    return std::all_of(std::begin(fields), std::end(fields),
                       [&](SwitchField field) { return validation.IsValidSwitch(params.*field); });
}

// Null, with an error, when there is no memory.
std::shared_ptr<std::vector<std::string>> SplitEvents(const std::string& events) {
    try {
        return std::make_shared<std::vector<std::string>>(Utils::Split(events, ','));
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

// The form of the text: digits and the unit. Whether the number is in range is not asked here.
bool IsStorageLimitWellFormed(const std::string& limit) {
    if (limit.size() < STORAGE_LIMIT_MIN_LEN) {
        TIV_LOGE("storage_limit:%s, length is less than %u", limit.c_str(), STORAGE_LIMIT_MIN_LEN);
        return false;
    }
    const std::string digits = limit.substr(0, limit.size() - STORAGE_UNIT_LEN);
    if (limit.compare(digits.size(), STORAGE_UNIT_LEN, "MB") != 0) {
        TIV_LOGE("storage_limit:%s, not end with MB", limit.c_str());
        return false;
    }
    if (!std::all_of(digits.begin(), digits.end(), IsAsciiDigit)) {
        TIV_LOGE("storage_limit:%s, invalid numbers", limit.c_str());
        return false;
    }
    if (digits.size() > STORAGE_MAX_DIGITS) {
        TIV_LOGE("storage_limit:%s, valid range is 200~4294967296", limit.c_str());
        return false;
    }
    return true;
}

}  // namespace

bool ParamValidation::CheckProfilingIntervalIsValid(const ParamsPtr& params) const {
    return params != nullptr && AllIntervalsValid(*this, *params, INTERVALS) &&
           CheckProfilingIntervalIsValidTWO(params);
}

bool ParamValidation::CheckProfilingIntervalIsValidTWO(const ParamsPtr& params) const {
    if (params == nullptr) {
        TIV_LOGE("[CheckProfilingIntervalIsValidTWO]params is null");
        return false;
    }
    return AllIntervalsValid(*this, *params, INTERVALS_TWO);
}

bool ParamValidation::CheckProfilingSwitchIsValid(const ParamsPtr& params) const {
    return params != nullptr && CheckTsSwitchProfiling(params) && CheckPmuSwitchProfiling(params) &&
           CheckSystemTraceSwitchProfiling(params);
}

bool ParamValidation::CheckTsSwitchProfiling(const ParamsPtr& params) const {
    return params != nullptr && AllSwitchesValid(*this, *params, TS_SWITCHES);
}

bool ParamValidation::CheckPmuSwitchProfiling(const ParamsPtr& params) const {
    return params != nullptr && AllSwitchesValid(*this, *params, PMU_SWITCHES);
}

bool ParamValidation::CheckSystemTraceSwitchProfiling(const ParamsPtr& params) const {
    if (params == nullptr) {
        TIV_LOGE("[CheckSystemTraceSwitchProfiling]params is null");
        return false;
    }
    return AllSwitchesValid(*this, *params, SYSTEM_TRACE_SWITCHES);
}

bool ParamValidation::CheckProfilingParams(const ParamsPtr& params,
                                           const std::set<std::string>& unsupportedMetrics) const {
    if (params == nullptr) {
        TIV_LOGE("[CheckProfilingParams]params is nullptr.");
        return false;
    }
    if (!params->hostProfiling &&
        !CheckDevicesIsValid(params->app, params->devices, params->host_sys)) {
        TIV_LOGE("[CheckProfilingParams]devices:%s is illegal", params->devices.c_str());
        return false;
    }
    const auto l2CacheEvents = SplitEvents(params->l2CacheTaskProfilingEvents);
    if (l2CacheEvents == nullptr) {
        return true;  // without memory to look closer the record gets the benefit of the doubt
    }
    if (!CheckL2CacheEventsIsValid(*l2CacheEvents)) {
        TIV_LOGE("[CheckProfilingParams]l2CacheTaskProfilingEvents is illegal");
        return false;
    }
    if (!CheckLlcEventsIsValid(params->llc_profiling_events)) {
        TIV_LOGE("[CheckProfilingParams]llc_profiling_events is illegal");
        return false;
    }
    if (!CheckProfilingIntervalIsValid(params)) {
        TIV_LOGE("[CheckProfilingParams]profiling interval is illegal");
        return false;
    }
    if (!CheckProfilingSwitchIsValid(params)) {
        TIV_LOGE("[CheckProfilingParams]profiling switch is illegal");
        return false;
    }
    if (!CheckAiCoreMetricsIsValid(params->ai_core_metrics, unsupportedMetrics)) {
        TIV_LOGE("[CheckProfilingParams]profiling ai_core_metrics is illegal");
        return false;
    }
    return true;
}

bool ParamValidation::CheckStorageLimit(const ParamsPtr& params) const {
    if (params == nullptr) {
        return false;
    }
    std::string& limit = params->storageLimit;
    if (limit.empty()) {
        TIV_LOGI("storage_limit is empty");
        return true;
    }
    if (!IsStorageLimitWellFormed(limit)) {
        return false;
    }
    const uint64_t megabytes = std::strtoull(limit.c_str(), nullptr, 10);
    if (megabytes < STORAGE_MIN) {
        TIV_LOGE("storage_limit:%s, min value is %uMB", limit.c_str(), STORAGE_MIN);
        limit = std::to_string(STORAGE_MIN) + "MB";
        TIV_LOGW("auto adjust storage_limit to:%s", limit.c_str());
        return false;
    }
    if (megabytes > STORAGE_MAX) {
        TIV_LOGE("storage_limit:%s, max value is %uMB", limit.c_str(), STORAGE_MAX);
        return false;
    }
    return true;
}

}  // namespace analysis::rokt::common::validation
