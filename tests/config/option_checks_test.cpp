// Tests of the checks on names, options and single numbers.
#include <sys/stat.h>

#include "config/chip_fixture.h"
#include "config/param_validation.h"
#include "config/platform.h"
#include "config/platform_interface.h"
#include "support/fake_mm.h"

namespace analysis::rokt::common::validation {

class OptionCheck : public tiv::test::ChipTest {
 protected:
    OptionCheck() { tiv::test::FakeMm::Instance().Reset(); }

    const ParamValidation& check = ParamValidation::Instance();
};

class LevelCheck : public OptionCheck {};

using Texts = std::vector<std::string>;

TEST_F(OptionCheck, WithoutDevicesAndApplicationTheHostListDecides) {
    EXPECT_TRUE(check.CheckDevicesIsValid("", "", "cpu"));
    EXPECT_FALSE(check.CheckDevicesIsValid("", "", ""));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(OptionCheck, ApplicationAloneIsValid) {
    EXPECT_TRUE(check.CheckDevicesIsValid("app", "", ""));
}

TEST_F(OptionCheck, AllDevicesAreValidWhateverElse) {
    EXPECT_TRUE(check.CheckDevicesIsValid("", "all", ""));
    EXPECT_TRUE(check.CheckDevicesIsValid("app", "all", "cpu"));
}

TEST_F(OptionCheck, EveryBadDeviceIsNamed) {
    EXPECT_TRUE(check.CheckDevicesIsValid("", "0,63", ""));
    EXPECT_FALSE(check.CheckDevicesIsValid("", "64,1,x", "cpu"));

    EXPECT_TRUE(log.Has('E', "device:64 is not valid!"));
    EXPECT_TRUE(log.Has('E', "device:x is not valid!"));
    EXPECT_FALSE(log.Contains('E', "device:1 "));
}

TEST_F(OptionCheck, AppNameHasLettersDigitsAndThreeSigns) {
    EXPECT_TRUE(check.CheckAppNameIsValid("azAZ09_-."));
    EXPECT_FALSE(check.CheckAppNameIsValid("a b"));
    EXPECT_FALSE(check.CheckAppNameIsValid("/a"));
    EXPECT_FALSE(check.CheckAppNameIsValid(""));

    const Texts errors = {"appName is invalid.a b", "appName is invalid./a", "appName is empty"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(OptionCheck, TagHasNeitherHyphenNorPoint) {
    EXPECT_TRUE(check.CheckTagIsValid("azAZ09_"));
    EXPECT_FALSE(check.CheckTagIsValid("a-b"));
    EXPECT_FALSE(check.CheckTagIsValid("a.b"));
    EXPECT_FALSE(check.CheckTagIsValid(""));

    const Texts errors = {"tag is invalid.a-b", "tag is invalid.a.b", "tag is empty"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(OptionCheck, EightTextsAreOnTheBlackList) {
    EXPECT_FALSE(check.CheckAppParamsIsValid("rm -rf"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("x; mv a b"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("reboot"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("shutdown"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("asphalt"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("a > b"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("wget x"));
    EXPECT_FALSE(check.CheckAppParamsIsValid("poweroff"));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(OptionCheck, BlanksOfTheBlackListCount) {
    EXPECT_TRUE(check.CheckAppParamsIsValid("rm"));
    EXPECT_TRUE(check.CheckAppParamsIsValid("mv"));
    EXPECT_TRUE(check.CheckAppParamsIsValid("a>b"));
    EXPECT_TRUE(check.CheckAppParamsIsValid("wget"));
    EXPECT_TRUE(check.CheckAppParamsIsValid(""));
}

TEST_F(OptionCheck, FiveHostOptionsAreValid) {
    EXPECT_TRUE(check.CheckHostSysOptionsIsValid("cpu"));
    EXPECT_TRUE(check.CheckHostSysOptionsIsValid("mem"));
    EXPECT_TRUE(check.CheckHostSysOptionsIsValid("disk"));
    EXPECT_TRUE(check.CheckHostSysOptionsIsValid("network"));
    EXPECT_TRUE(check.CheckHostSysOptionsIsValid("osrt"));
    EXPECT_EQ(log.Texts('I').front(), "hostSysOptions is cpu");
    EXPECT_EQ(log.Texts('I').size(), 5U);
}

TEST_F(OptionCheck, EmptyHostOptionIsValidAndAnyOtherIsNot) {
    EXPECT_TRUE(check.CheckHostSysOptionsIsValid(""));
    EXPECT_FALSE(check.CheckHostSysOptionsIsValid("cpu,mem"));

    EXPECT_EQ(log.Texts('I'), Texts{"hostSysOptions is empty"});
    EXPECT_EQ(log.Texts('E'), Texts{"hostSysOptions[cpu,mem] is invalid"});
}

TEST_F(OptionCheck, TenStarsTasksAreValid) {
    EXPECT_TRUE(check.CheckStarsAcsqParamsIsValid(
        "dsa,vdec,jpegd,jpege,vpc,topic,pcie,rocee,sdma,ctrl_task"));
    EXPECT_TRUE(check.CheckStarsAcsqParamsIsValid(""));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(OptionCheck, AnyOtherStarsTaskIsNotValid) {
    EXPECT_FALSE(check.CheckStarsAcsqParamsIsValid("dsa,roce"));
    EXPECT_FALSE(check.CheckStarsAcsqParamsIsValid("dsa,,vdec"));

    EXPECT_EQ(log.Texts('E'), Texts(2, "Invalid stars acsq params."));
}

TEST_F(OptionCheck, EmptyMetricsAreValid) {
    EXPECT_TRUE(check.CheckAiCoreMetricsIsValid("", {""}));

    EXPECT_EQ(log.Texts('I'), Texts{"aicoreMetrics is empty"});
}

TEST_F(OptionCheck, ElevenMetricsAreValid) {
    for (const char* name :
         {"ArithmeticUtilization", "PipeUtilization", "PipeUtilizationExct",
          "PipelineExecuteUtilization", "Memory", "MemoryL0", "ResourceConflictRatio", "MemoryUB",
          "L2Cache", "PipeStallCycle", "ScalarRatio"}) {
        EXPECT_TRUE(check.CheckAiCoreMetricsIsValid(name, {})) << name;
    }
    EXPECT_EQ(log.Texts('D').front(), "aicoreMetrics is ArithmeticUtilization");
    EXPECT_EQ(log.Texts('D').size(), 11U);
}

TEST_F(OptionCheck, MetricsOf71CharactersAreReportedAndAccepted) {
    EXPECT_TRUE(check.CheckAiCoreMetricsIsValid(std::string(71, 'x'), {std::string(71, 'x')}));

    EXPECT_EQ(log.Texts('E'), Texts{"The parameter length exceeds the specified value of 70."});
}

TEST_F(OptionCheck, MetricsOf70CharactersAreOnlyUnknown) {
    EXPECT_FALSE(check.CheckAiCoreMetricsIsValid(std::string(70, 'x'), {}));

    EXPECT_EQ(log.Texts('E'),
              Texts{"The aic_metrics[" + std::string(70, 'x') + "] of input config is invalid"});
}

TEST_F(OptionCheck, UnsupportedComesBeforeUnknown) {
    EXPECT_FALSE(check.CheckAiCoreMetricsIsValid("Nope", {"Nope"}));
    EXPECT_FALSE(check.CheckAiCoreMetricsIsValid("Memory", {"Memory"}));

    const Texts errors = {"Current platform is not support Nope metrics type",
                          "Current platform is not support Memory metrics type"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(OptionCheck, SwitchIsOnOffOrEmpty) {
    EXPECT_TRUE(check.IsValidSwitch(""));
    EXPECT_TRUE(check.IsValidSwitch("on"));
    EXPECT_TRUE(check.IsValidSwitch("off"));
    EXPECT_FALSE(check.IsValidSwitch("ON"));
    EXPECT_FALSE(check.IsValidSwitch(" "));
}

TEST_F(OptionCheck, IntervalMayBe1To1296000000) {
    EXPECT_TRUE(check.CheckIntervalIsValid(1, "x"));
    EXPECT_TRUE(check.CheckIntervalIsValid(1296000000, "x"));
    EXPECT_FALSE(check.CheckIntervalIsValid(0, "llc"));
    EXPECT_FALSE(check.CheckIntervalIsValid(1296000001, "ddr"));
    EXPECT_FALSE(check.CheckIntervalIsValid(-1, "x"));

    const Texts errors = {"invalid llc interval: 0", "invalid ddr interval: 1296000001",
                          "invalid x interval: -1"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(OptionCheck, SystemPeriodMayBe1To2592000) {
    EXPECT_TRUE(check.CheckSysPeriodIsValid(1));
    EXPECT_TRUE(check.CheckSysPeriodIsValid(2592000));
    EXPECT_FALSE(check.CheckSysPeriodIsValid(0));
    EXPECT_FALSE(check.CheckSysPeriodIsValid(2592001));

    const Texts errors = {"Invalid --sys-period: 0 s", "Invalid --sys-period: 2592001 s"};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(OptionCheck, InstructionFrequencyMayBe300To30000) {
    EXPECT_TRUE(check.CheckInstrProfilingFreqIsValid(300));
    EXPECT_TRUE(check.CheckInstrProfilingFreqIsValid(30000));
    EXPECT_FALSE(check.CheckInstrProfilingFreqIsValid(299));
    EXPECT_FALSE(check.CheckInstrProfilingFreqIsValid(30001));

    const Texts errors = {"instr_profiling_freq 299 cycle is invalid (300~30000).",
                          "instr_profiling_freq 30001 cycle is invalid (300~30000)."};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(OptionCheck, RangeTextsForTheCaller) {
    EXPECT_STREQ(ParamValidation::INSTR_PROFILING_FREQ_RANGE,
                 "instr_profiling_freq should be in range [300,30000] cycle");
    EXPECT_STREQ(ParamValidation::STORAGE_LIMIT_RANGE,
                 "storage-limit should be in range [200,4294967295], end with MB");
}

TEST_F(OptionCheck, ProcessOfTheHostMustBeThere) {
    EXPECT_TRUE(check.CheckHostSysPidIsValid(getpid()));
    EXPECT_EQ(tiv::test::FakeMm::Instance().calls.Calls("mmStatGet").back().Text("path"),
              "/proc/" + std::to_string(getpid()) + "/status");
    tiv::test::FakeMm::Instance().calls.Return("mmStatGet", -1);
    EXPECT_FALSE(check.CheckHostSysPidIsValid(4711));

    EXPECT_EQ(log.Texts('E'), Texts{"Invalid --host-sys-pid: 4711"});
}

TEST_F(OptionCheck, ProcessZeroIsLookedForLikeAnyOther) {
    tiv::test::FakeMm::Instance().calls.Return("mmStatGet", 0);

    EXPECT_TRUE(check.CheckHostSysPidIsValid(0));
}

TEST_F(OptionCheck, NegativeProcessIsNotLookedFor) {
    EXPECT_FALSE(check.CheckHostSysPidIsValid(-1));

    EXPECT_EQ(tiv::test::FakeMm::Instance().calls.Count("mmStatGet"), 0U);
    EXPECT_EQ(log.Texts('E'), Texts{"Invalid --host-sys-pid: -1"});
}

TEST_F(LevelCheck, EmptyValuePasses) {
    EXPECT_TRUE(check.CheckLevelArgument("task_trace", ""));
    EXPECT_TRUE(check.CheckOnOffArgument("runtime_api", ""));

    const Texts lines = {"Argument task_trace is empty.", "Argument runtime_api is empty."};
    EXPECT_EQ(log.Texts('I'), lines);
}

TEST_F(LevelCheck, TaskTraceTakesLevelsAndSwitches) {
    EXPECT_TRUE(check.CheckLevelArgument("task_trace", "l0"));
    EXPECT_TRUE(check.CheckLevelArgument("task_trace", "l1"));
    EXPECT_TRUE(check.CheckLevelArgument("task_trace", "l2"));
    EXPECT_TRUE(check.CheckLevelArgument("task_trace", "on"));
    EXPECT_TRUE(check.CheckLevelArgument("task_trace", "off"));
    EXPECT_FALSE(check.CheckLevelArgument("task_trace", "l3"));

    EXPECT_EQ(log.Texts('E'), Texts{"Argument task_trace: invalid value: l3. Please input 'on', "
                                    "'off', 'l0', 'l1' or 'l2'."});
}

TEST_F(LevelCheck, FwkScheduleTakesTwoLevelsAndOff) {
    EXPECT_TRUE(check.CheckLevelArgument("fwk_schedule", "l0"));
    EXPECT_TRUE(check.CheckLevelArgument("fwk_schedule", "l1"));
    EXPECT_TRUE(check.CheckLevelArgument("fwk_schedule", "off"));
    EXPECT_FALSE(check.CheckLevelArgument("fwk_schedule", "on"));
    EXPECT_FALSE(check.CheckLevelArgument("fwk_schedule", "l2"));

    const Texts errors = {
        "Argument fwk_schedule: invalid value: on. Please input 'l0', 'l1' or 'off'.",
        "Argument fwk_schedule: invalid value: l2. Please input 'l0', 'l1' or 'off'."};
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(LevelCheck, AnyOtherNameIsRefusedWithoutAReminder) {
    EXPECT_FALSE(check.CheckLevelArgument("runtime_api", "on"));

    EXPECT_EQ(log.Texts('E'), Texts{"Argument runtime_api: invalid value: on. "});
}

TEST_F(LevelCheck, OnOffArgumentTakesNothingElse) {
    EXPECT_TRUE(check.CheckOnOffArgument("runtime_api", "on"));
    EXPECT_TRUE(check.CheckOnOffArgument("runtime_api", "off"));
    EXPECT_FALSE(check.CheckOnOffArgument("runtime_api", "l0"));

    EXPECT_EQ(log.Texts('E'), Texts{"Argument runtime_api: invalid value: l0. Please input 'on' "
                                    "or 'off'."});
}

TEST_F(LevelCheck, FeatureThatThePlatformLacksIsRefused) {
    UseChip(0x0B00);
    ::Rokt::Collect::Platform::PlatformRegistry::Instance().Register(
        11, [] { return std::make_shared<::Rokt::Collect::Platform::PlatformInterface>(); });
    auto& platform = Analysis::Rokt::Common::Platform::Platform::Instance();
    platform.Init();
    log.Clear();

    EXPECT_FALSE(check.CheckLevelArgument("task_trace", "l0"));
    EXPECT_FALSE(check.CheckOnOffArgument("runtime_api", "on"));
    EXPECT_TRUE(check.CheckOnOffArgument("runtime_api", ""));

    const Texts errors = {"Argument [task_trace] is not supported.",
                          "Argument [runtime_api] is not supported."};
    EXPECT_EQ(log.Texts('E'), errors);
    UseChip(0x0100);
    platform.Init();
}

}  // namespace analysis::rokt::common::validation
