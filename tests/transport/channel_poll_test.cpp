// Tests of the poll thread and its workers.
#include "transport/channel_poll.h"

#include <algorithm>
#include <chrono>
#include <thread>

#include "transport/channel_poll_fixture.h"
#include "transport/error_contexts.h"

namespace tiv::test {
namespace {

using analysis::rokt::transport::ChannelPoll;
using analysis::rokt::transport::ChannelPoolThreadNum;
using Texts = std::vector<std::string>;

// --- workers ---

TEST(ChannelPoolThreadNum, IsTheDeviceCountBetween4And64) {
    EXPECT_EQ(ChannelPoolThreadNum(-1), 4U);
    EXPECT_EQ(ChannelPoolThreadNum(2), 4U);
    EXPECT_EQ(ChannelPoolThreadNum(4), 4U);
    EXPECT_EQ(ChannelPoolThreadNum(5), 5U);
    EXPECT_EQ(ChannelPoolThreadNum(64), 64U);
    EXPECT_EQ(ChannelPoolThreadNum(100), 64U);
}

TEST_F(ChannelPollTest, TwoDevicesGiveFourWorkersAndThePollThread) {
    Driver().SetDevices({0, 1});
    Mm().calls.ClearCalls();

    StartPoll();

    EXPECT_EQ(Mm().calls.Count("mmCreateTaskWithThreadAttr"), 5U);
    EXPECT_TRUE(Log().Has('I', "Get device num 2"));
}

TEST_F(ChannelPollTest, SevenDevicesGiveSevenWorkers) {
    Driver().SetDevices({0, 1, 2, 3, 4, 5, 6});
    Mm().calls.ClearCalls();

    StartPoll();

    EXPECT_EQ(Mm().calls.Count("mmCreateTaskWithThreadAttr"), 8U);
}

TEST_F(ChannelPollTest, HundredDevicesOfTheDriverAreAFailureAndGiveFourWorkers) {
    Fault hundred;
    hundred.function = "drvGetDevNum";
    hundred.out = 100;
    Driver().calls.Add(hundred);
    Mm().calls.ClearCalls();

    StartPoll();

    EXPECT_EQ(Mm().calls.Count("mmCreateTaskWithThreadAttr"), 5U);
    EXPECT_TRUE(Log().Has('I', "Get device num -1"));
}

TEST_F(ChannelPollTest, ThreadsHaveTheirNames) {
    StartPoll();

    EXPECT_TRUE(Log().WaitFor('I', "New thread QTRX_ChanPoll begins to run"));
    EXPECT_TRUE(Log().WaitFor('I', "New thread QTRX_ChanPool_0 begins to run"));
    EXPECT_TRUE(Log().WaitFor('I', "New thread QTRX_ChanPool_3 begins to run"));
}

TEST_F(ChannelPollTest, ThreadsHandTheirErrorContextOn) {
    ForgetThreads();
    StartPoll();
    EXPECT_EQ(poll.Stop(), 0);

    const Texts threads = ThreadsWithAContext();
    for (const char* name : {"QTRX_ChanPoll", "QTRX_ChanPool_0", "QTRX_ChanPool_3"}) {
        EXPECT_EQ(std::count(threads.begin(), threads.end(), name), 1) << name;
    }
}

TEST_F(ChannelPollTest, StartFailsWhenThePoolCannotBeMade) {
    Log().SetLevel(DLOG_ERROR);
    // The record of calls grows by doubling: with three calls in it there is room for a fourth.
    uint32_t count = 0;
    EXPECT_EQ(drvGetDevNum(&count) + drvGetDevNum(&count) + drvGetDevNum(&count), 0);
    FailingNew failing;

    EXPECT_EQ(poll.Start(), -1);

    EXPECT_TRUE(Log().Has('E', "make shared failed, message: std::bad_alloc"));
}

TEST_F(ChannelPollTest, RefusedPollThreadIsNotLookedAt) {
    Mm().calls.Return("mmCreateTaskWithThreadAttr", -1, 1, 4);

    EXPECT_EQ(poll.Start(), 0);

    EXPECT_EQ(poll.Stop(), 0);
    EXPECT_EQ(Driver().calls.Count("prof_channel_poll"), 0U);
}

// --- the loop ---

TEST_F(ChannelPollTest, AsksForSixPairsAndOneSecond) {
    StartPoll();
    EXPECT_TRUE(Driver().calls.WaitForCalls("prof_channel_poll", 1));

    const Call call = Driver().calls.Calls("prof_channel_poll").front();

    EXPECT_EQ(call.Value("num"), 6);
    EXPECT_EQ(call.Value("timeout"), 1);
    EXPECT_EQ(call.thread, "QTRX_ChanPoll");
}

TEST_F(ChannelPollTest, IdlesOneMillisecondWhileNoChannelIsOpen) {
    StartPoll();
    EXPECT_TRUE(Mm().calls.WaitForCalls("mmSleep", 3));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Mm().calls.Calls("mmSleep").front().Value("ms"), 1);
    EXPECT_TRUE(Log().Has('D', "DrvChannelPoll return PROF_STOPPED_ALREADY"));
    EXPECT_TRUE(Log().Contains('V', "Dispatch count: 0, DispatchChannel count: 0"));
}

TEST_F(ChannelPollTest, CountsItsIdleSleeps) {
    Driver().calls.Return("prof_channel_poll", -4, 2);
    Driver().calls.Return("prof_channel_poll", -1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_TRUE(Log().Has('V',
                          "ChannelPoll count: 3, Sleep count: 2, Dispatch count: 0, "
                          "DispatchChannel count: 0"));
    EXPECT_EQ(Mm().Sleeps(), (std::vector<uint32_t>{1, 1}));
}

TEST_F(ChannelPollTest, QuitEndsTheIdleLoop) {
    StartPoll();

    poll.SetQuit();

    EXPECT_TRUE(Log().WaitFor('I', "Exit poll channel thread."));
}

TEST_F(ChannelPollTest, QuitThreadPollsNoMore) {
    Driver().prof_channel_poll = [&](ProfPollPair*, int32_t, int32_t) {
        poll.SetQuit();
        return -4;
    };
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('I', "Exit poll channel thread."));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_poll"), 1U);
    EXPECT_EQ(Mm().calls.Count("mmSleep"), 0U);
}

TEST_F(ChannelPollTest, FailedPollEndsTheThreadAndStopStillJoins) {
    Driver().calls.Return("prof_channel_poll", -1, -1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_TRUE(Log().Has('V',
                          "ChannelPoll count: 1, Sleep count: 0, Dispatch count: 0, "
                          "DispatchChannel count: 0"));
    EXPECT_EQ(Driver().calls.Count("prof_channel_poll"), 1U);
}

TEST_F(ChannelPollTest, OtherNegativeResultsAndTimeOutsDispatchNothing) {
    Driver().calls.Return("prof_channel_poll", -2);
    Driver().calls.Return("prof_channel_poll", 0);
    Driver().calls.Return("prof_channel_poll", -1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_TRUE(Log().Has('V',
                          "ChannelPoll count: 3, Sleep count: 0, Dispatch count: 2, "
                          "DispatchChannel count: 0"));
}

TEST_F(ChannelPollTest, MorePairsThanAskedForEndTheThread) {
    Driver().calls.Return("prof_channel_poll", 7);
    StartPoll();

    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));
}

TEST_F(ChannelPollTest, StartAfterStopPollsAgain) {
    Driver().calls.Return("prof_channel_poll", -1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));
    EXPECT_EQ(poll.Stop(), 0);

    StartPoll();

    EXPECT_TRUE(Driver().calls.WaitForCalls("prof_channel_poll", 2));
}

TEST_F(ChannelPollTest, CountsStartOverAfterAStop) {
    for (int run = 0; run < 2; ++run) {
        Driver().calls.Return("prof_channel_poll", -4);
        Driver().calls.Return("prof_channel_poll", 1);
        Driver().calls.Return("prof_channel_poll", -1);
        Log().Clear();
        StartPoll();
        EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

        EXPECT_EQ(poll.Stop(), 0);

        EXPECT_EQ(Log().Texts('V'), (Texts{"ChannelPoll count: 3, Sleep count: 1, Dispatch count: "
                                           "1, DispatchChannel count: 1"}));
    }
}

TEST_F(ChannelPollTest, StopEndsThePollingOfAnOpenChannel) {
    OpenChannel();
    StartPoll();
    EXPECT_TRUE(Driver().calls.WaitForCalls("prof_channel_poll", 1));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_TRUE(Log().Contains('V', "Sleep count: 0, "));
    EXPECT_FALSE(Log().Has('I', "Exit poll channel thread."));
}

TEST_F(ChannelPollTest, PairsAreZeroBeforeTheFirstPoll) {
    Driver().calls.Return("prof_channel_poll", 6);
    Driver().calls.Return("prof_channel_poll", -1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Log().Count('W', "Failed to find devId:0, channel:0"), 6U);
}

TEST_F(ChannelPollTest, SecondStopDoesNothing) {
    StartPoll();
    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Log().CountOf('V'), 1U);
}

TEST_F(ChannelPollTest, StopWithoutStartDoesNothing) {
    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Log().CountOf('V'), 0U);
}

TEST_F(ChannelPollTest, DestructorStops) {
    {
        ChannelPoll local;
        EXPECT_EQ(local.Start(), 0);
    }

    EXPECT_TRUE(Log().Contains('V', "ChannelPoll count: "));
}

// --- from the driver to the link ---

TEST_F(ChannelPollTest, DataReachesTheLinkThroughTheBoundWorker) {
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    OpenChannel();
    Driver().PushChannelData(DEVICE, CHANNEL, std::string(2 * MIB, 'd'));

    EXPECT_TRUE(link->WaitForChunks(1));

    EXPECT_TRUE(link->AllData() == std::string(2 * MIB, 'd'));
    const Call read = Driver().calls.Calls("prof_channel_read").front();
    EXPECT_EQ(read.thread, "QTRX_ChanPool_2");
    EXPECT_TRUE(Log().Has('D', "DispatchChannel devId: 2, channelID: 8, ret: 1"));
}

TEST_F(ChannelPollTest, CountsDispatchesPerPoll) {
    OpenChannel(8);
    OpenChannel(9);
    Driver().NotifyChannel(DEVICE, 8);
    Driver().NotifyChannel(DEVICE, 9);
    Driver().calls.Return("prof_channel_poll", -1, -1, 1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_TRUE(Log().Has('V',
                          "ChannelPoll count: 2, Sleep count: 0, Dispatch count: 1, "
                          "DispatchChannel count: 2"));
}

TEST_F(ChannelPollTest, ChannelWithItsReporterOffIsNotDispatched) {
    ConfigureChannel8(R"("reporter_switch":"off")");
    OpenChannel();
    Driver().NotifyChannel(DEVICE, CHANNEL);
    Driver().calls.Return("prof_channel_poll", -1, -1, 1);
    StartPoll();
    EXPECT_TRUE(Log().WaitFor('E', "Failed to poll channel"));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_FALSE(Log().Contains('W', "Failed to find devId"));
    EXPECT_TRUE(Log().Has('D', "DispatchChannel devId: 2, channelID: 8, ret: 1"));
    EXPECT_TRUE(Log().Contains('V', "Dispatch count: 1, DispatchChannel count: 0"));
}

TEST_F(ChannelPollTest, ProfSwitchDoesNotKeepAChannelFromDispatch) {
    ConfigureChannel8(R"("prof_switch":"off")");
    OpenChannel();
    Driver().NotifyChannel(DEVICE, CHANNEL);

    StartPoll();

    EXPECT_TRUE(Log().WaitFor('W', "Failed to find devId:2, channel:8"));
}

TEST_F(ChannelPollTest, UnknownChannelWarns) {
    poll.DispatchChannel(2, 8);
    poll.AddReader(DEVICE, CHANNEL, MakeReader());

    poll.DispatchChannel(2, 9);

    EXPECT_TRUE(Log().Has('W', "Failed to find devId:2, channel:8"));
    EXPECT_TRUE(Log().Has('W', "Failed to find devId:2, channel:9"));
}

TEST_F(ChannelPollTest, FourthDispatchOfABusyReaderIsSkipped) {
    Gate gate;
    Driver().prof_channel_read = [&](uint32_t, uint32_t, char*, uint32_t) {
        gate.Pass();
        return 0;
    };
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.DispatchChannel(DEVICE, CHANNEL);
    poll.DispatchChannel(DEVICE, CHANNEL);
    poll.DispatchChannel(DEVICE, CHANNEL);

    poll.DispatchChannel(DEVICE, CHANNEL);
    gate.Open();
    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Log().Count('I', "ChannelReader::Execute buffer size 4194304."), 3U);
}

TEST_F(ChannelPollTest, RefusedDispatchDoesNotCount) {
    StartPoll();
    EXPECT_EQ(poll.Stop(), 0);
    auto reader = MakeReader();
    poll.AddReader(DEVICE, CHANNEL, reader);

    poll.DispatchChannel(DEVICE, CHANNEL);
    poll.DispatchChannel(DEVICE, CHANNEL);
    poll.DispatchChannel(DEVICE, CHANNEL);

    EXPECT_FALSE(reader->IsBeyondScheduleLimit());
}

TEST_F(ChannelPollTest, DispatchWithoutMemoryDoesNotCount) {
    Log().SetLevel(DLOG_ERROR);
    auto reader = MakeReader();
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, reader);
    size_t failed = 0;

    // A worker's queue asks for memory at one of many pushes.
    for (size_t dispatches = 1; failed == 0; ++dispatches) {
        ASSERT_LE(dispatches, 512U);
        failed = FailedDispatches();
        ASSERT_TRUE(Driver().calls.WaitForCalls("prof_channel_read", dispatches - failed));
    }
    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_TRUE(Log().Has('E', "Dispatch failed, reason=std::bad_alloc"));
    reader->SetSchedulingStatus(true);
    reader->SetSchedulingStatus(true);
    EXPECT_FALSE(reader->IsBeyondScheduleLimit());
}

TEST_F(ChannelPollTest, WorkerHasRoomFor8192Tasks) {
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, MakeReader());

    for (size_t dispatches = 1; dispatches <= 500; ++dispatches) {
        poll.DispatchChannel(DEVICE, CHANNEL);
        ASSERT_TRUE(Driver().calls.WaitForCalls("prof_channel_read", dispatches));
    }

    EXPECT_TRUE(Log().Contains('I', "QueueName: QTRX_ChanPool_2, QueueCapacity:8192, "));
}

TEST_F(ChannelPollTest, StopLetsWorkersRunTheirQueuesEmpty) {
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.AddReader(DEVICE, 9, MakeReader(9));
    poll.DispatchChannel(DEVICE, CHANNEL);
    poll.DispatchChannel(DEVICE, 9);

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 2U);
}

TEST_F(ChannelPollTest, WorkersEndBehindThePollThatIsUnderWay) {
    Driver().prof_channel_poll = [&](ProfPollPair* pairs, int32_t, int32_t) {
        const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!poll.IsQuit() && std::chrono::steady_clock::now() < limit) {
            std::this_thread::yield();
        }
        pairs[0] = {DEVICE, CHANNEL};
        return 1;
    };
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    StartPoll();
    EXPECT_TRUE(Driver().calls.WaitForCalls("prof_channel_poll", 1));

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 1U);
}

}  // namespace
}  // namespace tiv::test
