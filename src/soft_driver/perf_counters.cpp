// System-wide counters of the kernel.
#include "soft_driver/perf_counters.h"

#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "soft_driver/perf_events.h"

namespace tiv::soft_driver {
namespace {

FileDescriptor OpenCounter(const PerfEvent& event, int cpu) {
    perf_event_attr attributes{};
    attributes.size = sizeof(attributes);
    attributes.type = event.type;
    attributes.config = event.config;
    attributes.read_format = PERF_FORMAT_TOTAL_TIME_ENABLED | PERF_FORMAT_TOTAL_TIME_RUNNING;
    return FileDescriptor(static_cast<int>(
        syscall(SYS_perf_event_open, &attributes, -1, cpu, -1, PERF_FLAG_FD_CLOEXEC)));
}

}  // namespace

bool PerfEventWorks(const std::string& name) {
    const auto event = FindPerfEvent(name);
    if (!event.has_value()) {
        errno = ENOENT;
        return false;
    }
    return OpenCounter(*event, 0).IsOpen();
}

std::string PerfCounters::Open(const std::vector<std::string>& events) {
    counters_.clear();
    for (uint32_t index = 0; index < events.size(); ++index) {
        if (!OpenEvent(index, events[index])) {
            return events[index];
        }
    }
    steps_.reserve(counters_.size());
    return "";
}

bool PerfCounters::OpenEvent(uint32_t index, const std::string& name) {
    const auto event = FindPerfEvent(name);
    if (!event.has_value()) {
        errno = ENOENT;
        return false;
    }
    const long cpus = sysconf(_SC_NPROCESSORS_CONF);
    bool any = false;
    for (int cpu = 0; cpu < cpus; ++cpu) {
        FileDescriptor fd = OpenCounter(*event, cpu);
        if (fd.IsOpen()) {
            any = true;
            counters_.push_back({index, static_cast<uint32_t>(cpu), std::move(fd), {}});
        } else if (errno != ENODEV) {  // ENODEV: this CPU is offline
            return false;
        }
    }
    return any;
}

const std::vector<CounterStep>& PerfCounters::Read() {
    steps_.clear();
    for (Counter& counter : counters_) {
        CounterStep step{counter.event, counter.cpu, 0};
        if (Step(counter, &step.count)) {
            steps_.push_back(step);
        }
    }
    return steps_;
}

bool PerfCounters::Step(Counter& counter, uint64_t* count) {
    Values values;
    if (read(counter.fd.Get(), &values, sizeof(values)) != sizeof(values)) {
        return false;
    }
    const uint64_t counted = values.count - counter.last.count;
    const uint64_t enabled = values.enabledNs - counter.last.enabledNs;
    const uint64_t running = values.runningNs - counter.last.runningNs;
    if (running == 0) {
        return false;  // `last` stays: what is counted later belongs to this time as well
    }
    counter.last = values;
    *count = counted;
    if (running < enabled) {
        *count = static_cast<uint64_t>(static_cast<double>(counted) * static_cast<double>(enabled) /
                                       static_cast<double>(running));
    }
    return true;
}

}  // namespace tiv::soft_driver
