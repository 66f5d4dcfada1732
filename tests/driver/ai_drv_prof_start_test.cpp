// Tests of the start operations: the records byte for byte, and what they say.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ostream>

#include "driver/ai_drv_prof_api.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"

namespace analysis::rokt::driver {
namespace {

using analysis::rokt::message::ProfileParams;
using tiv::test::DriverStart;
using tiv::test::FakeDriver;
using tiv::test::RecordedLog;
using Words = std::vector<uint32_t>;
using Events = std::vector<std::string>;

FakeDriver& Driver() { return FakeDriver::Instance(); }

RecordedLog& Log() { return RecordedLog::Instance(); }

DriverStart LastStart() { return Driver().Starts().back(); }

Words WordsOf(const std::string& record) {
    Words words(record.size() / sizeof(uint32_t));
    memcpy(words.data(), record.data(), words.size() * sizeof(uint32_t));
    return words;
}

Words LastWords() { return WordsOf(LastStart().userData); }

DrvPeripheralProfileCfg Config() {
    DrvPeripheralProfileCfg cfg;
    cfg.profDeviceId = 3;
    cfg.profChannel = 43;
    cfg.profSamplePeriod = 20;
    cfg.profSamplePeriodSecond = 30;
    cfg.cfgMode = 5;
    cfg.cfgType = 6;
    return cfg;
}

const Events EIGHT_EVENTS = {"0x1", "2", "0xa", "B", "0x10", "ff", "0x100", "0xFFFFFFFF"};
const Events NINE_EVENTS = {"1", "2", "3", "4", "5", "6", "7", "8", "9"};

class DrvStart : public testing::Test {
 protected:
    DrvStart() { unsetenv("PROFILING_MODE"); }
};

class DrvStartDynamic : public testing::Test {
 protected:
    DrvStartDynamic() { setenv("PROFILING_MODE", "dynamic", 1); }
};

// --- the configuration ---

TEST(DrvPeripheralProfileCfg, StartsWithoutDeviceAndWithZeros) {
    const DrvPeripheralProfileCfg cfg;

    EXPECT_EQ(cfg.profDeviceId, -1);
    EXPECT_EQ(cfg.profSamplePeriod, 0);
    EXPECT_EQ(cfg.profSamplePeriodSecond, 0);
    EXPECT_EQ(cfg.profChannel, 0U);
    EXPECT_EQ(cfg.configBuffer, nullptr);
    EXPECT_EQ(cfg.configSize, 0U);
    EXPECT_EQ(cfg.cfgMode, 0U);
    EXPECT_EQ(cfg.cfgType, 0U);
    EXPECT_EQ(cfg.threshold, 0U);
    EXPECT_EQ(cfg.reserved, 0U);
    EXPECT_EQ(cfg.profDataFilePath, "");
    EXPECT_EQ(cfg.profDataFile, "");
}

// --- peripheral ---

TEST_F(DrvStart, PeripheralHandsTheJobsRecordOver) {
    DrvPeripheralProfileCfg cfg = Config();
    Words record = {100, 1};
    cfg.configBuffer = record.data();
    cfg.configSize = 8;

    EXPECT_EQ(DrvPeripheralStart(cfg), 0);

    const DriverStart start = LastStart();
    EXPECT_EQ(start.devId, 3U);
    EXPECT_EQ(start.channelId, 43U);
    EXPECT_EQ(start.para.channelType, 1U);
    EXPECT_EQ(start.para.samplePeriod, 20U);
    EXPECT_EQ(start.para.realTime, 1U);
    EXPECT_EQ(start.para.userData, record.data());
    EXPECT_EQ(start.para.userDataSize, 8U);
    EXPECT_EQ(WordsOf(start.userData), record);
}

TEST_F(DrvStart, PeripheralSaysBeginAndSucceeded) {
    EXPECT_EQ(DrvPeripheralStart(Config()), 0);

    EXPECT_EQ(Log().Texts('V'),
              (Events{"Begin to start profiling DrvPeripheralStart, profDeviceId=3, "
                      "profChannel=43, profSamplePeriod=20ms",
                      "Succeeded to start profiling DrvPeripheralStart, profDeviceId=3, "
                      "profChannel=43, profSamplePeriod=20ms"}));
    EXPECT_EQ(Log().CountOf('E'), 0U);
}

TEST_F(DrvStart, PeripheralSaysWhatTheDriverRefused) {
    Driver().calls.Return("prof_drv_start", 5);

    EXPECT_EQ(DrvPeripheralStart(Config()), -1);

    EXPECT_TRUE(Log().Has('E',
                          "Failed to start profiling DrvPeripheralStart, profDeviceId=3, "
                          "profChannel=43, profSamplePeriod=20ms, ret=5"));
    EXPECT_EQ(Log().CountOf('V'), 1U);
}

TEST_F(DrvStart, PeripheralWithoutRecordGivesANullOne) {
    EXPECT_EQ(DrvPeripheralStart(Config()), 0);

    EXPECT_EQ(LastStart().para.userData, nullptr);
    EXPECT_EQ(LastStart().para.userDataSize, 0U);
}

// --- ts CPU ---

TEST_F(DrvStart, TsCpuRecordIsPeriodCountAndEvents) {
    EXPECT_EQ(DrvTsCpuStart(Config(), {"0x11", "8"}), 0);

    EXPECT_EQ(LastWords(), (Words{20, 2, 0x11, 8}));
    EXPECT_EQ(LastStart().para.userDataSize, 16U);
    EXPECT_EQ(LastStart().para.channelType, 0U);
    EXPECT_EQ(LastStart().para.samplePeriod, 20U);
    EXPECT_EQ(LastStart().para.realTime, 1U);
}

TEST_F(DrvStart, TsCpuSpeaksUnderItsOwnName) {
    EXPECT_EQ(DrvTsCpuStart(Config(), {}), 0);

    EXPECT_TRUE(Log().Contains('V', "Begin to start profiling DoProfTsCpuStart"));
    EXPECT_TRUE(Log().Contains('V', "Succeeded to start profiling DoProfTsCpuStart"));
}

TEST_F(DrvStart, EventsAreCutTo32Bits) {
    EXPECT_EQ(DrvTsCpuStart(Config(), {"0x123456789"}), 0);

    EXPECT_EQ(LastWords()[2], 0x23456789U);
}

// --- AI core ---

TEST_F(DrvStart, AicoreRecordOfEightEvents) {
    EXPECT_EQ(DrvAicoreStart(Config(), {0, 2, 33}, EIGHT_EVENTS), 0);

    EXPECT_EQ(LastWords(),
              (Words{1, 0x6666, 20, 7, 8, 1, 2, 0xa, 0xb, 0x10, 0xff, 0x100, 0xFFFFFFFF, 0}));
    EXPECT_EQ(LastStart().para.userDataSize, 56U);
    EXPECT_EQ(LastStart().para.samplePeriod, 20U);
    EXPECT_EQ(LastStart().para.channelType, 0U);
}

TEST_F(DrvStartDynamic, AicoreTagIsBehindTheEvents) {
    EXPECT_EQ(DrvAicoreStart(Config(), {}, EIGHT_EVENTS), 0);

    EXPECT_EQ(LastWords()[12], 0xFFFFFFFFU);
    EXPECT_EQ(LastWords()[13], 1U);
}

TEST_F(DrvStart, AicoreCore33SetsBitOne) {
    EXPECT_EQ(DrvAicoreStart(Config(), {33}, {}), 0);

    EXPECT_EQ(LastWords()[3], 2U);
}

TEST_F(DrvStart, AicoreNegativeCoreTakesTheUnsignedRemainder) {
    EXPECT_EQ(DrvAicoreStart(Config(), {-1}, {}), 0);

    EXPECT_EQ(LastWords()[3], 0x80000000U);
}

TEST_F(DrvStart, AicoreNineEventsNeverReachTheDriver) {
    EXPECT_EQ(DrvAicoreStart(Config(), {}, NINE_EVENTS), -1);

    EXPECT_TRUE(Log().Has('E', "profiling events size over 8, event_num=9"));
    EXPECT_EQ(Driver().calls.Count("prof_drv_start"), 0U);
}

TEST_F(DrvStart, AicoreSaysItsEvents) {
    EXPECT_EQ(DrvAicoreStart(Config(), {}, {"0x8", "0xa"}), 0);

    EXPECT_TRUE(Log().Has('I', "DrvAicoreStart, period=20, event_num=2, events=0x8,0xa, tag=0"));
    EXPECT_TRUE(Log().Contains('V', "Begin to start profiling DrvAicoreStart"));
}

TEST_F(DrvStart, TaskBasedRecordHasEventsOnly) {
    EXPECT_EQ(DrvAicoreTaskBasedStart(1, 43, {"0x8", "0xa"}), 0);

    EXPECT_EQ(LastWords(), (Words{0, 0, 0, 0, 2, 8, 0xa, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(LastStart().devId, 1U);
    EXPECT_EQ(LastStart().para.samplePeriod, 0U);
    EXPECT_TRUE(Log().Has('I', "DrvAicoreTaskBasedStart, event_num=2, events=0x8,0xa, tag=0"));
    EXPECT_TRUE(Log().Contains('V', "Begin to start profiling DrvAicoreTaskBasedStart"));
}

TEST_F(DrvStart, TaskBasedNineEventsNeverReachTheDriver) {
    EXPECT_EQ(DrvAicoreTaskBasedStart(1, 43, NINE_EVENTS), -1);

    EXPECT_TRUE(Log().Has('E', "profiling events size over 8, event_num=9"));
    EXPECT_EQ(Driver().calls.Count("prof_drv_start"), 0U);
}

TEST_F(DrvStartDynamic, TaskBasedTagIsSet) {
    EXPECT_EQ(DrvAicoreTaskBasedStart(1, 43, {}), 0);

    EXPECT_EQ(LastWords()[13], 1U);
    EXPECT_TRUE(Log().Has('I', "DrvAicoreTaskBasedStart, event_num=0, events=, tag=1"));
}

// --- L2 cache ---

TEST_F(DrvStart, L2CacheRecordIsCountAndEvents) {
    EXPECT_EQ(DrvL2CacheTaskStart(1, 45, {"0x5b", "0x59", "7d"}), 0);

    EXPECT_EQ(LastWords(), (Words{3, 0x5b, 0x59, 0x7d}));
    EXPECT_EQ(LastStart().para.userDataSize, 16U);
    EXPECT_EQ(LastStart().para.samplePeriod, 0U);
    EXPECT_EQ(LastStart().channelId, 45U);
}

TEST_F(DrvStart, L2CacheSaysEachEventAndAll) {
    EXPECT_EQ(DrvL2CacheTaskStart(1, 45, {"0x5b", "59"}), 0);

    EXPECT_EQ(Log().Texts('I'), (Events{"Receice DrvL2CacheTaskEvent EventId=0, EventCode=0x5b",
                                        "Receice DrvL2CacheTaskEvent EventId=1, EventCode=0x59",
                                        "DrvL2CacheTaskStart, eventNum=2, events=0x5b,59"}));
}

TEST_F(DrvStart, RecordThatCannotBeMadeFailsInSilence) {
    const Events events(1000, "1");
    tiv::test::FailNextNewOfAtLeast(4000);
    EXPECT_EQ(DrvL2CacheTaskStart(1, 45, events), -1);
    tiv::test::FailNextNewOfAtLeast(4000);

    EXPECT_EQ(DrvTsCpuStart(Config(), events), -1);

    EXPECT_EQ(Log().CountOf('E'), 0U);
    EXPECT_EQ(Driver().calls.Count("prof_drv_start"), 0U);
}

// --- ts firmware ---

TEST_F(DrvStart, TsFwSwitchesAreOffByDefault) {
    EXPECT_EQ(DrvTsFwStart(Config(), ProfileParams()), 0);

    EXPECT_EQ(LastWords(), (Words{20, 0, 0, 0, 0, 0, 0, 0}));
    EXPECT_EQ(LastStart().para.userDataSize, 32U);
    EXPECT_EQ(LastStart().para.samplePeriod, 20U);
}

struct TsFwSwitch {
    const char* name;
    std::string ProfileParams::*field;
    size_t word;
    uint32_t value;
};

void PrintTo(const TsFwSwitch& row, std::ostream* out) { *out << row.name; }

class DrvTsFwWord : public testing::TestWithParam<TsFwSwitch> {};

TEST_P(DrvTsFwWord, IsSetByItsSwitchAlone) {
    ProfileParams params;
    params.*GetParam().field = "on";
    Words expected(8, 0);
    expected[0] = 20;
    expected[GetParam().word] = GetParam().value;

    EXPECT_EQ(DrvTsFwStart(Config(), params), 0);

    EXPECT_EQ(LastWords(), expected);
}

TEST_P(DrvTsFwWord, TakesTheExactTextOnly) {
    ProfileParams params;
    params.*GetParam().field = "ON";

    EXPECT_EQ(DrvTsFwStart(Config(), params), 0);

    EXPECT_EQ(LastWords()[GetParam().word], 0U);
}

INSTANTIATE_TEST_SUITE_P(
    AllSwitches, DrvTsFwWord,
    testing::Values(TsFwSwitch{"ts_task_track", &ProfileParams::ts_task_track, 1, 1},
                    TsFwSwitch{"ts_cpu_usage", &ProfileParams::ts_cpu_usage, 2, 1},
                    TsFwSwitch{"ai_core_status", &ProfileParams::ai_core_status, 3, 1},
                    TsFwSwitch{"ts_timeline", &ProfileParams::ts_timeline, 4, 1},
                    TsFwSwitch{"ai_vector_status", &ProfileParams::ai_vector_status, 5, 1},
                    TsFwSwitch{"ts_keypoint", &ProfileParams::ts_keypoint, 6, 1},
                    TsFwSwitch{"ts_memcpy", &ProfileParams::ts_memcpy, 7, 0x86000001},
                    TsFwSwitch{"taskTsfw", &ProfileParams::taskTsfw, 7, 0x81000001}),
    [](const testing::TestParamInfo<TsFwSwitch>& row) { return std::string(row.param.name); });

TEST_F(DrvStart, TsFwMemCpyJoinsBothSwitches) {
    ProfileParams params;
    params.ts_memcpy = "on";
    params.taskTsfw = "on";

    EXPECT_EQ(DrvTsFwStart(Config(), params), 0);

    EXPECT_EQ(LastWords()[7], 0x87000001U);
}

// --- stars ---

TEST_F(DrvStart, StarsTaskSwitchSetsTwoWords) {
    ProfileParams params;
    params.stars_acsq_task = "on";

    EXPECT_EQ(DrvStarsSocLogStart(Config(), params), 0);

    EXPECT_EQ(LastWords(), (Words{1, 0, 0, 0, 0, 0, 1, 0, 0, 0}));
    EXPECT_EQ(LastStart().para.userDataSize, 40U);
    EXPECT_EQ(LastStart().para.samplePeriod, 20U);
}

TEST_F(DrvStart, StarsBlockSwitchSetsItsWord) {
    ProfileParams params;
    params.taskBlock = "on";

    EXPECT_EQ(DrvStarsSocLogStart(Config(), params), 0);

    EXPECT_EQ(LastWords(), (Words{0, 0, 0, 0, 0, 0, 0, 1, 0, 0}));
}

TEST_F(DrvStartDynamic, StarsTagIsTheLastWord) {
    EXPECT_EQ(DrvStarsSocLogStart(Config(), ProfileParams()), 0);

    EXPECT_EQ(LastWords(), (Words{0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
}

// --- ffts ---

FftsRecord LastFfts() {
    FftsRecord record{};
    memcpy(&record, LastStart().userData.data(), sizeof(record));
    return record;
}

TEST_F(DrvStart, FftsRecordHoldsBothSubRecords) {
    EXPECT_EQ(DrvFftsProfileStart(Config(), {0, 1}, {"0x8"}, {34}, {"0x9", "0x1FFFE"}), 0);

    // Events are two to a word, the first in the lower half.
    EXPECT_EQ(LastWords(), (Words{5,                                 // mode
                                  6, 20, 3, 1, 0x8, 0, 0, 0,         // AI core
                                  6, 30, 4, 2, 0xFFFE0009, 0, 0, 0,  // AI vector core
                                  0}));
    EXPECT_EQ(LastStart().para.userDataSize, 72U);
    EXPECT_EQ(LastStart().para.samplePeriod, 0U);
}

TEST_F(DrvStart, FftsSaysWhatItPacks) {
    EXPECT_EQ(DrvFftsProfileStart(Config(), {}, {"0x8", "0x9"}, {}, {}), 0);

    EXPECT_EQ(Log().Texts('I'),
              (Events{"DrvPackPmuParam, mode:0, period=20, event_num=2, events=0x8,0x9",
                      "DrvPackPmuParam, mode:1, period=30, event_num=0, events=",
                      "DrvFftsProfileStart : cfgMode=5, tag=0"}));
}

TEST_F(DrvStartDynamic, FftsTagIsTheLastWord) {
    EXPECT_EQ(DrvFftsProfileStart(Config(), {}, EIGHT_EVENTS, {}, EIGHT_EVENTS), 0);

    EXPECT_EQ(LastFfts().tag, 1U);
    EXPECT_EQ(LastFfts().pmu[1].eventNum, 8U);
    EXPECT_EQ(LastFfts().pmu[1].event[7], 0xFFFFU);
}

TEST_F(DrvStart, FftsEventsBeyondTheRoomAreLeftOut) {
    EXPECT_EQ(DrvFftsProfileStart(Config(), {}, NINE_EVENTS, {}, {}), 0);

    EXPECT_EQ(LastFfts().pmu[0].eventNum, 8U);
    EXPECT_EQ(LastFfts().pmu[1].type, 6U);
}

// --- single words ---

TEST_F(DrvStart, InstrRecordIsThePeriod) {
    EXPECT_EQ(DrvInstrProfileStart(2, 50, 1000), 0);

    EXPECT_EQ(LastWords(), (Words{1000}));
    EXPECT_EQ(LastStart().para.userDataSize, 4U);
    EXPECT_EQ(LastStart().para.samplePeriod, 0U);
    EXPECT_TRUE(Log().Contains('V', "Begin to start profiling DrvInstrProfileStart"));
}

TEST_F(DrvStart, HwtsRecordIsTheTag) {
    EXPECT_EQ(DrvHwtsLogStart(2, 51), 0);

    EXPECT_EQ(LastWords(), (Words{0}));
    EXPECT_EQ(LastStart().para.userDataSize, 4U);
    EXPECT_TRUE(Log().Has('V',
                          "Begin to start profiling DrvHwtsLogStart, profDeviceId=2, "
                          "profChannel=51, profSamplePeriod=0ms"));
}

TEST_F(DrvStartDynamic, HwtsTagIsSet) {
    EXPECT_EQ(DrvHwtsLogStart(2, 51), 0);

    EXPECT_EQ(LastWords(), (Words{1}));
}

TEST_F(DrvStart, HwtsTagNeedsTheWholeValue) {
    setenv("PROFILING_MODE", "dynamically", 1);

    EXPECT_EQ(DrvHwtsLogStart(2, 51), 0);

    EXPECT_EQ(LastWords(), (Words{0}));
}

TEST_F(DrvStartDynamic, FmkRecordIsZeroAlways) {
    EXPECT_EQ(DrvFmkDataStart(2, 52), 0);

    EXPECT_EQ(LastWords(), (Words{0}));
    EXPECT_EQ(LastStart().channelId, 52U);
    EXPECT_EQ(LastStart().para.samplePeriod, 0U);
    EXPECT_TRUE(Log().Has('V',
                          "Begin to start profiling DrvFmkDataStart, profDeviceId=2, "
                          "profChannel=52, profSamplePeriod=0ms"));
}

// --- start parameters and refusals of the driver, for every operation ---

struct StartCase {
    const char* name;
    int (*start)();
    uint32_t channelType;
    uint32_t period;  // of the start parameters
    uint32_t bytes;   // of the record
};

void PrintTo(const StartCase& row, std::ostream* out) { *out << row.name; }

class DrvEveryStart : public testing::TestWithParam<StartCase> {};

TEST_P(DrvEveryStart, TellsTypePeriodAndSize) {
    EXPECT_EQ(GetParam().start(), 0);

    const ProfStartPara para = LastStart().para;
    EXPECT_EQ(para.channelType, GetParam().channelType);
    EXPECT_EQ(para.samplePeriod, GetParam().period);
    EXPECT_EQ(para.realTime, 1U);
    EXPECT_EQ(para.userDataSize, GetParam().bytes);
    EXPECT_EQ(Log().CountOf('V'), 2U);
    EXPECT_TRUE(Log().Contains('V', "Begin to start profiling " + std::string(GetParam().name)));
    EXPECT_TRUE(
        Log().Contains('V', "Succeeded to start profiling " + std::string(GetParam().name)));
}

TEST_P(DrvEveryStart, FailsWithItsNameAndTheCode) {
    Driver().calls.Return("prof_drv_start", 17);

    EXPECT_EQ(GetParam().start(), -1);

    EXPECT_TRUE(
        Log().Contains('E', "Failed to start profiling " + std::string(GetParam().name) + ","));
    EXPECT_TRUE(Log().Contains('E', "ret=17"));
    EXPECT_FALSE(Log().Contains('V', "Succeeded to start profiling"));
}

INSTANTIATE_TEST_SUITE_P(
    AllStarts, DrvEveryStart,
    testing::Values(
        StartCase{"DrvPeripheralStart", [] { return DrvPeripheralStart(Config()); }, 1, 20, 0},
        StartCase{"DoProfTsCpuStart", [] { return DrvTsCpuStart(Config(), {}); }, 0, 20, 8},
        StartCase{"DrvAicoreStart", [] { return DrvAicoreStart(Config(), {}, {}); }, 0, 20, 56},
        StartCase{"DrvAicoreTaskBasedStart", [] { return DrvAicoreTaskBasedStart(0, 1, {}); }, 0, 0,
                  56},
        StartCase{"DrvL2CacheTaskStart", [] { return DrvL2CacheTaskStart(0, 1, {}); }, 0, 0, 4},
        StartCase{"DrvTsFwStart", [] { return DrvTsFwStart(Config(), ProfileParams()); }, 0, 20,
                  32},
        StartCase{"DrvStarsSocLogStart",
                  [] { return DrvStarsSocLogStart(Config(), ProfileParams()); }, 0, 20, 40},
        StartCase{"DrvFftsProfileStart",
                  [] { return DrvFftsProfileStart(Config(), {}, {}, {}, {}); }, 0, 0, 72},
        StartCase{"DrvInstrProfileStart", [] { return DrvInstrProfileStart(0, 1, 1); }, 0, 0, 4},
        StartCase{"DrvHwtsLogStart", [] { return DrvHwtsLogStart(0, 1); }, 0, 0, 4},
        StartCase{"DrvFmkDataStart", [] { return DrvFmkDataStart(0, 1); }, 0, 0, 4}),
    [](const testing::TestParamInfo<StartCase>& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace analysis::rokt::driver
