// Names of the counters that a perf source can read.
#include "soft_driver/perf_events.h"

#include <linux/perf_event.h>

#include <array>

namespace tiv::soft_driver {
namespace {

struct NamedEvent {
    const char* name;
    uint32_t type;
    uint64_t config;
};

constexpr std::array<NamedEvent, 19> PLAIN_EVENTS = {{
    {"cpu-cycles", PERF_TYPE_HARDWARE, PERF_COUNT_HW_CPU_CYCLES},
    {"instructions", PERF_TYPE_HARDWARE, PERF_COUNT_HW_INSTRUCTIONS},
    {"cache-references", PERF_TYPE_HARDWARE, PERF_COUNT_HW_CACHE_REFERENCES},
    {"cache-misses", PERF_TYPE_HARDWARE, PERF_COUNT_HW_CACHE_MISSES},
    {"branch-instructions", PERF_TYPE_HARDWARE, PERF_COUNT_HW_BRANCH_INSTRUCTIONS},
    {"branch-misses", PERF_TYPE_HARDWARE, PERF_COUNT_HW_BRANCH_MISSES},
    {"bus-cycles", PERF_TYPE_HARDWARE, PERF_COUNT_HW_BUS_CYCLES},
    {"stalled-cycles-frontend", PERF_TYPE_HARDWARE, PERF_COUNT_HW_STALLED_CYCLES_FRONTEND},
    {"stalled-cycles-backend", PERF_TYPE_HARDWARE, PERF_COUNT_HW_STALLED_CYCLES_BACKEND},
    {"ref-cycles", PERF_TYPE_HARDWARE, PERF_COUNT_HW_REF_CPU_CYCLES},
    {"cpu-clock", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_CPU_CLOCK},
    {"task-clock", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_TASK_CLOCK},
    {"page-faults", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_PAGE_FAULTS},
    {"context-switches", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_CONTEXT_SWITCHES},
    {"cpu-migrations", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_CPU_MIGRATIONS},
    {"minor-faults", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_PAGE_FAULTS_MIN},
    {"major-faults", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_PAGE_FAULTS_MAJ},
    {"alignment-faults", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_ALIGNMENT_FAULTS},
    {"emulation-faults", PERF_TYPE_SOFTWARE, PERF_COUNT_SW_EMULATION_FAULTS},
}};

struct NamedPart {
    const char* name;
    uint64_t config;
};

constexpr std::array<NamedPart, 7> CACHES = {{
    {"L1-dcache", PERF_COUNT_HW_CACHE_L1D},
    {"L1-icache", PERF_COUNT_HW_CACHE_L1I},
    {"LLC", PERF_COUNT_HW_CACHE_LL},
    {"dTLB", PERF_COUNT_HW_CACHE_DTLB},
    {"iTLB", PERF_COUNT_HW_CACHE_ITLB},
    {"branch", PERF_COUNT_HW_CACHE_BPU},
    {"node", PERF_COUNT_HW_CACHE_NODE},
}};

constexpr uint64_t CacheOperation(uint64_t operation, uint64_t result) {
    return operation << 8 | result << 16;
}

constexpr std::array<NamedPart, 6> CACHE_OPERATIONS = {{
    {"-loads", CacheOperation(PERF_COUNT_HW_CACHE_OP_READ, PERF_COUNT_HW_CACHE_RESULT_ACCESS)},
    {"-load-misses", CacheOperation(PERF_COUNT_HW_CACHE_OP_READ, PERF_COUNT_HW_CACHE_RESULT_MISS)},
    {"-stores", CacheOperation(PERF_COUNT_HW_CACHE_OP_WRITE, PERF_COUNT_HW_CACHE_RESULT_ACCESS)},
    {"-store-misses",
     CacheOperation(PERF_COUNT_HW_CACHE_OP_WRITE, PERF_COUNT_HW_CACHE_RESULT_MISS)},
    {"-prefetches",
     CacheOperation(PERF_COUNT_HW_CACHE_OP_PREFETCH, PERF_COUNT_HW_CACHE_RESULT_ACCESS)},
    {"-prefetch-misses",
     CacheOperation(PERF_COUNT_HW_CACHE_OP_PREFETCH, PERF_COUNT_HW_CACHE_RESULT_MISS)},
}};

std::optional<PerfEvent> FindCacheEvent(const std::string& name) {
    for (const NamedPart& cache : CACHES) {
        for (const NamedPart& operation : CACHE_OPERATIONS) {
            if (name == std::string(cache.name) + operation.name) {
                return PerfEvent{PERF_TYPE_HW_CACHE, cache.config | operation.config};
            }
        }
    }
    return std::nullopt;
}

}  // namespace

std::optional<PerfEvent> FindPerfEvent(const std::string& name) {
    for (const NamedEvent& event : PLAIN_EVENTS) {
        if (name == event.name) {
            return PerfEvent{event.type, event.config};
        }
    }
    return FindCacheEvent(name);
}

std::vector<std::string> DefaultPerfEvents() { return {"LLC-loads", "LLC-stores"}; }

}  // namespace tiv::soft_driver
