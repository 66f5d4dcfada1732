// The life of the daemon from its checks to its exit value.
#include "daemon/ide_daemon.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "daemon/fake_system.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/fake_resource_manager.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"

namespace tiv::test {
namespace {

using Texts = std::vector<std::string>;

// Runs the daemon in this process. Its main loop ends at the wait for devices, and nothing is
// removed outside of the test's own home directory.
class Daemon : public testing::Test {
 protected:
    Daemon() {
        SetHome(dir_.Path());
        mm.calls.Fail("mmScandir", -1, ENOENT, -1);
        mm.calls.Return("mmRmdir", 0, -1);
        mm.calls.Return("mmUnlink", 0, -1);
    }

    void EndLoopAfter(int waits) { mm.calls.Fail("mmSemWait", -1, EINVAL, -1, waits); }

    int32_t Run() {
        testing::internal::CaptureStdout();
        const int32_t result = IdeDaemonRun();
        printed = testing::internal::GetCapturedStdout();
        return result;
    }

    bool LockFileExists() const {
        return std::filesystem::exists(dir_.Path("ide_daemon/.ruvo.lock"));
    }

    // What the start and stop itself says: level and text.
    Texts Said() const {
        Texts said;
        for (const LogLine& line : log.Lines()) {
            if (line.file == "ide_daemon.cpp" || line.file == "ide_common_util.cpp") {
                said.push_back(std::string(1, line.level) + " " + line.text);
            }
        }
        return said;
    }

    uint64_t OrderOf(const std::string& function) const {
        return mm.calls.Calls(function).at(0).order;
    }

    TempDir dir_;
    FakeMm& mm = FakeMm::Instance();
    FakeDriver& driver = FakeDriver::Instance();
    RecordedLog& log = RecordedLog::Instance();
    std::string printed;
};

TEST_F(Daemon, OrderlyEndGivesZeroAndSaysEachStepInOrder) {
    EndLoopAfter(0);

    EXPECT_EQ(Run(), 0);

    EXPECT_EQ(
        Said(),
        (Texts{"I call [hdc] init function succ", "I call [profiling] init function succ",
               "I call [default] init function succ", "I Daemon Init done",
               "I call ideComponents Funcs destroy[default] success",
               "I call ideComponents Funcs destroy[profiling] success",
               "I call ideComponents Funcs destroy[hdc] success", "I Components Destroy success.",
               "I SACleanup success.", "I tiv start up exit"}));
    EXPECT_EQ(printed, "");
    EXPECT_EQ(FakeResourceManager::Instance().calls, 1);
    EXPECT_FALSE(LockFileExists());
}

TEST_F(Daemon, SetsTheMaskBeforeTheLockAndClosesItBeforeItsRemoval) {
    EndLoopAfter(0);

    EXPECT_EQ(Run(), 0);

    EXPECT_EQ(mm.calls.Calls("mmUmask").at(0).Value("mask"), 18);
    EXPECT_LT(OrderOf("mmUmask"), OrderOf("mmOpen2"));
    EXPECT_LT(OrderOf("mmSemDestroy"), OrderOf("mmSACleanup"));
    EXPECT_LT(OrderOf("mmSACleanup"), OrderOf("mmClose"));
    EXPECT_LT(OrderOf("mmClose"), OrderOf("mmRealPath"));
    EXPECT_EQ(mm.calls.Count("mmClose"), 1u);
    EXPECT_EQ(mm.calls.Calls("mmRealPath").at(0).Text("path"), dir_.Path("ide_daemon/.ruvo.lock"));
}

TEST_F(Daemon, AttachesToTheLogAsAProcess) {
    EndLoopAfter(0);

    EXPECT_EQ(Run(), 0);

    ASSERT_EQ(log.Attributes().size(), 1u);
    DlogAttr expected{};
    expected.type = 1;
    EXPECT_EQ(memcmp(&log.Attributes()[0], &expected, sizeof(expected)), 0);
    EXPECT_EQ(log.InitCalls(), 1);
}

TEST_F(Daemon, RefusedLogAttributeIsAWarningOnly) {
    EndLoopAfter(0);
    log.SetAttrResult(1);

    EXPECT_EQ(Run(), 0);

    EXPECT_EQ(Said().front(), "W Set log attr failed.");
    EXPECT_EQ(Said().back(), "I tiv start up exit");
}

TEST_F(Daemon, ResourceManagerThatIsNotReadyEndsItBeforeAnythingElse) {
    FakeResourceManager::Instance().result = 1;

    EXPECT_EQ(Run(), -1);

    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(Said(), (Texts{"E IAMResMgrReady failed."}));
    EXPECT_EQ(FakeResourceManager::Instance().calls, 1);
    EXPECT_TRUE(mm.calls.Calls().empty());
    EXPECT_FALSE(std::filesystem::exists(dir_.Path("ide_daemon")));
}

TEST_F(Daemon, HeldLockEndsItAndItsNameGoes) {
    FailFileControl(F_SETLK);

    EXPECT_EQ(Run(), -1);

    EXPECT_EQ(printed, "tiv is exist, don't start again\n");
    EXPECT_EQ(log.Texts('E'),
              (Texts{"tiv is exist, don't start again", "single process start error"}));
    EXPECT_EQ(Said(), (Texts{"E single process start error"}));
    EXPECT_EQ(log.InitCalls(), 0);
    EXPECT_EQ(driver.calls.Count("drvGetDevNum"), 0u);
    EXPECT_FALSE(LockFileExists());
}

TEST_F(Daemon, LockFileThatDoesNotOpenEndsIt) {
    mm.calls.Return("mmOpen2", -7);

    EXPECT_EQ(Run(), -1);

    EXPECT_EQ(log.Texts('E'),
              (Texts{"single process open " + dir_.Path("ide_daemon/.ruvo.lock") + " fd = -7",
                     "single process start error"}));
    EXPECT_EQ(printed, "");
}

TEST_F(Daemon, FailedHdcInitTakesEverythingDownAgain) {
    driver.calls.Return("drvHdcClientCreate", 5);

    EXPECT_EQ(Run(), -1);

    EXPECT_EQ(Said(), (Texts{"E call [hdc] init function failed", "E tiv init failed, exit",
                             "I call ideComponents Funcs destroy[default] success",
                             "I call ideComponents Funcs destroy[profiling] success",
                             "I call ideComponents Funcs destroy[hdc] success",
                             "I Components Destroy success.", "I SACleanup success.",
                             "I tiv start up exit"}));
    EXPECT_EQ(printed, "init [hdc] failed\ntiv init failed, exit\n");
    EXPECT_EQ(mm.calls.Count("mmSemWait"), 0u);
    EXPECT_EQ(mm.calls.Count("mmClose"), 1u);
    EXPECT_FALSE(LockFileExists());
}

TEST_F(Daemon, FailedProfilingInitIsPrintedAndItServesAllTheSame) {
    EndLoopAfter(0);
    driver.calls.Return("drvGetPlatformInfo", 3, -1);

    EXPECT_EQ(Run(), 0);

    EXPECT_EQ(printed, "init [profiling] failed\n");
    EXPECT_EQ(Said()[1], "E call [profiling] init function failed");
    EXPECT_EQ(Said()[3], "I Daemon Init done");
    EXPECT_EQ(mm.calls.Count("mmSemWait"), 1u);
}

TEST_F(Daemon, WithoutADeviceItWaitsAndStartsNoServerThread) {
    EndLoopAfter(0);
    mm.SkipSleeps();
    driver.SetDevices({});

    EXPECT_EQ(Run(), 0);

    EXPECT_EQ(mm.Sleeps(), std::vector<uint32_t>(600, 1000));
    EXPECT_EQ(mm.calls.Count("mmSemWait"), 1u);
    EXPECT_EQ(mm.calls.Count("mmCreateTaskWithThreadAttr"), 0u);
}

// A session thread that is still busy would use what the exit handlers take away.
TEST_F(Daemon, LeavesWithoutExitHandlersWhileASessionThreadRuns) {
    driver.QueueAccept();
    mm.mmSleep = [](uint32_t) -> int32_t {
        for (;;) {
            pause();
        }
    };
    EndLoopAfter(1);
    mm.calls.OnCall([this](const Call& call) {
        if (call.function == "mmSemWait" && mm.calls.Count("mmSemWait") == 2) {
            EXPECT_TRUE(mm.calls.WaitForCalls("mmSleep", 1));
            EndTimedWaits(true);
        }
    });

    EXPECT_EXIT(IdeDaemonRun(), testing::ExitedWithCode(0), "");

    EXPECT_FALSE(LockFileExists());
}

TEST_F(Daemon, ServesSessionsUntilTheLoopEnds) {
    const HDC_SESSION session = driver.QueueAccept();
    const uint32_t packet[] = {17, 0, 0};
    const uint32_t header[] = {sizeof(packet), 176};
    driver.PushMessage(session, std::string(reinterpret_cast<const char*>(header), 8) + '\1' +
                                    std::string(reinterpret_cast<const char*>(packet), 12));
    EndLoopAfter(1);
    mm.calls.OnCall([this, session](const Call& call) {
        if (call.function == "mmSemWait" && mm.calls.Count("mmSemWait") == 2) {
            EXPECT_TRUE(driver.WaitForClosed(session));
        }
    });

    EXPECT_EQ(Run(), 0);

    EXPECT_TRUE(log.Has('E', "req->type: 17, Invalid request or no hdc process func register"));
    EXPECT_TRUE(log.WaitFor('V', "<EXIT thread> IdeDaemonHdcHandleEvent"));
    EXPECT_EQ(driver.OpenServers(), 0u);
}

TEST_F(Daemon, LockFileMayHaveTheFirstDescriptor) {
    EndLoopAfter(0);
    close(STDIN_FILENO);

    EXPECT_EQ(IdeDaemonRun(), 0);

    ASSERT_EQ(mm.calls.Count("mmClose"), 1u);
    EXPECT_EQ(mm.calls.Calls("mmClose")[0].Value("fd"), STDIN_FILENO);
    EXPECT_EQ(open("/dev/null", O_RDONLY), STDIN_FILENO);
}

TEST_F(Daemon, FailedInitIsPrintedBeforeTheTeardown) {
    driver.calls.Return("drvHdcClientCreate", 5);
    std::string printedAtClose;
    mm.calls.OnCall([&printedAtClose](const Call& call) {
        if (call.function == "mmClose") {
            std::ifstream output("/proc/self/fd/1");
            std::getline(output, printedAtClose, '\0');
        }
    });

    EXPECT_EQ(Run(), -1);

    EXPECT_EQ(printedAtClose, "init [hdc] failed\ntiv init failed, exit\n");
}

}  // namespace
}  // namespace tiv::test
