// Tests of the control plane over parts that fail although they work by themselves.
#include "device/failing_parts.h"

#include "device/engine_fixture.h"
#include "device/handshake_fixture.h"
#include "device/prof_device_core.h"
#include "device/receiver.h"
#include "device/task_manager.h"
#include "support/fake_mm.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::Receiver;
using analysis::rokt::device::TaskManager;
using Paths = std::vector<std::string>;

class EngineParts : public EngineTest {};

TEST_F(EngineParts, NothingIsMadeOrRemovedWithoutAWorkingDirectory) {
    const FailingPart failing("GetInotifyDir");

    EXPECT_EQ(StartCollect(), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_EQ(log.Count('E', "GetInotifyDir failed"), 2u);  // at the making and the removal
    EXPECT_EQ(PathsOf("mmMkdir"), Paths());
    EXPECT_EQ(PathsOf("mmRmdir"), Paths());
}

TEST_F(EngineParts, JobDirectoryGoesAgainWithoutADirectoryOfTheDevice) {
    const FailingPart failing("GetPerfDataDir");

    EXPECT_EQ(StartCollect(), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_EQ(log.Count('E', "GetPerfDataDir failed"), 2u);
    EXPECT_TRUE(log.Has('I', "Creating dir: \"/var/log/npu/profiling/job\", ret=0"));
    EXPECT_EQ(PathsOf("mmRmdir"), Paths{JOB_DIR});
}

TEST_F(EngineParts, StopGoesOnWithoutAWorkingDirectory) {
    ASSERT_EQ(StartCollect(), 0);
    const FailingPart failing("GetInotifyDir");

    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_TRUE(log.Has('E', "GetInotifyDir failed"));
    EXPECT_EQ(PathsOf("mmRmdir"), Paths());
    EXPECT_FALSE(PollerIsHeld());
}

TEST_F(EngineParts, StopRemovesTheJobDirectoryWithoutOneOfTheDevice) {
    ASSERT_EQ(StartCollect(), 0);
    const FailingPart failing("GetPerfDataDir");

    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_TRUE(log.Has('E', "GetPerfDataDir failed"));
    EXPECT_EQ(PathsOf("mmRmdir"), Paths{JOB_DIR});
    EXPECT_FALSE(log.Has('I', "Removing collected data: \"\""));
}

class HandshakeParts : public HandshakeTest {};

TEST_F(HandshakeParts, ReceiverThatFailsToInitIsRefusedAndNotFiled) {
    const FailingPart failing("InitReceiver");

    EXPECT_EQ(OpenControl(session, "job"), 7);

    ExpectRefusal(session, "Failed to init receiver");
    EXPECT_TRUE(log.Has('E', "Failed to init receiver"));
    EXPECT_EQ(entry.GetReceiver("job", 2), nullptr);
    EXPECT_TRUE(session->Closed());
}

class ComponentParts : public DeviceTest {
 protected:
    static bool HasTask(const std::string& key) {
        return TaskManager::Instance().GetTask(key) != nullptr;
    }

    std::shared_ptr<MemoryTransport> session = std::make_shared<MemoryTransport>();
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(ComponentParts, TasksEndAlthoughTheEntryDoesNotEndWell) {
    ASSERT_NE(TaskManager::Instance().CreateTask(2, "2_job", session), nullptr);
    const FailingPart failing("UninitEntry");

    EXPECT_EQ(IdeDeviceProfileCleanup(), 0);

    EXPECT_TRUE(log.Has('E', "CollectionEntry instance unInit failed"));
    EXPECT_TRUE(log.Has('I', "receive connection reset, _is_started:0"));
    EXPECT_TRUE(log.Has('V', "End to cleanup profiling, ret:0"));
}

TEST_F(ComponentParts, ExceptionDuringCleanupFailsIt) {
    const FailingPart failing("UninitTasks");

    EXPECT_EQ(IdeDeviceProfileCleanup(), -1);

    EXPECT_TRUE(log.Has('E', "Cleanup of profiling failed: std::bad_alloc"));
    EXPECT_TRUE(log.Has('V', "End to cleanup profiling, ret:-1"));
}

TEST_F(ComponentParts, TaskThatFailsToInitIsDropped) {
    const FailingPart failing("InitTask");

    EXPECT_EQ(TaskManager::Instance().CreateTask(2, "2_job", session), nullptr);

    EXPECT_FALSE(HasTask("2_job"));
    EXPECT_EQ(session.use_count(), 1);
}

TEST_F(ComponentParts, ExceptionAtTheEndOfALostSessionStaysInItsThread) {
    const auto receiver = std::make_shared<Receiver>(session);
    receiver->SetDevIdOnHost(5);
    ASSERT_EQ(receiver->Init(2), 0);
    const FailingPart failing("ConnectionReset");
    session->ClosePeer();

    receiver->Run({});

    EXPECT_TRUE(
        log.Has('E', "Ending the tasks of a lost session failed, device=2: std::bad_alloc"));
    EXPECT_TRUE(log.Has('I', "Receiver end, devId:2, devIdOnHost:5"));
    EXPECT_TRUE(receiver->IsQuit());
}

}  // namespace
}  // namespace tiv::test
