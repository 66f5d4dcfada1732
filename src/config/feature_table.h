// The numbers of metrics, switches and data types in the one number space of features.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

namespace Rokt::Collect::Platform {

// The metrics among the features.
enum MetricsFeature : uint32_t {
    L2_CACHE = 8,
    ARITHMETIC_UTILIZATION = 9,
    PIPE_UTILIZATION = 10,
    PIPELINE_EXECUTE_UTILIZATION = 11,
    PIPE_UTILIZATION_EXCT = 12,
    RESOURCE_CONFLICT_RATIO = 13,
    PIPE_STALL_CYCLE = 14,
    SCALAR_RATIO = 15,
    MEMORY = 16,
    MEMORY_L0 = 17,
    MEMORY_UB = 18,
};

// One bit of a 64-bit data type mask and the feature that it needs.
struct DataTypeFeature {
    uint64_t dataType;
    uint32_t feature;
};

constexpr std::size_t DATA_TYPE_FEATURE_NUM = 14;

constexpr std::array<DataTypeFeature, DATA_TYPE_FEATURE_NUM> DATA_TYPE_FEATURES = {{
    {0x1, 2},
    {0x2, 29},
    {0x800, 29},
    {0x2000, 29},
    {0x4, 32},
    {0x8, 5},
    {0x10, 7},
    {0x20, 6},
    {0x40, 33},
    {0x80, 30},
    {0x100, 31},
    {0x200, 28},
    {0x1000000, 28},
    {0x1000, 34},
}};

// The feature number of a metrics name, 0 when it is none.
[[nodiscard]] uint32_t MetricsFeatureOf(const std::string& name);

// The feature number of a switch name or a metrics name. False, with `feature` left alone, for any
// other name.
[[nodiscard]] bool FeatureOfName(const std::string& name, uint32_t& feature);

}  // namespace Rokt::Collect::Platform
