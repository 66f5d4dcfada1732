// Tests of the channel inventory.
#include "driver/drv_channels_mgr.h"

#include <gtest/gtest.h>

#include "config/json_parser.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"

namespace analysis::rokt::driver {
namespace {

using tiv::test::FakeDriver;
using tiv::test::RecordedLog;
using tiv::test::TempDir;
using Zelnarer::Parser::JsonParser;

// A table of the test's own in place of the process-wide one.
class OwnChannelsMgr : public DrvChannelsMgr {};

class ChannelsMgr : public testing::Test {
 protected:
    OwnChannelsMgr mgr;
};

FakeDriver& Driver() { return FakeDriver::Instance(); }

RecordedLog& Log() { return RecordedLog::Instance(); }

void SwitchOff(const std::string& channelSwitch) {
    const TempDir directory;
    JsonParser::Instance().Init(directory.Write(
        "report.json",
        R"({"device":{"channels":[{"channel":8,")" + channelSwitch + R"(":"off"}]}})"));
}

TEST_F(ChannelsMgr, BeforeTheFirstQueryNoChannelIsValid) {
    EXPECT_FALSE(mgr.ChannelIsValid(0, 8));

    EXPECT_TRUE(Log().Has('I', "ChannelIsValid not find channel map, devId:0"));
}

TEST_F(ChannelsMgr, ListedChannelIsValid) {
    EXPECT_EQ(mgr.GetAllChannels(2), 0);

    EXPECT_TRUE(mgr.ChannelIsValid(2, 8));

    EXPECT_TRUE(Log().Has('I', "Begin to GetAllChannels, devIndexId 2"));
    EXPECT_TRUE(Log().Has('I', "GetAllChannels, devId:2"));
    EXPECT_TRUE(Log().Has('I', "ChannelIsValid find channel map, devId:2, channelId:8"));
}

TEST_F(ChannelsMgr, ListsAreKeptPerDevice) {
    EXPECT_EQ(mgr.GetAllChannels(2), 0);

    EXPECT_FALSE(mgr.ChannelIsValid(3, 8));

    EXPECT_TRUE(Log().Has('I', "ChannelIsValid not find channel map, devId:3"));
}

TEST_F(ChannelsMgr, ChannelInNeitherSourceIsNotValid) {
    EXPECT_EQ(mgr.GetAllChannels(0), 0);

    EXPECT_FALSE(mgr.ChannelIsValid(0, 9));

    EXPECT_TRUE(Log().Has('I', "ChannelIsValid not find channel map, devid:0"));
}

TEST_F(ChannelsMgr, ListedChannelSwitchedOffIsNotValid) {
    SwitchOff("prof_switch");
    EXPECT_EQ(mgr.GetAllChannels(0), 0);

    EXPECT_FALSE(mgr.ChannelIsValid(0, 8));

    EXPECT_TRUE(Log().Has('I', "devId:0, channelId:8 in Json file is configured to off"));
}

TEST_F(ChannelsMgr, ReporterSwitchDoesNotCount) {
    SwitchOff("reporter_switch");
    EXPECT_EQ(mgr.GetAllChannels(0), 0);

    EXPECT_TRUE(mgr.ChannelIsValid(0, 8));
}

TEST_F(ChannelsMgr, MissingListIsTheFirstReason) {
    SwitchOff("prof_switch");

    EXPECT_FALSE(mgr.ChannelIsValid(0, 8));

    EXPECT_TRUE(Log().Has('I', "ChannelIsValid not find channel map, devId:0"));
    EXPECT_FALSE(Log().Contains('I', "configured to off"));
}

TEST_F(ChannelsMgr, SwitchIsAskedBeforeTheList) {
    SwitchOff("prof_switch");
    Driver().SetChannels(0, {1});
    EXPECT_EQ(mgr.GetAllChannels(0), 0);

    EXPECT_FALSE(mgr.ChannelIsValid(0, 8));

    EXPECT_TRUE(Log().Has('I', "devId:0, channelId:8 in Json file is configured to off"));
    EXPECT_FALSE(Log().Has('I', "ChannelIsValid not find channel map, devid:0"));
}

TEST_F(ChannelsMgr, FailedSecondQueryKeepsTheFirstList) {
    EXPECT_EQ(mgr.GetAllChannels(0), 0);
    Driver().calls.Return("prof_drv_get_channels", 1);

    EXPECT_EQ(mgr.GetAllChannels(0), -1);

    EXPECT_TRUE(Log().Has('E', "DrvGetChannels failed, devId:0"));
    EXPECT_TRUE(mgr.ChannelIsValid(0, 8));
}

TEST_F(ChannelsMgr, SecondQueryReplacesTheList) {
    EXPECT_EQ(mgr.GetAllChannels(0), 0);
    Driver().SetChannels(0, {9});

    EXPECT_EQ(mgr.GetAllChannels(0), 0);

    EXPECT_FALSE(mgr.ChannelIsValid(0, 8));
    EXPECT_TRUE(mgr.ChannelIsValid(0, 9));
}

TEST_F(ChannelsMgr, NegativeDeviceFails) {
    EXPECT_EQ(mgr.GetAllChannels(-1), -1);

    EXPECT_TRUE(Log().Has('E', "DrvGetChannels failed, devId:-1"));
}

}  // namespace
}  // namespace analysis::rokt::driver
