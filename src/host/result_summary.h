// The table of files that tivctl prints at the end of a collection.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/device_run.h"

namespace tiv::host {

// Prints where the result lies, bytes and samples of each file, and whether it is complete. Files
// of single processes are summed up in two lines per device. The samples are counted in the files
// as they stand on disk.
void PrintSummary(const std::string& directory,
                  const std::vector<std::unique_ptr<DeviceRun>>& runs);

// Samples in one file: the records of a /proc sampler, or the samples of the CPU profile, which is
// known by its name. No value for any other file. Memory does not grow with the file.
std::optional<uint64_t> CountSamples(const std::string& path);

}  // namespace tiv::host
