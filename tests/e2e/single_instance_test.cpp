// The life of the daemon's process: its lock, its start and its end.
#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <filesystem>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"
#include "support/fault_control.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;

constexpr int FAILED_STATUS = 255;

class SingleInstance : public DaemonTest {
 protected:
    void SetUp() override {
        DaemonTest::SetUp();
        fs::remove_all(Home() + "/ide_daemon");
    }

    static std::string Home() { return getpwuid(getuid())->pw_dir; }
    static std::string LockFile() { return Home() + "/ide_daemon/.ruvo.lock"; }

    // The daemon with a fault plan in front of its driver and its platform.
    std::unique_ptr<ChildProcess> NewDaemonWithFaults(const std::string& plan) {
        return std::make_unique<ChildProcess>(
            directory_.Path(), "daemon", std::vector<std::string>{TIV_WITH_FAULTS_PROGRAM},
            Environment{{"TIV_FAULT_PLAN", directory_.Write("plan", plan)},
                        {"TIV_FAULT_SOCKET", directory_.Path("faults")},
                        {"TIV_LOG_LEVEL", "info"}});
    }

    bool Serves() {
        RawSession session(SocketPath(0));
        return session.Send(ControlHandshake("serves")) &&
               session.ReceiveAnswer().status == ACCEPTED;
    }
};

}  // namespace

TEST_F(SingleInstance, SecondDaemonSaysSoAndTakesTheNameOfTheLockFile) {
    StartDaemon();
    ASSERT_TRUE(fs::exists(LockFile()));

    const auto second = NewDaemon("second");

    EXPECT_EQ(second->Wait(), FAILED_STATUS);
    EXPECT_EQ(second->Output(), "tiv is exist, don't start again\n");
    EXPECT_NE(second->Errors().find("tiv is exist, don't start again"), std::string::npos);
    EXPECT_NE(second->Errors().find("single process start error"), std::string::npos);
    EXPECT_FALSE(fs::exists(LockFile()));
    EXPECT_TRUE(Serves());
}

TEST_F(SingleInstance, KilledDaemonLeavesItsLockFileAndStartsAgain) {
    StartDaemon();
    daemon_->Kill();
    EXPECT_TRUE(fs::exists(LockFile()));

    daemon_ = NewDaemon("again");

    EXPECT_TRUE(WaitForServer(0)) << daemon_->Errors();
    EXPECT_TRUE(Serves());
    EXPECT_TRUE(fs::exists(LockFile()));
}

TEST_F(SingleInstance, OrderlyEndLeavesNothingBehind) {
    // The loop over device notices is interrupted without end until the semaphore itself fails.
    daemon_ = NewDaemonWithFaults("mmSemWait skip=1 count=-1 result=-1 errno=4 delay=10\n");
    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(control.Send(ControlHandshake("job")));
    ASSERT_EQ(control.ReceiveAnswer().status, ACCEPTED);
    ASSERT_TRUE(control.Send(JobStart("job", SampleConfig("job", {{"sys_profiling", "on"}}))));
    ASSERT_EQ(control.ReceiveAnswer().status, ACCEPTED);

    const test::FaultControl faults(directory_.Path("faults"));
    ASSERT_EQ(faults.ReplacePlan("mmSemWait result=-1 errno=22\n"), "");

    EXPECT_EQ(daemon_->Wait(), 0) << daemon_->Errors();
    EXPECT_TRUE(control.WaitForClose());
    EXPECT_FALSE(fs::exists(LockFile()));
    EXPECT_FALSE(fs::exists(SocketPath(0)));
    EXPECT_FALSE(fs::exists("/var/log/npu/profiling/job"));
    EXPECT_NE(daemon_->Errors().find("dev sem wait error"), std::string::npos);
    EXPECT_NE(daemon_->Errors().find("tiv start up exit"), std::string::npos);
}

TEST_F(SingleInstance, ResourceManagerThatIsNotReadyEndsTheStart) {
    ConfigureDriver(R"({"resource_manager_ready": false})");

    daemon_ = NewDaemon("daemon");

    EXPECT_EQ(daemon_->Wait(), FAILED_STATUS);
    EXPECT_NE(daemon_->Errors().find("IAMResMgrReady failed."), std::string::npos);
    EXPECT_EQ(daemon_->Output(), "");
    EXPECT_FALSE(fs::exists(Home() + "/ide_daemon"));
}

TEST_F(SingleInstance, ResourceManagerThatFailsEndsTheStart) {
    daemon_ = NewDaemonWithFaults("IAMResMgrReady result=5\n");

    EXPECT_EQ(daemon_->Wait(), FAILED_STATUS);
    EXPECT_NE(daemon_->Errors().find("IAMResMgrReady failed."), std::string::npos);
    EXPECT_FALSE(fs::exists(Home() + "/ide_daemon"));
}

TEST_F(SingleInstance, LogThatTakesNoAttributesIsServedWithout) {
    daemon_ = NewDaemonWithFaults("DlogSetAttr result=1\n");

    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();
    EXPECT_TRUE(daemon_->WaitForError("Set log attr failed."));
    EXPECT_TRUE(Serves());
}

TEST_F(SingleInstance, MoreDevicesThanTheTableHoldsEndTheStart) {
    ConfigureDriver(R"({"devices": 1125})");

    daemon_ = NewDaemon("daemon");

    EXPECT_EQ(daemon_->Wait(), FAILED_STATUS);
    EXPECT_NE(daemon_->Errors().find("device num 1125"), std::string::npos);
    EXPECT_NE(daemon_->Errors().find("tiv init failed, exit"), std::string::npos);
    EXPECT_EQ(daemon_->Output(), "init [hdc] failed\ntiv init failed, exit\n");
    EXPECT_FALSE(fs::exists(LockFile()));
}

TEST_F(SingleInstance, AcceptThatFailsIsRepairedByANewServer) {
    daemon_ = NewDaemonWithFaults("drvHdcSessionAccept result=-1 errno=5\n");

    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();

    EXPECT_TRUE(
        test::FaultControl(directory_.Path("faults")).WaitForCalls("drvHdcServerCreate", 2));
    EXPECT_TRUE(WaitForServer(0));
    EXPECT_TRUE(Serves());
}

TEST_F(SingleInstance, SessionWithoutItsReferenceIsServed) {
    daemon_ = NewDaemonWithFaults("drvHdcSetSessionReference result=1 count=-1\n");

    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();

    EXPECT_TRUE(Serves());
}

}  // namespace tiv::e2e
