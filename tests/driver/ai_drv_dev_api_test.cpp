// Tests of the questions to the driver about its devices.
#include "driver/ai_drv_dev_api.h"

#include <gtest/gtest.h>

#include <ostream>

#include "config/config_manager.h"
#include "platform/driver_api.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"

namespace analysis::rokt::driver {
namespace {

using tiv::test::Call;
using tiv::test::FakeDriver;
using tiv::test::RecordedLog;

constexpr int64_t PRESET = -77;

FakeDriver& Driver() { return FakeDriver::Instance(); }

RecordedLog& Log() { return RecordedLog::Instance(); }

Call LastInfoCall() { return Driver().calls.Calls("halGetDeviceInfo").back(); }

// --- the rows that follow one pattern ---

struct QueryRow {
    const char* name;
    int (*query)(uint32_t, int64_t*);
    int module;
    int info;
};

void PrintTo(const QueryRow& row, std::ostream* out) { *out << row.name; }

class DrvQuery : public testing::TestWithParam<QueryRow> {};

TEST_P(DrvQuery, AsksTheDriverWithItsNumbers) {
    Driver().SetDeviceInfo(GetParam().module, GetParam().info, 42);
    int64_t value = PRESET;

    EXPECT_EQ(GetParam().query(3, &value), 0);

    EXPECT_EQ(value, 42);
    EXPECT_EQ(LastInfoCall().Value("device"), 3);
    EXPECT_EQ(LastInfoCall().Value("module"), GetParam().module);
    EXPECT_EQ(LastInfoCall().Value("info"), GetParam().info);
    EXPECT_TRUE(Log().Has('I', "Succeeded to " + std::string(GetParam().name) + ", deviceId=3"));
}

TEST_P(DrvQuery, NotSupportedIsASuccessThatKeepsThePreset) {
    Driver().calls.Return("halGetDeviceInfo", DRV_NOT_SUPPORTED);
    int64_t value = PRESET;

    EXPECT_EQ(GetParam().query(3, &value), 0);

    EXPECT_EQ(value, PRESET);
    EXPECT_TRUE(Log().Has('W', "Driver doesn't support " + std::string(GetParam().name) +
                                   " by halGetDeviceInfo interface, deviceId=3, ret=65534"));
    EXPECT_EQ(Log().CountOf('E'), 0U);
}

TEST_P(DrvQuery, AnyOtherCodeIsAFailure) {
    Driver().calls.Return("halGetDeviceInfo", 7);
    int64_t value = PRESET;

    EXPECT_EQ(GetParam().query(3, &value), -1);

    EXPECT_TRUE(
        Log().Has('E', "Failed to " + std::string(GetParam().name) + ", deviceId=3, ret=7"));
}

INSTANTIATE_TEST_SUITE_P(
    AllRows, DrvQuery,
    testing::Values(QueryRow{"DrvGetEnvType", DrvGetEnvType, 0, 0},
                    QueryRow{"DrvGetCtrlCpuId", DrvGetCtrlCpuId, 2, 9},
                    QueryRow{"DrvGetCtrlCpuCoreNum", DrvGetCtrlCpuCoreNum, 2, 3},
                    QueryRow{"DrvGetCtrlCpuEndianLittle", DrvGetCtrlCpuEndianLittle, 2, 11},
                    QueryRow{"DrvGetAiCpuCoreNum", DrvGetAiCpuCoreNum, 1, 3},
                    QueryRow{"DrvGetAiCpuCoreId", DrvGetAiCpuCoreId, 1, 9},
                    QueryRow{"DrvGetAiCpuOccupyBitmap", DrvGetAiCpuOccupyBitmap, 1, 8},
                    QueryRow{"DrvGetTsCpuCoreNum", DrvGetTsCpuCoreNum, 5, 3},
                    QueryRow{"DrvGetAiCoreId", DrvGetAiCoreId, 4, 9},
                    QueryRow{"DrvGetAiCoreNum", DrvGetAiCoreNum, 4, 3}),
    [](const testing::TestParamInfo<QueryRow>& row) { return std::string(row.param.name); });

// --- device count and ids ---

TEST(DrvGetDevNum, CountOf64IsAccepted) {
    Driver().calls.Add({"drvGetDevNum", {}, 0, 1, {}, {}, 0, 64, false});

    EXPECT_EQ(DrvGetDevNum(), 64);

    EXPECT_TRUE(Log().Has('I', "Succeeded to drvGetDevNum, numDev=64"));
}

TEST(DrvGetDevNum, CountOf65IsAFailure) {
    Driver().calls.Add({"drvGetDevNum", {}, 0, 1, {}, {}, 0, 65, false});

    EXPECT_EQ(DrvGetDevNum(), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to drvGetDevNum, ret=0, num=65"));
}

TEST(DrvGetDevNum, DriverFailureIsAFailure) {
    Driver().calls.Return("drvGetDevNum", 5);

    EXPECT_EQ(DrvGetDevNum(), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to drvGetDevNum, ret=5, num=0"));
}

TEST(DrvGetDevIds, GivesTheFirstIdsInOrder) {
    Driver().SetDevices({4, 2, 9});
    std::vector<int> ids = {1};

    EXPECT_EQ(DrvGetDevIds(3, ids), 0);

    EXPECT_EQ(ids, (std::vector<int>{4, 2, 9}));
    EXPECT_TRUE(Log().Has('I', "Succeeded to drvGetDevIDs, numDevices=3"));
}

TEST(DrvGetDevIds, NumberOutsideOneTo64ClearsInSilence) {
    std::vector<int> ids = {1};
    EXPECT_EQ(DrvGetDevIds(0, ids), -1);
    EXPECT_TRUE(ids.empty());

    ids = {1};
    EXPECT_EQ(DrvGetDevIds(65, ids), -1);
    EXPECT_TRUE(ids.empty());

    EXPECT_TRUE(Log().Lines().empty());
    EXPECT_EQ(Driver().calls.Count("drvGetDevIDs"), 0U);
}

TEST(DrvGetDevIds, NumberOf64IsAsked) {
    std::vector<int> ids;

    EXPECT_EQ(DrvGetDevIds(64, ids), 0);

    EXPECT_EQ(ids.size(), 64U);
    EXPECT_EQ(Driver().calls.Calls("drvGetDevIDs").back().Value("len"), 64);
}

TEST(DrvGetDevIds, DriverFailureClears) {
    Driver().calls.Return("drvGetDevIDs", 8);
    std::vector<int> ids = {1};

    EXPECT_EQ(DrvGetDevIds(1, ids), -1);

    EXPECT_TRUE(ids.empty());
    EXPECT_TRUE(Log().Has('E', "Failed to drvGetDevIDs, ret=8"));
}

TEST(GetDevIdsStr, JoinsWithCommasAndNoneAtTheEnd) {
    Driver().SetDevices({0, 1, 2});

    EXPECT_EQ(GetDevIdsStr(), "0,1,2");
}

TEST(GetDevIdsStr, FailureGivesEmptyText) {
    Driver().calls.Return("drvGetDevNum", 1);

    EXPECT_EQ(GetDevIdsStr(), "");
}

TEST(GetDevIdsStr, NoDeviceGivesEmptyText) {
    Driver().SetDevices({});

    EXPECT_EQ(GetDevIdsStr(), "");
}

TEST(GetDevIdsStr, FailedIdsGiveEmptyText) {
    Driver().calls.Return("drvGetDevIDs", 1);

    EXPECT_EQ(GetDevIdsStr(), "");
}

// --- platform and helper ---

TEST(DrvGetPlatformInfo, GivesTheDriversAnswer) {
    Driver().SetPlatformInfo(1);
    uint32_t info = 2;

    EXPECT_EQ(DrvGetPlatformInfo(&info), 0);

    EXPECT_EQ(info, 1U);
}

TEST(DrvGetPlatformInfo, NotSupportedIsASuccessThatLeavesTheValue) {
    Driver().calls.Return("drvGetPlatformInfo", DRV_NOT_SUPPORTED);
    uint32_t info = 2;

    EXPECT_EQ(DrvGetPlatformInfo(&info), 0);

    EXPECT_EQ(info, 2U);
}

TEST(DrvGetPlatformInfo, OtherCodesFail) {
    Driver().calls.Return("drvGetPlatformInfo", 3);
    uint32_t info = 2;

    EXPECT_EQ(DrvGetPlatformInfo(&info), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to drvGetPlatformInfo, ret=3"));
}

TEST(IsInHelper, TrueOnlyForNotSupported) {
    Driver().calls.Return("drvGetDevNum", DRV_NOT_SUPPORTED);

    EXPECT_TRUE(IsInHelper());

    EXPECT_TRUE(Log().Has('I', "Zelnar work in Helper."));
}

TEST(IsInHelper, FalseForAnyOtherAnswer) {
    EXPECT_FALSE(IsInHelper());
    Driver().calls.Return("drvGetDevNum", 1);
    EXPECT_FALSE(IsInHelper());

    EXPECT_FALSE(Log().Has('I', "Zelnar work in Helper."));
}

// --- AI vector cores ---

// The chip is read again, and nothing is recorded of it.
void UsePlatformType(int64_t type) {
    auto& config = Analysis::Rokt::Common::Config::ConfigManager::Instance();
    Driver().SetDeviceInfo(0, 1, type << 8);
    config.Uninit();
    config.Init();
    Driver().calls.ClearCalls();
    Log().Clear();
}

class DrvGetAivNumWithoutCores : public testing::TestWithParam<int64_t> {};

TEST_P(DrvGetAivNumWithoutCores, GivesZeroWithoutAskingTheDriver) {
    UsePlatformType(GetParam());
    Driver().SetDeviceInfo(7, 3, 12);
    int64_t value = PRESET;

    EXPECT_EQ(DrvGetAivNum(0, &value), 0);

    EXPECT_EQ(value, 0);
    EXPECT_EQ(Driver().calls.Count("halGetDeviceInfo"), 0U);
    EXPECT_TRUE(
        Log().Has('I', "Driver doesn't support DrvGetAivNum by halGetDeviceInfo interface"));
}

INSTANTIATE_TEST_SUITE_P(PlatformTypes, DrvGetAivNumWithoutCores, testing::Values(0, 1, 4));

class DrvGetAivNumWithCores : public testing::TestWithParam<int64_t> {};

TEST_P(DrvGetAivNumWithCores, AsksTheDriverForTheDevice) {
    UsePlatformType(GetParam());
    Driver().SetDeviceInfo(7, 3, 12);
    int64_t value = PRESET;

    EXPECT_EQ(DrvGetAivNum(1, &value), 0);

    EXPECT_EQ(value, 12);
    EXPECT_EQ(LastInfoCall().Value("device"), 1);
    EXPECT_TRUE(Log().Has('I', "Succeeded to DrvGetAivNum, deviceId=1, aivNum=12"));
}

INSTANTIATE_TEST_SUITE_P(PlatformTypes, DrvGetAivNumWithCores,
                         testing::Values(2, 3, 5, 6, 7, 9, 10));

class DrvAivNum : public testing::Test {
 protected:
    DrvAivNum() { UsePlatformType(5); }
};

TEST_F(DrvAivNum, NotSupportedKeepsThePreset) {
    int64_t value = PRESET;

    EXPECT_EQ(DrvGetAivNum(1, &value), 0);

    EXPECT_EQ(value, PRESET);
    EXPECT_TRUE(Log().Has('W',
                          "Driver doesn't support DrvGetAivNum by halGetDeviceInfo interface, "
                          "deviceId=1, ret=65534"));
}

TEST_F(DrvAivNum, OtherCodesFail) {
    Driver().calls.Return("halGetDeviceInfo", 6);
    int64_t value = PRESET;

    EXPECT_EQ(DrvGetAivNum(1, &value), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to DrvGetAivNum, deviceId=1, ret=6"));
}

// --- device time ---

TEST(DrvGetDeviceTime, GivesTheCounterAndClearsTheOther) {
    Driver().SetDeviceInfo(0, 13, 123456789012);
    int64_t one = PRESET;
    int64_t counter = PRESET;

    EXPECT_EQ(DrvGetDeviceTime(2, &one, &counter), 0);

    EXPECT_EQ(one, 0);
    EXPECT_EQ(counter, 123456789012);
    EXPECT_EQ(LastInfoCall().Value("device"), 2);
    EXPECT_TRUE(
        Log().Has('I', "Succeeded to DrvGetDeviceTime cntvct, devId=2, cntvct=123456789012"));
}

TEST(DrvGetDeviceTime, NotSupportedKeepsThePreset) {
    int64_t one = PRESET;
    int64_t counter = PRESET;

    EXPECT_EQ(DrvGetDeviceTime(2, &one, &counter), 0);

    EXPECT_EQ(one, 0);
    EXPECT_EQ(counter, PRESET);
    EXPECT_TRUE(Log().Has('W',
                          "Driver doesn't support DrvGetDeviceTime cntvct by halGetDeviceInfo "
                          "interface, deviceId=2, ret=65534"));
}

TEST(DrvGetDeviceTime, OtherCodesFail) {
    Driver().calls.Return("halGetDeviceInfo", 4);
    int64_t one = PRESET;
    int64_t counter = PRESET;

    EXPECT_EQ(DrvGetDeviceTime(2, &one, &counter), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to DrvGetDeviceTime cntvct, deviceId=2, ret=4"));
}

// --- frequencies ---

TEST(DrvGetHostFreq, DividesInSinglePrecisionAndAsksDeviceZero) {
    Driver().SetDeviceInfo(0, 24, 123456);
    std::string text;

    EXPECT_TRUE(DrvGetHostFreq(text));

    EXPECT_EQ(text, "123.456001");
    EXPECT_EQ(LastInfoCall().Value("device"), 0);
    EXPECT_EQ(LastInfoCall().Value("info"), 24);
    EXPECT_TRUE(Log().Has('I', "Succeeded to DrvGetHostFreq frequency=123456"));
}

TEST(DrvGetHostFreq, ZeroWithSuccessCountsAsNotSupported) {
    Driver().SetDeviceInfo(0, 24, 0);
    std::string text = "old";

    EXPECT_FALSE(DrvGetHostFreq(text));

    EXPECT_EQ(text, "");
    EXPECT_TRUE(Log().Has(
        'W', "Driver doesn't support DrvGetHostFreq by halGetDeviceInfo interface, ret=0"));
}

TEST(DrvGetHostFreq, SuccessWithoutANumberCountsAsNotSupported) {
    Driver().halGetDeviceInfo = [](uint32_t, int32_t, int32_t, int64_t*) { return 0; };
    std::string text = "old";

    EXPECT_FALSE(DrvGetHostFreq(text));

    EXPECT_EQ(text, "");
}

TEST(DrvGetHostFreq, OneKiloHertzIsAFrequency) {
    Driver().SetDeviceInfo(0, 24, 1);
    std::string text;

    EXPECT_TRUE(DrvGetHostFreq(text));

    EXPECT_EQ(text, "0.001000");
}

TEST(DrvGetHostFreq, FailureEmptiesTheText) {
    Driver().calls.Return("halGetDeviceInfo", 9);
    std::string text = "old";

    EXPECT_FALSE(DrvGetHostFreq(text));

    EXPECT_EQ(text, "");
    EXPECT_TRUE(Log().Has(
        'W', "Driver doesn't support DrvGetHostFreq by halGetDeviceInfo interface, ret=9"));
}

TEST(DrvGetDeviceFreq, AsksTheDevice) {
    Driver().SetDeviceInfo(0, 25, 1650000);
    std::string text;

    EXPECT_TRUE(DrvGetDeviceFreq(5, text));

    EXPECT_EQ(text, "1650.000000");
    EXPECT_EQ(LastInfoCall().Value("device"), 5);
    EXPECT_TRUE(Log().Has('I', "Succeeded to DrvGetDeviceFreq frequency=1650000"));
}

TEST(DrvGetDeviceFreq, FailureLeavesTheTextAlone) {
    std::string text = "old";

    EXPECT_FALSE(DrvGetDeviceFreq(5, text));

    EXPECT_EQ(text, "old");
    EXPECT_TRUE(Log().Has(
        'W', "Driver doesn't support DrvGetDeviceFreq by halGetDeviceInfo interface, ret=65534"));
}

TEST(DrvGetApiVersion, GivesTheVersionAndAnEvent) {
    Driver().SetApiVersion(0x71905);

    EXPECT_EQ(DrvGetApiVersion(), 0x71905);

    EXPECT_TRUE(Log().Has('V', "Succeeded to DrvGetApiVersion version: 0x71905"));
}

TEST(DrvGetApiVersion, FailureGivesZero) {
    Driver().calls.Return("halGetAPIVersion", 1);

    EXPECT_EQ(DrvGetApiVersion(), 0);

    EXPECT_EQ(Log().CountOf('V'), 0U);
}

TEST(DrvFrequencyThreshold, IsTheVersionBehindWhichTheCallsExist) {
    EXPECT_EQ(DRV_FREQ_API_VERSION, 0x71904);
}

}  // namespace
}  // namespace analysis::rokt::driver
