// Tests of the poller's table of readers.
#include <thread>

#include "transport/channel_poll_fixture.h"

namespace tiv::test {
namespace {

using Texts = std::vector<std::string>;

TEST_F(ChannelPollTest, NullReaderIsIgnored) {
    poll.AddReader(DEVICE, CHANNEL, nullptr);

    EXPECT_FALSE(Log().Has('I', "AddReader, devId:2, channel:8"));
}

TEST_F(ChannelPollTest, AddedReaderIsSaid) {
    poll.AddReader(DEVICE, CHANNEL, MakeReader());

    EXPECT_TRUE(Log().Has('I', "AddReader, devId:2, channel:8"));
}

TEST_F(ChannelPollTest, ReplacedReaderIsNotEnded) {
    auto first = MakeReader();
    ScriptReads({5});
    first->Execute();
    poll.AddReader(DEVICE, CHANNEL, first);

    poll.AddReader(DEVICE, CHANNEL, MakeReader());

    EXPECT_EQ(Log().CountOf('V'), 0U);
    EXPECT_EQ(Uploads(), 0U);
}

TEST_F(ChannelPollTest, RemovedReaderIsStoppedAndItsRestLeaves) {
    auto reader = MakeReader();
    ScriptReads({1048575});
    reader->Execute();
    poll.AddReader(DEVICE, CHANNEL, reader);

    poll.RemoveReader(DEVICE, CHANNEL);
    reader->Execute();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes(), (std::vector<uint64_t>{1048575}));
    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 2U);
}

TEST_F(ChannelPollTest, RemovalWaitsForTheReadUnderWay) {
    Gate gate;
    Driver().prof_channel_read = [&](uint32_t, uint32_t, char*, uint32_t) {
        gate.Pass();
        return 7;
    };
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.DispatchChannel(DEVICE, CHANNEL);
    EXPECT_TRUE(Driver().calls.WaitForCalls("prof_channel_read", 1));
    std::thread remover([&] { poll.RemoveReader(DEVICE, CHANNEL); });
    EXPECT_TRUE(Log().WaitFor('I', "RemoveReader, fid dev, devId:2"));

    gate.Open();
    remover.join();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->Sizes().front() % 7, 0U);
    EXPECT_EQ(link->Sizes().front() / 7, Driver().calls.Count("prof_channel_read"));
}

TEST_F(ChannelPollTest, RemoveSaysItsSteps) {
    poll.AddReader(DEVICE, CHANNEL, MakeReader());

    poll.RemoveReader(DEVICE, CHANNEL);

    EXPECT_EQ(Log().Count('I', "RemoveReader, devId:2, channel:8"), 2U);
    EXPECT_EQ(Log().Count('I', "RemoveReader, fid dev, devId:2"), 1U);
    EXPECT_TRUE(Log().Contains('V', "device id 2, channel: 8, "));
}

TEST_F(ChannelPollTest, LastChannelTakesItsDeviceAlong) {
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.RemoveReader(DEVICE, CHANNEL);
    Log().Clear();

    poll.RemoveReader(DEVICE, CHANNEL);

    EXPECT_EQ(Log().OwnTexts('I'), (Texts{"RemoveReader, devId:2, channel:8"}));
}

TEST_F(ChannelPollTest, OtherChannelsKeepTheDevice) {
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.AddReader(DEVICE, 9, MakeReader(9));
    poll.RemoveReader(DEVICE, CHANNEL);
    Log().Clear();

    poll.RemoveReader(DEVICE, CHANNEL);

    EXPECT_EQ(Log().OwnTexts('I'),
              (Texts{"RemoveReader, devId:2, channel:8", "RemoveReader, fid dev, devId:2"}));
}

TEST_F(ChannelPollTest, FlushAsksEachReaderInOrder) {
    Driver().halProfDataFlush = [](uint32_t, uint32_t, uint32_t* size) {
        *size = 0;
        return 0;
    };
    poll.AddReader(2, 44, MakeReader(44, 2));
    poll.AddReader(1, 45, MakeReader(45, 1));
    poll.AddReader(1, 44, MakeReader(44, 1));
    poll.AddReader(1, 7, MakeReader(7, 1));

    poll.FlushDrvBuff();

    const auto calls = Driver().calls.Calls("halProfDataFlush");
    ASSERT_EQ(calls.size(), 3U);
    EXPECT_EQ(calls[0].Value("device") * 100 + calls[0].Value("channel"), 144);
    EXPECT_EQ(calls[1].Value("device") * 100 + calls[1].Value("channel"), 145);
    EXPECT_EQ(calls[2].Value("device") * 100 + calls[2].Value("channel"), 244);
}

TEST_F(ChannelPollTest, FlushReturnsWhenAWorkerHasReadTheBytes) {
    StartPoll();
    poll.AddReader(DEVICE, 44, MakeReader(44));
    OpenChannel(44);
    Driver().HoldBackChannelData(DEVICE, 44, "held back");

    poll.FlushDrvBuff();

    EXPECT_TRUE(link->WaitForChunks(1));
    EXPECT_EQ(link->AllData(), "held back");
}

}  // namespace
}  // namespace tiv::test
