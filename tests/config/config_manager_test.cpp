// Tests of the platform type and of the tables of frequencies and directories.
#include "config/config_manager.h"

#include "config/chip_fixture.h"
#include "message/prof_params.h"

namespace Analysis::Rokt::Common::Config {

class ConfigManagerChip : public tiv::test::ChipTest {};
class ConfigManagerL2 : public tiv::test::ChipTest {};

namespace {

struct Frequencies {
    std::string frequency;
    std::string aiCoreFrequency;

    bool operator==(const Frequencies& other) const {
        return frequency == other.frequency && aiCoreFrequency == other.aiCoreFrequency;
    }
};

Frequencies FrequenciesOf(const ConfigManager& manager) {
    return {manager.GetFrequency(), manager.GetAiCoreFrequency()};
}

std::shared_ptr<analysis::rokt::message::ProfileParams> ParamsWithL2(const std::string& value) {
    auto params = std::make_shared<analysis::rokt::message::ProfileParams>();
    params->l2CacheTaskProfiling = value;
    params->l2CacheTaskProfilingEvents = "preset";
    return params;
}

}  // namespace

TEST_F(ConfigManagerChip, Chip2Version5IsType10) {
    const ConfigManager manager = ManagerOf(0x0205);

    EXPECT_EQ(manager.GetPlatformType(), 10U);
    EXPECT_EQ(manager.GetChipIdStr(), "10");
    EXPECT_EQ(FrequenciesOf(manager), (Frequencies{"48", "1250"}));
}

TEST_F(ConfigManagerChip, Chip2WithAnyOtherVersionIsType2) {
    EXPECT_EQ(ManagerOf(0x0204).GetPlatformType(), 2U);
    EXPECT_EQ(ManagerOf(0x0206).GetPlatformType(), 2U);
}

TEST_F(ConfigManagerChip, Version5OfAnotherChipIsNoType10) {
    EXPECT_EQ(ManagerOf(0x0105).GetPlatformType(), 1U);
}

TEST_F(ConfigManagerChip, Chip8IsType7) {
    EXPECT_EQ(ManagerOf(0x0800).GetPlatformType(), 7U);
    EXPECT_EQ(ManagerOf(0x0700).GetPlatformType(), 7U);
}

TEST_F(ConfigManagerChip, OnlyBits0To15Count) {
    EXPECT_EQ(ManagerOf(0x7FFF00000000FF).GetPlatformType(), 0U);
    EXPECT_EQ(ManagerOf(0x110205).GetPlatformType(), 10U);
}

TEST_F(ConfigManagerChip, DriverIsAskedOnceForDevice0) {
    driver.calls.ClearCalls();

    const ConfigManager manager;

    const auto calls = driver.calls.Calls("halGetDeviceInfo");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].arguments[0].value, 0);
    EXPECT_EQ(calls[0].arguments[1].value, 0);
    EXPECT_EQ(calls[0].arguments[2].value, 1);
}

TEST_F(ConfigManagerChip, ReadChipIsToldAtDebugLevel) {
    const ConfigManager manager = ManagerOf(0x0800);

    EXPECT_EQ(log.Texts('D'), std::vector<std::string>{"halGetDeviceInfo get chip id : 7"});
}

TEST_F(ConfigManagerChip, FrequenciesByType) {
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0000)), (Frequencies{"19.2", "680"}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0100)), (Frequencies{"100", "800"}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0200)), (Frequencies{"38.4", "960"}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0400)), (Frequencies{"38.4", "1150"}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0500)), (Frequencies{"50", "800"}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0700)), (Frequencies{"48", "1250"}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0A00)), (Frequencies{"48", "1250"}));
}

TEST_F(ConfigManagerChip, TypesWithoutARowHaveEmptyFrequencies) {
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0900)), (Frequencies{"", ""}));
    EXPECT_EQ(FrequenciesOf(ManagerOf(0x0300)), (Frequencies{"", ""}));
    EXPECT_EQ(ManagerOf(0x0900).GetPlatformType(), 9U);
}

TEST_F(ConfigManagerChip, DriverWithoutTheQueryIsAHelperDevice) {
    driver.calls.Return("halGetDeviceInfo", 65534);

    const ConfigManager manager;

    EXPECT_EQ(manager.GetPlatformType(), static_cast<uint32_t>(PlatformType::HELPER_DEVICE_TYPE));
    EXPECT_EQ(FrequenciesOf(manager), (Frequencies{"38.4", "960"}));
    EXPECT_EQ(log.Texts('W'),
              std::vector<std::string>{
                  "Driver doesn't support device type version by halGetDeviceInfo interface, "
                  "ret=65534, set PlatformType::HELPER_DEVICE_TYPE"});
    EXPECT_TRUE(log.Has('D', "halGetDeviceInfo get chip id : 2"));
}

TEST_F(ConfigManagerChip, FailedReadGivesTheAbsentValues) {
    driver.calls.Return("halGetDeviceInfo", 1);

    const ConfigManager manager;

    EXPECT_EQ(manager.GetPlatformType(), 0U);
    EXPECT_EQ(manager.GetChipIdStr(), "0");
    EXPECT_EQ(FrequenciesOf(manager), (Frequencies{"", ""}));
    EXPECT_EQ(log.Texts('E'),
              std::vector<std::string>{"halGetDeviceInfo get device type version failed , ret:1"});
    EXPECT_TRUE(log.Texts('D').empty());
}

TEST_F(ConfigManagerChip, SecondInitAsksNobody) {
    ConfigManager manager = ManagerOf(0x0500);
    log.Clear();
    driver.SetDeviceInfo(0, 1, 0x0700);

    manager.Init();

    EXPECT_EQ(manager.GetPlatformType(), 5U);
    EXPECT_EQ(log.Texts('D'), std::vector<std::string>{"ConfigManager has been inited"});
}

TEST_F(ConfigManagerChip, InitAfterUninitReadsAgain) {
    ConfigManager manager = ManagerOf(0x0500);
    driver.SetDeviceInfo(0, 1, 0x0900);

    manager.Uninit();
    manager.Init();

    EXPECT_EQ(manager.GetPlatformType(), 9U);
    EXPECT_EQ(FrequenciesOf(manager), (Frequencies{"", ""}));
}

TEST_F(ConfigManagerChip, LlcIsSupportedOnSixTypes) {
    EXPECT_TRUE(ManagerOf(0x0100).IsDriverSupportLlc());
    EXPECT_TRUE(ManagerOf(0x0200).IsDriverSupportLlc());
    EXPECT_TRUE(ManagerOf(0x0400).IsDriverSupportLlc());
    EXPECT_TRUE(ManagerOf(0x0500).IsDriverSupportLlc());
    EXPECT_TRUE(ManagerOf(0x0700).IsDriverSupportLlc());
    EXPECT_TRUE(ManagerOf(0x0A00).IsDriverSupportLlc());
}

TEST_F(ConfigManagerChip, LlcIsNotSupportedElsewhere) {
    EXPECT_FALSE(ManagerOf(0x0000).IsDriverSupportLlc());
    EXPECT_FALSE(ManagerOf(0x0900).IsDriverSupportLlc());
    EXPECT_FALSE(ManagerOf(0x0300).IsDriverSupportLlc());
}

TEST_F(ConfigManagerChip, OnlyTheInotifyDirectoryEndsInASlash) {
    const ConfigManager manager;

    EXPECT_EQ(manager.GetPerfDataDir(3), "/var/log/npu/profiling/3");
    EXPECT_EQ(manager.GetPerfDataDir(63), "/var/log/npu/profiling/63");
    EXPECT_EQ(manager.GetInotifyDir(), "/var/log/npu/profiling/");
}

TEST_F(ConfigManagerL2, EventsByType) {
    const std::string allocate = "0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D";
    std::string events;

    EXPECT_EQ(ManagerOf(0x0100).GetL2CacheEvents(events), 0);
    EXPECT_EQ(events, "0x5b,0x59,0x5c,0x7d,0x7e,0x71,0x79,0x7c");
    EXPECT_EQ(ManagerOf(0x0200).GetL2CacheEvents(events), 0);
    EXPECT_EQ(events, "0x78,0x79,0x77,0x71,0x6a,0x6c,0x74,0x62");
    events.clear();
    EXPECT_EQ(ManagerOf(0x0400).GetL2CacheEvents(events), 0);
    EXPECT_EQ(events, "0x78,0x79,0x77,0x71,0x6a,0x6c,0x74,0x62");
    EXPECT_EQ(ManagerOf(0x0500).GetL2CacheEvents(events), 0);
    EXPECT_EQ(events, allocate);
    events.clear();
    EXPECT_EQ(ManagerOf(0x0700).GetL2CacheEvents(events), 0);
    EXPECT_EQ(events, allocate);
    events.clear();
    EXPECT_EQ(ManagerOf(0x0A00).GetL2CacheEvents(events), 0);
    EXPECT_EQ(events, allocate);
}

TEST_F(ConfigManagerL2, TypesWithoutASetGiveAnError) {
    std::string events = "preset";

    EXPECT_EQ(ManagerOf(0x0000).GetL2CacheEvents(events), -1);
    EXPECT_EQ(ManagerOf(0x0900).GetL2CacheEvents(events), -1);

    EXPECT_EQ(events, "preset");
    const std::vector<std::string> errors = {"Invalid platform type 0 for l2 cache",
                                             "Invalid platform type 9 for l2 cache"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(ConfigManagerL2, JobThatAskedGetsTheEvents) {
    const auto params = ParamsWithL2("on");

    ManagerOf(0x0500).HandleL2CacheParams(params);

    EXPECT_EQ(params->l2CacheTaskProfiling, "on");
    EXPECT_EQ(params->l2CacheTaskProfilingEvents, "0xF6,0xFB,0xFC,0xBF,0x90,0x91,0x9C,0x9D");
}

TEST_F(ConfigManagerL2, JobThatDidNotAskIsLeftAlone) {
    const auto params = ParamsWithL2("ON");

    ManagerOf(0x0500).HandleL2CacheParams(params);

    EXPECT_EQ(params->l2CacheTaskProfiling, "ON");
    EXPECT_EQ(params->l2CacheTaskProfilingEvents, "preset");
}

TEST_F(ConfigManagerL2, PlatformWithoutTheFeatureSwitchesItOff) {
    const auto params = ParamsWithL2("on");

    ManagerOf(0x0900).HandleL2CacheParams(params);

    EXPECT_EQ(params->l2CacheTaskProfiling, "off");
    EXPECT_EQ(log.Texts('W'),
              std::vector<std::string>{"The platform is invalid for l2 cache, l2 cache data will "
                                       "not be collected"});
}

TEST_F(ConfigManagerL2, NoRecordIsLeftAlone) {
    ManagerOf(0x0900).HandleL2CacheParams(nullptr);

    EXPECT_TRUE(log.Texts('E').empty());
}

}  // namespace Analysis::Rokt::Common::Config
