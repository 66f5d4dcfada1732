// The names of the features.
#include "config/feature_table.h"

namespace Rokt::Collect::Platform {

namespace {

struct FeatureRow {
    uint32_t feature;
    const char* name;
};

constexpr FeatureRow METRICS[] = {
    {L2_CACHE, "L2Cache"},
    {ARITHMETIC_UTILIZATION, "ArithmeticUtilization"},
    {PIPE_UTILIZATION, "PipeUtilization"},
    {PIPELINE_EXECUTE_UTILIZATION, "PipelineExecuteUtilization"},
    {PIPE_UTILIZATION_EXCT, "PipeUtilizationExct"},
    {RESOURCE_CONFLICT_RATIO, "ResourceConflictRatio"},
    {PIPE_STALL_CYCLE, "PipeStallCycle"},
    {SCALAR_RATIO, "ScalarRatio"},
    {MEMORY, "Memory"},
    {MEMORY_L0, "MemoryL0"},
    {MEMORY_UB, "MemoryUB"},
};

constexpr FeatureRow SWITCHES[] = {
    {1, "switch"},
    {2, "velmarcl"},
    {5, "aicpu"},
    {6, "vmcl"},
    {7, "l2"},
    {28, "fwk_schedule"},
    {29, "task_trace"},
    {30, "zelnartx"},
    {31, "runtime_api"},
    {33, "training_trace"},
    {48, "instr_profiling"},
};

// 0 when the table has no such name: no feature has that number.
template <std::size_t N>
uint32_t Find(const FeatureRow (&table)[N], const std::string& name) {
    for (const FeatureRow& row : table) {
        if (name == row.name) {
            return row.feature;
        }
    }
    return 0;
}

}  // namespace

uint32_t MetricsFeatureOf(const std::string& name) { return Find(METRICS, name); }

bool FeatureOfName(const std::string& name, uint32_t& feature) {
    uint32_t found = Find(SWITCHES, name);
    if (found == 0) {
        found = MetricsFeatureOf(name);
    }
    if (found == 0) {
        return false;
    }
    feature = found;
    return true;
}

}  // namespace Rokt::Collect::Platform
