// The event lists of metrics and L2 cache sets, and which platform may use them.
#include "config/config_manager.h"
#include "platform/log.h"

namespace Analysis::Rokt::Common::Config {

namespace {

constexpr std::size_t MAX_METRICS_NAME_LEN = 70;

struct NamedEvents {
    const char* name;
    const char* events;
};

constexpr NamedEvents METRICS[] = {
    {"ArithmeticUtilization", "0x49,0x4a,0x4b,0x4c,0x4d,0x4e,0x4f"},
    {"PipeUtilization", "0x8,0xa,0x9,0xb,0xc,0xd,0x54,0x55"},
    {"PipeUtilizationExct", "0x416,0x417,0x9,0x302,0xc,0x303,0x54,0x55"},
    {"PipelineExecuteUtilization", "0x12c,0x49,0x4a,0x9,0x302,0xc,0xd,0x303"},
    {"Memory", "0x15,0x16,0x31,0x32,0xf,0x10,0x12,0x13"},
    {"MemoryL0", "0x1b,0x1c,0x21,0x22,0x27,0x28,0x29,0x2a"},
    {"ResourceConflictRatio", "0x64,0x65,0x66"},
    {"MemoryUB", "0x10,0x13,0x37,0x38,0x3d,0x3e,0x43,0x44"},
    {"L2Cache", "0x500,0x502,0x504,0x506,0x508,0x50a"},
    {"PipeStallCycle", "0x406,0x305,0x600,0x601,0x602,0x603,0x604,0x605,0x606,0x607"},
    {"ScalarRatio", "0x103,0x104,0x105"},
};

constexpr NamedEvents L2_CACHE_SETS[] = {
    {"HitRateAndVictimRate", "0x78,0x79,0x77,0x71,0x6a,0x6c,0x74,0x62"},
    {"HitRateAndVictimRateCloud", "0x5b,0x59,0x5c,0x7d,0x7e,0x71,0x79,0x7c"},
    {"HitRateAndVictimRateAllocate", "0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D"},
};

struct L2CacheRow {
    uint32_t type;
    const char* set;
};

constexpr L2CacheRow L2_CACHE_SET_OF_TYPE[] = {
    {1, "HitRateAndVictimRateCloud"},    {2, "HitRateAndVictimRate"},
    {4, "HitRateAndVictimRate"},         {5, "HitRateAndVictimRateAllocate"},
    {7, "HitRateAndVictimRateAllocate"}, {10, "HitRateAndVictimRateAllocate"},
};

// The row's list, or null.
template <std::size_t N>
const char* FindEvents(const NamedEvents (&table)[N], const std::string& name) {
    for (const NamedEvents& row : table) {
        if (name == row.name) {
            return row.events;
        }
    }
    return nullptr;
}

const char* FindL2CacheSet(uint32_t type) {
    for (const L2CacheRow& row : L2_CACHE_SET_OF_TYPE) {
        if (row.type == type) {
            return row.set;
        }
    }
    return nullptr;
}

}  // namespace

void ConfigManager::GetUnsupportedMetrics(std::set<std::string>& unsupported) const {
    const uint32_t type = GetPlatformType();
    if (type != 7 && type != 10) {
        unsupported.insert("PipelineExecuteUtilization");
    }
    if (type == 0 || type == 1 || type == 2 || type == 4) {
        unsupported.insert("L2Cache");
    }
    if (type != 9) {
        unsupported.insert("PipeStallCycle");
        unsupported.insert("ScalarRatio");
    }
}

bool ConfigManager::CheckMetricsValid(const std::string& name) const {
    if (name.empty()) {
        TIV_LOGI("Argument aic_metrics is empty.");
        return true;
    }
    if (FindEvents(METRICS, name) == nullptr) {
        TIV_LOGE("Argument aic_metrics: invalid value: %s. Please check help message.",
                 name.c_str());
        return false;
    }
    return true;
}

void ConfigManager::GetMetricsEvents(const std::string& name, std::string& events) const {
    if (name.empty()) {
        return;
    }
    if (name.size() > MAX_METRICS_NAME_LEN) {
        TIV_LOGE("The parameter length exceeds the specified value of %d bytes.",
                 static_cast<int>(MAX_METRICS_NAME_LEN));
        return;
    }
    std::set<std::string> unsupported;
    GetUnsupportedMetrics(unsupported);
    if (unsupported.count(name) != 0) {
        TIV_LOGE("Current platform is not support %s metrics type", name.c_str());
        return;
    }
    const char* found = FindEvents(METRICS, name);
    if (found == nullptr) {
        TIV_LOGE("Invalid metrics type %s.", name.c_str());
        return;
    }
    events = found;
}

std::string ConfigManager::GetMetricsHint() {
    std::string hint = "metrics type should be in [";
    for (const NamedEvents& row : METRICS) {
        hint.append(row.name).append("|");
    }
    hint.back() = ']';
    return hint;
}

void ConfigManager::AdjustPipeUtilization(std::string& name) const {
    if (GetPlatformType() == 5 && name == "PipeUtilization") {
        name = "PipeUtilizationExct";
    }
}

int ConfigManager::GetL2CacheEvents(std::string& events) const {
    const uint32_t type = GetPlatformType();
    const char* set = FindL2CacheSet(type);
    if (set == nullptr) {
        TIV_LOGE("Invalid platform type %d for l2 cache", static_cast<int>(type));
        return -1;
    }
    const char* found = FindEvents(L2_CACHE_SETS, set);
    if (found == nullptr) {
        return -1;
    }
    events = found;
    return 0;
}

}  // namespace Analysis::Rokt::Common::Config
