// Tests of the poll thread and the table of readers.
#include "transport/channel_poll.h"

#include <gtest/gtest.h>

#include "support/failing_new.h"
#include "transport/channel_fixture.h"

namespace tiv::test {
namespace {

using analysis::rokt::transport::ChannelPoll;
using analysis::rokt::transport::ChannelPoolThreadNum;
using Texts = std::vector<std::string>;

// Lets threads through once it is open.
class Gate {
 public:
    void Pass() {
        MutexLock lock(mutex_);
        while (!open_) {
            changed_.Wait(mutex_);
        }
    }
    void Open() {
        MutexLock lock(mutex_);
        open_ = true;
        changed_.NotifyAll();
    }

 private:
    Mutex mutex_;
    CondVar changed_;
    bool open_ GUARDED_BY(mutex_) = false;
};

class ChannelPollTest : public ChannelFixture {
 protected:
    void StartPoll() { EXPECT_EQ(poll.Start(), 0); }

    ChannelPoll poll;
};

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

TEST_F(ChannelPollTest, QuitEndsTheIdleLoop) {
    StartPoll();

    poll.SetQuit();

    EXPECT_TRUE(Log().WaitFor('I', "Exit poll channel thread."));
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

TEST_F(ChannelPollTest, StopLetsWorkersRunTheirQueuesEmpty) {
    StartPoll();
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.AddReader(DEVICE, 9, MakeReader(9));
    poll.DispatchChannel(DEVICE, CHANNEL);
    poll.DispatchChannel(DEVICE, 9);

    EXPECT_EQ(poll.Stop(), 0);

    EXPECT_EQ(Driver().calls.Count("prof_channel_read"), 2U);
}

// --- the table of readers ---

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

    EXPECT_EQ(Log().Texts('I'), (Texts{"RemoveReader, devId:2, channel:8"}));
}

TEST_F(ChannelPollTest, OtherChannelsKeepTheDevice) {
    poll.AddReader(DEVICE, CHANNEL, MakeReader());
    poll.AddReader(DEVICE, 9, MakeReader(9));
    poll.RemoveReader(DEVICE, CHANNEL);
    Log().Clear();

    poll.RemoveReader(DEVICE, CHANNEL);

    EXPECT_EQ(Log().Texts('I'),
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
