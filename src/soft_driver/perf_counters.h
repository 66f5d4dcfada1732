// System-wide counters of the kernel, one per event and CPU.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "soft_driver/file_descriptor.h"

namespace tiv::soft_driver {

// How far one event has moved on one CPU since the last reading.
struct CounterStep {
    uint32_t event = 0;
    uint32_t cpu = 0;
    uint64_t count = 0;
};

// Opens counters and reads their steps. When the kernel shares a hardware counter between events,
// the count of the measured part of the time is scaled up to the whole; an event that was not
// measured at all gives no step. One thread at a time.
class PerfCounters {
 public:
    // Opens every event on every CPU that is online. Empty on success; otherwise the name of the
    // event that failed, with errno set.
    [[nodiscard]] std::string Open(const std::vector<std::string>& events);

    // Steps in the order of events, then CPUs.
    [[nodiscard]] const std::vector<CounterStep>& Read();

 private:
    struct Values {
        uint64_t count = 0;
        uint64_t enabledNs = 0;
        uint64_t runningNs = 0;
    };
    struct Counter {
        uint32_t event = 0;
        uint32_t cpu = 0;
        FileDescriptor fd;
        Values last;
    };
    [[nodiscard]] bool OpenEvent(uint32_t index, const std::string& name);
    [[nodiscard]] static bool Step(Counter& counter, uint64_t* count);

    std::vector<Counter> counters_;
    std::vector<CounterStep> steps_;
};

// Opens one event on the first CPU and closes it again. False with errno set.
[[nodiscard]] bool PerfEventWorks(const std::string& name);

}  // namespace tiv::soft_driver
