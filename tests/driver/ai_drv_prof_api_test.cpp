// Tests of the channel list and of stop, read, poll and flush at the driver.
#include "driver/ai_drv_prof_api.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <type_traits>

#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"

namespace analysis::rokt::driver {
namespace {

using tiv::test::FakeDriver;
using tiv::test::RecordedLog;

FakeDriver& Driver() { return FakeDriver::Instance(); }

RecordedLog& Log() { return RecordedLog::Instance(); }

std::vector<uint32_t> IdsOf(const DrvProfChannelsInfo& info) {
    std::vector<uint32_t> ids;
    for (const DrvProfChannelInfo& channel : info.channels) {
        ids.push_back(channel.channelId);
    }
    return ids;
}

DrvProfChannelsInfo InfoOfDevice(int32_t deviceId) {
    DrvProfChannelsInfo info;
    info.deviceId = deviceId;
    return info;
}

std::unique_ptr<ProfDrvChannelList> ListOfOne() {
    auto list = std::make_unique<ProfDrvChannelList>();
    list->chipType = 3;
    list->channelNum = 1;
    list->channels[0].channelId = 8;
    list->channels[0].channelType = 1;
    strcpy(list->channels[0].channelName, "llc");
    return list;
}

TEST(AiDrvProfApi, IsATypeWithoutState) {
    EXPECT_TRUE(std::has_virtual_destructor_v<AiDrvProfApi>);
    EXPECT_EQ(sizeof(AiDrvProfApi), sizeof(void*));
}

// --- channel list ---

TEST(DrvGetChannels, KeepsTheDriversOrder) {
    Driver().SetChannels(2, {8, 1, 160});
    DrvProfChannelsInfo info = InfoOfDevice(2);

    EXPECT_EQ(DrvGetChannels(info), 0);

    EXPECT_EQ(IdsOf(info), (std::vector<uint32_t>{8, 1, 160}));
    EXPECT_TRUE(Log().Has('V', "Begin to get channels, deviceId=2"));
    EXPECT_TRUE(Log().Has('V', "End to get channels[3], deviceId=2"));
}

TEST(DrvGetChannels, TakesChipTypeTypeAndAllBytesOfTheName) {
    Driver().SetChannelList(0, *ListOfOne());
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), 0);

    EXPECT_EQ(info.chipType, 3U);
    EXPECT_EQ(info.channels[0].channelType, 1U);
    EXPECT_EQ(info.channels[0].channelName, "llc" + std::string(29, '\0'));
    EXPECT_TRUE(
        Log().Has('I', "i:0,chipType:3,channelNum:1,channelId=8,channelName:llc,channelType:1"));
}

TEST(DrvGetChannels, NameThatFillsItsFieldKeeps32Bytes) {
    auto list = ListOfOne();
    memset(list->channels[0].channelName, 'x', 32);
    Driver().SetChannelList(0, *list);
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), 0);

    EXPECT_EQ(info.channels[0].channelName, std::string(32, 'x'));
}

TEST(DrvGetChannels, SkipsEntriesWithIdsOutsideTheRange) {
    Driver().SetChannels(0, {8, 161, 9, 0, 10});
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), 0);

    EXPECT_EQ(IdsOf(info), (std::vector<uint32_t>{8, 9, 10}));
    EXPECT_TRUE(Log().Has('E', "Channel id is invalid, channelId=161, i=1"));
    EXPECT_TRUE(Log().Has('E', "Channel id is invalid, channelId=0, i=3"));
    EXPECT_TRUE(Log().Has('V', "End to get channels[3], deviceId=0"));
}

TEST(DrvGetChannels, NegativeDeviceFailsBeforeTheDriverIsAsked) {
    DrvProfChannelsInfo info = InfoOfDevice(-1);

    EXPECT_EQ(DrvGetChannels(info), -1);

    EXPECT_EQ(Driver().calls.Count("prof_drv_get_channels"), 0U);
    EXPECT_TRUE(Log().Has('V', "Begin to get channels, deviceId=-1"));
    EXPECT_TRUE(Log().Has('E', "DrvGetChannels, devId is invalid, deviceId=-1"));
}

TEST(DrvGetChannels, DriverFailureFails) {
    Driver().calls.Return("prof_drv_get_channels", 1);
    DrvProfChannelsInfo info = InfoOfDevice(4);

    EXPECT_EQ(DrvGetChannels(info), -1);

    EXPECT_TRUE(Log().Has('E', "DrvGetChannels get channels failed, deviceId=4"));
    EXPECT_EQ(info.chipType, 0U);
    EXPECT_TRUE(info.channels.empty());
}

TEST(DrvGetChannels, NumberOfZeroFails) {
    Driver().SetChannels(0, {});
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), -1);

    EXPECT_TRUE(Log().Has('E', "DrvGetChannels channel num is invalid, channelNum=0"));
}

TEST(DrvGetChannels, NumberOf161Fails) {
    auto list = ListOfOne();
    list->channelNum = 161;
    Driver().SetChannelList(0, *list);
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), -1);

    EXPECT_TRUE(Log().Has('E', "DrvGetChannels channel num is invalid, channelNum=161"));
    EXPECT_TRUE(info.channels.empty());
}

TEST(DrvGetChannels, NumberOf160IsTaken) {
    Driver().SetChannels(0, std::vector<uint32_t>(160, 5));
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), 0);

    EXPECT_EQ(info.channels.size(), 160U);
}

TEST(DrvGetChannels, HandsTheDriverAZeroedList) {
    bool zeroed = false;
    Driver().prof_drv_get_channels = [&](uint32_t, ProfDrvChannelList* list) {
        const std::vector<char> zeros(sizeof(*list), 0);
        zeroed = memcmp(list, zeros.data(), sizeof(*list)) == 0;
        return 1;
    };
    DrvProfChannelsInfo info = InfoOfDevice(0);

    EXPECT_EQ(DrvGetChannels(info), -1);

    EXPECT_TRUE(zeroed);
}

TEST(DrvGetChannels, ShortMemoryFailsInSilence) {
    DrvProfChannelsInfo info = InfoOfDevice(0);
    tiv::test::FailNextNewOfAtLeast(sizeof(ProfDrvChannelList));

    EXPECT_EQ(DrvGetChannels(info), -1);

    EXPECT_EQ(Log().CountOf('E'), 0U);
    EXPECT_EQ(Driver().calls.Count("prof_drv_get_channels"), 0U);
}

// --- stop ---

TEST(DrvStop, StopsTheChannelBetweenTwoEvents) {
    EXPECT_EQ(prof_drv_start(1, 8, std::make_unique<ProfStartPara>().get()), 0);

    EXPECT_EQ(DrvStop(1, 8), 0);

    EXPECT_FALSE(Driver().ChannelOpen(1, 8));
    EXPECT_EQ(Log().Texts('V'),
              (std::vector<std::string>{
                  "Begin to stop profiling prof_stop DrvStop, profDeviceId=1, profChannel=8",
                  "Succeeded to stop profiling prof_stop DrvStop, profDeviceId=1, profChannel=8"}));
}

TEST(DrvStop, DriverFailureFails) {
    Driver().calls.Return("prof_stop", 7);

    EXPECT_EQ(DrvStop(1, 8), -1);

    EXPECT_TRUE(Log().Has(
        'E', "Failed to stop profiling prof_stop DrvStop, profDeviceId=1, profChannel=8, ret=7"));
}

// --- read ---

TEST(DrvChannelRead, GivesTheLengthAndPassesTheNumbers) {
    Driver().calls.Return("prof_channel_read", 12);
    std::array<char, 16> buffer{};

    EXPECT_EQ(DrvChannelRead(3, 44, buffer.data(), 16), 12);

    const auto call = Driver().calls.Calls("prof_channel_read").back();
    EXPECT_EQ(call.Value("device"), 3);
    EXPECT_EQ(call.Value("channel"), 44);
    EXPECT_EQ(call.Value("len"), 16);
}

TEST(DrvChannelRead, NullBufferFailsWithoutTheDriver) {
    EXPECT_EQ(DrvChannelRead(3, 44, nullptr, 16), -1);

    EXPECT_TRUE(Log().Has('E', "outBuf is nullptr"));
    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 0U);
}

TEST(DrvChannelRead, StoppedChannelIsEmptyWithAWarning) {
    Driver().calls.Return("prof_channel_read", -4);
    std::array<char, 16> buffer{};

    EXPECT_EQ(DrvChannelRead(3, 44, buffer.data(), 16), 0);

    EXPECT_TRUE(Log().Has('W',
                          "profChannel has stopped already, profDeviceId=3, profChannel=44, "
                          "bufSize=16bytes"));
    EXPECT_EQ(Log().CountOf('E'), 0U);
}

TEST(DrvChannelRead, OtherNegativeCodesFail) {
    Driver().calls.Return("prof_channel_read", -9);
    std::array<char, 16> buffer{};

    EXPECT_EQ(DrvChannelRead(3, 44, buffer.data(), 16), -1);

    EXPECT_TRUE(Log().Has('E',
                          "Failed to prof_channel_read, profDeviceId=3, profChannel=44, "
                          "bufSize=16bytes, ret=-9"));
}

// --- poll ---

class DrvChannelPollResult : public testing::TestWithParam<int> {};

TEST_P(DrvChannelPollResult, PassesUnchanged) {
    Driver().calls.Return("prof_channel_poll", GetParam());
    std::array<ProfPollPair, 6> pairs{};

    EXPECT_EQ(DrvChannelPoll(pairs.data(), 6, 1), GetParam());

    EXPECT_EQ(Log().CountOf('E'), 0U);
}

INSTANTIATE_TEST_SUITE_P(Codes, DrvChannelPollResult, testing::Values(0, 6, -4, -2));

TEST(DrvChannelPoll, MoreThanAskedForFails) {
    Driver().calls.Return("prof_channel_poll", 7);
    std::array<ProfPollPair, 6> pairs{};

    EXPECT_EQ(DrvChannelPoll(pairs.data(), 6, 1), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to prof_channel_poll, num=6, timeout=1s, ret=7"));
}

TEST(DrvChannelPoll, MinusOneIsLogged) {
    Driver().calls.Return("prof_channel_poll", -1);
    std::array<ProfPollPair, 6> pairs{};

    EXPECT_EQ(DrvChannelPoll(pairs.data(), 6, 2), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to prof_channel_poll, num=6, timeout=2s, ret=-1"));
}

TEST(DrvChannelPoll, NullBufferFailsWithoutTheDriver) {
    EXPECT_EQ(DrvChannelPoll(nullptr, 6, 1), -1);

    EXPECT_TRUE(Log().Has('E', "outBuf is nullptr"));
    EXPECT_EQ(Driver().calls.Count("prof_channel_poll"), 0U);
}

TEST(DrvChannelPoll, FillsDeviceAndChannelPairs) {
    ProfStartPara para{};
    EXPECT_EQ(prof_drv_start(2, 9, &para), 0);
    Driver().PushChannelData(2, 9, "x");
    std::array<ProfPollPair, 6> pairs{};

    EXPECT_EQ(DrvChannelPoll(pairs.data(), 6, 1), 1);

    EXPECT_EQ(pairs[0].devId, 2U);
    EXPECT_EQ(pairs[0].channelId, 9U);
}

// --- flush ---

TEST(DrvProfFlush, GivesThePendingBytes) {
    Driver().calls.Add({"halProfDataFlush", {}, 0, 1, {}, {}, 0, 512, false});
    uint32_t size = 0;

    EXPECT_EQ(DrvProfFlush(1, 44, &size), 0);

    EXPECT_EQ(size, 512U);
    EXPECT_EQ(Log().Texts('I'),
              (std::vector<std::string>{"Begin to flush drv buff. deviceId=1, channelId=44",
                                        "End to flush drv buff. deviceId=1, channelId=44, "
                                        "bufSize=512bytes"}));
}

TEST(DrvProfFlush, ClosedChannelFails) {
    Driver().calls.Return("halProfDataFlush", -4);
    uint32_t size = 0;

    EXPECT_EQ(DrvProfFlush(1, 44, &size), -1);

    EXPECT_TRUE(Log().Has(
        'E', "Failed to halProfDataFlush, channel already closed.deviceId=1, channelId=44"));
}

TEST(DrvProfFlush, OtherCodesFail) {
    Driver().calls.Return("halProfDataFlush", 11);
    uint32_t size = 0;

    EXPECT_EQ(DrvProfFlush(1, 44, &size), -1);

    EXPECT_TRUE(Log().Has('E', "Failed to halProfDataFlush.deviceId=1, channelId=44, ret=11"));
}

}  // namespace
}  // namespace analysis::rokt::driver
