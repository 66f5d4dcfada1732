// The life of the daemon's process: its lock, its start and its end.
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <numeric>
#include <set>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"
#include "support/fault_control.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;

constexpr int FAILED_STATUS = 255;
constexpr int ENDED_BY_SIGTERM = 128 + SIGTERM;

// Puts a program in the place of sudo for as long as the object lives.
class SudoDouble {
 public:
    explicit SudoDouble(const std::string& program) {
        fs::permissions(program, fs::perms(0755));
        if (fs::exists("/usr/bin/sudo")) {
            place_ = "/usr/bin/sudo";
            stands_ = mount(program.c_str(), place_, nullptr, MS_BIND, nullptr) == 0;
            return;
        }
        place_ = "/usr/sbin";  // where the daemon looks next
        stands_ = mount("tiv-e2e", place_, "tmpfs", 0, "mode=0755") == 0 &&
                  fs::copy_file(program, "/usr/sbin/sudo");
    }
    ~SudoDouble() { (void)umount2(place_, MNT_DETACH); }
    SudoDouble(const SudoDouble&) = delete;
    SudoDouble& operator=(const SudoDouble&) = delete;

    [[nodiscard]] bool Stands() const { return stands_; }

 private:
    const char* place_;
    bool stands_ = false;
};

// What the descriptors of a process point to.
std::set<std::string> OpenFiles(pid_t pid) {
    std::set<std::string> files;
    std::error_code ignored;
    for (const auto& entry :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/fd", ignored)) {
        files.insert(fs::read_symlink(entry.path(), ignored).string());
    }
    return files;
}

// The names of a process's threads.
std::multiset<std::string> ThreadNames(pid_t pid) {
    std::multiset<std::string> names;
    std::error_code ignored;
    for (const auto& entry :
         fs::directory_iterator("/proc/" + std::to_string(pid) + "/task", ignored)) {
        const std::string name = FileContent(entry.path().string() + "/comm");
        names.insert(name.substr(0, name.find('\n')));
    }
    return names;
}

// A line of /proc/<pid>/status, as the number behind its name.
uint64_t StatusNumber(pid_t pid, const std::string& name, int base) {
    const std::string status = FileContent("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("\n" + name + ":");
    return at == std::string::npos
               ? UINT64_MAX
               : std::strtoull(status.c_str() + at + name.size() + 2, nullptr, base);
}

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

    // True when the pauses of one of the daemon's threads were these.
    bool AnyThreadPausedSo(const std::vector<int64_t>& pauses) const {
        std::map<long, std::vector<int64_t>> seen;
        for (const test::Call& call :
             test::FaultControl(directory_.Path("faults")).Calls("mmSleep")) {
            seen[call.tid].push_back(call.Value("ms"));
        }
        return std::any_of(seen.begin(), seen.end(),
                           [&pauses](const auto& thread) { return thread.second == pauses; });
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

TEST_F(SingleInstance, StartGoesThroughItsStepsInOrder) {
    daemon_ = NewDaemonWithFaults("");
    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();

    const std::vector<std::string> wanted = {
        "IAMResMgrReady", "mmUmask",      "mmOpen2",   "dlog_init",          "DlogSetAttr",
        "mmSemInit",      "drvGetDevNum", "mmSemPost", "drvHdcClientCreate", "drvGetPlatformInfo",
        "mmSemWait"};
    std::vector<std::string> seen;
    for (const test::Call& call : test::FaultControl(directory_.Path("faults")).Calls()) {
        const bool isWanted =
            std::find(wanted.begin(), wanted.end(), call.function) != wanted.end();
        if (isWanted && std::find(seen.begin(), seen.end(), call.function) == seen.end()) {
            seen.push_back(call.function);
        }
    }

    EXPECT_EQ(seen, wanted);
}

TEST_F(SingleInstance, IgnoresSigpipeAndCreatesFilesWithTheMask022) {
    StartDaemon();

    const uint64_t ignored = StatusNumber(daemon_->Pid(), "SigIgn", 16);

    EXPECT_NE(ignored & (1ULL << (SIGPIPE - 1)), 0u);
    EXPECT_EQ(StatusNumber(daemon_->Pid(), "Umask", 8), 022u);
}

TEST_F(SingleInstance, TerminationEndsItByTheSignalAndLeavesTheLockFile) {
    StartDaemon();

    daemon_->Signal(SIGTERM);

    EXPECT_EQ(daemon_->Wait(), ENDED_BY_SIGTERM);
    EXPECT_TRUE(fs::exists(LockFile()));
}

TEST_F(SingleInstance, ThreadsCarryTheirNames) {
    ConfigureDriver(R"({"devices": 2})");
    StartDaemon(2);
    const RawSession silent(SocketPath(1));

    // A thread carries its maker's name until it sets its own.
    EXPECT_TRUE(Eventually([&] {
        const std::multiset<std::string> names = ThreadNames(daemon_->Pid());
        return names.count("ide_hdc_process") == 1 && names.count("ide_hdc_server") == 2;
    }));
}

TEST_F(SingleInstance, SilentSessionIsGivenUpAfter141Pauses) {
    daemon_ = NewDaemonWithFaults("mmSleep result=0 count=-1\n");
    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();
    RawSession silent(SocketPath(0));

    EXPECT_TRUE(silent.WaitForClose());

    EXPECT_TRUE(daemon_->WaitForError("no received request in 142 times"));
    EXPECT_TRUE(daemon_->WaitForError("Ide Hdc Read Request failed, err: -1"));
    std::vector<int64_t> pauses(141);
    std::iota(pauses.begin(), pauses.end(), 1);
    EXPECT_TRUE(AnyThreadPausedSo(pauses));
    // Without pauses no host is fast enough for the daemon's patience.
    EXPECT_EQ(test::FaultControl(directory_.Path("faults")).ReplacePlan(""), "");
    EXPECT_TRUE(Serves());
}

TEST_F(SingleInstance, FailedStartOfProfilingIsPrintedAndRequestsGetNoAnswer) {
    daemon_ = NewDaemonWithFaults("drvGetPlatformInfo result=3 count=-1\n");
    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();
    RawSession session(SocketPath(0));

    ASSERT_TRUE(session.Send(ControlHandshake("job")));

    EXPECT_FALSE(session.ReceiveValue().has_value());
    EXPECT_EQ(daemon_->Output(), "init [profiling] failed\n");
    EXPECT_TRUE(daemon_->WaitForError("call [profiling] init function failed"));
    EXPECT_TRUE(daemon_->WaitForError("Collection Entry was not inited."));
}

TEST_F(SingleInstance, ProgramThatItStartsHasNoDescriptorOfTheLockFile) {
    const std::string found = directory_.Path("descriptors");
    const SudoDouble sudo(directory_.Write("sudo", "#!/bin/sh\nls -l /proc/self/fd >" + found +
                                                       ".part\nmv " + found + ".part " + found +
                                                       "\n"));
    ASSERT_TRUE(sudo.Stands());
    StartDaemon();
    ASSERT_EQ(OpenFiles(daemon_->Pid()).count(LockFile()), 1u);
    RawSession control(SocketPath(0));
    auto replay = ReplayStart("job");
    replay.add_ctrl_cpu_events("0x11");

    control.Send(ControlHandshake("job"));
    control.Send(JobStart("job", SampleConfig("job", {})));
    control.Send(replay);

    ASSERT_TRUE(Eventually([&] { return fs::exists(found); })) << daemon_->Errors();
    EXPECT_NE(FileContent(found).find("/dev/null"), std::string::npos);
    EXPECT_EQ(FileContent(found).find(".ruvo.lock"), std::string::npos) << FileContent(found);
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
