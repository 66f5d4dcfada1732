// Job files: what the options of a collection say, in JSON.
#pragma once

#include <string>

#include "host/job_plan.h"

namespace tiv::host {

// Reads `path` into `options`; what the file does not name stays as it is. docs/job.schema.json
// describes the format. Empty, or what is wrong with the file: a text that is no JSON, a key that
// does not exist, or a value of the wrong form, each with its place in the file. Ranges are not
// looked at: the checks of the job do that for options and files alike.
[[nodiscard]] std::string ReadJobFile(const std::string& path, CollectOptions& options);

}  // namespace tiv::host
