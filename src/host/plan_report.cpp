// The two forms of a plan.
#include "host/plan_report.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/duration.h"
#include "host/result_files.h"

namespace tiv::host {

using nlohmann::ordered_json;

namespace {

struct SamplerFacts {
    const char* sampler;
    const char* what;
    std::vector<std::string> files;
};

const SamplerFacts& FactsOf(const std::string& sampler) {
    static const SamplerFacts FACTS[] = {
        {"cpu", "CPU times of the system, once for all devices", {"data/SystemCpuUsage.data"}},
        {"memory", "memory of the system, once for all devices", {"data/Memory.data"}},
        {"processes",
         "CPU and memory of every process, once for all devices",
         {"data/<pid>-CpuUsage.data", "data/<pid>-Memory.data"}},
        {"ctrl-cpu",
         "recorder of the control CPU, once for all devices",
         {"data/ai_ctrl_cpu.data"}},
        {"llc", "last-level cache events of the device", {"data/llc.data"}},
    };
    const auto* const found =
        std::find_if(std::begin(FACTS), std::end(FACTS),
                     [&](const SamplerFacts& facts) { return sampler == facts.sampler; });
    return *found;
}

// What the known samplers bring together, and the names of the others.
struct Total {
    double bytesPerSecond = 0;
    std::vector<std::string> unknown;
};

Total TotalOf(const JobPlan& plan, const CollectOptions& options, const SampleSizes& sizes) {
    Total total;
    for (const DeviceJob& job : plan.jobs) {
        for (const SamplerRate& rate : EstimateRates(job, options.interval, sizes)) {
            total.bytesPerSecond += rate.bytesPerSecond;
            if (!rate.known) {
                total.unknown.push_back(fmt::format("{} of device {}", rate.sampler, job.deviceId));
            }
        }
    }
    return total;
}

std::string Basis(const SampleSizes& sizes) {
    return fmt::format(
        "one reading of /proc on this machine, {} CPUs and {} processes, as if it were the card; a "
        "card with others brings other amounts",
        sizes.cpus, sizes.processesAlive);
}

std::string RateText(const SamplerRate& rate) {
    return rate.known ? FormatBytes(rate.bytesPerSecond) + "/s" : "unknown";
}

std::string CourseText(const CollectOptions& options) {
    if (!options.command.empty()) {
        return fmt::format("for the life of the command {}", Printable(options.command.front()));
    }
    if (!options.duration.has_value()) {
        return "until Ctrl-C";
    }
    if (options.repeat == 1) {
        return FormatDuration(*options.duration);
    }
    return fmt::format("{} replays of {}, one every {}", options.repeat,
                       FormatDuration(*options.duration),
                       FormatDuration(options.every.value_or(*options.duration)));
}

std::string JobText(const PlannedJob& job) {
    std::string text =
        fmt::format("  {:<10} {:>12}  {}\n", job.sampler, RateText(job.rate), job.what);
    for (const std::string& file : job.files) {
        text += fmt::format("  {:<10} {:>12}    {}\n", "", "", file);
    }
    return text;
}

ordered_json JobJson(const PlannedJob& job) {
    ordered_json entry = {{"sampler", job.sampler}, {"what", job.what}, {"files", job.files}};
    if (job.rate.known) {
        entry["bytesPerSecond"] = job.rate.bytesPerSecond;
    }
    return entry;
}

ordered_json CourseJson(const CollectOptions& options) {
    ordered_json course = {{"endsWith", !options.command.empty()       ? "command"
                                        : options.duration.has_value() ? "time"
                                                                       : "ctrl-c"},
                           {"repeat", options.repeat},
                           {"intervalMs", options.interval.count()}};
    if (options.duration.has_value()) {
        course["durationMs"] = options.duration->count();
        course["everyMs"] = options.every.value_or(*options.duration).count();
    }
    if (!options.command.empty()) {
        course["command"] = options.command;
    }
    return course;
}

ordered_json RefusalsJson(const JobPlan& plan) {
    ordered_json refusals = ordered_json::array();
    for (const Refusal& refusal : plan.refusals) {
        refusals.push_back({{"option", refusal.option},
                            {"allowed", refusal.allowed},
                            {"message", refusal.message}});
    }
    return refusals;
}

ordered_json EstimateJson(const JobPlan& plan, const CollectOptions& options,
                          const SampleSizes& sizes) {
    const Total total = TotalOf(plan, options, sizes);
    return {{"bytesPerSecond", total.bytesPerSecond},
            {"unknown", total.unknown},
            {"cpus", sizes.cpus},
            {"processes", sizes.processesAlive},
            {"restsOn", Basis(sizes)}};
}

}  // namespace

std::vector<PlannedJob> PlannedJobs(const DeviceJob& job, std::chrono::milliseconds interval,
                                    const SampleSizes& sizes) {
    std::vector<PlannedJob> jobs;
    for (const SamplerRate& rate : EstimateRates(job, interval, sizes)) {
        const SamplerFacts& facts = FactsOf(rate.sampler);
        jobs.push_back({rate.sampler, facts.what, facts.files, rate});
    }
    return jobs;
}

std::string PlanText(const JobPlan& plan, const CollectOptions& options, const SampleSizes& sizes) {
    std::string text = fmt::format("collects: {}, a sample every {}\n", CourseText(options),
                                   FormatDuration(options.interval));
    for (const DeviceJob& job : plan.jobs) {
        text += fmt::format("device {}, files below {}/PROF_.../device_{}\n", job.deviceId,
                            Printable(options.output), job.deviceId);
        for (const PlannedJob& planned : PlannedJobs(job, options.interval, sizes)) {
            text += JobText(planned);
        }
    }
    const Total total = TotalOf(plan, options, sizes);
    text += fmt::format("estimate: {}/s\n", FormatBytes(total.bytesPerSecond));
    text += fmt::format("  rests on {}\n", Basis(sizes));
    for (const std::string& unknown : total.unknown) {
        text += fmt::format("  without {}: its amount depends on what the card does\n", unknown);
    }
    return text;
}

std::string PlanJson(const JobPlan& plan, const CollectOptions& options, const SampleSizes& sizes) {
    ordered_json report = {{"good", plan.Good()}};
    if (!plan.Good()) {
        report["refusals"] = RefusalsJson(plan);
        return report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
    }
    report["course"] = CourseJson(options);
    report["output"] = options.output;
    report["units"] = {{"pageBytes", options.pageBytes},
                       {"ticksPerSecond", options.ticksPerSecond}};
    report["devices"] = ordered_json::array();
    for (const DeviceJob& job : plan.jobs) {
        ordered_json jobs = ordered_json::array();
        for (const PlannedJob& planned : PlannedJobs(job, options.interval, sizes)) {
            jobs.push_back(JobJson(planned));
        }
        report["devices"].push_back({{"device", job.deviceId},
                                     {"directory", fmt::format("device_{}", job.deviceId)},
                                     {"jobs", jobs},
                                     {"sampleConfig", ordered_json::parse(job.configText)}});
    }
    report["estimate"] = EstimateJson(plan, options, sizes);
    return report.dump(2, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tiv::host
