// The ranges, allowed sets and character rules of what a profiling job may ask for.
#pragma once

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "common/singleton.h"

namespace analysis::rokt::message {
struct ProfileParams;
}  // namespace analysis::rokt::message

namespace analysis::rokt::common::validation {

// Every check reads its arguments, writes an error to the log and returns a verdict, true for
// valid. Only the identity and event checks stand on the daemon's own paths: they live in the
// library of the configuration tables and need nothing of the platform; the others serve whoever
// puts a job together. Stateless: any thread may call any check at once.
class ParamValidation : public singleton::Singleton<ParamValidation> {
 public:
    static constexpr const char* STORAGE_LIMIT_RANGE =
        "storage-limit should be in range [200,4294967295], end with MB";
    static constexpr const char* INSTR_PROFILING_FREQ_RANGE =
        "instr_profiling_freq should be in range [300,30000] cycle";

    // Identity and events. A negative size is valid.
    [[nodiscard]] bool CheckEventSizeIsValid(int32_t eventSize) const;
    [[nodiscard]] bool CheckCtrlCpuEventIsValid(const std::vector<std::string>& events) const;
    [[nodiscard]] bool CheckLlcEventsIsValid(const std::string& events) const;
    [[nodiscard]] bool CheckDeviceIdIsValid(const std::string& devId) const;
    [[nodiscard]] bool CheckJobIdIsValid(const std::string& jobId) const;
    [[nodiscard]] bool CheckProfilingModeIsValid(const std::string& mode) const;

    // Event lists. CheckEventsSize gives 0 or -1.
    [[nodiscard]] bool CheckCoresSizeIsValid(int32_t coresSize) const;
    [[nodiscard]] int32_t CheckEventsSize(const std::string& events) const;
    [[nodiscard]] bool CheckL2CacheEventsIsValid(const std::vector<std::string>& events) const;
    [[nodiscard]] bool CheckAiCoreEventsIsValid(const std::vector<std::string>& events) const;
    [[nodiscard]] bool CheckAiVectorCoreEventsIsValid(const std::vector<std::string>& events) const;
    [[nodiscard]] bool CheckAiCoreEventCoresIsValid(const std::vector<int32_t>& cores) const;
    [[nodiscard]] bool CheckAiVectorCoreEventCoresIsValid(const std::vector<int32_t>& cores) const;
    [[nodiscard]] bool CheckDdrEventsIsValid(const std::vector<std::string>& events) const;
    [[nodiscard]] bool CheckHbmEventsIsValid(const std::vector<std::string>& events) const;

    // Names and options.
    [[nodiscard]] bool CheckDevicesIsValid(const std::string& app, const std::string& devices,
                                           const std::string& hostSys) const;
    [[nodiscard]] bool CheckAppNameIsValid(const std::string& appName) const;
    [[nodiscard]] bool CheckTagIsValid(const std::string& tag) const;
    [[nodiscard]] bool CheckAppParamsIsValid(const std::string& appParams) const;
    [[nodiscard]] bool CheckHostSysOptionsIsValid(const std::string& options) const;
    [[nodiscard]] bool CheckStarsAcsqParamsIsValid(const std::string& params) const;
    [[nodiscard]] bool CheckLevelArgument(const std::string& name, const std::string& value) const;
    [[nodiscard]] bool CheckOnOffArgument(const std::string& name, const std::string& value) const;
    // A name longer than 70 characters is reported and accepted.
    [[nodiscard]] bool CheckAiCoreMetricsIsValid(const std::string& metrics,
                                                 const std::set<std::string>& unsupported) const;
    [[nodiscard]] bool IsValidSwitch(const std::string& value) const;

    // Numbers: milliseconds and the like, seconds, cycles, a process id of the host.
    [[nodiscard]] bool CheckIntervalIsValid(int32_t interval, const std::string& label) const;
    [[nodiscard]] bool CheckSysPeriodIsValid(int32_t period) const;
    [[nodiscard]] bool CheckInstrProfilingFreqIsValid(uint32_t freq) const;
    [[nodiscard]] bool CheckHostSysPidIsValid(int32_t pid) const;

    // Whole records. A null record is not valid. Every interval counts, also when its feature is
    // off. CheckStorageLimit rewrites a limit that is too small, and still calls it invalid.
    using ParamsPtr = std::shared_ptr<message::ProfileParams>;
    [[nodiscard]] bool CheckProfilingIntervalIsValid(const ParamsPtr& params) const;
    [[nodiscard]] bool CheckProfilingIntervalIsValidTWO(const ParamsPtr& params) const;
    [[nodiscard]] bool CheckProfilingSwitchIsValid(const ParamsPtr& params) const;
    [[nodiscard]] bool CheckTsSwitchProfiling(const ParamsPtr& params) const;
    [[nodiscard]] bool CheckPmuSwitchProfiling(const ParamsPtr& params) const;
    [[nodiscard]] bool CheckSystemTraceSwitchProfiling(const ParamsPtr& params) const;
    [[nodiscard]] bool CheckProfilingParams(const ParamsPtr& params,
                                            const std::set<std::string>& unsupportedMetrics) const;
    [[nodiscard]] bool CheckStorageLimit(const ParamsPtr& params) const;
};

}  // namespace analysis::rokt::common::validation
