// From options to jobs.
#include "host/job_plan.h"

#include <fmt/format.h>
#include <unistd.h>

#include <set>

namespace tiv::host {

namespace {

constexpr int MAX_DEVICE_ID = 63;
constexpr size_t MAX_CTRL_CPU_EVENTS = 8;
// Sampling of /proc below 100 ms is raised to it by the daemon, and periods from 4295 ms on are cut
// to 32 bits of nanoseconds there; the recorder of the control CPU is asked for whole Hz. What is
// outside would not be what was asked for.
constexpr int64_t MIN_INTERVAL_MS = 100;
constexpr int64_t MAX_INTERVAL_MS = 4294;
constexpr int64_t MIN_RECORD_INTERVAL_MS = 1;
constexpr int64_t MAX_RECORD_INTERVAL_MS = 1000;

// The device looks for "0x" somewhere in an event and splits its command at blanks.
bool IsCpuEvent(const std::string& event) {
    return event.size() > 2 && event.compare(0, 2, "0x") == 0 &&
           event.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos;
}

std::string CheckEvents(const CollectOptions& options) {
    for (const std::string& event : options.llcEvents) {
        if (event != "read" && event != "write") {
            return fmt::format("--llc {} is no event: the last-level cache counts read or write",
                               event);
        }
    }
    for (const std::string& event : options.ctrlCpuEvents) {
        if (!IsCpuEvent(event)) {
            return fmt::format("--ctrl-cpu {} is no event: write raw event numbers such as 0x11",
                               event);
        }
    }
    if (options.ctrlCpuEvents.size() > MAX_CTRL_CPU_EVENTS) {
        return fmt::format("--ctrl-cpu names {} events: at most {} are counted at a time",
                           options.ctrlCpuEvents.size(), MAX_CTRL_CPU_EVENTS);
    }
    return "";
}

std::string CheckInterval(const CollectOptions& options) {
    const bool records = !options.ctrlCpuEvents.empty();
    const bool samples = options.cpu || options.memory || options.processes || !records;
    const int64_t least = samples ? MIN_INTERVAL_MS : MIN_RECORD_INTERVAL_MS;
    const int64_t most = records ? MAX_RECORD_INTERVAL_MS : MAX_INTERVAL_MS;
    const int64_t interval = options.interval.count();
    return interval >= least && interval <= most
               ? ""
               : fmt::format("--interval {}ms is out of range: {}ms to {}ms", interval, least,
                             most);
}

std::string CheckOptions(const CollectOptions& options) {
    if (options.devices.empty()) {
        return "no device named: add --device N";
    }
    std::set<int> seen;
    for (const int device : options.devices) {
        if (device < 0 || device > MAX_DEVICE_ID) {
            return fmt::format("--device {} is out of range: devices are numbered 0 to {}", device,
                               MAX_DEVICE_ID);
        }
        if (!seen.insert(device).second) {
            return fmt::format("--device {} is named twice: name each device once", device);
        }
    }
    const std::string error = CheckInterval(options);
    return error.empty() ? CheckEvents(options) : error;
}

// The samplers of /proc: the daemon runs each of them once for the whole system.
void AskForSystemSamplers(const CollectOptions& options, DeviceJob& job) {
    auto& params = job.params;
    const int interval = static_cast<int>(options.interval.count());
    params.cpu_sampling_interval = interval;
    params.sys_sampling_interval = interval;
    params.pid_sampling_interval = interval;
    if (options.cpu || options.memory) {
        // One switch starts both; the second one takes the memory sampler out again.
        params.sys_profiling = "on";
        params.zelnar = options.memory ? "off" : "on";
        job.samplers.emplace_back("cpu");
    }
    if (options.memory) {
        job.samplers.emplace_back("memory");
    }
    if (options.processes) {
        params.pid_profiling = "on";
        job.samplers.emplace_back("processes");
    }
}

// The recorder of the control CPU runs once for the whole system, too.
void AskForCtrlCpu(const CollectOptions& options, DeviceJob& job) {
    if (!options.ctrlCpuEvents.empty()) {
        job.ctrlCpuEvents = options.ctrlCpuEvents;
        job.samplers.emplace_back("ctrl-cpu");
    }
}

// Every device has a cache and a channel of its own.
void AskForLlc(const CollectOptions& options, DeviceJob& job) {
    if (!options.llcEvents.empty()) {
        job.llcEvents = options.llcEvents;
        job.params.zelnar_llc_profiling = "on";
        job.samplers.emplace_back("llc");
    }
}

DeviceJob MakeDeviceJob(int deviceId, const std::string& idBase) {
    DeviceJob job;
    job.deviceId = deviceId;
    job.jobId = fmt::format("{}-{}", idBase, deviceId);
    job.params.job_id = job.jobId;
    job.params.devices = std::to_string(deviceId);
    job.params.zelnarBinPid = static_cast<int>(getpid());
    return job;
}

}  // namespace

JobPlan MakeJobPlan(const CollectOptions& given, const std::string& idBase) {
    CollectOptions options = given;
    if (!options.cpu && !options.memory && !options.processes && options.llcEvents.empty() &&
        options.ctrlCpuEvents.empty()) {
        options.cpu = options.memory = options.processes = true;
    }
    JobPlan plan;
    plan.error = CheckOptions(options);
    if (!plan.error.empty()) {
        return plan;
    }
    for (const int deviceId : options.devices) {
        DeviceJob job = MakeDeviceJob(deviceId, idBase);
        if (plan.jobs.empty()) {
            AskForSystemSamplers(options, job);
            AskForCtrlCpu(options, job);
        }
        AskForLlc(options, job);
        if (job.samplers.empty()) {
            plan.error = fmt::format(
                "device {} would have nothing to do: cpu, memory and processes are sampled once "
                "for "
                "the whole system, by the first device named (device {}); leave --device {} out",
                deviceId, options.devices.front(), deviceId);
            return plan;
        }
        job.configText = job.params.ToString();
        plan.jobs.push_back(std::move(job));
    }
    return plan;
}

std::string MakeJobIdBase() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    return fmt::format("tivctl-{}-{}", static_cast<int>(getpid()), micros);
}

}  // namespace tiv::host
