// Names from a profiled machine as a page shows them.
#pragma once

#include <string>
#include <string_view>

namespace tiv::host {

// `text`, which is UTF-8, with what would not be seen or would turn its neighbours around made
// visible: control characters as \xNN, characters that change the direction of writing as \uNNNN.
// Cut to `maxBytes`, with "…" behind what was cut.
[[nodiscard]] std::string PageText(std::string_view text, size_t maxBytes = 300);

// A time of the device's clock in seconds with all of its nanoseconds: "12345.000000678 s".
[[nodiscard]] std::string ClockText(unsigned long long timeNs);

}  // namespace tiv::host
