// The abstract thread: start, stop, names, failures of the system.
#include "common/thread.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <future>
#include <memory>
#include <stdexcept>
#include <thread>

#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::thread {
namespace {

using tiv::test::FakeMm;
using tiv::test::RecordedLog;

// Runs until it is told to quit.
class PollingThread : public Thread {
 public:
    ~PollingThread() override { (void)Stop(); }

 protected:
    void Run(const ErrorContext& starterContext) override {
        contextId = starterContext.id;
        name = tiv::test::CurrentThreadName();
        while (!IsQuit()) {
            std::this_thread::yield();
        }
    }

 public:
    uint64_t contextId = 99;
    std::string name;
};

// Ends at once and leaves its end to the base class.
class ShortThread : public Thread {
 public:
    explicit ShortThread(std::promise<void>& end) : ended(end) {}

 protected:
    void Run(const ErrorContext&) override { ended.set_value(); }

 private:
    std::promise<void>& ended;
};

class ThrowingThread : public Thread {
 public:
    ~ThrowingThread() override { (void)Stop(); }

 protected:
    void Run(const ErrorContext&) override { throw std::runtime_error("broken body"); }
};

// Joins and reports a failure all the same.
int32_t JoinAndFail(mmThread* handle) {
    pthread_join(*handle, nullptr);
    return -1;
}

class ThreadTest : public testing::Test {
 protected:
    ThreadTest() {
        FakeMm::Instance().Reset();
        RecordedLog::Instance().Clear();
    }

    size_t Created() const { return FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"); }
    size_t Joined() const { return FakeMm::Instance().calls.Count("mmJoinTask"); }

    PollingThread thread;
};

TEST_F(ThreadTest, SecondStartCreatesNoThread) {
    EXPECT_EQ(thread.Start(), 0);
    EXPECT_EQ(thread.Start(), 0);

    EXPECT_EQ(Created(), 1U);
}

TEST_F(ThreadTest, StopOfANewThreadOnlySetsTheFlag) {
    EXPECT_FALSE(thread.IsQuit());

    EXPECT_EQ(thread.Stop(), 0);

    EXPECT_TRUE(thread.IsQuit());
    EXPECT_EQ(Joined(), 0U);
}

TEST_F(ThreadTest, StartClearsTheFlag) {
    ASSERT_EQ(thread.Stop(), 0);

    ASSERT_EQ(thread.Start(), 0);

    EXPECT_FALSE(thread.IsQuit());
}

TEST_F(ThreadTest, StopJoinsTheBody) {
    ASSERT_EQ(thread.Start(), 0);

    EXPECT_EQ(thread.Stop(), 0);

    EXPECT_EQ(Joined(), 1U);
    EXPECT_EQ(thread.Stop(), 0);
    EXPECT_EQ(Joined(), 1U);
}

TEST_F(ThreadTest, StoppedThreadStartsAgain) {
    ASSERT_EQ(thread.Start(), 0);
    ASSERT_EQ(thread.Stop(), 0);

    EXPECT_EQ(thread.Start(), 0);

    EXPECT_FALSE(thread.IsQuit());
    EXPECT_EQ(Created(), 2U);
}

TEST_F(ThreadTest, SetQuitOnlySetsTheFlag) {
    ASSERT_EQ(thread.Start(), 0);

    EXPECT_EQ(thread.SetQuit(), &thread);

    EXPECT_TRUE(thread.IsQuit());
    EXPECT_EQ(Joined(), 0U);
}

TEST_F(ThreadTest, BodyRunsUnderItsName) {
    thread.SetThreadName("QTRX_CtrlRecv");
    ASSERT_EQ(thread.Start(), 0);
    ASSERT_EQ(thread.Stop(), 0);

    EXPECT_EQ(thread.name, "QTRX_CtrlRecv");
    EXPECT_EQ(thread.GetThreadName(), "QTRX_CtrlRecv");
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "New thread QTRX_CtrlRecv begins to run"));
}

TEST_F(ThreadTest, NameIsEmptyUnlessSet) {
    ASSERT_EQ(thread.Start(), 0);
    ASSERT_EQ(thread.Stop(), 0);

    EXPECT_EQ(thread.GetThreadName(), "");
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "New thread  begins to run"));
}

TEST_F(ThreadTest, BodyGetsTheProcessWideContext) {
    ASSERT_EQ(thread.Start(), 0);
    ASSERT_EQ(thread.Stop(), 0);

    EXPECT_EQ(thread.contextId, 0U);
}

TEST_F(ThreadTest, AttributesAreZeroButForTheStackSize) {
    mmThreadAttr seen = {1, 1, 1, 1, 1, 1, 1};
    FakeMm::Instance().mmCreateTaskWithThreadAttr = [&seen](mmThread*, const mmUserBlock*,
                                                            const mmThreadAttr* attr) {
        seen = *attr;
        return -1;
    };

    EXPECT_EQ(thread.Start(), -1);

    EXPECT_EQ(seen.detachFlag, 0);
    EXPECT_EQ(seen.priorityFlag, 0);
    EXPECT_EQ(seen.priority, 0);
    EXPECT_EQ(seen.policyFlag, 0);
    EXPECT_EQ(seen.policy, 0);
    EXPECT_EQ(seen.threadStackFlag, 0);
    EXPECT_EQ(seen.stackSize, 131072U);
}

TEST_F(ThreadTest, EntryWithoutObjectEndsAtOnce) {
    mmUserBlock seen = {nullptr, nullptr};
    FakeMm::Instance().mmCreateTaskWithThreadAttr = [&seen](mmThread*, const mmUserBlock* block,
                                                            const mmThreadAttr*) {
        seen = *block;
        return -1;
    };
    ASSERT_EQ(thread.Start(), -1);

    EXPECT_EQ(seen.pulArg, static_cast<Thread*>(&thread));
    EXPECT_EQ(seen.procFunc(nullptr), nullptr);
    EXPECT_FALSE(RecordedLog::Instance().Contains('I', "New thread"));
}

TEST_F(ThreadTest, RefusedThreadIsNotStarted) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", -1);

    EXPECT_EQ(thread.Start(), -1);

    EXPECT_FALSE(thread.IsStarted());
    EXPECT_EQ(thread.Stop(), 0);
    EXPECT_EQ(Joined(), 0U);
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0U);
    EXPECT_EQ(thread.Start(), 0);
}

TEST_F(ThreadTest, HandleOfARefusedThreadIsCleared) {
    mmThread* handle = nullptr;
    FakeMm::Instance().mmCreateTaskWithThreadAttr = [&handle](mmThread* made, const mmUserBlock*,
                                                              const mmThreadAttr*) {
        *made = 77;
        handle = made;
        return -1;
    };

    EXPECT_EQ(thread.Start(), -1);

    ASSERT_NE(handle, nullptr);
    EXPECT_EQ(*handle, 0U);
}

TEST_F(ThreadTest, ThreadWithoutAHandleIsNotJoined) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 0);

    EXPECT_EQ(thread.Start(), 0);
    EXPECT_EQ(thread.Stop(), 0);

    EXPECT_TRUE(thread.IsQuit());
    EXPECT_EQ(Joined(), 0u);
}

TEST_F(ThreadTest, FailedJoinIsToldOnceAndNotRepeated) {
    FakeMm::Instance().mmJoinTask = JoinAndFail;
    ASSERT_EQ(thread.Start(), 0);

    EXPECT_EQ(thread.Stop(), -1);
    EXPECT_TRUE(thread.IsQuit());
    EXPECT_EQ(thread.Stop(), 0);

    EXPECT_EQ(Joined(), 1U);
}

TEST_F(ThreadTest, DestructorWarnsOfAFailedJoin) {
    FakeMm::Instance().mmJoinTask = JoinAndFail;
    std::promise<void> ended;
    auto shortThread = std::make_unique<ShortThread>(ended);
    ASSERT_EQ(shortThread->Start(), 0);
    ended.get_future().wait();

    shortThread.reset();

    EXPECT_TRUE(RecordedLog::Instance().Has('W', "Failed to stop thread."));
}

TEST_F(ThreadTest, DestructorJoinsWithoutAMessage) {
    std::promise<void> ended;
    auto shortThread = std::make_unique<ShortThread>(ended);
    ASSERT_EQ(shortThread->Start(), 0);
    ended.get_future().wait();

    shortThread.reset();

    EXPECT_EQ(Joined(), 1U);
    EXPECT_EQ(RecordedLog::Instance().CountOf('W'), 0U);
}

TEST_F(ThreadTest, ExceptionEndsTheThreadAndNotTheProcess) {
    ThrowingThread throwing;
    throwing.SetThreadName("thrower");
    ASSERT_EQ(throwing.Start(), 0);

    EXPECT_EQ(throwing.Stop(), 0);

    EXPECT_TRUE(
        RecordedLog::Instance().Has('E', "Thread thrower ended by an exception: broken body"));
}

TEST(ThreadNames, AreThoseOfTheSystem) {
    EXPECT_STREQ(CTRL_RECV_THREAD_NAME, "QTRX_CtrlRecv");
    EXPECT_STREQ(UPLOADER_THREAD_NAME, "QTRX_Upld");
    EXPECT_STREQ(CHANNEL_POLL_THREAD_NAME, "QTRX_ChanPoll");
    EXPECT_STREQ(CHANNEL_POOL_NAME_PREFIX, "QTRX_ChanPool_");
    EXPECT_STREQ(PROF_TIMER_THREAD_NAME, "QTRX_ProfTimer");
    EXPECT_STREQ(PERF_SCRIPT_THREAD_NAME, "QTRX_PerfScript");
}

TEST(ThreadNames, ReservedOnesAreThoseOfTheSystem) {
    EXPECT_STREQ(SEND_POOL_NAME_PREFIX, "QTRX_SndPool_");
    EXPECT_STREQ(DEV_TRANS_THREAD_NAME, "QTRX_DevTrans");
    EXPECT_STREQ(PROF_TASK_THREAD_NAME, "QTRX_ProfTask");
    EXPECT_STREQ(DEV_THREAD_NAME_PREFIX, "QTRX_Dev_");
    EXPECT_STREQ(COLLECT_SERVER_THREAD_NAME, "QTRX_CollectSrv");
    EXPECT_STREQ(TASK_THREAD_NAME, "QTRX_Task");
    EXPECT_STREQ(HEART_BEAT_THREAD_NAME, "QTRX_HeartBeat");
    EXPECT_STREQ(UPLOADER_DUMPER_THREAD_NAME, "QTRX_UploaderDumper");
    EXPECT_STREQ(HDC_DUMPER_THREAD_NAME, "QTRX_HdcDumper");
    EXPECT_STREQ(RPC_DUMPER_THREAD_NAME, "QTRX_RpcDumper");
    EXPECT_STREQ(HELPER_DUMPER_THREAD_NAME, "QTRX_HelperDumper");
    EXPECT_STREQ(DYN_PROF_SERVER_THREAD_NAME, "QTRX_DynProfServer");
    EXPECT_STREQ(DYN_PROF_CLIENT_THREAD_NAME, "QTRX_DynProfClient");
}

}  // namespace
}  // namespace analysis::rokt::common::thread
