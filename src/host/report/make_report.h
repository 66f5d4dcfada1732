// The report of a result as a command makes it: with progress, messages and an exit code.
#pragma once

#include <string>

namespace tiv::host {

// Makes the page of the result in `directory` at `output`; an empty `output` is report.html in the
// result. Prints `label` and the page's path on standard output unless `quiet`, and what is missing
// in the result on standard error. Returns the exit code. Ctrl-C ends it and leaves no page.
[[nodiscard]] int MakeReport(const std::string& directory, const std::string& output, bool quiet,
                             const std::string& label = "");

}  // namespace tiv::host
