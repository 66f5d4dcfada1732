// Tests of the run side, the driver's frequencies and the override.
#include "config/platform.h"

#include "config/chip_fixture.h"
#include "config/platform_interface.h"
#include "support/fake_mm.h"

namespace Analysis::Rokt::Common::Platform {

using ::Rokt::Collect::Platform::PlatformInterface;
using ::Rokt::Collect::Platform::PlatformRegistry;

namespace {

constexpr int32_t HOST_FREQUENCY = 24;
constexpr int32_t DEVICE_FREQUENCY = 25;

// Supports "Memory" and "task_trace".
class OverridingPlatform : public PlatformInterface {
 public:
    OverridingPlatform() { supportedFeatures = {16, 29}; }
    std::string GetMemory() override { return "0xabc"; }
};

}  // namespace

class PlatformSide : public tiv::test::ChipTest {
 protected:
    PlatformSide() { tiv::test::FakeMm::Instance().Reset(); }

    Platform platform;
};

class PlatformFrequency : public PlatformSide {};

class PlatformOverride : public PlatformSide {
 protected:
    PlatformOverride() { UseChip(0x0100); }

    void Override() {
        PlatformRegistry::Instance().Register(
            1, [] { return std::make_shared<OverridingPlatform>(); });
        platform.Init();
        log.Clear();
    }
};

TEST_F(PlatformSide, SideIsNeitherBeforeItIsAsked) {
    EXPECT_FALSE(platform.IsDeviceSide());
    EXPECT_FALSE(platform.IsInfoDevice());
    EXPECT_FALSE(platform.IsInfoHost());
    EXPECT_EQ(platform.GetPlatformInfo(), 2U);
}

TEST_F(PlatformSide, Info0IsTheDeviceSide) {
    driver.SetPlatformInfo(0);

    EXPECT_EQ(platform.InitRunSide(), 0);

    EXPECT_TRUE(platform.IsDeviceSide());
    EXPECT_TRUE(platform.IsInfoDevice());
    EXPECT_FALSE(platform.IsInfoHost());
    EXPECT_EQ(platform.GetPlatformInfo(), 0U);
    EXPECT_TRUE(log.Has('I', "Set runSide: 0"));
}

TEST_F(PlatformSide, Info1IsTheHostSide) {
    driver.SetPlatformInfo(1);

    EXPECT_EQ(platform.InitRunSide(), 0);

    EXPECT_FALSE(platform.IsDeviceSide());
    EXPECT_FALSE(platform.IsInfoDevice());
    EXPECT_TRUE(platform.IsInfoHost());
    EXPECT_TRUE(log.Has('I', "Set runSide: 1"));
}

TEST_F(PlatformSide, DriverWithoutTheQueryLeavesSide2) {
    driver.calls.Return("drvGetPlatformInfo", 65534);

    EXPECT_EQ(platform.InitRunSide(), 0);

    EXPECT_EQ(platform.GetPlatformInfo(), 2U);
    EXPECT_FALSE(platform.IsDeviceSide());
    EXPECT_TRUE(log.Has('I', "Set runSide: 2"));
}

TEST_F(PlatformSide, FailedQueryLeavesSide2AndFails) {
    driver.calls.Return("drvGetPlatformInfo", 1);

    EXPECT_EQ(platform.InitRunSide(), -1);

    EXPECT_FALSE(platform.IsDeviceSide());
    EXPECT_EQ(log.Count('E', "get platform info failed."), 1U);
    EXPECT_FALSE(log.Contains('I', "Set runSide"));
}

TEST_F(PlatformSide, LaterQueryThatFailsLeavesTheSideThatWasRead) {
    driver.SetPlatformInfo(0);
    ASSERT_EQ(platform.InitRunSide(), 0);
    driver.calls.Return("drvGetPlatformInfo", 1);

    EXPECT_EQ(platform.InitRunSide(), -1);

    EXPECT_TRUE(platform.IsDeviceSide());
}

TEST_F(PlatformSide, HelperSettersAreEvents) {
    EXPECT_FALSE(platform.IsHelperHostSide());
    EXPECT_FALSE(platform.IsRpcHelper());

    platform.SetHelperHostSide();
    platform.SetRpcHelper();

    EXPECT_TRUE(platform.IsHelperHostSide());
    EXPECT_TRUE(platform.IsRpcHelper());
    const std::vector<std::string> events = {"Set platform helper host side",
                                             "Running on rpc helper"};
    EXPECT_EQ(log.Texts('V'), events);
}

TEST_F(PlatformSide, EachHelperSetterSetsItsOwn) {
    platform.SetRpcHelper();

    EXPECT_TRUE(platform.IsRpcHelper());
    EXPECT_FALSE(platform.IsHelperHostSide());
}

TEST_F(PlatformSide, DriverWithoutDevicesBehindItIsAHelper) {
    driver.calls.Return("drvGetDevNum", 65534);

    EXPECT_TRUE(platform.RunInHelper());

    EXPECT_EQ(log.Texts('I'), std::vector<std::string>{"Zelnar work in Helper."});
}

TEST_F(PlatformSide, AnyOtherAnswerIsNoHelper) {
    EXPECT_FALSE(platform.RunInHelper());
    driver.calls.Return("drvGetDevNum", 1);
    EXPECT_FALSE(platform.RunInHelper());

    EXPECT_FALSE(log.Has('I', "Zelnar work in Helper."));
}

TEST_F(PlatformFrequency, InitTellsTheVersionAndReadsTheHostFrequency) {
    driver.SetApiVersion(465157);
    driver.SetDeviceInfo(0, HOST_FREQUENCY, 38400);

    EXPECT_EQ(platform.Init(), 0);

    EXPECT_TRUE(log.Has('V', "Profiling platform version: 1.0."));
    EXPECT_TRUE(platform.IsHostFreqSupported());
    EXPECT_EQ(platform.GetHostFreq(), "38.400002");
}

TEST_F(PlatformFrequency, ApiVersion465156IsTooOld) {
    driver.SetApiVersion(465156);
    driver.SetDeviceInfo(0, HOST_FREQUENCY, 1000000);
    driver.SetDeviceInfo(0, DEVICE_FREQUENCY, 1000000);

    EXPECT_EQ(platform.Init(), 0);

    EXPECT_FALSE(platform.IsHostFreqSupported());
    EXPECT_EQ(platform.GetHostFreq(), "");
    EXPECT_EQ(platform.GetDeviceFreq(0, "48"), "48");
}

TEST_F(PlatformFrequency, HostFrequencyOf0IsNotSupported) {
    driver.SetDeviceInfo(0, HOST_FREQUENCY, 0);

    EXPECT_EQ(platform.Init(), 0);

    EXPECT_FALSE(platform.IsHostFreqSupported());
    EXPECT_EQ(platform.GetHostFreq(), "");
}

TEST_F(PlatformFrequency, DeviceFrequencyComesFromTheDriver) {
    driver.SetApiVersion(465157);
    driver.SetDeviceInfo(0, DEVICE_FREQUENCY, 1000000);

    EXPECT_EQ(platform.GetDeviceFreq(3, "48"), "1000.000000");

    EXPECT_EQ(driver.calls.Calls("halGetDeviceInfo").back().arguments[0].value, 3);
}

TEST_F(PlatformFrequency, DeviceFrequencyFallsBackWhenTheDriverHasNone) {
    driver.SetApiVersion(465157);
    driver.ForgetDeviceInfo(0, DEVICE_FREQUENCY);

    EXPECT_EQ(platform.GetDeviceFreq(0, "48"), "48");
}

TEST_F(PlatformFrequency, TimeStampIsTheMonotonicClockWithoutAHostFrequency) {
    tiv::test::FakeMm::Instance().UseFakeClock(5000000007);

    EXPECT_EQ(platform.GetTimeStamp(), 5000000007U);
}

#ifndef __aarch64__
TEST_F(PlatformFrequency, TimeStampIsTheMonotonicClockOnThisProcessorAnyway) {
    driver.SetDeviceInfo(0, HOST_FREQUENCY, 1000000);
    platform.Init();
    tiv::test::FakeMm::Instance().UseFakeClock(5000000007);

    EXPECT_EQ(platform.GetTimeStamp(), 5000000007U);
}
#endif

TEST_F(PlatformOverride, WithoutOneTheCommonTableAnswers) {
    std::string events;

    platform.GetMetricsEvents("Memory", events);

    EXPECT_EQ(events, "0x15,0x16,0x31,0x32,0xf,0x10,0x12,0x13");
}

TEST_F(PlatformOverride, WithoutOneEveryFeatureIsSupported) {
    EXPECT_TRUE(platform.FeatureIsSupported(16));
    EXPECT_TRUE(platform.FeatureIsSupported(4000));
    EXPECT_TRUE(platform.FeatureIsSupported("task_trace"));
    EXPECT_TRUE(platform.FeatureIsSupported("nope"));
}

TEST_F(PlatformOverride, RegisteredOneAnswersForItsMetrics) {
    Override();
    std::string memory;
    std::string memoryL0 = "left alone";

    platform.GetMetricsEvents("Memory", memory);
    platform.GetMetricsEvents("MemoryL0", memoryL0);

    EXPECT_EQ(memory, "0xabc");
    EXPECT_EQ(memoryL0, "left alone");
}

TEST_F(PlatformOverride, RegisteredOneAnswersForFeatures) {
    Override();

    EXPECT_TRUE(platform.FeatureIsSupported(29));
    EXPECT_FALSE(platform.FeatureIsSupported(28));
    EXPECT_TRUE(platform.FeatureIsSupported("task_trace"));
    EXPECT_TRUE(platform.FeatureIsSupported("Memory"));
    EXPECT_FALSE(platform.FeatureIsSupported("fwk_schedule"));
    EXPECT_FALSE(platform.FeatureIsSupported("nope"));
}

TEST_F(PlatformOverride, OneOfAnotherTypeIsNotTaken) {
    PlatformRegistry::Instance().Register(7, [] { return std::make_shared<OverridingPlatform>(); });
    UseChip(0x0500);

    platform.Init();

    EXPECT_TRUE(platform.FeatureIsSupported("nope"));
}

}  // namespace Analysis::Rokt::Common::Platform
