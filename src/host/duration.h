// Durations as people write them on a command line.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace tiv::host {

// Reads "250ms", "10s", "5m", "1h" or a plain number of seconds ("10", "0.5"). Nothing else may
// stand around it. Empty for a text that is no duration, is negative, or exceeds a year.
std::optional<std::chrono::milliseconds> ParseDuration(const std::string& text);

// "850ms", "12.3s", "4m05s" or "2h03m".
std::string FormatDuration(std::chrono::milliseconds duration);

// "512 B", "1.5 kB", "24.8 MB": powers of 1000.
std::string FormatBytes(double bytes);

}  // namespace tiv::host
