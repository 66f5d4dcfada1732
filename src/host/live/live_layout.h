// What a live view looks like on a screen of a given size.
#pragma once

#include <vector>

#include "host/live/live_snapshot.h"
#include "host/live/screen_line.h"

namespace tiv::host {

struct ScreenSize {
    size_t columns = 80;
    size_t rows = 24;
};

// The lines from top to bottom: `size.rows` of them at most, none wider than `size.columns`. What
// was not measured is shown as "-". The processes get the rows that the rest leaves.
[[nodiscard]] std::vector<ScreenLine> LayOut(const LiveSnapshot& snapshot, const ScreenSize& size,
                                             Charset charset);

// "1.23k", "45.6M": four characters or so for a count of any size.
[[nodiscard]] std::string ShortNumber(double number);

}  // namespace tiv::host
