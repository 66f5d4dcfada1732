// From options to jobs.
#include "host/job_plan.h"

#include <fmt/format.h>
#include <unistd.h>

#include "host/job_check.h"
#include "host/job_settings.h"

namespace tiv::host {

namespace {

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

Refusal NothingToDo(const CollectOptions& options, int deviceId) {
    return {"--device", "a device with a sampler of its own (--llc)",
            fmt::format("device {} would have nothing to do: cpu, memory and processes are sampled "
                        "once for the whole system, by the first device named (device {}); leave "
                        "--device {} out",
                        deviceId, options.devices.front(), deviceId)};
}

// One device's job with everything that is refused about it.
std::vector<Refusal> AddJob(const CollectOptions& options, int deviceId, const std::string& idBase,
                            JobPlan& plan) {
    DeviceJob job = MakeDeviceJob(deviceId, idBase);
    if (plan.jobs.empty()) {
        AskForSystemSamplers(options, job);
        AskForCtrlCpu(options, job);
    }
    AskForLlc(options, job);
    if (job.samplers.empty()) {
        return {NothingToDo(options, deviceId)};
    }
    std::vector<Refusal> refusals = ApplySettings(options.settings, job.params);
    if (refusals.empty()) {
        refusals = CheckJob(job);
    }
    job.configText = job.params.ToString();
    plan.jobs.push_back(std::move(job));
    return refusals;
}

}  // namespace

JobPlan MakeJobPlan(const CollectOptions& given, const std::string& idBase) {
    CollectOptions options = given;
    if (!options.cpu && !options.memory && !options.processes && options.llcEvents.empty() &&
        options.ctrlCpuEvents.empty()) {
        options.cpu = options.memory = options.processes = true;
    }
    JobPlan plan;
    plan.refusals = CheckOptions(options);
    for (size_t i = 0; i < options.devices.size() && plan.Good(); ++i) {
        plan.refusals = AddJob(options, options.devices[i], idBase, plan);
    }
    if (!plan.Good()) {
        plan.jobs.clear();
    }
    return plan;
}

std::string MakeJobIdBase() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto micros = std::chrono::duration_cast<std::chrono::microseconds>(now).count();
    return fmt::format("tivctl-{}-{}", static_cast<int>(getpid()), micros);
}

}  // namespace tiv::host
