// Reads the manifest of a result.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "host/result/result_directory.h"

namespace tiv::host {

// Size of each file that the manifest tells of, by device directory and name.
using ListedFiles = std::map<std::pair<std::string, std::string>, uint64_t>;

// Fills the facts of `result` from <path>/manifest.json, and `listed` from its lists of files.
// Values of a wrong type count as missing. What is wrong becomes a problem of the result. Returns
// false when there is no manifest that could be read.
bool ReadManifest(ResultDirectory& result, ListedFiles& listed);

}  // namespace tiv::host
