// The few lines that the driver itself writes to standard error.
//
// Each is one write of one line in the form
//   tiv_driver: warning: <what happened>: <key=value ...>: <reason>
//   tiv_driver: info: <what happened>: <key=value ...>
// The library does not use the log of the program that links it: that log need not exist.
#pragma once

#include <string>

namespace tiv::soft_driver {

// Both leave errno alone and take any thread. A line is cut at 1000 bytes.
void Warn(const char* format, ...) __attribute__((format(printf, 1, 2)));
void Inform(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The system's text for an error number.
[[nodiscard]] std::string ErrorText(int error);

}  // namespace tiv::soft_driver
