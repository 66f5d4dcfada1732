// Single fields of the sample configuration that the user sets by name.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "host/job_plan.h"
#include "message/prof_params.h"

namespace tiv::host {

// Writes each named value into its field of `params` and holds it to the field's rule. Refused are
// names that no field has, fields that tivctl fills itself, values of the wrong type and values out
// of range; `params` is not to be used then. The texts of the sample configuration have no escapes,
// so that a quote, a backslash or a control character has no place in a value.
[[nodiscard]] std::vector<Refusal> ApplySettings(
    const std::vector<std::pair<std::string, std::string>>& settings,
    analysis::rokt::message::ProfileParams& params);

}  // namespace tiv::host
