// The checks of ParamValidation on names, options and single numbers.
#include <algorithm>

#include "common/utils.h"
#include "config/ascii_chars.h"
#include "config/param_validation.h"
#include "config/platform.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace analysis::rokt::common::validation {

using utils::Utils;

namespace {

constexpr int32_t MAX_INTERVAL = 1296000000;
constexpr int32_t MAX_SYS_PERIOD = 2592000;  // s
constexpr uint32_t MIN_INSTR_FREQ = 300;     // cycles
constexpr uint32_t MAX_INSTR_FREQ = 30000;   // cycles
constexpr int32_t MAX_METRICS_NAME_LEN = 70;

// The blanks are part of the entries.
constexpr const char* APP_PARAMS_BLACK_LIST[] = {
    "rm ", "mv ", "reboot", "shutdown", "halt", "> ", "wget ", "poweroff",
};

constexpr const char* HOST_SYS_OPTIONS[] = {"cpu", "mem", "disk", "network", "osrt"};

constexpr const char* STARS_ACSQ_PARAMS[] = {
    "dsa", "vdec", "jpegd", "jpege", "vpc", "topic", "pcie", "rocee", "sdma", "ctrl_task",
};

constexpr const char* METRICS[] = {
    "ArithmeticUtilization",
    "PipeUtilization",
    "PipeUtilizationExct",
    "PipelineExecuteUtilization",
    "Memory",
    "MemoryL0",
    "ResourceConflictRatio",
    "MemoryUB",
    "L2Cache",
    "PipeStallCycle",
    "ScalarRatio",
};

template <std::size_t N>
bool IsOneOf(const char* const (&allowed)[N], const std::string& value) {
    return std::find(std::begin(allowed), std::end(allowed), value) != std::end(allowed);
}

bool IsAppNameChar(char c) { return IsAsciiLetterOrDigit(c) || c == '_' || c == '-' || c == '.'; }

bool IsTagChar(char c) { return IsAsciiLetterOrDigit(c) || c == '_'; }

// The steps that every switch argument begins with. True when they settle the verdict.
bool IsSettledArgument(const std::string& name, const std::string& value, bool& verdict) {
    if (value.empty()) {
        TIV_LOGI("Argument %s is empty.", name.c_str());
        verdict = true;
        return true;
    }
    if (!Analysis::Rokt::Common::Platform::Platform::Instance().FeatureIsSupported(name)) {
        TIV_LOGE("Argument [%s] is not supported.", name.c_str());
        verdict = false;
        return true;
    }
    return false;
}

}  // namespace

bool ParamValidation::CheckDevicesIsValid(const std::string& app, const std::string& devices,
                                          const std::string& hostSys) const {
    if (devices.empty() && app.empty()) {
        return !hostSys.empty();
    }
    if (devices == "all") {
        return true;
    }
    bool valid = true;
    for (const std::string& device : Utils::Split(devices, ',')) {
        if (!CheckDeviceIdIsValid(device)) {
            TIV_LOGE("device:%s is not valid!", device.c_str());
            valid = false;
        }
    }
    return valid;
}

bool ParamValidation::CheckAppNameIsValid(const std::string& appName) const {
    if (appName.empty()) {
        TIV_LOGE("appName is empty");
        return false;
    }
    if (!std::all_of(appName.begin(), appName.end(), IsAppNameChar)) {
        TIV_LOGE("appName is invalid.%s", appName.c_str());
        return false;
    }
    return true;
}

bool ParamValidation::CheckTagIsValid(const std::string& tag) const {
    if (tag.empty()) {
        TIV_LOGE("tag is empty");
        return false;
    }
    if (!std::all_of(tag.begin(), tag.end(), IsTagChar)) {
        TIV_LOGE("tag is invalid.%s", tag.c_str());
        return false;
    }
    return true;
}

bool ParamValidation::CheckAppParamsIsValid(const std::string& appParams) const {
    return std::none_of(
        std::begin(APP_PARAMS_BLACK_LIST), std::end(APP_PARAMS_BLACK_LIST),
        [&](const char* entry) { return appParams.find(entry) != std::string::npos; });
}

bool ParamValidation::CheckHostSysOptionsIsValid(const std::string& options) const {
    if (options.empty()) {
        TIV_LOGI("hostSysOptions is empty");
        return true;
    }
    if (!IsOneOf(HOST_SYS_OPTIONS, options)) {
        TIV_LOGE("hostSysOptions[%s] is invalid", options.c_str());
        return false;
    }
    TIV_LOGI("hostSysOptions is %s", options.c_str());
    return true;
}

bool ParamValidation::CheckStarsAcsqParamsIsValid(const std::string& params) const {
    const std::vector<std::string> parts = Utils::Split(params, ',');
    const bool valid = std::all_of(parts.begin(), parts.end(), [](const std::string& part) {
        return IsOneOf(STARS_ACSQ_PARAMS, part);
    });
    if (!valid) {
        TIV_LOGE("Invalid stars acsq params.");
    }
    return valid;
}

bool ParamValidation::CheckLevelArgument(const std::string& name, const std::string& value) const {
    bool verdict = false;
    if (IsSettledArgument(name, value, verdict)) {
        return verdict;
    }
    const char* reminder = "";
    if (name == "fwk_schedule") {
        reminder = "Please input 'l0', 'l1' or 'off'.";
        verdict = value == "l0" || value == "l1" || value == "off";
    } else if (name == "task_trace") {
        reminder = "Please input 'on', 'off', 'l0', 'l1' or 'l2'.";
        verdict = value == "l0" || value == "l1" || value == "l2" || IsValidSwitch(value);
    }
    if (!verdict) {
        TIV_LOGE("Argument %s: invalid value: %s. %s", name.c_str(), value.c_str(), reminder);
    }
    return verdict;
}

bool ParamValidation::CheckOnOffArgument(const std::string& name, const std::string& value) const {
    bool verdict = false;
    if (IsSettledArgument(name, value, verdict)) {
        return verdict;
    }
    if (value != "on" && value != "off") {
        TIV_LOGE("Argument %s: invalid value: %s. Please input 'on' or 'off'.", name.c_str(),
                 value.c_str());
        return false;
    }
    return true;
}

bool ParamValidation::CheckAiCoreMetricsIsValid(const std::string& metrics,
                                                const std::set<std::string>& unsupported) const {
    if (metrics.empty()) {
        TIV_LOGI("aicoreMetrics is empty");
        return true;
    }
    if (metrics.size() > static_cast<std::size_t>(MAX_METRICS_NAME_LEN)) {
        TIV_LOGE("The parameter length exceeds the specified value of %d.", MAX_METRICS_NAME_LEN);
        return true;
    }
    if (unsupported.count(metrics) != 0) {
        TIV_LOGE("Current platform is not support %s metrics type", metrics.c_str());
        return false;
    }
    if (!IsOneOf(METRICS, metrics)) {
        TIV_LOGE("The aic_metrics[%s] of input config is invalid", metrics.c_str());
        return false;
    }
    TIV_LOGD("aicoreMetrics is %s", metrics.c_str());
    return true;
}

bool ParamValidation::IsValidSwitch(const std::string& value) const {
    return value.empty() || value == "on" || value == "off";
}

bool ParamValidation::CheckIntervalIsValid(int32_t interval, const std::string& label) const {
    if (interval < 1 || interval > MAX_INTERVAL) {
        TIV_LOGE("invalid %s interval: %d", label.c_str(), interval);
        return false;
    }
    return true;
}

bool ParamValidation::CheckSysPeriodIsValid(int32_t period) const {
    if (period < 1 || period > MAX_SYS_PERIOD) {
        TIV_LOGE("Invalid --sys-period: %d s", period);
        return false;
    }
    return true;
}

bool ParamValidation::CheckInstrProfilingFreqIsValid(uint32_t freq) const {
    if (freq < MIN_INSTR_FREQ || freq > MAX_INSTR_FREQ) {
        TIV_LOGE("instr_profiling_freq %u cycle is invalid (%u~%u).", freq, MIN_INSTR_FREQ,
                 MAX_INSTR_FREQ);
        return false;
    }
    return true;
}

bool ParamValidation::CheckHostSysPidIsValid(int32_t pid) const {
    struct stat status = {};
    if (pid < 0 || mmStatGet(("/proc/" + std::to_string(pid) + "/status").c_str(), &status) != 0) {
        TIV_LOGE("Invalid --host-sys-pid: %d", pid);
        return false;
    }
    return true;
}

}  // namespace analysis::rokt::common::validation
