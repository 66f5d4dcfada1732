// Tests of the table of profiling tasks.
#include "device/task_manager.h"

#include <new>
#include <thread>

#include "device/device_fixture.h"
#include "device/task_relationship_mgr.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::TaskManager;
using analysis::rokt::message::StatusInfo;
using Analysis::Rokt::TaskHandle::TaskRelationshipMgr;

class TaskTable : public DeviceTest {
 protected:
    // Starts the job of a task and tells whether that went well.
    static bool StartTask(const std::string& key) {
        StatusInfo status;
        return TaskManager::Instance().GetTask(key)->OnJobStart(JobStart("", R"({"job_id":"job"})"),
                                                                status) == 0;
    }
    // The removal of the next directory throws.
    static void FailNextRemoval() {
        FakeMm::Instance().calls.OnCall([](const Call& call) {
            if (call.function == "mmRmdir") {
                FakeMm::Instance().calls.OnCall({});
                throw std::bad_alloc();
            }
        });
    }

    std::shared_ptr<MemoryTransport> transport = std::make_shared<MemoryTransport>();
    TaskManager& tasks = TaskManager::Instance();
};

TEST_F(TaskTable, TaskIsFoundUnderItsKey) {
    const auto task = tasks.CreateTask(0, "0_job", transport);

    ASSERT_NE(task, nullptr);
    EXPECT_EQ(tasks.GetTask("0_job"), task);
    EXPECT_EQ(tasks.GetTask("0_other"), nullptr);
    EXPECT_TRUE(Logged('I', "CreateTask, hostId(0), JobId(0_job)"));
    EXPECT_TRUE(Logged('I', "GetTask, JobId(0_other)"));
}

TEST_F(TaskTable, SecondTaskOfAKeyIsRefusedAndTheFirstStays) {
    const auto first = tasks.CreateTask(0, "0_job", transport);

    EXPECT_EQ(tasks.CreateTask(0, "0_job", transport), nullptr);

    EXPECT_EQ(tasks.GetTask("0_job"), first);
    EXPECT_TRUE(Logged('I', "JobId(0_job) task exist, don't create again"));
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0u);
}

TEST_F(TaskTable, TaskRunsOnTheDeviceBehindTheHostNumber) {
    TaskRelationshipMgr::Instance().AddRelation(5, 2);

    EXPECT_EQ(tasks.CreateTask(5, "5_job", transport)->GetDevId(), 2);
    EXPECT_EQ(tasks.CreateTask(6, "6_job", transport)->GetDevId(), 6);
}

TEST_F(TaskTable, TaskDeliversUnderTheHostsNumber) {
    TaskRelationshipMgr::Instance().AddRelation(5, 2);
    tasks.CreateTask(5, "5_job", transport);
    ASSERT_TRUE(StartTask("5_job"));

    tasks.ConnectionReset(transport);

    EXPECT_TRUE(Logged('I', "Entering device(5) FinishCollection...jobId:job"));
}

TEST_F(TaskTable, NullTransportIsRefusedFirst) {
    tasks.Uninit();

    EXPECT_EQ(tasks.CreateTask(0, "0_job", nullptr), nullptr);

    EXPECT_TRUE(Logged('E', "CreateTask failed, transport is nullptr"));
    EXPECT_FALSE(Logged('E', "TaskManager is not inited yet"));
}

TEST_F(TaskTable, SecondUninitIsZeroToo) {
    EXPECT_EQ(tasks.Uninit(), 0);
    EXPECT_EQ(tasks.Uninit(), 0);
}

TEST_F(TaskTable, NothingWorksAfterUninit) {
    tasks.Uninit();

    EXPECT_EQ(tasks.CreateTask(0, "0_job", transport), nullptr);
    EXPECT_EQ(tasks.GetTask("0_job"), nullptr);
    EXPECT_FALSE(tasks.DeleteTask("0_job"));

    EXPECT_EQ(RecordedLog::Instance().Count('E', "TaskManager is not inited yet"), 3u);
}

TEST_F(TaskTable, DeletingAnAbsentTaskIsNoError) {
    EXPECT_FALSE(tasks.DeleteTask("0_job"));

    EXPECT_TRUE(Logged('I', "DeleteTask, JobId(0_job)"));
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0u);
}

TEST_F(TaskTable, DeletingATaskStopsNothing) {
    const auto task = tasks.CreateTask(0, "0_job", transport);
    ASSERT_TRUE(StartTask("0_job"));

    EXPECT_TRUE(tasks.DeleteTask("0_job"));

    EXPECT_EQ(tasks.GetTask("0_job"), nullptr);
    EXPECT_FALSE(Logged('I', "stop collect ..."));
    StatusInfo status;
    EXPECT_EQ(task->OnJobEnd(status), 0);
}

TEST_F(TaskTable, ResetEndsTheTasksOfItsTransportAlone) {
    const auto other = std::make_shared<MemoryTransport>();
    tasks.CreateTask(0, "0_a", transport);
    tasks.CreateTask(0, "0_b", other);
    tasks.CreateTask(0, "0_c", transport);
    ASSERT_TRUE(StartTask("0_a"));

    tasks.ConnectionReset(transport);

    EXPECT_EQ(tasks.GetTask("0_a"), nullptr);
    EXPECT_NE(tasks.GetTask("0_b"), nullptr);
    EXPECT_EQ(tasks.GetTask("0_c"), nullptr);
    EXPECT_TRUE(Logged('I', "receive connection reset, _is_started:1"));
    EXPECT_EQ(RecordedLog::Instance().Count('I', "receive connection reset, _is_started:0"), 1u);
    EXPECT_EQ(RecordedLog::Instance().Count('I', "stop collect ..."), 1u);
}

TEST_F(TaskTable, ResetOfAForeignTransportChangesNothing) {
    const auto task = tasks.CreateTask(0, "0_job", transport);

    tasks.ConnectionReset(std::make_shared<MemoryTransport>());

    EXPECT_EQ(tasks.GetTask("0_job"), task);
}

TEST_F(TaskTable, ResetOfANullTransportOnlyLogs) {
    const auto task = tasks.CreateTask(0, "0_job", transport);
    RecordedLog::Instance().Clear();

    tasks.ConnectionReset(nullptr);

    EXPECT_TRUE(Logged('E', "ConnectionReset failed, transport is null"));
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 1u);
    EXPECT_EQ(tasks.GetTask("0_job"), task);
}

TEST_F(TaskTable, UninitEndsEveryTaskWhateverItsTransport) {
    tasks.CreateTask(0, "0_a", transport);
    tasks.CreateTask(1, "1_b", std::make_shared<MemoryTransport>());
    ASSERT_TRUE(StartTask("0_a"));
    ASSERT_TRUE(StartTask("1_b"));

    EXPECT_EQ(tasks.Uninit(), 0);

    EXPECT_EQ(RecordedLog::Instance().Count('I', "receive connection reset, _is_started:1"), 2u);
    EXPECT_EQ(RecordedLog::Instance().Count('I', "stop collect ..."), 2u);
    tasks.Init();
    EXPECT_EQ(tasks.GetTask("0_a"), nullptr);
}

TEST_F(TaskTable, TaskThatDoesNotFitInMemoryIsRefused) {
    // The key's look-up allocates nothing; the task is the first allocation of the creation.
    RecordedLog::Instance().SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(0);
        EXPECT_EQ(tasks.CreateTask(0, "0_job", transport), nullptr);
    }

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(tasks.GetTask("0_job"), nullptr);
}

TEST_F(TaskTable, RowThatDoesNotFitInMemoryIsNotMade) {
    RecordedLog::Instance().SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(1);  // the task passes
        EXPECT_EQ(tasks.CreateTask(0, "0_job", transport), nullptr);
    }

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(tasks.GetTask("0_job"), nullptr);
    EXPECT_EQ(transport.use_count(), 1);
}

TEST_F(TaskTable, ResetThatFailsForOneTaskEndsTheOthers) {
    tasks.CreateTask(0, "0_a", transport);
    tasks.CreateTask(1, "1_b", transport);
    ASSERT_TRUE(StartTask("0_a"));
    ASSERT_TRUE(StartTask("1_b"));
    FailNextRemoval();

    tasks.ConnectionReset(transport);

    EXPECT_TRUE(Logged('E', "Ending a task failed, key=0_a: std::bad_alloc"));
    EXPECT_EQ(tasks.GetTask("0_a"), nullptr);
    EXPECT_EQ(tasks.GetTask("1_b"), nullptr);
    EXPECT_EQ(transport.use_count(), 1);
}

TEST_F(TaskTable, UninitThatFailsForOneTaskEndsTheOthers) {
    tasks.CreateTask(0, "0_a", transport);
    tasks.CreateTask(1, "1_b", transport);
    ASSERT_TRUE(StartTask("0_a"));
    ASSERT_TRUE(StartTask("1_b"));
    FailNextRemoval();

    EXPECT_EQ(tasks.Uninit(), 0);

    EXPECT_TRUE(Logged('E', "Ending a task failed, key=0_a: std::bad_alloc"));
    EXPECT_EQ(transport.use_count(), 1);
}

TEST_F(TaskTable, ResetIsWaitedForByACreation) {
    const auto data = FileUploader("job");
    tasks.CreateTask(0, "0_job", transport);
    ASSERT_TRUE(StartTask("0_job"));
    data->HoldSends(true);

    std::thread reset([this] { tasks.ConnectionReset(transport); });
    ASSERT_TRUE(data->WaitForHeldSend());
    std::shared_ptr<analysis::rokt::device::IJobCallback> created;
    std::thread creation([&] { created = tasks.CreateTask(0, "0_job", transport); });
    data->HoldSends(false);
    reset.join();
    creation.join();

    EXPECT_EQ(tasks.GetTask("0_job"), created);
}

}  // namespace
}  // namespace tiv::test
