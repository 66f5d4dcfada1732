// What `tivctl info` tells of a result.
#pragma once

#include <string>

#include "host/result/result_directory.h"

namespace tiv::host {

// The manifest calls the result complete, and everything that it lists is there.
[[nodiscard]] bool IsWhole(const ResultDirectory& result);

// Some lines for people. Names of the result's own are made printable.
[[nodiscard]] std::string InfoText(const ResultDirectory& result);

// One JSON object on one line: path, state, complete, problems, tool, started, ended, stoppedEarly,
// askedMs, units, clock, and per device its job and its files. What is not known is absent.
[[nodiscard]] std::string InfoJson(const ResultDirectory& result);

}  // namespace tiv::host
