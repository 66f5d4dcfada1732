// Completion scripts of shells.
#pragma once

#include <string>

#include "host/commands/program_text.h"

namespace tiv::host {

// Each is a whole script for the program that the text describes: its commands, the options of
// each, the values of those that take one of a list. Other values are completed as file names.
[[nodiscard]] std::string BashCompletion(const CommandText& program);
[[nodiscard]] std::string ZshCompletion(const CommandText& program);
[[nodiscard]] std::string FishCompletion(const CommandText& program);

}  // namespace tiv::host
