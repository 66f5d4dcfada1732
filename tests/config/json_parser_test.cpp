// Tests of the report configuration file.
#include "config/json_parser.h"

#include "support/recorded_log_test.h"
#include "support/temp_dir.h"

namespace Zelnarer::Parser {

class ReportConfig : public tiv::test::RecordedLogTest {
 protected:
    void Load(const std::string& text) { parser.Init(dir.Write("prof.json", text)); }
    // Loads a file with this channel alone.
    void LoadChannel(const std::string& members) {
        Load("{\"device\":{\"channels\":[{" + members + "}]}}");
    }
    void LoadReporter(const std::string& members) {
        Load("{\"sorb\":{\"modules\":[],\"reporters\":[{" + members + "}]}}");
    }

    tiv::test::TempDir dir;
    JsonParser parser;
};

class ReportConfigFile : public ReportConfig {};
class ReportConfigModules : public ReportConfig {};
class ReportConfigReporters : public ReportConfig {};
class ReportConfigChannels : public ReportConfig {};

using Texts = std::vector<std::string>;

TEST_F(ReportConfigFile, WithoutOneEverySwitchIsOnAndEveryNumber0) {
    EXPECT_TRUE(parser.GetModuleSwitch(48));
    EXPECT_TRUE(parser.GetReporterSwitch(0));
    EXPECT_EQ(parser.GetReportBufferLen(0), 0U);
    EXPECT_TRUE(parser.GetChannelReporterSwitch(1));
    EXPECT_TRUE(parser.GetChannelProfSwitch(1));
    EXPECT_EQ(parser.GetChannelBufferSize(1), 0U);
    EXPECT_EQ(parser.GetDriverBufferSize(1), 0U);
    EXPECT_EQ(parser.GetChannelPeriod(1), 0U);
    EXPECT_EQ(parser.GetChannelThreshold(1), 0U);
}

TEST_F(ReportConfigFile, MissingFileIsOnlyAWarning) {
    parser.Init(dir.Path("none.json"));

    EXPECT_EQ(log.Lines().size(), 1U);
    EXPECT_TRUE(log.Has('W', "Json file path cannot open, path: " + dir.Path("none.json")));
}

TEST_F(ReportConfigFile, TextThatDoesNotParseIsOnlyAWarning) {
    Load("{\"sorb\"");

    EXPECT_TRUE(log.Has('W', "Json file config load fail, path:" + dir.Path("prof.json")));
}

TEST_F(ReportConfigFile, NumberThatDoesNotConvertIsTheSameWarning) {
    LoadChannel("\"channel\":2147483648");

    EXPECT_EQ(log.Texts('W'), Texts{"Json file config load fail, path:" + dir.Path("prof.json")});
}

TEST_F(ReportConfigFile, EmptyFileIsTheSameWarning) {
    Load("");

    EXPECT_EQ(log.Texts('W'), Texts{"Json file config load fail, path:" + dir.Path("prof.json")});
}

TEST_F(ReportConfigFile, SecondInitDoesNothing) {
    LoadChannel("\"channel\":7,\"peroid\":5");
    LoadChannel("\"channel\":7,\"peroid\":6");

    EXPECT_EQ(parser.GetChannelPeriod(7), 5U);
}

TEST_F(ReportConfigFile, SecondInitDoesNothingAfterAFailedOneEither) {
    parser.Init(dir.Path("none.json"));
    LoadChannel("\"channel\":7,\"peroid\":5");

    EXPECT_EQ(parser.GetChannelPeriod(7), 0U);
    EXPECT_EQ(log.Texts('W').size(), 1U);
}

TEST_F(ReportConfigFile, UninitForgetsAllAndAllowsAnotherInit) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"VCL\",\"prof_switch\":\"off\"}],"
        "\"reporters\":[{\"reporter\":\"AGING.API\",\"reporter_switch\":\"off\"}]},"
        "\"device\":{\"channels\":[{\"channel\":7,\"prof_switch\":\"off\"}]}}");

    parser.Uninit();

    EXPECT_TRUE(parser.GetModuleSwitch(48));
    EXPECT_TRUE(parser.GetReporterSwitch(0));
    EXPECT_TRUE(parser.GetChannelProfSwitch(7));
    LoadChannel("\"channel\":7,\"peroid\":6");
    EXPECT_EQ(parser.GetChannelPeriod(7), 6U);
}

TEST_F(ReportConfigFile, WrongKindsAreReportedAndPassedOver) {
    Load("{\"sorb\":5,\"device\":{\"channels\":7}}");

    EXPECT_TRUE(log.Has('E', "Invalid data type"));
    EXPECT_TRUE(parser.GetModuleSwitch(48));
    EXPECT_EQ(parser.GetChannelPeriod(7), 0U);
}

TEST_F(ReportConfigFile, ReportersNeedModules) {
    Load("{\"sorb\":{\"reporters\":[{\"reporter\":\"AGING.API\",\"reporter_switch\":\"off\"}]}}");

    EXPECT_TRUE(parser.GetReporterSwitch(0));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigFile, ModulesDoNotNeedReportersAndChannelsNeedNeither) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"VCL\",\"prof_switch\":\"off\"}]},"
        "\"device\":{\"channels\":[{\"channel\":7,\"peroid\":5}]}}");

    EXPECT_FALSE(parser.GetModuleSwitch(48));
    EXPECT_EQ(parser.GetChannelPeriod(7), 5U);
}

TEST_F(ReportConfigModules, CallersBelongToModules) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"VMCL\",\"prof_switch\":\"off\"},"
        "{\"module\":\"FRAMEWORK\",\"prof_switch\":\"off\"}]}}");

    EXPECT_FALSE(parser.GetModuleSwitch(3));
    EXPECT_FALSE(parser.GetModuleSwitch(45));
    EXPECT_TRUE(parser.GetModuleSwitch(48));
    EXPECT_TRUE(parser.GetModuleSwitch(7));
    EXPECT_TRUE(parser.GetModuleSwitch(36));
    const Texts events = {"Set module switch of module 1 off", "Set module switch of module 3 off"};
    EXPECT_EQ(log.Texts('V'), events);
}

TEST_F(ReportConfigModules, OtherCallersBelongToOtherModules) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"VCL\",\"prof_switch\":\"off\"},"
        "{\"module\":\"RUNTIME\",\"prof_switch\":\"off\"}]}}");

    EXPECT_FALSE(parser.GetModuleSwitch(48));
    EXPECT_FALSE(parser.GetModuleSwitch(7));
    EXPECT_TRUE(parser.GetModuleSwitch(45));
    const Texts events = {"Set module switch of module 2 off", "Set module switch of module 4 off"};
    EXPECT_EQ(log.Texts('V'), events);
}

TEST_F(ReportConfigModules, UnknownCallersCountAsTheFirstModule) {
    Load("{\"sorb\":{\"modules\":[{\"module\":\"DATA_PREPROCESS\",\"prof_switch\":\"off\"}]}}");

    EXPECT_FALSE(parser.GetModuleSwitch(99));
    EXPECT_FALSE(parser.GetModuleSwitch(36));
    EXPECT_TRUE(parser.GetModuleSwitch(48));
}

TEST_F(ReportConfigModules, ModuleWithoutACallerIsKnownToo) {
    Load("{\"sorb\":{\"modules\":[{\"module\":\"ZELNAR\",\"prof_switch\":\"off\"}]}}");

    EXPECT_EQ(log.Texts('V'), Texts{"Set module switch of module 5 off"});
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(ReportConfigModules, UnknownOrMissingNameIsSkipped) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"vcl\",\"prof_switch\":\"off\"},"
        "{\"prof_switch\":\"off\"},{\"module\":\"VCL\",\"prof_switch\":\"off\"}]}}");

    const Texts errors = {"Module Id is invalid.", "Module Id is invalid."};
    EXPECT_EQ(log.Texts('E'), errors);
    EXPECT_FALSE(parser.GetModuleSwitch(48));
    EXPECT_TRUE(parser.GetModuleSwitch(36));
}

TEST_F(ReportConfigModules, SecondEntryDoesNotReplaceTheFirst) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"VCL\",\"prof_switch\":\"off\"},"
        "{\"module\":\"VCL\",\"prof_switch\":\"on\"}]}}");

    EXPECT_FALSE(parser.GetModuleSwitch(48));
}

TEST_F(ReportConfigModules, OnlyOffSwitchesOff) {
    Load(
        "{\"sorb\":{\"modules\":[{\"module\":\"VCL\",\"prof_switch\":\"maybe\"},"
        "{\"module\":\"FRAMEWORK\"},{\"module\":\"VMCL\",\"prof_switch\":\"on\"}]}}");

    EXPECT_TRUE(parser.GetModuleSwitch(48));
    EXPECT_TRUE(parser.GetModuleSwitch(45));
    EXPECT_TRUE(parser.GetModuleSwitch(3));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigReporters, SixNamesHaveNumbers) {
    Load(
        "{\"sorb\":{\"modules\":[],\"reporters\":["
        "{\"reporter\":\"AGING.API\",\"report_buffer_len\":8200},"
        "{\"reporter\":\"UNAGING.API\",\"report_buffer_len\":8201},"
        "{\"reporter\":\"AGING.COMPACT\",\"report_buffer_len\":8202},"
        "{\"reporter\":\"UNAGING.COMPACT\",\"report_buffer_len\":8203},"
        "{\"reporter\":\"AGING.ADDITIONAL\",\"report_buffer_len\":8204},"
        "{\"reporter\":\"UNAGING.ADDITIONAL\",\"report_buffer_len\":8205}]}}");

    EXPECT_EQ(parser.GetReportBufferLen(0), 8200U);
    EXPECT_EQ(parser.GetReportBufferLen(1), 8201U);
    EXPECT_EQ(parser.GetReportBufferLen(2), 8202U);
    EXPECT_EQ(parser.GetReportBufferLen(3), 8203U);
    EXPECT_EQ(parser.GetReportBufferLen(4), 8204U);
    EXPECT_EQ(parser.GetReportBufferLen(5), 8205U);
    EXPECT_TRUE(parser.GetReporterSwitch(3));
}

TEST_F(ReportConfigReporters, SwitchedOffOneIsAnEvent) {
    LoadReporter("\"reporter\":\"UNAGING.COMPACT\",\"reporter_switch\":\"off\"");

    EXPECT_FALSE(parser.GetReporterSwitch(3));
    EXPECT_TRUE(parser.GetReporterSwitch(2));
    EXPECT_EQ(parser.GetReportBufferLen(3), 0U);
    EXPECT_EQ(log.Texts('V'), Texts{"Set reporter switch of reporter 3 off"});
}

TEST_F(ReportConfigReporters, UnknownNameIsSkippedWithItsName) {
    LoadReporter("\"reporter\":\"aging.api\",\"reporter_switch\":\"off\"");

    EXPECT_EQ(log.Texts('E'), Texts{"Reporter Id aging.api is invalid."});
    EXPECT_TRUE(log.Texts('V').empty());
}

TEST_F(ReportConfigReporters, LengthMayBe8192To32768) {
    Load(
        "{\"sorb\":{\"modules\":[],\"reporters\":["
        "{\"reporter\":\"AGING.API\",\"report_buffer_len\":8192},"
        "{\"reporter\":\"UNAGING.API\",\"report_buffer_len\":32768}]}}");

    EXPECT_EQ(parser.GetReportBufferLen(0), 8192U);
    EXPECT_EQ(parser.GetReportBufferLen(1), 32768U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigReporters, LengthOutsideTheRangeIs0WithAWarning) {
    Load(
        "{\"sorb\":{\"modules\":[],\"reporters\":["
        "{\"reporter\":\"AGING.API\",\"report_buffer_len\":8191},"
        "{\"reporter\":\"UNAGING.API\",\"report_buffer_len\":32769}]}}");

    EXPECT_EQ(parser.GetReportBufferLen(0), 0U);
    EXPECT_EQ(parser.GetReportBufferLen(1), 0U);
    const Texts warnings = {"The reporter buffer len of Repoter 0 is out of range",
                            "The reporter buffer len of Repoter 1 is out of range"};
    EXPECT_EQ(log.Texts('W'), warnings);
}

TEST_F(ReportConfigReporters, SecondEntryDoesNotReplaceTheFirst) {
    Load(
        "{\"sorb\":{\"modules\":[],\"reporters\":["
        "{\"reporter\":\"AGING.API\",\"report_buffer_len\":8192},"
        "{\"reporter\":\"AGING.API\",\"report_buffer_len\":9000}]}}");

    EXPECT_EQ(parser.GetReportBufferLen(0), 8192U);
}

TEST_F(ReportConfigChannels, IdMayBe1To159) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":1,\"peroid\":5},{\"channel\":159,\"peroid\":6}]}"
        "}");

    EXPECT_EQ(parser.GetChannelPeriod(1), 5U);
    EXPECT_EQ(parser.GetChannelPeriod(159), 6U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigChannels, OtherIdsAreSkippedWithAnError) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":160,\"peroid\":5},{\"channel\":0,\"peroid\":5},"
        "{\"peroid\":5},{\"channel\":-1}]}}");

    const Texts errors = {"Channel Id 160 is invalid.", "Channel Id 0 is invalid.",
                          "Channel Id 0 is invalid.", "Channel Id -1 is invalid."};
    EXPECT_EQ(log.Texts('E'), errors);
    EXPECT_EQ(parser.GetChannelPeriod(160), 0U);
    EXPECT_EQ(parser.GetChannelPeriod(0), 0U);
}

TEST_F(ReportConfigChannels, PeriodOutside1To1000Is0WithAWarning) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":7,\"peroid\":0},{\"channel\":8,\"peroid\":1001},"
        "{\"channel\":9,\"peroid\":1000},{\"channel\":10,\"peroid\":1}]}}");

    EXPECT_EQ(parser.GetChannelPeriod(7), 0U);
    EXPECT_EQ(parser.GetChannelPeriod(8), 0U);
    EXPECT_EQ(parser.GetChannelPeriod(9), 1000U);
    EXPECT_EQ(parser.GetChannelPeriod(10), 1U);
    const Texts warnings = {"The peroid of Channel 7 is out of range",
                            "The peroid of Channel 8 is out of range"};
    EXPECT_EQ(log.Texts('W'), warnings);
}

TEST_F(ReportConfigChannels, BufferSizeOutsideItsRangeIs0WithAWarning) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":7,\"channel_buffer_size\":1048575},"
        "{\"channel\":8,\"channel_buffer_size\":4194305}]}}");

    EXPECT_EQ(parser.GetChannelBufferSize(7), 0U);
    EXPECT_EQ(parser.GetChannelBufferSize(8), 0U);
    const Texts warnings = {"The channel buffer size of Channel 7 is out of range",
                            "The channel buffer size of Channel 8 is out of range"};
    EXPECT_EQ(log.Texts('W'), warnings);
}

TEST_F(ReportConfigChannels, BufferSizeMayBe1048576To4194304) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":7,\"channel_buffer_size\":1048576},"
        "{\"channel\":8,\"channel_buffer_size\":4194304}]}}");

    EXPECT_EQ(parser.GetChannelBufferSize(7), 1048576U);
    EXPECT_EQ(parser.GetChannelBufferSize(8), 4194304U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigChannels, DriverBufferSizeHasNoRange) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":7,\"driver_buffer_size\":1},"
        "{\"channel\":8,\"driver_buffer_size\":2147483647},"
        "{\"channel\":9,\"driver_buffer_size\":-5}]}}");

    EXPECT_EQ(parser.GetDriverBufferSize(7), 1U);
    EXPECT_EQ(parser.GetDriverBufferSize(8), 2147483647U);
    EXPECT_EQ(parser.GetDriverBufferSize(9), 0U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigChannels, ThresholdOf45And48IsHeldToItsRange) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":45,\"threshold\":9},"
        "{\"channel\":48,\"threshold\":96}]}}");

    EXPECT_EQ(parser.GetChannelThreshold(45), 0U);
    EXPECT_EQ(parser.GetChannelThreshold(48), 0U);
    const Texts warnings = {"The threshold of Channel 45 is out of range",
                            "The threshold of Channel 48 is out of range"};
    EXPECT_EQ(log.Texts('W'), warnings);
}

TEST_F(ReportConfigChannels, ThresholdOf45And48MayBe10To95) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":45,\"threshold\":10},"
        "{\"channel\":48,\"threshold\":95}]}}");

    EXPECT_EQ(parser.GetChannelThreshold(45), 10U);
    EXPECT_EQ(parser.GetChannelThreshold(48), 95U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigChannels, ThresholdOfAnotherChannelIsTakenAsItStands) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":7,\"threshold\":5},"
        "{\"channel\":46,\"threshold\":500},{\"channel\":47,\"threshold\":-1}]}}");

    EXPECT_EQ(parser.GetChannelThreshold(7), 5U);
    EXPECT_EQ(parser.GetChannelThreshold(46), 500U);
    EXPECT_EQ(parser.GetChannelThreshold(47), 0U);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigChannels, ProfSwitchAndReporterSwitchAreTwo) {
    Load(
        "{\"device\":{\"channels\":[{\"channel\":7,\"prof_switch\":\"off\"},"
        "{\"channel\":8,\"reporter_switch\":\"off\"}]}}");

    EXPECT_FALSE(parser.GetChannelProfSwitch(7));
    EXPECT_TRUE(parser.GetChannelReporterSwitch(7));
    EXPECT_TRUE(parser.GetChannelProfSwitch(8));
    EXPECT_FALSE(parser.GetChannelReporterSwitch(8));
    const Texts events = {"Set channel switch of channel 7 off",
                          "Set reporter switch of channel 8 off"};
    EXPECT_EQ(log.Texts('V'), events);
}

TEST_F(ReportConfigChannels, UnknownSwitchTextLeavesTheSwitchOn) {
    LoadChannel("\"channel\":7,\"prof_switch\":\"OFF\",\"reporter_switch\":\"\"");

    EXPECT_TRUE(parser.GetChannelProfSwitch(7));
    EXPECT_TRUE(parser.GetChannelReporterSwitch(7));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ReportConfigChannels, SecondEntryDoesNotReplaceTheFirst) {
    Load("{\"device\":{\"channels\":[{\"channel\":7,\"peroid\":5},{\"channel\":7,\"peroid\":6}]}}");

    EXPECT_EQ(parser.GetChannelPeriod(7), 5U);
}

TEST_F(ReportConfigChannels, FaultsAreToldInTheOrderOfTheKeys) {
    LoadChannel(
        "\"reporter_switch\":\"off\",\"prof_switch\":\"off\",\"threshold\":1,"
        "\"channel_buffer_size\":1,\"peroid\":0,\"channel\":45");

    Texts texts;
    for (const tiv::test::LogLine& line : log.Lines()) {
        texts.push_back(line.text);
    }
    const Texts expected = {"The peroid of Channel 45 is out of range",
                            "The channel buffer size of Channel 45 is out of range",
                            "The threshold of Channel 45 is out of range",
                            "Set channel switch of channel 45 off",
                            "Set reporter switch of channel 45 off"};
    EXPECT_EQ(texts, expected);
}

}  // namespace Zelnarer::Parser
