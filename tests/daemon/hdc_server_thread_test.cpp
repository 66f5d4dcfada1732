// The accept loop of one device.
#include "daemon/hdc_server_thread.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "daemon/global_ctrl_info.h"
#include "daemon/hdc_session_thread.h"
#include "daemon/ide_daemon_hdc.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace {

using tiv::test::FakeDriver;
using tiv::test::FakeMm;
using tiv::test::FaultTable;
using tiv::test::RecordedLog;

// A registered device whose accept loop the test runs on its own thread. Accepts that nobody
// scripted fail with error 5 on a record that is marked as removed: that ends the loop.
class ServerThread : public testing::Test {
 protected:
    void SetUp() override {
        ASSERT_EQ(IdeDaemonHdcInit(), 0);
        device_ = GetGlobalCtrlInfo().devices[0];
        device_->threadShare = device_;
        RecordedLog::Instance().Clear();
    }

    // `served` of the accepts before the end reach the driver; the others have a fault of their
    // own.
    void EndAfterAccepts(int accepts, int served = 0) {
        FakeDriver::Instance().calls.OnCall([this, accepts](const tiv::test::Call& call) {
            if (call.function == "drvHdcSessionAccept" && ++accepts_ > accepts) {
                device_->removed = 1;
            }
        });
        FakeDriver::Instance().calls.Fail("drvHdcSessionAccept", -1, EIO, -1, served);
    }

    void Run() { IdeDaemonHdcHandleEvent(device_.get()); }

    std::shared_ptr<DeviceInfo> device_;
    int accepts_ = 0;
};

// The device that the driver counts as 3 and the daemon knows as 7.
class RenumberedServerThread : public ServerThread {
 protected:
    void SetUp() override {
        Renumber(3);
        ASSERT_EQ(IdeDaemonHdcInit(), 0);
        device_ = GetGlobalCtrlInfo().devices[7];
        device_->threadShare = device_;
        RecordedLog::Instance().Clear();
    }

    static void Renumber(uint32_t logId) {
        FakeDriver::Instance().SetDevices({logId});
        FakeDriver::Instance().SetPhyId(logId, 7);
    }
};

}  // namespace

TEST(ServerThreadArgument, NullEndsAtOnce) {
    EXPECT_EQ(IdeDaemonHdcHandleEvent(nullptr), nullptr);

    EXPECT_TRUE(RecordedLog::Instance().Has('V', "<START thread> IdeDaemonHdcHandleEvent start"));
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "invalid parameter"));
    EXPECT_FALSE(RecordedLog::Instance().Has('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
}

TEST_F(ServerThread, NamesItselfAndMakesTheServerOfItsDevice) {
    EndAfterAccepts(0);

    Run();

    EXPECT_EQ(FakeMm::Instance().calls.Calls("mmSetCurrentThreadName")[0].Text("name"),
              "ide_hdc_server");
    const auto creates = FakeDriver::Instance().calls.Calls("drvHdcServerCreate");
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_EQ(creates[0].Value("device"), 0);
    EXPECT_EQ(creates[0].Value("service"), 4);
    EXPECT_TRUE(
        RecordedLog::Instance().Has('I', "logDevId 0 phyDevId:0 create HDC server successfully"));
    EXPECT_TRUE(RecordedLog::Instance().Has('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
}

TEST_F(ServerThread, RemovedDeviceLeavesTheTable) {
    EndAfterAccepts(0);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Hdc Session Accept Error: 5"));
    EXPECT_TRUE(GetGlobalCtrlInfo().devices.empty());
    EXPECT_EQ(FakeDriver::Instance().OpenServers(), 0u);
}

TEST_F(ServerThread, InterruptedAcceptKeepsTheServer) {
    FakeDriver::Instance().calls.Fail("drvHdcSessionAccept", -1, EINTR, 2);
    EndAfterAccepts(2);

    Run();

    EXPECT_EQ(RecordedLog::Instance().Count('W', "Hdc Session Accept Break By EINTR"), 2u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 1u);
    const FaultTable& calls = FakeDriver::Instance().calls;
    EXPECT_EQ(calls.Count("drvHdcServerDestroy"), 1u);
    EXPECT_GT(calls.Calls("drvHdcServerDestroy")[0].order,
              calls.Calls("drvHdcSessionAccept").back().order);
}

TEST_F(ServerThread, OtherFailureMakesTheServerAnew) {
    FakeDriver::Instance().calls.Fail("drvHdcSessionAccept", -1, EIO, 1);
    EndAfterAccepts(1);

    Run();

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 2u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerDestroy"), 2u);
    EXPECT_EQ(RecordedLog::Instance().Count('E', "Hdc Session Accept Error: 5"), 2u);
}

TEST_F(ServerThread, NullSessionWithSuccessIsAFailureWithoutAnOldErrorNumber) {
    errno = EINTR;
    tiv::test::Fault null;
    null.function = "drvHdcSessionAccept";
    null.null = true;
    FakeDriver::Instance().calls.Add(null);
    EndAfterAccepts(1);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Hdc Session Accept Error: 0"));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 2u);
}

TEST_F(ServerThread, FailedServerDestroyIsLoggedAndTheHandleCleared) {
    FakeDriver::Instance().calls.Return("drvHdcServerDestroy", 23);
    EndAfterAccepts(0);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Hdc Server Destroy Error : 23"));
    EXPECT_EQ(device_->server.load(), nullptr);
}

TEST_F(ServerThread, RetriesUntilTheDriverIsReady) {
    FakeMm::Instance().SkipSleeps();
    FakeDriver::Instance().calls.Return("drvHdcServerCreate", 34, 2);
    FakeDriver::Instance().calls.Return("drvHdcServerCreate", 6, 1);
    EndAfterAccepts(0);

    Run();

    EXPECT_EQ(RecordedLog::Instance().Count(
                  'W', "logDevId 0 phyDevId 0 hdc not ready, sleep 5000 milliseconds and retry"),
              2u);
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'W',
        "logDevId 0 phyDevId 0 create HDC failed, error: 6, sleep 5000 milliseconds and retry"));
    EXPECT_EQ(FakeMm::Instance().Sleeps(), (std::vector<uint32_t>{5000, 5000, 5000}));
}

TEST_F(ServerThread, NullServerWithSuccessIsRetried) {
    FakeMm::Instance().SkipSleeps();
    tiv::test::Fault null;
    null.function = "drvHdcServerCreate";
    null.null = true;
    FakeDriver::Instance().calls.Add(null);
    EndAfterAccepts(0);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has(
        'W',
        "logDevId 0 phyDevId 0 create HDC failed, error: 0, sleep 5000 milliseconds and retry"));
}

TEST_F(ServerThread, UnknownPhysicalIdIsAskedForAgain) {
    FakeMm::Instance().SkipSleeps();
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1);
    EndAfterAccepts(0);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has(
        'W', "logDevId 0 phyDevId 0 not ready, sleep 5000 milliseconds and retry"));
    EXPECT_EQ(FakeMm::Instance().Sleeps(), (std::vector<uint32_t>{5000}));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 1u);
}

TEST_F(ServerThread, StoppingEndsTheRetries) {
    FakeMm::Instance().SkipSleeps();
    FakeDriver::Instance().calls.Return("drvHdcServerCreate", 34, -1);
    FakeMm::Instance().calls.OnCall([](const tiv::test::Call& call) {
        if (call.function == "mmSleep") {
            GetGlobalCtrlInfo().stopping = true;
        }
    });

    Run();

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 1u);
    EXPECT_TRUE(RecordedLog::Instance().Has('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
}

TEST_F(ServerThread, FailedReferenceDoesNotStopTheSession) {
    const HDC_SESSION session = FakeDriver::Instance().QueueAccept(0);
    FakeDriver::Instance().ClosePeer(session);
    FakeDriver::Instance().calls.Return("drvHdcSetSessionReference", 1);
    EndAfterAccepts(1, 1);

    Run();

    EXPECT_TRUE(FakeDriver::Instance().WaitForClosed(session));
    EXPECT_TRUE(RecordedLog::Instance().WaitFor('E', "Ide Hdc Read Request failed, err: 1"));
    IdeWaitForSessionThreads();
}

TEST_F(ServerThread, SessionThreadThatCannotStartEndsTheLoop) {
    const HDC_SESSION session = FakeDriver::Instance().QueueAccept(0);
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    Run();

    EXPECT_TRUE(FakeDriver::Instance().IsClosed(session));
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Thread Create Error: 11"));
    EXPECT_TRUE(RecordedLog::Instance().Has('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
    EXPECT_EQ(IdeSessionThreadCount(), 0u);
}

TEST_F(ServerThread, ServesOneSessionAfterAnother) {
    const HDC_SESSION first = FakeDriver::Instance().QueueAccept(0);
    const HDC_SESSION second = FakeDriver::Instance().QueueAccept(0);
    FakeDriver::Instance().ClosePeer(first);
    FakeDriver::Instance().ClosePeer(second);
    EndAfterAccepts(2, 2);

    Run();

    EXPECT_TRUE(FakeDriver::Instance().WaitForClosed(first));
    EXPECT_TRUE(FakeDriver::Instance().WaitForClosed(second));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcSetSessionReference"), 2u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 1u);
    IdeWaitForSessionThreads();
}

TEST_F(ServerThread, SessionThatCannotBeHandedOnLeavesTheServerAlone) {
    FakeDriver::Instance().QueueAccept(0);
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    Run();

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerDestroy"), 0u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcSessionAccept"), 1u);
}

TEST_F(ServerThread, RemovedDeviceStaysInTheTableWhenTheLockFails) {
    EndAfterAccepts(0);
    FakeMm::Instance().calls.Return("mmMutexLock", 1);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "mutex lock error"));
    EXPECT_EQ(GetGlobalCtrlInfo().devices.size(), 1u);
    EXPECT_TRUE(RecordedLog::Instance().Has('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
}

TEST_F(ServerThread, RemovedDeviceGoesAlsoWhenTheUnlockFails) {
    EndAfterAccepts(0);
    FakeMm::Instance().calls.Return("mmMutexUnLock", 1);

    Run();

    EXPECT_EQ(RecordedLog::Instance().Texts('E').back(), "mutex lock error");
    EXPECT_TRUE(GetGlobalCtrlInfo().devices.empty());
}

TEST_F(ServerThread, ExceptionCostsAPauseAndNotTheLoop) {
    FakeMm::Instance().SkipSleeps();
    FakeDriver::Instance().drvHdcServerCreate = [](int32_t, int32_t, HDC_SERVER*) -> int32_t {
        throw std::runtime_error("no room");
    };
    FakeDriver::Instance().calls.Return("drvHdcServerCreate", 34, -1, 1);
    FakeMm::Instance().calls.OnCall([](const tiv::test::Call& call) {
        if (call.function == "mmSleep" && FakeMm::Instance().Sleeps().size() == 2) {
            GetGlobalCtrlInfo().stopping = true;
        }
    });

    Run();

    EXPECT_EQ(
        RecordedLog::Instance().Texts('E'),
        (std::vector<std::string>{"Accepting was interrupted, phyDevId=0, message: no room"}));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 2u);
    EXPECT_EQ(FakeMm::Instance().Sleeps(), (std::vector<uint32_t>{5000, 5000}));
}

TEST_F(RenumberedServerThread, MakesTheServerByItsLogicalId) {
    EndAfterAccepts(0);

    Run();

    EXPECT_EQ(FakeDriver::Instance().calls.Calls("drvHdcServerCreate").at(0).Value("device"), 3);
    EXPECT_TRUE(
        RecordedLog::Instance().Has('I', "logDevId 3 phyDevId:7 create HDC server successfully"));
    EXPECT_EQ(device_->logDevId, 3u);
    EXPECT_TRUE(GetGlobalCtrlInfo().devices.empty());
}

TEST_F(RenumberedServerThread, LooksItsLogicalIdUpAnewAtEachAttempt) {
    FakeMm::Instance().SkipSleeps();
    FakeDriver::Instance().calls.Return("drvHdcServerCreate", 34);
    FakeMm::Instance().calls.OnCall([](const tiv::test::Call& call) {
        if (call.function == "mmSleep") {
            Renumber(5);
        }
    });
    EndAfterAccepts(0);

    Run();

    EXPECT_TRUE(RecordedLog::Instance().Has(
        'W', "logDevId 3 phyDevId 7 hdc not ready, sleep 5000 milliseconds and retry"));
    const auto creates = FakeDriver::Instance().calls.Calls("drvHdcServerCreate");
    ASSERT_EQ(creates.size(), 2u);
    EXPECT_EQ(creates[1].Value("device"), 5);
}

TEST_F(RenumberedServerThread, WarningsNameBothIdsTheLogicalOneAsItWasLast) {
    FakeMm::Instance().SkipSleeps();
    FakeDriver::Instance().calls.Return("drvHdcServerCreate", 6);
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1, 1, 1);
    EndAfterAccepts(0);

    Run();

    EXPECT_EQ(RecordedLog::Instance().OwnTexts('W'),
              (std::vector<std::string>{
                  "logDevId 3 phyDevId 7 create HDC failed, error: 6, sleep 5000 milliseconds and "
                  "retry",
                  "logDevId 3 phyDevId 7 not ready, sleep 5000 milliseconds and retry"}));
}

TEST_F(RenumberedServerThread, StampsRequestsWithItsPhysicalId) {
    const HDC_SESSION session = FakeDriver::Instance().QueueAccept(3);
    const uint32_t words[] = {12, 176};
    const uint32_t packet[] = {99, 55, 0};
    FakeDriver::Instance().PushMessage(session,
                                       std::string(reinterpret_cast<const char*>(words), 8) + '\1' +
                                           std::string(reinterpret_cast<const char*>(packet), 12));
    EndAfterAccepts(1, 1);

    Run();

    EXPECT_TRUE(FakeDriver::Instance().WaitForClosed(session));
    IdeWaitForSessionThreads();
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'I', "received default request, type 99, req->dev_id=55, phyDevId=7."));
}
