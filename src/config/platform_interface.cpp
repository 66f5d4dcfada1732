// The common event lists, dispatched by number, and the registry of overrides.
#include "config/platform_interface.h"

#include <utility>

#include "config/feature_table.h"
#include "platform/log.h"

namespace Rokt::Collect::Platform {

namespace {

using EventsGetter = std::string (PlatformInterface::*)();

struct MetricsRow {
    uint32_t type;
    EventsGetter getter;
};

// A pointer to a virtual member dispatches virtually: an override is reached.
constexpr MetricsRow METRICS_GETTERS[] = {
    {ARITHMETIC_UTILIZATION, &PlatformInterface::GetArithmeticUtilization},
    {PIPE_UTILIZATION, &PlatformInterface::GetPipeUtilization},
    {PIPE_UTILIZATION_EXCT, &PlatformInterface::GetPipeUtilizationExct},
    {PIPELINE_EXECUTE_UTILIZATION, &PlatformInterface::GetPipelineExecuteUtilization},
    {PIPE_STALL_CYCLE, &PlatformInterface::GetPipeStallCycle},
    {RESOURCE_CONFLICT_RATIO, &PlatformInterface::GetResourceConflictRatio},
    {MEMORY, &PlatformInterface::GetMemory},
    {MEMORY_L0, &PlatformInterface::GetMemoryL0},
    {MEMORY_UB, &PlatformInterface::GetMemoryUB},
    {L2_CACHE, &PlatformInterface::GetL2Cache},
    {SCALAR_RATIO, &PlatformInterface::GetScalarRatio},
};

}  // namespace

std::string PlatformInterface::GetEvents0() { return ""; }

std::string PlatformInterface::GetEvents1() { return ""; }

std::string PlatformInterface::GetEvents2() { return ""; }

int PlatformInterface::GetMetricsEvents(const std::string& name, std::string& events) {
    const uint32_t type = GetMetricsType(name);
    if (!FeatureIsSupport(type)) {
        return -1;
    }
    events = GetMetricsEventsByType(type);
    return 0;
}

bool PlatformInterface::FeatureIsSupport(uint32_t feature) {
    return supportedFeatures.count(feature) != 0;
}

std::string PlatformInterface::GetL2CacheEvents() {
    return "0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D";
}

std::string PlatformInterface::GetMetricsEventsByType(uint32_t type) {
    for (const MetricsRow& row : METRICS_GETTERS) {
        if (row.type == type) {
            return (this->*row.getter)();
        }
    }
    TIV_LOGE("Failed to find [%d] metrics function", static_cast<int>(type));
    return "";
}

std::string PlatformInterface::GetArithmeticUtilization() {
    return "0x49,0x4a,0x4b,0x4c,0x4d,0x4e,0x4f";
}

std::string PlatformInterface::GetPipeUtilization() { return "0x8,0xa,0x9,0xb,0xc,0xd,0x54,0x55"; }

std::string PlatformInterface::GetPipeUtilizationExct() {
    return "0x416,0x417,0x9,0x302,0xc,0x303,0x54,0x55";
}

std::string PlatformInterface::GetPipelineExecuteUtilization() {
    return "0x12c,0x49,0x4a,0x9,0x302,0xc,0xd,0x303";
}

std::string PlatformInterface::GetPipeStallCycle() {
    return "0x12c,0x49,0x4a,0x9,0x302,0xc,0xd,0x303";
}

std::string PlatformInterface::GetResourceConflictRatio() { return "0x64,0x65,0x66"; }

std::string PlatformInterface::GetMemory() { return "0x15,0x16,0x31,0x32,0xf,0x10,0x12,0x13"; }

std::string PlatformInterface::GetMemoryL0() { return "0x1b,0x1c,0x21,0x22,0x27,0x28,0x29,0x2a"; }

std::string PlatformInterface::GetMemoryUB() { return "0x10,0x13,0x37,0x38,0x3d,0x3e,0x43,0x44"; }

std::string PlatformInterface::GetL2Cache() { return "0x500,0x502,0x504,0x506,0x508,0x50a"; }

std::string PlatformInterface::GetScalarRatio() { return ""; }

uint32_t PlatformInterface::GetMetricsType(const std::string& name) {
    return MetricsFeatureOf(name);
}

void PlatformRegistry::Register(uint32_t platformType, Factory factory) {
    tiv::MutexLock lock(mutex_);
    factories_[platformType] = std::move(factory);
}

std::shared_ptr<PlatformInterface> PlatformRegistry::Create(uint32_t platformType) {
    Factory factory;
    {
        tiv::MutexLock lock(mutex_);
        const auto it = factories_.find(platformType);
        if (it == factories_.end()) {
            return nullptr;
        }
        factory = it->second;
    }
    return factory();
}

}  // namespace Rokt::Collect::Platform
