// What a job may ask for: the checks in front of every collection.
#pragma once

#include <vector>

#include "host/job_plan.h"

namespace tiv::host {

// Everything that is wrong with the options, in the order of the help text; empty when they are
// good. Whether a device is left with nothing to do is for the plan to say.
[[nodiscard]] std::vector<Refusal> CheckOptions(const CollectOptions& options);

// Holds a laid-out job to the rules of the sample configuration as a whole. Asks the driver library
// for the platform type when the job names metrics.
[[nodiscard]] std::vector<Refusal> CheckJob(const DeviceJob& job);

}  // namespace tiv::host
