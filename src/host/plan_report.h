// What a job would do, told before it runs.
#pragma once

#include <string>
#include <vector>

#include "host/job_plan.h"
#include "host/rate_estimate.h"

namespace tiv::host {

// One job of a device, under the user's name of it.
struct PlannedJob {
    std::string sampler;             // "processes"
    std::string what;                // what runs on the device
    std::vector<std::string> files;  // names below the device's directory; <pid> stands for many
    SamplerRate rate;
};

// The jobs of one device in the order in which they start.
[[nodiscard]] std::vector<PlannedJob> PlannedJobs(const DeviceJob& job,
                                                  std::chrono::milliseconds interval,
                                                  const SampleSizes& sizes);

// The plan for people, and for programs as a JSON object; of a plan that is refused, the refusals.
[[nodiscard]] std::string PlanText(const JobPlan& plan, const CollectOptions& options,
                                   const SampleSizes& sizes);
[[nodiscard]] std::string PlanJson(const JobPlan& plan, const CollectOptions& options,
                                   const SampleSizes& sizes);

}  // namespace tiv::host
