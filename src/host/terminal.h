// What can be painted on a terminal, and how wide it is.
#pragma once

#include <cstddef>

namespace tiv::host {

// True when `fd` is a terminal that knows control sequences.
[[nodiscard]] bool IsPaintableTerminal(int fd);

// Columns of the terminal; 80 where it reports none.
[[nodiscard]] size_t TerminalColumns(int fd);

}  // namespace tiv::host
