// Names of the counters that a perf source can read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace tiv::soft_driver {

// The kernel's two numbers of a counter.
struct PerfEvent {
    uint32_t type = 0;
    uint64_t config = 0;
};

// Hardware ("cpu-cycles"), cache ("LLC-load-misses") and software ("page-faults") events by the
// names that the kernel's own tool gives them.
[[nodiscard]] std::optional<PerfEvent> FindPerfEvent(const std::string& name);

// Reads and writes of the last-level cache, in this order.
[[nodiscard]] std::vector<std::string> DefaultPerfEvents();

}  // namespace tiv::soft_driver
