// The rules, field by field, asked of the library that knows them.
#include "host/setting_rules.h"

#include <algorithm>
#include <iterator>
#include <memory>
#include <set>

#include "common/utils.h"
#include "config/config_manager.h"
#include "config/param_validation.h"

namespace tiv::host {

using Analysis::Rokt::Common::Config::ConfigManager;
using analysis::rokt::common::utils::Utils;
using analysis::rokt::common::validation::ParamValidation;
using analysis::rokt::message::ProfileParams;

namespace {

struct NumberRule {
    const char* name;
    int32_t ProfileParams::*field;
};

constexpr NumberRule INTERVALS[] = {
    {"aiv_sampling_interval", &ProfileParams::aiv_sampling_interval},
    {"vmlkInterval", &ProfileParams::vmlkInterval},
    {"pcieInterval", &ProfileParams::pcieInterval},
    {"roceInterval", &ProfileParams::roceInterval},
    {"ddr_interval", &ProfileParams::ddr_interval},
    {"hbmInterval", &ProfileParams::hbmInterval},
    {"memInterval", &ProfileParams::memInterval},
    {"hardware_mem_sampling_interval", &ProfileParams::hardware_mem_sampling_interval},
    {"io_sampling_interval", &ProfileParams::io_sampling_interval},
    {"interconnection_sampling_interval", &ProfileParams::interconnection_sampling_interval},
    {"vimg_sampling_interval", &ProfileParams::vimg_sampling_interval},
    {"nicInterval", &ProfileParams::nicInterval},
    {"aicore_sampling_interval", &ProfileParams::aicore_sampling_interval},
};

struct SwitchRule {
    const char* name;
    std::string ProfileParams::*field;
};

constexpr SwitchRule SWITCHES[] = {
    {"ts_task_track", &ProfileParams::ts_task_track},
    {"ts_cpu_usage", &ProfileParams::ts_cpu_usage},
    {"ai_core_status", &ProfileParams::ai_core_status},
    {"ts_timeline", &ProfileParams::ts_timeline},
    {"ts_keypoint", &ProfileParams::ts_keypoint},
    {"ai_vector_status", &ProfileParams::ai_vector_status},
    {"ts_fw_training", &ProfileParams::ts_fw_training},
    {"hwts_log", &ProfileParams::hwts_log},
    {"hwts_log1", &ProfileParams::hwts_log1},
    {"ts_memcpy", &ProfileParams::ts_memcpy},
    {"ai_core_profiling", &ProfileParams::ai_core_profiling},
    {"aiv_profiling", &ProfileParams::aiv_profiling},
    {"ddr_profiling", &ProfileParams::ddr_profiling},
    {"vmlkProfiling", &ProfileParams::vmlkProfiling},
    {"pcieProfiling", &ProfileParams::pcieProfiling},
    {"hbmProfiling", &ProfileParams::hbmProfiling},
    {"cpu_profiling", &ProfileParams::cpu_profiling},
    {"tsCpuProfiling", &ProfileParams::tsCpuProfiling},
    {"aiCtrlCpuProfiling", &ProfileParams::aiCtrlCpuProfiling},
    {"hardware_mem", &ProfileParams::hardware_mem},
    {"io_profiling", &ProfileParams::io_profiling},
    {"interconnection_profiling", &ProfileParams::interconnection_profiling},
    {"vimg_profiling", &ProfileParams::vimg_profiling},
    {"nicProfiling", &ProfileParams::nicProfiling},
    {"roceProfiling", &ProfileParams::roceProfiling},
};

using Params = const ProfileParams&;

const ParamValidation& Rules() { return ParamValidation::Instance(); }

std::vector<std::string> Listed(const std::string& events) { return Utils::Split(events, ','); }

// Empty for a name that this platform has.
std::string BrokenMetricsRule(Params params) {
    std::set<std::string> unsupported;
    ConfigManager::Instance().GetUnsupportedMetrics(unsupported);
    if (Rules().CheckAiCoreMetricsIsValid(params.ai_core_metrics, unsupported)) {
        return "";
    }
    std::string allowed = MetricsRule();
    const char* separator = "; this platform lacks ";
    for (const std::string& name : unsupported) {
        allowed.append(separator).append(name);
        separator = ", ";
    }
    return allowed;
}

// Outside of it the device takes 1.
bool IsLlcInterval(Params params) {
    constexpr int32_t MAX_LLC_INTERVAL = 1000;
    return Rules().CheckIntervalIsValid(params.llc_interval, "llc") &&
           params.llc_interval <= MAX_LLC_INTERVAL;
}

bool IsStorageLimit(Params params) {
    return Rules().CheckStorageLimit(std::make_shared<ProfileParams>(params));
}

struct FieldRule {
    const char* name;
    bool (*holds)(Params params);
    const char* allowed;
};

constexpr FieldRule FIELDS[] = {
    {"storageLimit", IsStorageLimit, ParamValidation::STORAGE_LIMIT_RANGE},
    {"profiling_mode", [](Params p) { return Rules().CheckProfilingModeIsValid(p.profiling_mode); },
     "def_mode, system-wide or nothing"},
    {"profiling_period", [](Params p) { return Rules().CheckSysPeriodIsValid(p.profiling_period); },
     "1 to 2592000 seconds"},
    {"app", [](Params p) { return Rules().CheckAppNameIsValid(p.app); },
     "letters, digits, _, - and ."},
    {"app_parameters", [](Params p) { return Rules().CheckAppParamsIsValid(p.app_parameters); },
     "none of \"rm \", \"mv \", \"reboot\", \"shutdown\", \"halt\", \"> \", \"wget \", "
     "\"poweroff\""},
    {"ai_core_profiling_events",
     [](Params p) { return Rules().CheckAiCoreEventsIsValid(Listed(p.ai_core_profiling_events)); },
     "at most 10 events from 0x1 to 0x50E, with commas between them"},
    {"aiv_profiling_events",
     [](Params p) {
         return Rules().CheckAiVectorCoreEventsIsValid(Listed(p.aiv_profiling_events));
     },
     "at most 10 events from 0x1 to 0x50E, with commas between them"},
    {"stars_acsq_task",
     [](Params p) { return Rules().CheckStarsAcsqParamsIsValid(p.stars_acsq_task); },
     "some of dsa,vdec,jpegd,jpege,vpc,topic,pcie,rocee,sdma,ctrl_task"},
    {"llc_profiling_events",
     [](Params p) { return Rules().CheckLlcEventsIsValid(p.llc_profiling_events); },
     "letters, digits, _, /, commas and blanks"},
    {"llc_interval", IsLlcInterval, "1 to 1000"},
    {"ddr_profiling_events",
     [](Params p) { return Rules().CheckDdrEventsIsValid(Listed(p.ddr_profiling_events)); },
     "at most 8 of read, write and master_id, with commas between them"},
    {"hbm_profiling_events",
     [](Params p) { return Rules().CheckHbmEventsIsValid(Listed(p.hbm_profiling_events)); },
     "at most 8 of read and write, with commas between them"},
    {"l2CacheTaskProfilingEvents",
     [](Params p) {
         return Rules().CheckL2CacheEventsIsValid(Listed(p.l2CacheTaskProfilingEvents));
     },
     "at most 8 of 0x59 0x5b 0x5c 0x62 0x6a 0x6c 0x71 0x74 0x77 0x78 0x79 0x7c 0x7d 0x7e 0xfb 0xfc "
     "0x9a 0xf6 0xfd 0xfe 0x9c 0x9d 0x90 0x91 0x96 0xbf, with commas between them"},
    {"instrProfilingFreq",
     [](Params p) {
         return Rules().CheckInstrProfilingFreqIsValid(static_cast<uint32_t>(p.instrProfilingFreq));
     },
     ParamValidation::INSTR_PROFILING_FREQ_RANGE},
    {"host_sys", [](Params p) { return Rules().CheckHostSysOptionsIsValid(p.host_sys); },
     "cpu, mem, disk, network, osrt or nothing"},
    {"host_sys_pid", [](Params p) { return Rules().CheckHostSysPidIsValid(p.host_sys_pid); },
     "the id of a process that runs here"},
    {"fwkSchedule",
     [](Params p) { return Rules().CheckLevelArgument("fwk_schedule", p.fwkSchedule); },
     "l0, l1 or off"},
    {"taskTrace", [](Params p) { return Rules().CheckLevelArgument("task_trace", p.taskTrace); },
     "on, off, l0, l1 or l2"},
    {"runtimeApi", [](Params p) { return Rules().CheckOnOffArgument("runtime_api", p.runtimeApi); },
     "on or off"},
    {"zelnartx", [](Params p) { return Rules().CheckOnOffArgument("zelnartx", p.zelnartx); },
     "on or off"},
};

template <class Rule, size_t N>
const Rule* Find(const Rule (&table)[N], const std::string& name) {
    const auto* const found = std::find_if(std::begin(table), std::end(table),
                                           [&](const Rule& rule) { return name == rule.name; });
    return found == std::end(table) ? nullptr : found;
}

}  // namespace

std::string BrokenRule(const std::string& name, const ProfileParams& params) {
    const NumberRule* const interval = Find(INTERVALS, name);
    if (interval != nullptr && !Rules().CheckIntervalIsValid(params.*interval->field, name)) {
        return "1 to 1296000000";
    }
    const SwitchRule* const onOff = Find(SWITCHES, name);
    if (onOff != nullptr && !Rules().IsValidSwitch(params.*onOff->field)) {
        return "on, off or nothing";
    }
    const FieldRule* const field = Find(FIELDS, name);
    if (field != nullptr && !field->holds(params)) {
        return field->allowed;
    }
    return name == "ai_core_metrics" ? BrokenMetricsRule(params) : "";
}

std::string MetricsRule() { return ConfigManager::GetMetricsHint(); }

}  // namespace tiv::host
