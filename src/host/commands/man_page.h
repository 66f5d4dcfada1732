// The manual page of tivctl.
#pragma once

#include <string>

#include "host/commands/program_text.h"

namespace tiv::host {

// The page in the language of man(7). Everything that --help tells stands in it.
[[nodiscard]] std::string ManPage(const CommandText& program, const std::string& version);

}  // namespace tiv::host
