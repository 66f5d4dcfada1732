// Tests of the metrics table and of what each platform may use of it.
#include "config/chip_fixture.h"

namespace Analysis::Rokt::Common::Config {

class Metrics : public tiv::test::ChipTest {
 protected:
    // The event list that a manager gives, or "left alone".
    static std::string EventsOf(const ConfigManager& manager, const std::string& name) {
        std::string events = "left alone";
        manager.GetMetricsEvents(name, events);
        return events;
    }
    static std::set<std::string> UnsupportedOf(const ConfigManager& manager) {
        std::set<std::string> unsupported;
        manager.GetUnsupportedMetrics(unsupported);
        return unsupported;
    }
};

using Names = std::set<std::string>;

TEST_F(Metrics, Types0To4LackFour) {
    const Names lacking = {"L2Cache", "PipeStallCycle", "PipelineExecuteUtilization",
                           "ScalarRatio"};

    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0000)), lacking);
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0100)), lacking);
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0200)), lacking);
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0400)), lacking);
}

TEST_F(Metrics, Type5LacksThree) {
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0500)),
              (Names{"PipeStallCycle", "PipelineExecuteUtilization", "ScalarRatio"}));
}

TEST_F(Metrics, Types7And10LackTwo) {
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0700)), (Names{"PipeStallCycle", "ScalarRatio"}));
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0205)), (Names{"PipeStallCycle", "ScalarRatio"}));
}

TEST_F(Metrics, Type9LacksPipelineExecuteUtilizationOnly) {
    EXPECT_EQ(UnsupportedOf(ManagerOf(0x0900)), Names{"PipelineExecuteUtilization"});
}

TEST_F(Metrics, UnsupportedNamesAreAdded) {
    std::set<std::string> unsupported = {"mine"};

    ManagerOf(0x0900).GetUnsupportedMetrics(unsupported);

    EXPECT_EQ(unsupported, (Names{"mine", "PipelineExecuteUtilization"}));
}

TEST_F(Metrics, ListsOfTenNamesOnType9) {
    const ConfigManager manager = ManagerOf(0x0900);

    EXPECT_EQ(EventsOf(manager, "ArithmeticUtilization"), "0x49,0x4a,0x4b,0x4c,0x4d,0x4e,0x4f");
    EXPECT_EQ(EventsOf(manager, "PipeUtilization"), "0x8,0xa,0x9,0xb,0xc,0xd,0x54,0x55");
    EXPECT_EQ(EventsOf(manager, "PipeUtilizationExct"),
              "0x416,0x417,0x9,0x302,0xc,0x303,0x54,0x55");
    EXPECT_EQ(EventsOf(manager, "Memory"), "0x15,0x16,0x31,0x32,0xf,0x10,0x12,0x13");
    EXPECT_EQ(EventsOf(manager, "MemoryL0"), "0x1b,0x1c,0x21,0x22,0x27,0x28,0x29,0x2a");
    EXPECT_EQ(EventsOf(manager, "ResourceConflictRatio"), "0x64,0x65,0x66");
    EXPECT_EQ(EventsOf(manager, "MemoryUB"), "0x10,0x13,0x37,0x38,0x3d,0x3e,0x43,0x44");
    EXPECT_EQ(EventsOf(manager, "L2Cache"), "0x500,0x502,0x504,0x506,0x508,0x50a");
    EXPECT_EQ(EventsOf(manager, "PipeStallCycle"),
              "0x406,0x305,0x600,0x601,0x602,0x603,0x604,0x605,0x606,0x607");
    EXPECT_EQ(EventsOf(manager, "ScalarRatio"), "0x103,0x104,0x105");
}

TEST_F(Metrics, PipelineExecuteUtilizationOnTypes7And10) {
    const std::string events = "0x12c,0x49,0x4a,0x9,0x302,0xc,0xd,0x303";

    EXPECT_EQ(EventsOf(ManagerOf(0x0700), "PipelineExecuteUtilization"), events);
    EXPECT_EQ(EventsOf(ManagerOf(0x0205), "PipelineExecuteUtilization"), events);
}

TEST_F(Metrics, EmptyNameIsLeftSilently) {
    const ConfigManager manager;
    log.Clear();

    EXPECT_EQ(EventsOf(manager, ""), "left alone");

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(Metrics, NameOf71CharactersIsRefused) {
    EXPECT_EQ(EventsOf(ConfigManager(), std::string(71, 'x')), "left alone");

    EXPECT_EQ(log.Texts('E'), std::vector<std::string>{
                                  "The parameter length exceeds the specified value of 70 bytes."});
}

TEST_F(Metrics, NameOf70CharactersIsOnlyUnknown) {
    EXPECT_EQ(EventsOf(ConfigManager(), std::string(70, 'x')), "left alone");

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"Invalid metrics type " + std::string(70, 'x') + "."});
}

TEST_F(Metrics, L2CacheIsRefusedOnType1AlthoughItHasL2Events) {
    const ConfigManager manager = ManagerOf(0x0100);
    std::string l2Events;

    EXPECT_EQ(EventsOf(manager, "L2Cache"), "left alone");
    EXPECT_EQ(manager.GetL2CacheEvents(l2Events), 0);

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"Current platform is not support L2Cache metrics type"});
    EXPECT_EQ(l2Events, "0x5b,0x59,0x5c,0x7d,0x7e,0x71,0x79,0x7c");
}

TEST_F(Metrics, HintNamesTheTableInItsOrder) {
    EXPECT_EQ(ConfigManager::GetMetricsHint(),
              "metrics type should be in [ArithmeticUtilization|PipeUtilization|"
              "PipeUtilizationExct|PipelineExecuteUtilization|Memory|MemoryL0|"
              "ResourceConflictRatio|MemoryUB|L2Cache|PipeStallCycle|ScalarRatio]");
}

TEST_F(Metrics, EmptyNameIsValid) {
    EXPECT_TRUE(ConfigManager().CheckMetricsValid(""));

    EXPECT_EQ(log.Texts('I'), std::vector<std::string>{"Argument aic_metrics is empty."});
}

TEST_F(Metrics, KnownNameIsValidWhateverThePlatform) {
    EXPECT_TRUE(ManagerOf(0x0100).CheckMetricsValid("L2Cache"));
    EXPECT_TRUE(ManagerOf(0x0100).CheckMetricsValid("ScalarRatio"));
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(Metrics, UnknownNameIsNotValid) {
    EXPECT_FALSE(ConfigManager().CheckMetricsValid("memory"));

    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{
                  "Argument aic_metrics: invalid value: memory. Please check help message."});
}

TEST_F(Metrics, PipeUtilizationIsExtendedOnType5) {
    std::string name = "PipeUtilization";

    ManagerOf(0x0500).AdjustPipeUtilization(name);

    EXPECT_EQ(name, "PipeUtilizationExct");
}

TEST_F(Metrics, OtherNamesAndOtherTypesAreNotExtended) {
    std::string memory = "Memory";
    std::string pipe = "PipeUtilization";

    ManagerOf(0x0500).AdjustPipeUtilization(memory);
    ManagerOf(0x0700).AdjustPipeUtilization(pipe);

    EXPECT_EQ(memory, "Memory");
    EXPECT_EQ(pipe, "PipeUtilization");
}

}  // namespace Analysis::Rokt::Common::Config
