// What the tests of the script jobs share: children that only exist on paper, and a job to run
// them.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <vector>

#include "config/platform.h"
#include "job_wrapper/sample_job.h"
#include "platform/mutex.h"
#include "support/fake_driver.h"
#include "support/temp_dir.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {

struct Child {
    std::string line;  // the program's name and its arguments, parted by blanks
    std::vector<std::string> arguments;
    std::vector<std::string> environment;
    std::string stdoutFile;
};

// Stands where children are started and waited for. A child gets the pid 4001, 4002 and so on, runs
// `onChild` in place of a program and has ended with `exitCode` when it is waited for.
class ScriptDouble {
 public:
    ScriptDouble() {
        FakeMm::Instance().mmCreateProcess = [this](const char* cmd, const mmArgvEnv* args,
                                                    const char* stdoutFile, mmProcess* pid) {
            *pid = Start(MakeChild(cmd, *args, stdoutFile));
            return 0;
        };
        FakeMm::Instance().mmWaitPid = [this](mmProcess, int32_t* status, int32_t) {
            *status = exitCode;
            return 1;
        };
    }

    std::vector<Child> Children() EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return children_;
    }
    std::vector<std::string> Lines() EXCLUDES(mutex_) {
        std::vector<std::string> lines;
        for (const Child& child : Children()) {
            lines.push_back(child.line);
        }
        return lines;
    }

    // Both are set before threads start.
    std::function<void(const Child&)> onChild = [](const Child&) {};
    int32_t exitCode = 0;

 private:
    static Child MakeChild(const char* cmd, const mmArgvEnv& args, const char* stdoutFile) {
        Child child;
        child.line = cmd;
        for (int32_t i = 1; i < args.argvCount; ++i) {
            child.arguments.emplace_back(args.argv[i]);
            child.line += std::string(" ") + args.argv[i];
        }
        child.environment.assign(args.envp, args.envp + args.envpCount);
        child.stdoutFile = stdoutFile == nullptr ? "" : stdoutFile;
        return child;
    }
    mmProcess Start(const Child& child) EXCLUDES(mutex_) {
        onChild(child);
        const MutexLock lock(mutex_);
        children_.push_back(child);
        return 4000 + static_cast<mmProcess>(children_.size());
    }

    Mutex mutex_;
    std::vector<Child> children_ GUARDED_BY(mutex_);
};

// The pauses of a thread, each of which ends when the test says so.
class PauseGate {
 public:
    PauseGate() {
        FakeMm::Instance().mmSleep = [this](uint32_t) {
            Enter();
            return 0;
        };
    }

    // Waits until the thread is in its n-th pause: n - 1 passes are over.
    void WaitForPause(size_t n) EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        while (entered_ < n) {
            changed_.Wait(mutex_);
        }
    }
    void EndPause() EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        ++allowed_;
        changed_.NotifyAll();
    }
    void Open() EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        open_ = true;
        changed_.NotifyAll();
    }

 private:
    void Enter() EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        const size_t pause = ++entered_;
        changed_.NotifyAll();
        while (!open_ && allowed_ < pause) {
            changed_.Wait(mutex_);
        }
    }

    Mutex mutex_;
    CondVar changed_;
    size_t entered_ GUARDED_BY(mutex_) = 0;
    size_t allowed_ GUARDED_BY(mutex_) = 0;
    bool open_ GUARDED_BY(mutex_) = false;
};

// A device side with an uploader for "job7". Nothing below the working directory exists or is made:
// its directories are made on paper and its files are /dev/null.
class ScriptJobTest : public ::testing::Test {
 protected:
    using CollectionJobCfg = Analysis::Rokt::JobWrapper::CollectionJobCfg;
    using CommonParams = Analysis::Rokt::JobWrapper::CollectionJobCommonParams;

    ScriptJobTest() {
        FakeDriver::Instance().SetPlatformInfo(0);
        EXPECT_EQ(Analysis::Rokt::Common::Platform::Platform::Instance().InitRunSide(), 0);
        PaperFileSystem();
        params->job_id = "job7";
        common->devId = 1;
        common->devIdOnHost = 6;
        common->params = params;
        common->jobCtx = MakeJobContext();
        cfg->comParams = common;
        analysis::rokt::transport::UploaderMgr::Instance().AddUploader("job7", collector.Get());
        log.Clear();
    }
    ~ScriptJobTest() override {
        analysis::rokt::transport::UploaderMgr::Instance().DelUploader("job7");
    }

    void SetEvents(const std::vector<std::string>& events) {
        cfg->eventSets[0].events = std::make_shared<std::vector<std::string>>(events);
    }
    static void MoveToSide(uint32_t side) {
        FakeDriver::Instance().SetPlatformInfo(side);
        EXPECT_EQ(Analysis::Rokt::Common::Platform::Platform::Instance().InitRunSide(), 0);
        RecordedLog::Instance().Clear();
    }
    static std::vector<std::string> Opened() {
        std::vector<std::string> paths;
        for (const Call& call : FakeMm::Instance().calls.Calls("mmOpen2")) {
            paths.push_back(call.Text("path"));
        }
        return paths;
    }

    RecordedLog& log = RecordedLog::Instance();
    FaultTable& mmCalls = FakeMm::Instance().calls;
    ScriptDouble script;
    ChunkCollector collector;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params =
        std::make_shared<analysis::rokt::message::ProfileParams>();
    std::shared_ptr<CommonParams> common = std::make_shared<CommonParams>();
    std::shared_ptr<CollectionJobCfg> cfg = std::make_shared<CollectionJobCfg>();

 private:
    void PaperFileSystem() {
        mmCalls.Return("mmMkdir", 0, -1);
        mmCalls.Return("mmChmod", 0, -1);
        FakeMm::Instance().mmAccess2 = [](const char* path, int32_t mode) {
            const bool working = std::string(path).rfind("/var/log/npu", 0) == 0;
            return working ? -1 : access(path, mode);
        };
        FakeMm::Instance().mmOpen2 = [](const char*, int32_t, uint32_t) {
            return open("/dev/null", O_WRONLY | O_CLOEXEC);
        };
        FakeMm::Instance().mmScandir = [](const char*, mmDirent***, mmFilter, mmSort) { return 0; };
        FakeMm::Instance().mmScandirFree = [](mmDirent**, int32_t) {};
    }
};

}  // namespace tiv::test
