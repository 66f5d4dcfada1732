// Reading and writing of durations and sizes.
#include "host/duration.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>

namespace tiv::host {

namespace {

constexpr double MAX_MILLISECONDS = 365.0 * 24 * 3600 * 1000;

std::optional<double> UnitMilliseconds(const std::string& unit) {
    if (unit == "ms") {
        return 1;
    }
    if (unit.empty() || unit == "s") {
        return 1000;
    }
    if (unit == "m" || unit == "min") {
        return 60.0 * 1000;
    }
    if (unit == "h") {
        return 3600.0 * 1000;
    }
    return std::nullopt;
}

}  // namespace

std::optional<std::chrono::milliseconds> ParseDuration(const std::string& text) {
    double number = 0;
    const char* end = text.data() + text.size();
    const auto [rest, error] = std::from_chars(text.data(), end, number, std::chars_format::fixed);
    const std::optional<double> unit = UnitMilliseconds(std::string(rest, end));
    if (error != std::errc() || !unit.has_value() || number < 0) {
        return std::nullopt;
    }
    const double milliseconds = number * *unit;
    if (!(milliseconds <= MAX_MILLISECONDS)) {
        return std::nullopt;
    }
    return std::chrono::milliseconds(std::llround(milliseconds));
}

std::string FormatDuration(std::chrono::milliseconds duration) {
    const int64_t milliseconds = duration.count();
    if (milliseconds < 1000) {
        return fmt::format("{}ms", milliseconds);
    }
    const int64_t seconds = milliseconds / 1000;
    if (seconds < 60) {
        return fmt::format("{}.{}s", seconds, milliseconds % 1000 / 100);
    }
    if (seconds < 3600) {
        return fmt::format("{}m{:02}s", seconds / 60, seconds % 60);
    }
    return fmt::format("{}h{:02}m", seconds / 3600, seconds % 3600 / 60);
}

std::string FormatBytes(double bytes) {
    constexpr std::array<const char*, 5> UNITS = {"B", "kB", "MB", "GB", "TB"};
    size_t unit = 0;
    while (bytes >= 999.95 && unit + 1 < UNITS.size()) {
        bytes /= 1000;
        ++unit;
    }
    return unit == 0 ? fmt::format("{:.0f} B", bytes)
                     : fmt::format("{:.1f} {}", bytes, UNITS[unit]);
}

}  // namespace tiv::host
