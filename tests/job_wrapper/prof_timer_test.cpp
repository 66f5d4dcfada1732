// Tests of the timer's tick, start and stop.
#include "job_wrapper/prof_timer.h"

#include <gtest/gtest.h>

#include <future>

#include "job_wrapper/timer_double.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::CallList;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;
using tiv::test::RecordingHandler;
using tiv::test::ThrowingHandler;

// Knows whether the timer's thread was joined when it was finished.
class JoinWatcher : public TimerHandler {
 public:
    using TimerHandler::TimerHandler;
    int Execute() override { return 0; }
    int Init() override { return 0; }
    int Uninit() override {
        joinsBefore = FakeMm::Instance().calls.Count("mmJoinTask");
        return 0;
    }

    size_t joinsBefore = 99;
};

// Takes five of the timer's ticks for each of its own.
class SlowHandler : public TimerHandler {
 public:
    using TimerHandler::TimerHandler;
    int Execute() override {
        FakeMm::Instance().AdvanceClock(5000000);
        ++executed;
        return 0;
    }
    int Init() override { return 0; }
    int Uninit() override { return 0; }

    size_t executed = 0;
};

class ProfTimerTick : public ::testing::Test {
 protected:
    ProfTimerTick() {
        mm.Reset();
        log.Clear();
        param->intervalUs = 1000;
        timer = std::make_shared<ProfTimer>(param);
    }

    std::shared_ptr<RecordingHandler> Handler(uint32_t tag, int result = 0) {
        return std::make_shared<RecordingHandler>(tag, calls, result);
    }

    FakeMm& mm = FakeMm::Instance();
    RecordedLog& log = RecordedLog::Instance();
    CallList calls;
    std::shared_ptr<TimerParam> param = std::make_shared<TimerParam>();
    std::shared_ptr<ProfTimer> timer;
};

TEST_F(ProfTimerTick, HandlersRunInTheOrderOfTheirTags) {
    timer->RegisterTimerHandler(9, Handler(9));
    timer->RegisterTimerHandler(2, Handler(2));
    timer->RegisterTimerHandler(5, Handler(5));

    ASSERT_EQ(timer->Start(), 0);
    ASSERT_TRUE(calls.WaitFor("execute 9", 1));

    const std::vector<std::string> all = calls.All();
    ASSERT_GE(all.size(), 3U);
    EXPECT_EQ(all[0], "execute 2");
    EXPECT_EQ(all[1], "execute 5");
    EXPECT_EQ(all[2], "execute 9");
}

TEST_F(ProfTimerTick, EachTickSleepsOneMillisecondOnTheNamedThread) {
    ASSERT_EQ(timer->Start(), 0);
    ASSERT_TRUE(mm.calls.WaitForCalls("mmSleep", 3));
    ASSERT_EQ(timer->Stop(), 0);

    for (const tiv::test::Call& call : mm.calls.Calls("mmSleep")) {
        EXPECT_EQ(call.Value("ms"), 1);
        EXPECT_EQ(call.thread, "QTRX_ProfTimer");
    }
}

TEST_F(ProfTimerTick, TickIsCutToWholeMilliseconds) {
    param->intervalUs = 1999;
    ASSERT_EQ(timer->Start(), 0);
    ASSERT_EQ(timer->Stop(), 0);

    ASSERT_GE(mm.Sleeps().size(), 1U);
    EXPECT_EQ(mm.Sleeps().front(), 1U);
}

TEST_F(ProfTimerTick, SlowHandlerIsNotCaughtUpWith) {
    mm.UseFakeClock();
    const auto slow = std::make_shared<SlowHandler>(1);
    timer->RegisterTimerHandler(1, slow);

    ASSERT_EQ(timer->Start(), 0);
    ASSERT_TRUE(mm.calls.WaitForCalls("mmSleep", 4));
    ASSERT_EQ(timer->Stop(), 0);

    EXPECT_EQ(mm.Sleeps(), std::vector<uint32_t>(slow->executed, 1U));
}

// The thread comes to its body when it is joined, and not before.
TEST_F(ProfTimerTick, BodyRunsOnceWhenStoppedAtOnce) {
    std::promise<void> joined;
    const auto join = mm.mmJoinTask;
    mm.mmSetCurrentThreadName = [&joined](const char*) {
        joined.get_future().wait();
        return 0;
    };
    mm.mmJoinTask = [&joined, join](mmThread* thread) {
        joined.set_value();
        return join(thread);
    };
    timer->RegisterTimerHandler(1, Handler(1));

    ASSERT_EQ(timer->Start(), 0);
    ASSERT_EQ(timer->Stop(), 0);

    EXPECT_EQ(calls.Count("execute 1"), 1U);
    EXPECT_EQ(calls.Count("uninit 1"), 1U);
}

TEST_F(ProfTimerTick, HandlersResultChangesNothing) {
    timer->RegisterTimerHandler(1, Handler(1, -1));
    timer->RegisterTimerHandler(2, Handler(2));

    ASSERT_EQ(timer->Start(), 0);

    EXPECT_TRUE(calls.WaitFor("execute 1", 3));
    EXPECT_TRUE(calls.WaitFor("execute 2", 2));
    EXPECT_EQ(log.CountOf('E') + log.CountOf('W'), 0U);
}

TEST_F(ProfTimerTick, HandlerThatThrowsStopsNeitherTheOthersNorTheThread) {
    timer->RegisterTimerHandler(1, std::make_shared<ThrowingHandler>(1));
    timer->RegisterTimerHandler(2, Handler(2));

    ASSERT_EQ(timer->Start(), 0);

    EXPECT_TRUE(calls.WaitFor("execute 2", 3));
    EXPECT_TRUE(log.Has('E', "Timer handler failed, tag=1, reason: no room"));
}

TEST_F(ProfTimerTick, StartLogsItsLines) {
    ASSERT_EQ(timer->Start(), 0);

    EXPECT_EQ(log.OwnTexts('I'),
              (std::vector<std::string>{"Start ProfTimer begin", "Start ProfTimer succ",
                                        "Start ProfTimer end"}));
}

TEST_F(ProfTimerTick, SecondStartIsRefusedAndLeavesTheThread) {
    ASSERT_EQ(timer->Start(), 0);
    log.Clear();

    EXPECT_EQ(timer->Start(), -1);

    EXPECT_TRUE(log.Has('E', "ProfTimer is running"));
    EXPECT_TRUE(log.Has('I', "Start ProfTimer end"));
    EXPECT_FALSE(log.Has('I', "Start ProfTimer succ"));
    EXPECT_EQ(mm.calls.Count("mmCreateTaskWithThreadAttr"), 1U);
    EXPECT_EQ(mm.calls.Count("mmJoinTask"), 0U);
}

TEST_F(ProfTimerTick, StartIgnoresThatTheThreadWasRefused) {
    mm.calls.Return("mmCreateTaskWithThreadAttr", -1);
    timer->RegisterTimerHandler(4, Handler(4));

    EXPECT_EQ(timer->Start(), 0);
    EXPECT_EQ(timer->Start(), -1);
    EXPECT_EQ(timer->Stop(), 0);

    EXPECT_EQ(calls.All(), (std::vector<std::string>{"uninit 4", "destroy 4"}));
}

TEST_F(ProfTimerTick, StopFinishesTheHandlersInOrderAndForgetsThem) {
    ASSERT_EQ(timer->Start(), 0);
    timer->RegisterTimerHandler(8, Handler(8));
    timer->RegisterTimerHandler(3, Handler(3));

    EXPECT_EQ(timer->Stop(), 0);

    std::vector<std::string> all = calls.All();
    ASSERT_GE(all.size(), 4U);
    all.erase(all.begin(), all.end() - 4);
    EXPECT_EQ(all[0], "uninit 3");
    EXPECT_EQ(all[1], "uninit 8");
    EXPECT_EQ(calls.Count("destroy 3") + calls.Count("destroy 8"), 2U);
    EXPECT_EQ(log.Count('I', "Stop ProfTimer succ"), 1U);
}

TEST_F(ProfTimerTick, StopLogsItsLines) {
    ASSERT_EQ(timer->Start(), 0);
    log.Clear();

    ASSERT_EQ(timer->Stop(), 0);

    EXPECT_EQ(log.OwnTexts('I'),
              (std::vector<std::string>{"Stop ProfTimer begin", "Stop ProfTimer succ",
                                        "Stop ProfTimer end"}));
}

TEST_F(ProfTimerTick, ThreadIsJoinedBeforeTheHandlersAreFinished) {
    const auto handler = std::make_shared<JoinWatcher>(1);
    ASSERT_EQ(timer->Start(), 0);
    timer->RegisterTimerHandler(1, handler);

    ASSERT_EQ(timer->Stop(), 0);

    EXPECT_EQ(handler->joinsBefore, 1U);
}

TEST_F(ProfTimerTick, HandlerThatCannotBeFinishedKeepsNoOtherFromIt) {
    ASSERT_EQ(timer->Start(), 0);
    timer->RegisterTimerHandler(1, std::make_shared<ThrowingHandler>(1));
    timer->RegisterTimerHandler(2, Handler(2));

    EXPECT_EQ(timer->Stop(), 0);

    EXPECT_TRUE(log.Has('E', "Timer handler not finished, tag=1, reason: no room either"));
    EXPECT_EQ(calls.Count("uninit 2"), 1U);
    EXPECT_EQ(calls.Count("destroy 2"), 1U);
}

TEST_F(ProfTimerTick, HandlerThatCannotBeFinishedIsRemovedAllTheSame) {
    const auto handler = std::make_shared<ThrowingHandler>(1);
    timer->RegisterTimerHandler(1, handler);

    timer->RemoveTimerHandler(1);

    EXPECT_TRUE(log.Has('E', "Timer handler not finished, tag=1, reason: no room either"));
    EXPECT_TRUE(log.Has('I', "ProfTimer RemoveTimerHandler tag 1 succ"));
    EXPECT_EQ(handler.use_count(), 1);
}

TEST_F(ProfTimerTick, StopWhenNotRunningLogsBeginAndEndOnly) {
    EXPECT_EQ(timer->Stop(), 0);

    EXPECT_EQ(log.OwnTexts('I'),
              (std::vector<std::string>{"Stop ProfTimer begin", "Stop ProfTimer end"}));
    EXPECT_EQ(log.Lines().size(), 2U);
}

TEST_F(ProfTimerTick, DestructorStopsTheThread) {
    ASSERT_EQ(timer->Start(), 0);
    timer->RegisterTimerHandler(6, Handler(6));

    timer.reset();

    EXPECT_EQ(mm.calls.Count("mmJoinTask"), 1U);
    EXPECT_EQ(calls.Count("uninit 6"), 1U);
}

TEST_F(ProfTimerTick, RegisterReplacesWithoutUninit) {
    timer->RegisterTimerHandler(1, Handler(1));

    timer->RegisterTimerHandler(1, Handler(1));

    EXPECT_EQ(calls.All(), std::vector<std::string>{"destroy 1"});
    EXPECT_EQ(log.Count('I', "ProfTimer RegisterTimerHandler tag 1"), 2U);
}

TEST_F(ProfTimerTick, RemoveFinishesTheHandler) {
    timer->RegisterTimerHandler(1, Handler(1));

    timer->RemoveTimerHandler(1);

    EXPECT_EQ(calls.All(), (std::vector<std::string>{"uninit 1", "destroy 1"}));
    EXPECT_TRUE(log.Has('I', "ProfTimer RemoveTimerHandler tag 1 begin"));
    EXPECT_TRUE(log.Has('I', "ProfTimer RemoveTimerHandler tag 1 succ"));
}

TEST_F(ProfTimerTick, RemoveOfAnUnknownTagLogsBothLinesAndChangesNothing) {
    timer->RegisterTimerHandler(1, Handler(1));
    log.Clear();

    timer->RemoveTimerHandler(77);

    EXPECT_EQ(log.OwnTexts('I'),
              (std::vector<std::string>{"ProfTimer RemoveTimerHandler tag 77 begin",
                                        "ProfTimer RemoveTimerHandler tag 77 succ"}));
    EXPECT_TRUE(calls.All().empty());
}

TEST_F(ProfTimerTick, RemovedHandlerIsNotCalledAgain) {
    timer->RegisterTimerHandler(1, Handler(1));
    ASSERT_EQ(timer->Start(), 0);
    ASSERT_TRUE(calls.WaitFor("execute 1", 1));

    timer->RemoveTimerHandler(1);
    const size_t executed = calls.Count("execute 1");
    ASSERT_TRUE(mm.calls.WaitForCalls("mmSleep", mm.calls.Count("mmSleep") + 2));

    EXPECT_EQ(calls.Count("execute 1"), executed);
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
