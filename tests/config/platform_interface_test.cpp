// Tests of the base class of platform overrides, its feature numbers and its registry.
#include "config/platform_interface.h"

#include "config/feature_table.h"
#include "support/recorded_log_test.h"

namespace Rokt::Collect::Platform {

class BasePlatform : public tiv::test::RecordedLogTest {};

namespace {

// Supports every metrics.
class FullPlatform : public PlatformInterface {
 public:
    FullPlatform() { supportedFeatures = {8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18}; }
};

// Supports two metrics and brings its own list for one of them.
class SmallPlatform : public PlatformInterface {
 public:
    SmallPlatform() { supportedFeatures = {15, 16}; }
    std::string GetScalarRatio() override { return "0x1"; }
};

// The list of a platform that supports everything, or "refused".
std::string EventsOf(const std::string& name) {
    FullPlatform platform;
    std::string events;
    return platform.GetMetricsEvents(name, events) == 0 ? events : "refused";
}

uint32_t FeatureOf(const std::string& name) {
    uint32_t feature = 0;
    return FeatureOfName(name, feature) ? feature : 9999;
}

}  // namespace

TEST_F(BasePlatform, UnknownNameHasType0AndIsRefused) {
    PlatformInterface platform;
    std::string events = "preset";

    EXPECT_EQ(platform.GetMetricsType("Nope"), 0U);
    EXPECT_FALSE(platform.FeatureIsSupport(0));
    EXPECT_EQ(platform.GetMetricsEvents("Nope", events), -1);
    EXPECT_EQ(events, "preset");
}

TEST_F(BasePlatform, NoMetricsIsSupportedWithoutFeatures) {
    PlatformInterface platform;
    std::string events = "preset";

    for (const char* name :
         {"L2Cache", "ArithmeticUtilization", "PipeUtilization", "PipelineExecuteUtilization",
          "PipeUtilizationExct", "ResourceConflictRatio", "PipeStallCycle", "ScalarRatio", "Memory",
          "MemoryL0", "MemoryUB"}) {
        EXPECT_EQ(platform.GetMetricsEvents(name, events), -1) << name;
    }
    EXPECT_EQ(events, "preset");
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(BasePlatform, NineListsAreThoseOfTheCommonTable) {
    EXPECT_EQ(EventsOf("ArithmeticUtilization"), "0x49,0x4a,0x4b,0x4c,0x4d,0x4e,0x4f");
    EXPECT_EQ(EventsOf("PipeUtilization"), "0x8,0xa,0x9,0xb,0xc,0xd,0x54,0x55");
    EXPECT_EQ(EventsOf("PipeUtilizationExct"), "0x416,0x417,0x9,0x302,0xc,0x303,0x54,0x55");
    EXPECT_EQ(EventsOf("PipelineExecuteUtilization"), "0x12c,0x49,0x4a,0x9,0x302,0xc,0xd,0x303");
    EXPECT_EQ(EventsOf("Memory"), "0x15,0x16,0x31,0x32,0xf,0x10,0x12,0x13");
    EXPECT_EQ(EventsOf("MemoryL0"), "0x1b,0x1c,0x21,0x22,0x27,0x28,0x29,0x2a");
    EXPECT_EQ(EventsOf("ResourceConflictRatio"), "0x64,0x65,0x66");
    EXPECT_EQ(EventsOf("MemoryUB"), "0x10,0x13,0x37,0x38,0x3d,0x3e,0x43,0x44");
    EXPECT_EQ(EventsOf("L2Cache"), "0x500,0x502,0x504,0x506,0x508,0x50a");
}

TEST_F(BasePlatform, TwoListsAreItsOwn) {
    EXPECT_EQ(EventsOf("PipeStallCycle"), "0x12c,0x49,0x4a,0x9,0x302,0xc,0xd,0x303");
    EXPECT_EQ(EventsOf("ScalarRatio"), "");
}

TEST_F(BasePlatform, OtherOperations) {
    PlatformInterface platform;

    EXPECT_EQ(platform.GetEvents0(), "");
    EXPECT_EQ(platform.GetEvents1(), "");
    EXPECT_EQ(platform.GetEvents2(), "");
    EXPECT_EQ(platform.GetL2CacheEvents(), "0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D");
}

TEST_F(BasePlatform, OverrideIsReachedByNumber) {
    SmallPlatform platform;
    PlatformInterface& base = platform;
    std::string events;

    EXPECT_EQ(base.GetMetricsEventsByType(15), "0x1");
    EXPECT_EQ(base.GetMetricsEvents("ScalarRatio", events), 0);
    EXPECT_EQ(events, "0x1");
}

TEST_F(BasePlatform, OnlySupportedMetricsAreAnswered) {
    SmallPlatform platform;
    std::string events;

    EXPECT_EQ(platform.GetMetricsEvents("Memory", events), 0);
    EXPECT_EQ(platform.GetMetricsEvents("MemoryL0", events), -1);

    EXPECT_EQ(events, "0x15,0x16,0x31,0x32,0xf,0x10,0x12,0x13");
}

TEST_F(BasePlatform, UnknownNumberGivesAnEmptyListAndAnError) {
    PlatformInterface platform;

    EXPECT_EQ(platform.GetMetricsEventsByType(7), "");
    EXPECT_EQ(platform.GetMetricsEventsByType(19), "");

    const std::vector<std::string> errors = {"Failed to find [7] metrics function",
                                             "Failed to find [19] metrics function"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST(FeatureTable, MetricsNumbers) {
    EXPECT_EQ(MetricsFeatureOf("L2Cache"), 8U);
    EXPECT_EQ(MetricsFeatureOf("ArithmeticUtilization"), 9U);
    EXPECT_EQ(MetricsFeatureOf("PipeUtilization"), 10U);
    EXPECT_EQ(MetricsFeatureOf("PipelineExecuteUtilization"), 11U);
    EXPECT_EQ(MetricsFeatureOf("PipeUtilizationExct"), 12U);
    EXPECT_EQ(MetricsFeatureOf("ResourceConflictRatio"), 13U);
    EXPECT_EQ(MetricsFeatureOf("PipeStallCycle"), 14U);
    EXPECT_EQ(MetricsFeatureOf("ScalarRatio"), 15U);
    EXPECT_EQ(MetricsFeatureOf("Memory"), 16U);
    EXPECT_EQ(MetricsFeatureOf("MemoryL0"), 17U);
    EXPECT_EQ(MetricsFeatureOf("MemoryUB"), 18U);
    EXPECT_EQ(MetricsFeatureOf("task_trace"), 0U);
}

TEST(FeatureTable, SwitchNumbers) {
    EXPECT_EQ(FeatureOf("switch"), 1U);
    EXPECT_EQ(FeatureOf("velmarcl"), 2U);
    EXPECT_EQ(FeatureOf("aicpu"), 5U);
    EXPECT_EQ(FeatureOf("vmcl"), 6U);
    EXPECT_EQ(FeatureOf("l2"), 7U);
    EXPECT_EQ(FeatureOf("fwk_schedule"), 28U);
    EXPECT_EQ(FeatureOf("task_trace"), 29U);
    EXPECT_EQ(FeatureOf("zelnartx"), 30U);
    EXPECT_EQ(FeatureOf("runtime_api"), 31U);
    EXPECT_EQ(FeatureOf("training_trace"), 33U);
    EXPECT_EQ(FeatureOf("instr_profiling"), 48U);
}

TEST(FeatureTable, MetricsNamesAreFeaturesTooAndOthersAreNot) {
    EXPECT_EQ(FeatureOf("MemoryUB"), 18U);
    EXPECT_EQ(FeatureOf("nope"), 9999U);
    EXPECT_EQ(FeatureOf(""), 9999U);
}

TEST(FeatureTable, UnknownNameLeavesTheNumberAlone) {
    uint32_t feature = 77;

    EXPECT_FALSE(FeatureOfName("nope", feature));

    EXPECT_EQ(feature, 77U);
}

TEST(FeatureTable, FourteenDataTypeBits) {
    const std::map<uint64_t, uint32_t> expected = {
        {0x1, 2},    {0x2, 29},   {0x800, 29},     {0x2000, 29}, {0x4, 32},
        {0x8, 5},    {0x10, 7},   {0x20, 6},       {0x40, 33},   {0x80, 30},
        {0x100, 31}, {0x200, 28}, {0x1000000, 28}, {0x1000, 34},
    };

    std::map<uint64_t, uint32_t> rows;
    for (const DataTypeFeature& row : DATA_TYPE_FEATURES) {
        rows[row.dataType] = row.feature;
    }

    EXPECT_EQ(rows, expected);
}

TEST(PlatformRegistryTest, EmptyRegistryHasNoOverride) {
    PlatformRegistry registry;

    EXPECT_EQ(registry.Create(0), nullptr);
    EXPECT_EQ(registry.Create(5), nullptr);
}

TEST(PlatformRegistryTest, FactoryOfTheTypeMakesANewOverrideEachTime) {
    PlatformRegistry registry;
    registry.Register(5, [] { return std::make_shared<SmallPlatform>(); });

    const auto first = registry.Create(5);
    const auto second = registry.Create(5);

    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->FeatureIsSupport(15));
    EXPECT_NE(first, second);
    EXPECT_EQ(registry.Create(7), nullptr);
}

TEST(PlatformRegistryTest, SecondFactoryOfATypeReplacesTheFirst) {
    PlatformRegistry registry;
    registry.Register(5, [] { return std::make_shared<SmallPlatform>(); });
    registry.Register(5, [] { return std::make_shared<FullPlatform>(); });

    EXPECT_TRUE(registry.Create(5)->FeatureIsSupport(8));
}

}  // namespace Rokt::Collect::Platform
