// Teardown of the HDC component.
#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "daemon/global_ctrl_info.h"
#include "daemon/ide_daemon_hdc.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace {

using tiv::test::FakeDriver;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;

GlobalCtrlInfo& Info() { return GetGlobalCtrlInfo(); }

// Makes the loop leave once it has handled what was posted so far: the wait behind it fails.
void EndLoopAfter(int waits) { FakeMm::Instance().calls.Fail("mmSemWait", -1, EINVAL, -1, waits); }

}  // namespace

TEST(HdcDestroy, WithoutInitOnlyLogsItsEnd) {
    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              (std::vector<std::string>{"Hdc Destroy Exit"}));
}

TEST(HdcDestroy, TakesEverythingDown) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    RecordedLog::Instance().Clear();

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_TRUE(Info().devices.empty());
    EXPECT_EQ(Info().client, nullptr);
    EXPECT_EQ(FakeDriver::Instance().OpenClients(), 0u);
    EXPECT_EQ(Info().serverCreateRun, 0);
    EXPECT_EQ(Info().sessionAcceptRun, 0);
    EXPECT_EQ(Info().syncInited, 0);
    EXPECT_EQ(Info().inited, 0);
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              (std::vector<std::string>{"Destroy GlobalCtrlInfo", "Destroy GlobalCtrlInfo",
                                        "Hdc Destroy Exit"}));
}

TEST(HdcDestroy, CallsComeInTheirOrder) {
    FakeDriver::Instance().SetDevices({1, 0});
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    Info().devices[0]->server = reinterpret_cast<HDC_SERVER>(0x10);
    Info().devices[1]->server = reinterpret_cast<HDC_SERVER>(0x11);
    Info().devices[0]->threadCreated = 1;
    Info().devices[1]->threadCreated = 1;
    std::vector<std::string> order;
    const auto record = [&order](const tiv::test::Call& call) { order.push_back(call.function); };
    FakeMm::Instance().calls.OnCall(record);
    FakeDriver::Instance().calls.OnCall(record);
    FakeDriver::Instance().calls.Return("drvHdcServerDestroy", 9, 2);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_EQ(order,
              (std::vector<std::string>{"mmMutexLock", "drvHdcServerDestroy", "drvHdcServerDestroy",
                                        "mmMutexUnLock", "drvHdcClientDestroy", "mmSemPost",
                                        "mmSemDestroy", "mmMutexDestroy"}));
    EXPECT_EQ(
        RecordedLog::Instance().OwnTexts('I'),
        (std::vector<std::string>{"Init GlobalCtrlInfo", "Device Counts: 2", "device count: 2",
                                  "notify 2 device up", "Destroy GlobalCtrlInfo",
                                  "Hdc Server Destroy Err Code: 9, dev Id: 0",
                                  "Hdc Server Destroy Err Code: 9, dev Id: 1",
                                  "Destroy GlobalCtrlInfo", "Hdc Destroy Exit"}));
}

TEST(HdcDestroy, ServerWithoutAStartedThreadIsLeftAlone) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    Info().devices[0]->server = reinterpret_cast<HDC_SERVER>(0x10);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerDestroy"), 0u);
}

TEST(HdcDestroy, WithoutAClientOrSyncObjectsNeitherIsDestroyed) {
    FakeMm::Instance().calls.Return("mmSemInit", 1);
    FakeDriver::Instance().calls.Return("drvHdcClientCreate", 5);
    ASSERT_EQ(IdeDaemonHdcInit(), -1);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcClientDestroy"), 0u);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSemDestroy"), 0u);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmMutexDestroy"), 0u);
    EXPECT_EQ(Info().inited, 0);
}

TEST(HdcDestroy, DropsTheCallbacksAndLetsAnInitStartAnew) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    Info().notifyCallbacks.emplace_back([](uint32_t, const uint32_t*) {});

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);
    EXPECT_TRUE(Info().notifyCallbacks.empty());
    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(RecordedLog::Instance().Count('I', "Init GlobalCtrlInfo"), 2u);
    EXPECT_EQ(Info().devices.size(), 1u);
    EXPECT_EQ(Info().serverCreateRun, 1);
    EXPECT_FALSE(Info().stopping);
}

TEST(HdcDestroy, DestroysTheServerOfAStartedThreadOnce) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    EndLoopAfter(1);
    IdeDaemonHdcCreateServers();
    ASSERT_TRUE(FakeDriver::Instance().calls.WaitForCalls("drvHdcSessionAccept", 1));

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_TRUE(RecordedLog::Instance().WaitFor('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerDestroy"), 1u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcServerCreate"), 1u);
    EXPECT_EQ(FakeDriver::Instance().OpenServers(), 0u);
}

TEST(HdcDestroy, DriverFailuresAreInfoLines) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    EndLoopAfter(1);
    IdeDaemonHdcCreateServers();
    ASSERT_TRUE(FakeDriver::Instance().calls.WaitForCalls("drvHdcSessionAccept", 1));
    const auto destroy = FakeDriver::Instance().drvHdcServerDestroy;
    FakeDriver::Instance().drvHdcServerDestroy = [destroy](HDC_SERVER server) {
        (void)destroy(server);
        return 23;
    };
    FakeDriver::Instance().calls.Return("drvHdcClientDestroy", 8);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Server Destroy Err Code: 23, dev Id: 0"));
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Client Destroy Err Code: 8"));
    EXPECT_TRUE(RecordedLog::Instance().WaitFor('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
}

TEST(HdcDestroy, FailedLockSkipsToTheEnd) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Return("mmMutexLock", 1);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "mutex lock error"));
    EXPECT_EQ(Info().devices.size(), 1u);
    EXPECT_EQ(Info().inited, 1);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Destroy Exit"));
}

TEST(HdcDestroy, FailedUnlockSkipsToTheEnd) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Return("mmMutexUnLock", 1);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_NE(Info().client, nullptr);
    EXPECT_EQ(Info().inited, 1);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Destroy Exit"));
}

TEST(HdcDestroy, FailedPostLeavesInitedSet) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Return("mmSemPost", 1);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "notify sem post error"));
    EXPECT_EQ(Info().inited, 1);
    EXPECT_EQ(Info().syncInited, 1);
}

TEST(HdcDestroy, FailedSyncDestroyKeepsSyncInited) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Return("mmSemDestroy", 1);
    FakeMm::Instance().calls.Return("mmMutexDestroy", 1);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"device notify sem destroy error",
                                        "global info mutex dertroy error"}));
    EXPECT_EQ(Info().syncInited, 1);
    EXPECT_EQ(Info().inited, 0);
}
