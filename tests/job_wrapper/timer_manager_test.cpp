// Tests of the count over the jobs that share the timer.
#include "job_wrapper/timer_manager.h"

#include <gtest/gtest.h>

#include "job_wrapper/timer_double.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::CallList;
using tiv::test::FailingNew;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;
using tiv::test::RecordingHandler;

class FreshManager : public TimerManager {
 public:
    FreshManager() = default;
};

class TimerManagerCount : public ::testing::Test {
 protected:
    TimerManagerCount() {
        mm.Reset();
        log.Clear();
    }

    std::shared_ptr<RecordingHandler> Handler(uint32_t tag) {
        return std::make_shared<RecordingHandler>(tag, calls);
    }
    size_t Threads() const { return mm.calls.Count("mmCreateTaskWithThreadAttr"); }

    FakeMm& mm = FakeMm::Instance();
    RecordedLog& log = RecordedLog::Instance();
    CallList calls;
    FreshManager manager;
};

TEST_F(TimerManagerCount, FirstStartMakesTheOneThread) {
    manager.StartProfTimer();
    manager.StartProfTimer();

    EXPECT_EQ(Threads(), 1U);
    EXPECT_EQ(log.Count('I', "StartProfTimer end"), 1U);
}

TEST_F(TimerManagerCount, OneStopOfTwoLeavesTheTimerAndTheOtherHandler) {
    manager.StartProfTimer();
    manager.RegisterTimerHandler(0, Handler(0));
    manager.StartProfTimer();
    manager.RegisterTimerHandler(1, Handler(1));

    manager.RemoveTimerHandler(1);
    manager.StopProfTimer();

    EXPECT_EQ(calls.Count("uninit 1"), 1U);
    EXPECT_EQ(calls.Count("uninit 0"), 0U);
    EXPECT_TRUE(calls.WaitFor("execute 0", calls.Count("execute 0") + 2));
    EXPECT_FALSE(log.Has('I', "StopProfTimer begin"));
}

TEST_F(TimerManagerCount, LastStopEndsTheThreadAndFinishesWhatIsLeft) {
    manager.StartProfTimer();
    manager.RegisterTimerHandler(5, Handler(5));
    log.Clear();

    manager.StopProfTimer();

    EXPECT_EQ(mm.calls.Count("mmJoinTask"), 1U);
    EXPECT_EQ(calls.Count("uninit 5"), 1U);
    EXPECT_EQ(log.OwnTexts('I'),
              (std::vector<std::string>{"StopProfTimer begin", "Stop ProfTimer begin",
                                        "Stop ProfTimer succ", "Stop ProfTimer end",
                                        "StopProfTimer end"}));
}

TEST_F(TimerManagerCount, ThreadTicksWithoutAHandler) {
    manager.StartProfTimer();

    EXPECT_TRUE(mm.calls.WaitForCalls("mmSleep", 3));
}

TEST_F(TimerManagerCount, RegisterBeforeAnyStartIsDroppedInSilence) {
    manager.RegisterTimerHandler(3, Handler(3));
    manager.RemoveTimerHandler(3);

    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(calls.All(), std::vector<std::string>{"destroy 3"});
}

TEST_F(TimerManagerCount, EmptyHandlerIsDropped) {
    manager.StartProfTimer();
    log.Clear();

    manager.RegisterTimerHandler(3, nullptr);

    EXPECT_FALSE(log.Has('I', "ProfTimer RegisterTimerHandler tag 3"));
}

TEST_F(TimerManagerCount, RemovalOnAStoppedTimerFindsNothing) {
    manager.StartProfTimer();
    manager.RegisterTimerHandler(3, Handler(3));
    manager.StopProfTimer();

    manager.RemoveTimerHandler(3);

    EXPECT_TRUE(log.Has('I', "ProfTimer RemoveTimerHandler tag 3 succ"));
    EXPECT_EQ(calls.Count("uninit 3"), 1U);
}

TEST_F(TimerManagerCount, StartAfterTheLastStopMakesAnotherTimer) {
    manager.StartProfTimer();
    manager.StopProfTimer();

    manager.StartProfTimer();
    manager.RegisterTimerHandler(3, Handler(3));

    EXPECT_EQ(Threads(), 2U);
    EXPECT_TRUE(calls.WaitFor("execute 3", 1));
}

TEST_F(TimerManagerCount, StopAtCountZeroWrapsAndTheNextStartMakesNoTimer) {
    manager.StartProfTimer();
    manager.StopProfTimer();
    manager.StopProfTimer();

    manager.StartProfTimer();
    manager.RegisterTimerHandler(3, Handler(3));

    EXPECT_EQ(Threads(), 1U);
    EXPECT_TRUE(log.Has('I', "ProfTimer RegisterTimerHandler tag 3"));
    EXPECT_EQ(calls.Count("execute 3"), 0U);
}

TEST_F(TimerManagerCount, CountWrappedToZeroAgainStartsATimer) {
    manager.StopProfTimer();
    manager.StartProfTimer();
    ASSERT_EQ(Threads(), 0U);

    manager.StartProfTimer();

    EXPECT_EQ(Threads(), 1U);
}

TEST_F(TimerManagerCount, StopWithoutATimerLogsNothing) {
    manager.StopProfTimer();

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(TimerManagerCount, StartWithoutMemoryDoesNotCount) {
    {
        const FailingNew noMemory;
        manager.StartProfTimer();
    }
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    ASSERT_EQ(Threads(), 0U);

    manager.StartProfTimer();

    EXPECT_EQ(Threads(), 1U);
}

TEST_F(TimerManagerCount, JobThatNeverStartedTheTimerStopsItUnderAnother) {
    manager.StartProfTimer();
    manager.RegisterTimerHandler(0, Handler(0));

    manager.RemoveTimerHandler(1);
    manager.StopProfTimer();

    EXPECT_EQ(mm.calls.Count("mmJoinTask"), 1U);
    EXPECT_EQ(calls.Count("uninit 0"), 1U);
}

TEST(TimerManagerInstance, IsOneForTheProcess) {
    EXPECT_EQ(&TimerManager::Instance(), &TimerManager::Instance());
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
