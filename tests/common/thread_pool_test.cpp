// The thread pool: which worker runs a task, stopping, refusals of the system.
#include "common/thread_pool.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <future>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/failing_new.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::thread {
namespace {

using tiv::test::FakeMm;
using tiv::test::RecordedLog;

// Names of the workers that ran tasks, in the order of their runs.
class Record {
 public:
    void Add(const std::string& worker) EXCLUDES(mutex_) {
        tiv::MutexLock lock(mutex_);
        workers_.push_back(worker);
    }
    std::vector<std::string> Workers() EXCLUDES(mutex_) {
        tiv::MutexLock lock(mutex_);
        return workers_;
    }

 private:
    tiv::Mutex mutex_;
    std::vector<std::string> workers_ GUARDED_BY(mutex_);
};

class RecordingTask : public Task {
 public:
    RecordingTask(Record& target, long id) : record(target), bindId(id) {}
    int Execute() override {
        record.Add(tiv::test::CurrentThreadName());
        return -1;
    }
    long GetBindId() override { return bindId; }

 private:
    Record& record;
    const long bindId;
};

class ThrowingTask : public Task {
 public:
    int Execute() override { throw std::runtime_error("broken task"); }
    long GetBindId() override { return 0; }
};

// Holds its worker until the gate opens.
class GatedTask : public Task {
 public:
    int Execute() override {
        entered.set_value();
        gate.get_future().wait();
        return 0;
    }
    long GetBindId() override { return 0; }

    std::promise<void> entered;
    std::promise<void> gate;
};

class ThreadPoolTest : public testing::Test {
 protected:
    ThreadPoolTest() {
        FakeMm::Instance().Reset();
        RecordedLog::Instance().Clear();
    }

    std::shared_ptr<Task> NewTask(long bindId = 0) {
        return std::make_shared<RecordingTask>(record, bindId);
    }

    Record record;
};

TEST_F(ThreadPoolTest, PoolOfZeroThreadsNeverStarts) {
    ThreadPool pool(THREAD_POOL_BIND, 0);

    pool.Start();

    EXPECT_EQ(pool.Dispatch(NewTask()), -1);
}

TEST_F(ThreadPoolTest, NullTaskIsRefused) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    pool.Start();

    EXPECT_EQ(pool.Dispatch(nullptr), -1);
}

TEST_F(ThreadPoolTest, BindIdChoosesTheWorker) {
    ThreadPool pool(THREAD_POOL_BIND, 4);
    pool.SetThreadPoolNamePrefix("W");
    pool.Start();

    EXPECT_EQ(pool.Dispatch(NewTask(7)), 0);
    EXPECT_EQ(pool.Dispatch(NewTask(11)), 0);
    pool.Stop();

    EXPECT_EQ(record.Workers(), (std::vector<std::string>{"W3", "W3"}));
}

TEST_F(ThreadPoolTest, BindIdIsCutTo32Bits) {
    ThreadPool pool(THREAD_POOL_BIND, 3);
    pool.SetThreadPoolNamePrefix("W");
    pool.Start();

    EXPECT_EQ(pool.Dispatch(NewTask(0x100000000L)), 0);
    pool.Stop();
    pool.Start();
    EXPECT_EQ(pool.Dispatch(NewTask(-2)), 0);  // 4294967294 modulo 3
    pool.Stop();

    EXPECT_EQ(record.Workers(), (std::vector<std::string>{"W0", "W2"}));
}

TEST_F(ThreadPoolTest, OtherPolicyRotates) {
    ThreadPool pool(THREAD_POOL_ROTATE, 4);
    pool.SetThreadPoolNamePrefix("W");

    for (int i = 0; i < 5; ++i) {
        pool.Start();
        EXPECT_EQ(pool.Dispatch(NewTask(2)), 0);
        pool.Stop();
    }

    EXPECT_EQ(record.Workers(), (std::vector<std::string>{"W0", "W1", "W2", "W3", "W0"}));
}

TEST_F(ThreadPoolTest, QueuedTasksRunBeforeTheWorkersEnd) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    pool.Start();
    const auto gated = std::make_shared<GatedTask>();
    ASSERT_EQ(pool.Dispatch(gated), 0);
    for (int i = 0; i < 10; ++i) {
        ASSERT_EQ(pool.Dispatch(NewTask()), 0);
    }
    EXPECT_EQ(record.Workers().size(), 0U);
    // The worker comes out of its task when it is told to quit already.
    FakeMm::Instance().mmJoinTask = [gated,
                                     join = FakeMm::Instance().mmJoinTask](mmThread* worker) {
        gated->gate.set_value();
        return join(worker);
    };

    pool.Stop();

    EXPECT_EQ(record.Workers().size(), 10U);
}

TEST_F(ThreadPoolTest, DispatchAfterStopIsRefused) {
    ThreadPool pool(THREAD_POOL_BIND, 2);
    pool.Start();
    pool.Stop();

    EXPECT_EQ(pool.Dispatch(NewTask()), -1);
}

TEST_F(ThreadPoolTest, StoppedPoolStartsAgain) {
    ThreadPool pool(THREAD_POOL_BIND, 2);
    pool.Start();
    pool.Stop();

    pool.Start();
    EXPECT_EQ(pool.Dispatch(NewTask()), 0);
    pool.Stop();

    EXPECT_EQ(record.Workers().size(), 1U);
}

TEST_F(ThreadPoolTest, WorkersAreNamedByPrefixAndIndex) {
    ThreadPool pool(THREAD_POOL_BIND, 2);
    pool.SetThreadPoolNamePrefix(CHANNEL_POOL_NAME_PREFIX);
    pool.Start();
    pool.Stop();

    EXPECT_TRUE(RecordedLog::Instance().Has('I', "New thread QTRX_ChanPool_0 begins to run"));
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "New thread QTRX_ChanPool_1 begins to run"));
}

TEST_F(ThreadPoolTest, FullQueueBlocksDispatchUnderTheWorkersName) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    pool.SetThreadPoolNamePrefix("W");
    pool.SetThreadPoolQueueSize(1);
    pool.Start();
    const auto gated = std::make_shared<GatedTask>();
    ASSERT_EQ(pool.Dispatch(gated), 0);
    gated->entered.get_future().wait();
    ASSERT_EQ(pool.Dispatch(NewTask()), 0);
    std::thread dispatcher([&] { EXPECT_EQ(pool.Dispatch(NewTask()), 0); });

    EXPECT_TRUE(RecordedLog::Instance().WaitFor(
        'W', "IsFULL, QueueName: W0, QueueCapacity:1, QueueSize:1"));
    gated->gate.set_value();
    dispatcher.join();
    pool.Stop();

    EXPECT_EQ(record.Workers().size(), 2U);
}

TEST_F(ThreadPoolTest, QueueHolds64TasksUnlessToldOtherwise) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    pool.SetThreadPoolNamePrefix("W");
    pool.Start();
    const auto gated = std::make_shared<GatedTask>();
    ASSERT_EQ(pool.Dispatch(gated), 0);
    gated->entered.get_future().wait();
    std::thread dispatcher([&] {
        for (int i = 0; i < 65; ++i) {
            (void)pool.Dispatch(NewTask());
        }
    });

    EXPECT_TRUE(RecordedLog::Instance().WaitFor(
        'W', "IsFULL, QueueName: W0, QueueCapacity:64, QueueSize:64"));
    gated->gate.set_value();
    dispatcher.join();
}

TEST_F(ThreadPoolTest, DispatchSucceedsEvenWhenTheQueueQuit) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    pool.SetThreadPoolNamePrefix("W");
    pool.SetThreadPoolQueueSize(1);
    pool.Start();
    const auto gated = std::make_shared<GatedTask>();
    ASSERT_EQ(pool.Dispatch(gated), 0);
    gated->entered.get_future().wait();
    ASSERT_EQ(pool.Dispatch(NewTask()), 0);
    std::thread dispatcher([&] { EXPECT_EQ(pool.Dispatch(NewTask()), 0); });
    ASSERT_TRUE(RecordedLog::Instance().WaitFor(
        'W', "IsFULL, QueueName: W0, QueueCapacity:1, QueueSize:1"));

    std::thread stopper([&] { pool.Stop(); });
    dispatcher.join();
    gated->gate.set_value();
    stopper.join();

    EXPECT_EQ(record.Workers().size(), 1U);
}

TEST_F(ThreadPoolTest, ExceptionOfATaskLeavesTheWorkerAlive) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    pool.SetThreadPoolNamePrefix("W");
    pool.Start();

    ASSERT_EQ(pool.Dispatch(std::make_shared<ThrowingTask>()), 0);
    ASSERT_EQ(pool.Dispatch(NewTask()), 0);
    pool.Stop();

    EXPECT_EQ(record.Workers().size(), 1U);
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E', "Task ended by an exception, thread=W0, reason=broken task"));
}

TEST_F(ThreadPoolTest, RefusedWorkerFailsTheWholeStart) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", -1, 1, 1);
    ThreadPool pool(THREAD_POOL_BIND, 3);

    pool.Start();

    EXPECT_EQ(pool.Dispatch(NewTask()), -1);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 3U);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmJoinTask"), 2U);
}

TEST_F(ThreadPoolTest, WorkerThatCannotBeAllocatedLeavesThePoolNotStarted) {
    ThreadPool pool(THREAD_POOL_BIND, 2);
    {
        tiv::test::FailingNew failing;
        pool.Start();
    }

    EXPECT_EQ(pool.Dispatch(NewTask()), -1);
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 0U);
}

TEST_F(ThreadPoolTest, WorkersBeforeTheOneThatCannotBeAllocatedKeepRunning) {
    std::optional<tiv::test::FailingNew> failing;
    const auto create = FakeMm::Instance().mmCreateTaskWithThreadAttr;
    FakeMm::Instance().mmCreateTaskWithThreadAttr = [&](auto... arguments) {
        failing.emplace(1);  // behind the place of the first worker in the list
        return create(arguments...);
    };
    ThreadPool pool(THREAD_POOL_BIND, 2);

    pool.Start();
    failing.reset();

    EXPECT_EQ(pool.Dispatch(NewTask()), -1);
    EXPECT_EQ(RecordedLog::Instance().Count('E', "make shared failed, message: std::bad_alloc"),
              1U);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmJoinTask"), 0U);
    pool.Stop();
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmJoinTask"), 1U);
}

TEST_F(ThreadPoolTest, QueueThatCannotBeAllocatedFailsTheStart) {
    ThreadPool pool(THREAD_POOL_BIND, 1);
    {
        tiv::test::FailingNew failing(1);
        pool.Start();
    }

    EXPECT_EQ(pool.Dispatch(NewTask()), -1);
    EXPECT_EQ(RecordedLog::Instance().Count('E', "make shared failed, message: std::bad_alloc"),
              1U);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 0U);
}

TEST_F(ThreadPoolTest, FailedStopOfAWorkerIsToldAndTheOthersAreStopped) {
    ThreadPool pool(THREAD_POOL_BIND, 2);
    pool.SetThreadPoolNamePrefix("W");
    pool.Start();
    FakeMm::Instance().mmJoinTask = [](mmThread* handle) {
        pthread_join(*handle, nullptr);
        return -1;
    };

    pool.Stop();

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"Failed to stop thread: W0", "Failed to stop thread: W1"}));
}

}  // namespace
}  // namespace analysis::rokt::common::thread
