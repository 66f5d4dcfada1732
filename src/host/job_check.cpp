// The rules of options and jobs.
#include "host/job_check.h"

#include <fmt/format.h>

#include <algorithm>
#include <memory>
#include <set>

#include "config/config_manager.h"
#include "config/param_validation.h"
#include "host/duration.h"
#include "host/quiet_libraries.h"

namespace tiv::host {

using Analysis::Rokt::Common::Config::ConfigManager;
using analysis::rokt::common::validation::ParamValidation;
using analysis::rokt::message::ProfileParams;
using std::chrono::milliseconds;

namespace {

// Sampling of /proc below 100 ms is raised to it by the daemon, and periods from 4295 ms on are cut
// to 32 bits of nanoseconds there; the recorder of the control CPU is asked for whole Hz. What is
// outside would not be what was asked for.
constexpr int64_t MIN_INTERVAL_MS = 100;
constexpr int64_t MAX_INTERVAL_MS = 4294;
constexpr int64_t MIN_RECORD_INTERVAL_MS = 1;
constexpr int64_t MAX_RECORD_INTERVAL_MS = 1000;
constexpr int64_t MS_PER_SECOND = 1000;
constexpr int MAX_REPEAT = 10000;
constexpr int64_t MIN_PAGE_BYTES = 1024;
constexpr int64_t MAX_PAGE_BYTES = 1 << 24;
constexpr int64_t MAX_TICKS_PER_SECOND = 1000000;
constexpr const char* DEVICE_RANGE = "0 to 63";
constexpr const char* DURATION_RANGE = "0s to 720h";
constexpr milliseconds MIN_DRAIN_TIMEOUT{1000};
constexpr const char* DRAIN_TIMEOUT_RANGE = "1s to 720h";

using Refusals = std::vector<Refusal>;

const ParamValidation& Rules() { return ParamValidation::Instance(); }

void CheckDevices(const CollectOptions& options, Refusals& refusals) {
    if (options.devices.empty()) {
        refusals.push_back({"--device", DEVICE_RANGE, "no device named: add --device N"});
    }
    std::set<int> seen;
    for (const int device : options.devices) {
        if (!Rules().CheckDeviceIdIsValid(std::to_string(device))) {
            refusals.push_back({"--device", DEVICE_RANGE,
                                fmt::format("--device {} is out of range: devices are numbered {}",
                                            device, DEVICE_RANGE)});
        } else if (!seen.insert(device).second) {
            refusals.push_back(
                {"--device", "each device once",
                 fmt::format("--device {} is named twice: name each device once", device)});
        }
    }
}

// The library counts whole seconds, from one on; a collection may be shorter.
bool IsPeriod(milliseconds time) {
    const int64_t seconds = (time.count() + MS_PER_SECOND - 1) / MS_PER_SECOND;
    return Rules().CheckSysPeriodIsValid(static_cast<int32_t>(std::max<int64_t>(seconds, 1)));
}

void CheckTime(const char* option, const std::optional<milliseconds>& time, Refusals& refusals) {
    if (time.has_value() && !IsPeriod(*time)) {
        refusals.push_back({option, DURATION_RANGE,
                            fmt::format("{} {} is out of range: {}", option, FormatDuration(*time),
                                        DURATION_RANGE)});
    }
}

// Less than the shortest is no sign of silence: a device needs a moment to stop.
void CheckDrainTimeout(milliseconds timeout, Refusals& refusals) {
    if (timeout < MIN_DRAIN_TIMEOUT || !IsPeriod(timeout)) {
        refusals.push_back({"--drain-timeout", DRAIN_TIMEOUT_RANGE,
                            fmt::format("--drain-timeout {} is out of range: {}",
                                        FormatDuration(timeout), DRAIN_TIMEOUT_RANGE)});
    }
}

void CheckReplays(const CollectOptions& options, Refusals& refusals) {
    if (options.repeat < 1 || options.repeat > MAX_REPEAT) {
        const std::string allowed = fmt::format("1 to {}", MAX_REPEAT);
        refusals.push_back(
            {"--repeat", allowed,
             fmt::format("--repeat {} is out of range: {}", options.repeat, allowed)});
    }
    if ((options.repeat > 1 || options.every.has_value()) && !options.duration.has_value()) {
        const char* const option = options.repeat > 1 ? "--repeat" : "--every";
        refusals.push_back({option, "together with --duration",
                            fmt::format("{} needs --duration, the length of one replay", option)});
    }
    if (options.every.has_value() && options.duration.has_value() &&
        *options.every < *options.duration) {
        const std::string least = FormatDuration(*options.duration);
        refusals.push_back(
            {"--every", fmt::format("{} or more", least),
             fmt::format("--every {} is shorter than --duration: a replay begins when the one "
                         "before has ended; write {} or more",
                         FormatDuration(*options.every), least)});
    }
    if (options.duration.has_value() && !options.command.empty()) {
        refusals.push_back({"--duration", "without a command",
                            "--duration and a command exclude each other: with a command the "
                            "collection lasts as long as it runs; leave one of them out"});
    }
}

void CheckInterval(const CollectOptions& options, Refusals& refusals) {
    const bool records = !options.ctrlCpuEvents.empty();
    const bool samples = options.cpu || options.memory || options.processes || !records;
    const int64_t least = samples ? MIN_INTERVAL_MS : MIN_RECORD_INTERVAL_MS;
    const int64_t most = records ? MAX_RECORD_INTERVAL_MS : MAX_INTERVAL_MS;
    const int64_t interval = options.interval.count();
    if (interval < least || interval > most) {
        const std::string allowed = fmt::format("{}ms to {}ms", least, most);
        refusals.push_back({"--interval", allowed,
                            fmt::format("--interval {}ms is out of range: {}", interval, allowed)});
    }
}

// The device looks for "0x" somewhere in an event and splits its command at blanks.
bool IsCpuEvent(const std::string& event) {
    return event.size() > 2 && event.compare(0, 2, "0x") == 0 &&
           event.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
}

void CheckEvents(const CollectOptions& options, Refusals& refusals) {
    for (const std::string& event : options.llcEvents) {
        if (event != "read" && event != "write") {
            refusals.push_back(
                {"--llc", "read or write",
                 fmt::format("--llc {} is no event: the last-level cache counts read or write",
                             event)});
        }
    }
    for (const std::string& event : options.ctrlCpuEvents) {
        if (!IsCpuEvent(event)) {
            refusals.push_back(
                {"--ctrl-cpu", "0x and hexadecimal digits",
                 fmt::format("--ctrl-cpu {} is no event: write raw event numbers such as 0x11",
                             event)});
        }
    }
    if (!Rules().CheckEventSizeIsValid(static_cast<int32_t>(options.ctrlCpuEvents.size()))) {
        refusals.push_back(
            {"--ctrl-cpu", "at most 8 events",
             fmt::format("--ctrl-cpu names {} events: at most 8 are counted at a time",
                         options.ctrlCpuEvents.size())});
    }
}

void CheckUnit(const char* option, int64_t value, int64_t least, int64_t most, Refusals& refusals) {
    if (value < least || value > most) {
        const std::string allowed = fmt::format("{} to {}", least, most);
        refusals.push_back(
            {option, allowed, fmt::format("{} {} is out of range: {}", option, value, allowed)});
    }
}

void CheckUnits(const CollectOptions& options, Refusals& refusals) {
    CheckUnit("--page-size", options.pageBytes, MIN_PAGE_BYTES, MAX_PAGE_BYTES, refusals);
    const bool inRange = options.pageBytes >= MIN_PAGE_BYTES && options.pageBytes <= MAX_PAGE_BYTES;
    if (inRange && (options.pageBytes & (options.pageBytes - 1)) != 0) {
        refusals.push_back({"--page-size", "a power of 2",
                            fmt::format("--page-size {} is no power of 2", options.pageBytes)});
    }
    CheckUnit("--tick-rate", options.ticksPerSecond, 1, MAX_TICKS_PER_SECOND, refusals);
}

// What the platform lacks is asked for only where it matters: the driver library answers from its
// own configuration, which may be in need of mending.
std::set<std::string> UnsupportedMetrics(const ProfileParams& params) {
    std::set<std::string> unsupported;
    if (!params.ai_core_metrics.empty()) {
        ConfigManager::Instance().GetUnsupportedMetrics(unsupported);
    }
    return unsupported;
}

}  // namespace

std::vector<Refusal> CheckOptions(const CollectOptions& options) {
    const QuietLibraries quiet;
    Refusals refusals;
    CheckDevices(options, refusals);
    CheckTime("--duration", options.duration, refusals);
    CheckTime("--every", options.every, refusals);
    CheckDrainTimeout(options.drainTimeout, refusals);
    CheckReplays(options, refusals);
    CheckInterval(options, refusals);
    CheckEvents(options, refusals);
    CheckUnits(options, refusals);
    return refusals;
}

std::vector<Refusal> CheckJob(const DeviceJob& job) {
    const QuietLibraries quiet;
    Refusals refusals;
    if (!Rules().CheckJobIdIsValid(job.jobId)) {
        refusals.push_back({"job id", "1 to 512 letters, digits and -",
                            fmt::format("the job id {} is not valid: 1 to 512 letters, digits "
                                        "and -",
                                        job.jobId)});
    }
    if (!Rules().CheckCtrlCpuEventIsValid(job.ctrlCpuEvents)) {
        refusals.push_back({"--ctrl-cpu", "at most 8 raw event numbers such as 0x11",
                            "--ctrl-cpu: write at most 8 raw event numbers such as 0x11"});
    }
    const auto params = std::make_shared<ProfileParams>(job.params);
    if (!Rules().CheckProfilingParams(params, UnsupportedMetrics(job.params))) {
        refusals.push_back({"--set", "the ranges of the sample configuration",
                            fmt::format("device {}: the sample configuration is not valid as a "
                                        "whole: set TIV_LOG_LEVEL=info to see which rule refuses "
                                        "it",
                                        job.deviceId)});
    }
    return refusals;
}

}  // namespace tiv::host
