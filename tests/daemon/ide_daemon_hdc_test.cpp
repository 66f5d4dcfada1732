// Start and main loop of the HDC component.
#include "daemon/ide_daemon_hdc.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

#include "daemon/global_ctrl_info.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace {

using tiv::test::FakeDriver;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;

GlobalCtrlInfo& Info() { return GetGlobalCtrlInfo(); }

void ReportCount(uint32_t number) {
    FakeDriver::Instance().drvGetDevNum = [number](uint32_t* out) {
        *out = number;
        return 0;
    };
}

// Makes the loop leave once it has handled what was posted so far: the wait behind it fails.
void EndLoopAfter(int waits) { FakeMm::Instance().calls.Fail("mmSemWait", -1, EINVAL, -1, waits); }

}  // namespace

TEST(HdcInit, NothingRunsBeforeIt) {
    EXPECT_EQ(Info().client, nullptr);
    EXPECT_TRUE(Info().devices.empty());
    EXPECT_TRUE(Info().notifyCallbacks.empty());
    EXPECT_EQ(Info().syncInited, 0);
    EXPECT_EQ(Info().serverCreateRun, 0);
    EXPECT_EQ(Info().sessionAcceptRun, 0);
    EXPECT_EQ(Info().inited, 0);
    EXPECT_FALSE(Info().stopping);
}

TEST(DeviceInfo, IsRegisteredWithoutAThreadOrAServer) {
    const DeviceInfo fresh;

    EXPECT_EQ(fresh.phyDevId, 0u);
    EXPECT_EQ(fresh.logDevId, 0u);
    EXPECT_EQ(fresh.threadCreated, 0);
    EXPECT_EQ(fresh.serviceType, 0u);
    EXPECT_EQ(fresh.server, nullptr);
    EXPECT_EQ(fresh.removed, 0);
    EXPECT_EQ(fresh.threadShare, nullptr);
}

TEST(HdcInit, MakesTheStructureAndTheClient) {
    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(Info().inited, 1);
    EXPECT_EQ(Info().syncInited, 1);
    EXPECT_EQ(Info().serverCreateRun, 1);
    EXPECT_EQ(Info().sessionAcceptRun, 1);
    EXPECT_NE(Info().client, nullptr);
    const auto calls = FakeDriver::Instance().calls.Calls("drvHdcClientCreate");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].Value("max"), 96);
    EXPECT_EQ(calls[0].Value("service"), 4);
    EXPECT_EQ(calls[0].Value("flag"), 0);
}

TEST(HdcInit, RegistersEachPhysicalDeviceOnceAndPosts) {
    FakeDriver::Instance().SetDevices({0, 1});
    FakeDriver::Instance().SetPhyId(0, 7);
    FakeDriver::Instance().SetPhyId(1, 3);

    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    ASSERT_EQ(Info().devices.size(), 2u);
    EXPECT_EQ(Info().devices.begin()->first, 3u);
    EXPECT_EQ(Info().devices[7]->phyDevId, 7u);
    EXPECT_EQ(Info().devices[7]->serviceType, 4u);
    EXPECT_EQ(Info().devices[7]->threadCreated, 0);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSemPost"), 1u);
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              (std::vector<std::string>{"Init GlobalCtrlInfo", "Device Counts: 2",
                                        "device count: 2", "notify 2 device up"}));
}

TEST(HdcInit, WithoutADeviceItScans600TimesAndGoesOn) {
    FakeDriver::Instance().SetDevices({});
    FakeMm::Instance().SkipSleeps();

    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvGetDevNum"), 600u);
    EXPECT_EQ(FakeMm::Instance().Sleeps(), std::vector<uint32_t>(600, 1000));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcClientCreate"), 1u);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSemPost"), 0u);
    EXPECT_TRUE(Info().devices.empty());
    EXPECT_EQ(RecordedLog::Instance().Count('I', "Device Counts: 0"), 600u);
}

TEST(HdcInit, ScanThatKeepsFailingIsItsResult) {
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1, -1);
    FakeMm::Instance().SkipSleeps();

    EXPECT_EQ(IdeDaemonHdcInit(), -1);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvGetDevNum"), 600u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcClientCreate"), 0u);
}

TEST(HdcInit, LastAttemptOfTheScanIsItsResult) {
    FakeDriver::Instance().SetDevices({});
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1, 599);
    FakeMm::Instance().SkipSleeps();

    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvGetDevNum"), 600u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcClientCreate"), 1u);
}

TEST(HdcInit, LateDeviceEndsTheScan) {
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1, 2);
    FakeMm::Instance().SkipSleeps();

    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(FakeMm::Instance().Sleeps(), (std::vector<uint32_t>{1000, 1000}));
    EXPECT_EQ(Info().devices.size(), 1u);
}

TEST(HdcInit, CountAbove1124Fails) {
    ReportCount(1125);

    EXPECT_EQ(IdeDaemonHdcInit(), -1);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "device num 1125"));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcClientCreate"), 0u);
}

TEST(HdcInit, IdsBehindThe64thAreThoseOfLogicalId0) {
    std::vector<uint32_t> ids(65);
    std::iota(ids.begin(), ids.end(), 0u);
    FakeDriver::Instance().SetDevices(ids);

    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(Info().devices.size(), 64u);
    EXPECT_EQ(Info().devices.count(64), 0u);
    EXPECT_EQ(FakeDriver::Instance().calls.Calls("drvDeviceGetPhyIdByIndex").back().Value("device"),
              0);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "notify 65 device up"));
}

TEST(HdcInit, ClientThatCannotBeHadFails) {
    FakeDriver::Instance().calls.Return("drvHdcClientCreate", 5);
    EXPECT_EQ(IdeDaemonHdcInit(), -1);
    FakeDriver::Instance().drvHdcClientCreate = [](HDC_CLIENT*, int32_t, int32_t, int32_t) {
        return 0;
    };
    Info().client = nullptr;
    EXPECT_EQ(IdeDaemonHdcInit(), -1);

    EXPECT_EQ(RecordedLog::Instance().Count('E', "Hdc Client Create, Max Session Num: 96"), 2u);
}

TEST(HdcInit, MissingSyncObjectsAreLoggedAndItGoesOn) {
    FakeMm::Instance().calls.Return("mmMutexInit", 1);
    FakeMm::Instance().calls.Return("mmSemInit", 1);

    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(Info().syncInited, 0);
    EXPECT_EQ(Info().inited, 1);
    EXPECT_EQ(
        RecordedLog::Instance().Texts('E'),
        (std::vector<std::string>{"global info mutex init error", "device notify sem init error"}));
}

TEST(HdcInit, SecondInitKeepsTheStructure) {
    EXPECT_EQ(IdeDaemonHdcInit(), 0);
    EXPECT_EQ(IdeDaemonHdcInit(), 0);

    EXPECT_EQ(RecordedLog::Instance().Count('I', "Init GlobalCtrlInfo"), 1u);
    EXPECT_EQ(Info().devices.size(), 1u);
}

TEST(HdcInit, NobodyWatchesForDevicesThatComeLater) {
    EXPECT_STREQ(IDE_DEV_MONITOR_THREAD_NAME, "ide_dev_monitor");
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeDriver::Instance().SetDevices({0, 1});
    EndLoopAfter(1);

    IdeDaemonHdcCreateServers();

    ASSERT_TRUE(FakeDriver::Instance().calls.WaitForCalls("drvHdcSessionAccept", 1));
    EXPECT_EQ(Info().devices.size(), 1u);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 1u);
    for (const auto& call : FakeMm::Instance().calls.Calls("mmSetCurrentThreadName")) {
        EXPECT_NE(call.Text("name"), IDE_DEV_MONITOR_THREAD_NAME);
    }
}

TEST(RegisterDevices, CountOf0Or1125DoesNothing) {
    const std::vector<uint32_t> ids(1, 0);

    IdeDaemonHdcRegisterDevices(0, ids.data());
    IdeDaemonHdcRegisterDevices(1125, ids.data());

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"server register input error; device num is 0",
                                        "server register input error; device num is 1125"}));
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmMutexLock"), 0u);
}

TEST(RegisterDevices, FailedLockGivesUp) {
    FakeMm::Instance().calls.Return("mmMutexLock", 1);
    const uint32_t id = 4;

    IdeDaemonHdcRegisterDevices(1, &id);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "mutex lock error"));
    EXPECT_TRUE(Info().devices.empty());
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSemPost"), 0u);
}

TEST(RegisterDevices, FailedUnlockIsLoggedAndPosts) {
    FakeMm::Instance().calls.Return("mmMutexUnLock", 1);
    const uint32_t id = 4;

    IdeDaemonHdcRegisterDevices(1, &id);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "mutex lock error"));
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSemPost"), 1u);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "notify 1 device up"));
}

TEST(RegisterDevices, EachCallbackGetsCountAndList) {
    std::vector<uint32_t> seen;
    const auto callback = [&seen](uint32_t devNum, const uint32_t* ids) {
        seen.push_back(devNum);
        seen.push_back(ids[0]);
    };
    Info().notifyCallbacks = {callback, callback};
    const uint32_t id = 9;

    IdeDaemonHdcRegisterDevices(1, &id);

    EXPECT_EQ(seen, (std::vector<uint32_t>{1, 9, 1, 9}));
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              (std::vector<std::string>{"register 1 notify callbacks 0",
                                        "register 1 notify callbacks 1", "notify 1 device up"}));
}

TEST(RegisterDevices, KnownRecordsAreLeftAlone) {
    const uint32_t id = 4;
    IdeDaemonHdcRegisterDevices(1, &id);
    const auto known = Info().devices[4];
    known->threadCreated = 1;

    IdeDaemonHdcRegisterDevices(1, &id);

    EXPECT_EQ(Info().devices[4], known);
    EXPECT_EQ(known->threadCreated, 1);
}

TEST(ThreadAttributes, AreDetachedWithAStackOf128KiBAndNothingElse) {
    const mmThreadAttr attr = IdeDetachedThreadAttr();

    EXPECT_EQ(attr.detachFlag, 1);
    EXPECT_EQ(attr.priorityFlag, 0);
    EXPECT_EQ(attr.priority, 0);
    EXPECT_EQ(attr.policyFlag, 0);
    EXPECT_EQ(attr.policy, 0);
    EXPECT_EQ(attr.threadStackFlag, 1);
    EXPECT_EQ(attr.stackSize, 131072u);
}

TEST(CreateServers, StartsOneDetachedThreadPerRecord) {
    FakeDriver::Instance().SetDevices({0, 1});
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    EndLoopAfter(1);

    IdeDaemonHdcCreateServers();

    const auto calls = FakeMm::Instance().calls.Calls("mmCreateTaskWithThreadAttr");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[0].Value("detach"), 1);
    EXPECT_EQ(calls[0].Value("stackFlag"), 1);
    EXPECT_EQ(calls[0].Value("stack"), 131072);
    EXPECT_EQ(Info().devices[0]->threadCreated, 1);
    EXPECT_EQ(RecordedLog::Instance().Count('I', "Create HdcServer"), 2u);
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "dev sem wait error"));
    EXPECT_FALSE(RecordedLog::Instance().Has('I', "Hdc Create HdcServer Exit"));
}

TEST(CreateServers, SecondPostStartsThreadsForNewRecordsOnly) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    const uint32_t id = 4;
    EndLoopAfter(1);
    IdeDaemonHdcCreateServers();
    IdeDaemonHdcRegisterDevices(1, &id);
    FakeMm::Instance().calls.ClearFaults();
    EndLoopAfter(1);

    IdeDaemonHdcCreateServers();

    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 2u);
    EXPECT_EQ(Info().devices[4]->threadCreated, 1);
}

TEST(CreateServers, InterruptedWaitIsWaitedAgain) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Fail("mmSemWait", -1, EINTR, 2);
    EndLoopAfter(1);

    IdeDaemonHdcCreateServers();

    EXPECT_EQ(Info().devices[0]->threadCreated, 1);
    EXPECT_EQ(RecordedLog::Instance().Count('E', "dev sem wait error"), 1u);
}

TEST(CreateServers, ClearedFlagEndsTheLoop) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    Info().serverCreateRun = 0;

    IdeDaemonHdcCreateServers();

    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSemWait"), 0u);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Create HdcServer Entry"));
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Create HdcServer Exit"));
}

TEST(CreateServers, FlagClearedDuringTheWaitEndsTheLoopWithoutAThread) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.OnCall([](const tiv::test::Call& call) {
        if (call.function == "mmSemWait") {
            Info().serverCreateRun = 0;
        }
    });

    IdeDaemonHdcCreateServers();

    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 0u);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Hdc Create HdcServer Exit"));
}

TEST(CreateServers, FailedThreadIsNamedAndLeavesTheLoop) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Fail("mmCreateTaskWithThreadAttr", -1, EAGAIN);

    IdeDaemonHdcCreateServers();

    EXPECT_TRUE(
        RecordedLog::Instance().Has('E', "Thread Create error: Resource temporarily unavailable"));
    const auto texts = FakeMm::Instance().calls.Calls("mmGetErrorFormatMessage");
    ASSERT_EQ(texts.size(), 1u);
    EXPECT_EQ(texts[0].Value("len"), 128);
    EXPECT_EQ(Info().devices[0]->threadShare, nullptr);
    EXPECT_EQ(Info().devices[0]->threadCreated, 0);
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmMutexUnLock"), 2u);
    EXPECT_FALSE(RecordedLog::Instance().Has('I', "Hdc Create HdcServer Exit"));
}

TEST(CreateServers, FailedLockAndUnlockLeaveTheLoop) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    FakeMm::Instance().calls.Return("mmMutexLock", 1);
    IdeDaemonHdcCreateServers();
    EXPECT_EQ(Info().devices[0]->threadCreated, 0);
    ASSERT_EQ(mmSemPost(&Info().notifySem), 0);
    FakeMm::Instance().calls.Return("mmMutexUnLock", 1);
    IdeDaemonHdcCreateServers();

    EXPECT_EQ(Info().devices[0]->threadCreated, 1);
    EXPECT_EQ(RecordedLog::Instance().Count('E', "mutex lock error"), 2u);
    EXPECT_FALSE(RecordedLog::Instance().Has('I', "Hdc Create HdcServer Exit"));
}
