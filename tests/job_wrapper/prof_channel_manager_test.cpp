// Tests of the owner of the channel poller.
#include "job_wrapper/prof_channel_manager.h"

#include <gtest/gtest.h>

#include <thread>

#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"
#include "transport/channel_poll.h"
#include "transport/prof_channel.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using analysis::rokt::transport::ChannelReader;
using tiv::test::FailingNew;
using tiv::test::FakeDriver;
using tiv::test::RecordedLog;

class ProfChannelManagerTest : public testing::Test {
 protected:
    ~ProfChannelManagerTest() override { Manager().UnInit(true); }

    static ProfChannelManager& Manager() { return ProfChannelManager::Instance(); }
    static RecordedLog& Log() { return RecordedLog::Instance(); }
    static FakeDriver& Driver() { return FakeDriver::Instance(); }

    // The record of calls grows by doubling: with three calls in it there is room for a fourth.
    static void MakeRoomInTheRecordOfCalls() {
        uint32_t count = 0;
        EXPECT_EQ(drvGetDevNum(&count) + drvGetDevNum(&count) + drvGetDevNum(&count), 0);
    }
};

TEST_F(ProfChannelManagerTest, HasNoPollerAtFirst) {
    EXPECT_EQ(Manager().GetChannelPoller(), nullptr);
}

TEST_F(ProfChannelManagerTest, FirstInitStartsThePoller) {
    EXPECT_EQ(Manager().Init(), 0);

    EXPECT_NE(Manager().GetChannelPoller(), nullptr);
    EXPECT_TRUE(Driver().calls.WaitForCalls("prof_channel_poll", 1));
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager Init index:1"));
    EXPECT_TRUE(Log().Has('I', "Init Poll Succ"));
}

TEST_F(ProfChannelManagerTest, SecondInitSharesThePoller) {
    EXPECT_EQ(Manager().Init(), 0);
    const auto first = Manager().GetChannelPoller();

    EXPECT_EQ(Manager().Init(), 0);

    EXPECT_EQ(Manager().GetChannelPoller(), first);
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager Init index:2"));
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager already inited"));
}

TEST_F(ProfChannelManagerTest, LastOfTwoUsesEndsThePoller) {
    EXPECT_EQ(Manager().Init(), 0);
    EXPECT_EQ(Manager().Init(), 0);

    Manager().UnInit(false);
    EXPECT_NE(Manager().GetChannelPoller(), nullptr);
    EXPECT_FALSE(Log().Has('I', "UnInit Poll Succ"));

    Manager().UnInit(false);
    EXPECT_EQ(Manager().GetChannelPoller(), nullptr);
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager UnInit index:2"));
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager UnInit index:1"));
    EXPECT_TRUE(Log().Has('I', "UnInit Poll Succ"));
}

TEST_F(ProfChannelManagerTest, ForceEndsAllUsesAtOnce) {
    EXPECT_EQ(Manager().Init(), 0);
    EXPECT_EQ(Manager().Init(), 0);

    Manager().UnInit(true);

    EXPECT_EQ(Manager().GetChannelPoller(), nullptr);
    EXPECT_EQ(Manager().Init(), 0);
    EXPECT_EQ(Log().Count('I', "ProfChannelManager Init index:1"), 2U);
}

TEST_F(ProfChannelManagerTest, UnInitStopsThePollThread) {
    EXPECT_EQ(Manager().Init(), 0);

    Manager().UnInit(false);

    EXPECT_TRUE(Log().Contains('V', "ChannelPoll count: "));
}

TEST_F(ProfChannelManagerTest, UnInitWithoutUsesDoesNotCountBelowZero) {
    Manager().UnInit(false);

    EXPECT_EQ(Manager().Init(), 0);

    EXPECT_TRUE(Log().Has('I', "ProfChannelManager UnInit index:0"));
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager Init index:1"));
    EXPECT_FALSE(Log().Has('I', "UnInit Poll Succ"));
}

TEST_F(ProfChannelManagerTest, PollerThatCannotBeMadeIsAFailure) {
    Log().SetLevel(DLOG_ERROR);
    {
        FailingNew failing;
        EXPECT_EQ(Manager().Init(), -1);
    }

    EXPECT_TRUE(Log().Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(Manager().GetChannelPoller(), nullptr);
}

TEST_F(ProfChannelManagerTest, PollerThatDoesNotStartIsNotKept) {
    Log().SetLevel(DLOG_ERROR);
    MakeRoomInTheRecordOfCalls();
    {
        FailingNew failing(1);
        EXPECT_EQ(Manager().Init(), -1);
    }
    Log().SetLevel(DLOG_DEBUG);
    EXPECT_EQ(Manager().GetChannelPoller(), nullptr);

    EXPECT_EQ(Manager().Init(), 0);

    EXPECT_NE(Manager().GetChannelPoller(), nullptr);
    EXPECT_TRUE(Log().Has('I', "ProfChannelManager Init index:2"));
}

TEST_F(ProfChannelManagerTest, FailedStartIsSaidAtInfoLevel) {
    // Room for what is recorded on the way, so that the pool's is the next allocation of its size.
    for (int line = 0; line < 40; ++line) {
        Log().Write('D', 0, "room");
    }
    Driver().drvGetDevNum = [](uint32_t* count) {
        *count = 1;
        tiv::test::FailNextNewOfAtLeast(sizeof(analysis::rokt::common::thread::ThreadPool));
        return 0;
    };

    EXPECT_EQ(Manager().Init(), -1);

    EXPECT_TRUE(Log().Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(Log().OwnTexts('I').back(), "drvChannelPoll start thread pool failed");
}

TEST_F(ProfChannelManagerTest, FlushReachesTheReaders) {
    EXPECT_EQ(Manager().Init(), 0);
    Driver().calls.Return("halProfDataFlush", 3);
    auto reader = std::make_shared<ChannelReader>(0, 44, "data/x.data", nullptr);
    EXPECT_EQ(reader->Init(), 0);
    Manager().GetChannelPoller()->AddReader(0, 44, reader);

    Manager().FlushChannel();

    EXPECT_EQ(Driver().calls.Count("halProfDataFlush"), 1U);
}

TEST_F(ProfChannelManagerTest, FlushWithoutPollerDoesNothing) {
    Manager().FlushChannel();

    EXPECT_EQ(Driver().calls.Count("halProfDataFlush"), 0U);
}

TEST_F(ProfChannelManagerTest, WaitingFlushLeavesTheManagerUsable) {
    EXPECT_EQ(Manager().Init(), 0);
    Driver().halProfDataFlush = [](uint32_t, uint32_t, uint32_t* size) {
        *size = 10;
        return 0;
    };
    auto reader = std::make_shared<ChannelReader>(0, 44, "data/x.data", nullptr);
    EXPECT_EQ(reader->Init(), 0);
    Manager().GetChannelPoller()->AddReader(0, 44, reader);
    std::thread flusher([] { Manager().FlushChannel(); });
    EXPECT_TRUE(Log().WaitFor('I', "Flush deviceId:0, channelId:44, flushSize:10"));

    EXPECT_EQ(Manager().Init(), 0);

    reader->SetChannelStopped();
    flusher.join();
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
