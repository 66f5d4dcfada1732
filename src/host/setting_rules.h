// The range or the set of values of each field of the sample configuration that has one.
#pragma once

#include <string>

#include "message/prof_params.h"

namespace tiv::host {

// Holds the field `name` of `params` to its rule. Empty when it is kept or when there is none for
// the field; otherwise what is allowed.
[[nodiscard]] std::string BrokenRule(const std::string& name,
                                     const analysis::rokt::message::ProfileParams& params);

// "metrics type should be in [...]": the names that `ai_core_metrics` takes, whatever the platform.
[[nodiscard]] std::string MetricsRule();

}  // namespace tiv::host
