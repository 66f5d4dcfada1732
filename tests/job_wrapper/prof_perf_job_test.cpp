// Tests of the job that records the control CPU through the helper script.
#include "job_wrapper/prof_perf_job.h"

#include "job_wrapper/script_double.h"
#include "support/failing_new.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::Call;
using tiv::test::Child;
using tiv::test::FailingNew;
using tiv::test::FakeMm;
using Texts = std::vector<std::string>;

constexpr const char* KILL = "sudo /var/prof_collect.sh --kill";
constexpr const char* DIR = "/var/log/npu/profiling/1";
constexpr const char* RECORD =
    "sudo /var/prof_collect.sh --record "
    "/var/log/npu/profiling/1/ai_ctrl_cpu.data.6 ";

class OpenCtrlcpuJob : public ProfCtrlcpuJob {
 public:
    int32_t Pid() {
        const tiv::MutexLock lock(jobMutex);
        return ctrlCpuPid;
    }
    void ForgetTask() {
        const tiv::MutexLock lock(jobMutex);
        perfExtraTask_.reset();
    }
    std::shared_ptr<CollectionJobCfg> Cfg() {
        const tiv::MutexLock lock(jobMutex);
        return collectionJobCfg;
    }
};

class CtrlCpu : public tiv::test::ScriptJobTest {
 protected:
    CtrlCpu() {
        FakeMm::Instance().SkipSleeps();
        SetEvents({"0x11", "0x2a"});
    }

    // The command line of the recorder.
    std::string CommandFor(const std::vector<std::string>& events) {
        SetEvents(events);
        EXPECT_EQ(job.Init(cfg), 0);
        EXPECT_EQ(job.Process(), 0);
        const Texts lines = script.Lines();
        EXPECT_EQ(job.Uninit(), 0);
        return lines.empty() ? "" : lines.front();
    }
    std::string CommandAt(int32_t interval) {
        params->cpu_sampling_interval = interval;
        return CommandFor({"0x11"});
    }
    // Function names of the calls in `wanted`, in the order in which they happened.
    Texts OrderOf(const Texts& wanted) const {
        Texts order;
        for (const Call& call : mmCalls.Calls()) {
            if (std::find(wanted.begin(), wanted.end(), call.function) != wanted.end()) {
                order.push_back(call.function);
            }
        }
        return order;
    }

    OpenCtrlcpuJob job;
};

using CtrlCpuInit = CtrlCpu;
using CtrlCpuProcess = CtrlCpu;
using CtrlCpuUninit = CtrlCpu;

TEST_F(CtrlCpuInit, MakesTheDeviceDirectoryAndTellsIt) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(common->tmpResultDir, DIR);
    EXPECT_EQ(mmCalls.Calls("mmMkdir").back().Text("path"), DIR);
    EXPECT_TRUE(job.IsGlobalJobLevel());
}

TEST_F(CtrlCpuInit, NoRecorderRunsAtFirst) { EXPECT_EQ(job.Pid(), -1); }

TEST_F(CtrlCpuInit, DeclinesWithoutEvents) {
    SetEvents({});
    EXPECT_EQ(job.Init(cfg), -1);
    cfg->eventSets[0].events = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);
    cfg->comParams = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);
    EXPECT_EQ(job.Init(nullptr), -1);

    EXPECT_EQ(log.Count('I', "Job check event param not pass"), 4U);
    EXPECT_EQ(log.Lines().size(), 4U);
}

TEST_F(CtrlCpuInit, HostSideRunDeclinesWithoutALine) {
    MoveToSide(1);
    params->hostProfiling = true;

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(CtrlCpuInit, OtherSideDeclinesAndKeepsNothing) {
    MoveToSide(1);

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Has('I', "Not in device Side, aiCtrlcpu Profiling not enabled"));
    EXPECT_EQ(job.Cfg(), nullptr);
}

TEST_F(CtrlCpuInit, DirectoryThatCannotBeMadeIsReported) {
    mmCalls.Replace({});
    mmCalls.Fail("mmMkdir", -1, EACCES, -1);

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Has('E', "Creating dir failed: /var/log/npu/profiling/1"));
}

TEST_F(CtrlCpuInit, TaskThatDoesNotFitInMemoryIsReported) {
    log.SetLevel(DLOG_ERROR);
    mmCalls.OnCall([](const Call& call) {
        if (call.function == "mmChmod" && call.Text("path") == DIR) {
            tiv::test::FailNextNewOfAtLeast(sizeof(PerfExtraTask));
        }
    });

    EXPECT_EQ(job.Init(cfg), -1);

    tiv::test::FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
}

TEST_F(CtrlCpuProcess, WithoutInitDeclines) {
    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('I', "Job check comm param failed"));
}

TEST_F(CtrlCpuProcess, EventsBecomeOneGroupOfRawNumbers) {
    EXPECT_EQ(CommandFor({"0x11", "0x2a"}), std::string(RECORD) + "0050 {r11,r2a}");
    EXPECT_TRUE(
        log.Has('I', "start profiling ctrl cpu, cmd=" + std::string(RECORD) + "0050 {r11,r2a}"));
}

TEST_F(CtrlCpuProcess, FirstTwoCharactersOfAnEventGoWhateverTheyAre) {
    EXPECT_EQ(CommandFor({"zz0x1"}), std::string(RECORD) + "0050 {r0x1}");
}

TEST_F(CtrlCpuProcess, Interval0IsTenMilliseconds) {
    EXPECT_EQ(CommandAt(0), std::string(RECORD) + "0100 {r11}");
}

TEST_F(CtrlCpuProcess, NegativeIntervalIsTenMilliseconds) {
    EXPECT_EQ(CommandAt(-5), std::string(RECORD) + "0100 {r11}");
}

TEST_F(CtrlCpuProcess, Interval20Is0050) {
    EXPECT_EQ(CommandAt(20), std::string(RECORD) + "0050 {r11}");
}

TEST_F(CtrlCpuProcess, Interval3IsCutTo0333) {
    EXPECT_EQ(CommandAt(3), std::string(RECORD) + "0333 {r11}");
}

TEST_F(CtrlCpuProcess, Interval1Is1000) {
    EXPECT_EQ(CommandAt(1), std::string(RECORD) + "1000 {r11}");
}

TEST_F(CtrlCpuProcess, IntervalAboveASecondIs0000) {
    EXPECT_EQ(CommandAt(1001), std::string(RECORD) + "0000 {r11}");
}

TEST_F(CtrlCpuProcess, EventWithout0xStartsNothingAndIsNoError) {
    EXPECT_EQ(CommandFor({"0x11", "11"}), "");

    EXPECT_EQ(script.Lines(), Texts{KILL});
}

TEST_F(CtrlCpuProcess, NineEventsStartNothing) {
    EXPECT_EQ(CommandFor(std::vector<std::string>(9, "0x1")), "");

    EXPECT_TRUE(log.Has('E', "cpu events size(9) is bigger than 8"));
}

TEST_F(CtrlCpuProcess, DroppedEventsStartNothing) {
    EXPECT_EQ(job.Init(cfg), 0);
    cfg->eventSets[0].events = nullptr;

    EXPECT_EQ(job.Process(), 0);

    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(CtrlCpuProcess, BlankInAnEventPartsArguments) {
    EXPECT_EQ(job.Init(cfg), 0);
    SetEvents({"0x1 --x  y"});

    EXPECT_EQ(job.Process(), 0);

    const Child child = script.Children().front();
    EXPECT_EQ(child.arguments, (Texts{"/var/prof_collect.sh", "--record",
                                      "/var/log/npu/profiling/1/ai_ctrl_cpu.data.6", "0050", "{r1",
                                      "--x", "", "y}"}));
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(CtrlCpuProcess, DataFileIsMadeEmptyFirst) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);

    const auto calls = mmCalls.Calls("mmOpen2");
    ASSERT_EQ(calls.size(), 1U);
    EXPECT_EQ(calls[0].Text("path"), "/var/log/npu/profiling/1/ai_ctrl_cpu.data.6");
    EXPECT_EQ(calls[0].Value("flags"), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
    EXPECT_EQ(calls[0].Value("mode"), 0640);
    EXPECT_EQ(OrderOf({"mmOpen2", "mmClose", "mmCreateProcess"}),
              (Texts{"mmOpen2", "mmClose", "mmCreateProcess"}));
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(CtrlCpuProcess, DataFileThatCannotBeMadeStartsNothing) {
    EXPECT_EQ(job.Init(cfg), 0);
    mmCalls.Fail("mmOpen2", -1, EACCES);

    EXPECT_EQ(job.Process(), 0);

    EXPECT_TRUE(
        log.Has('E', "Failed to open /var/log/npu/profiling/1/ai_ctrl_cpu.data.6, dev_id=6"));
    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(CtrlCpuProcess, DirectoryThatIsGoneAndCannotBeMadeStartsNothing) {
    EXPECT_EQ(job.Init(cfg), 0);
    mmCalls.Replace({});
    mmCalls.Fail("mmMkdir", -1, EACCES, -1);

    EXPECT_EQ(job.Process(), 0);

    EXPECT_TRUE(log.Has('E', "Creating dir: /var/log/npu/profiling/1 err!"));
    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(CtrlCpuProcess, RecorderRunsAsideWithItsOutputInALogFile) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);

    const Child child = script.Children().front();
    EXPECT_EQ(child.environment, Texts{"PATH=/usr/bin:/usr/sbin:/var"});
    EXPECT_EQ(child.stdoutFile, "/var/log/npu/profiling/1/perf.log");
    EXPECT_TRUE(log.Has('I', "Begin to start profiling ctrl cpu"));
    EXPECT_TRUE(log.Has('I', "start profiling ctrl cpu, pid=4001, ret=0"));
    EXPECT_EQ(job.Pid(), 4001);
    EXPECT_EQ(mmCalls.Count("mmWaitPid"), 0U);
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(CtrlCpuProcess, RecorderThatCannotBeStartedFailsTheJob) {
    EXPECT_EQ(job.Init(cfg), 0);
    mmCalls.Fail("mmCreateProcess", -1, ENOENT);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('I', "start profiling ctrl cpu, pid=4294967295, ret=-1"));
    EXPECT_TRUE(log.Has('E', "Function ret check failed"));
    EXPECT_FALSE(log.Has('I', "PerfExtraTask init succ"));
}

TEST_F(CtrlCpuProcess, FailedStartForgetsAnEarlierRecorder) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);
    mmCalls.Fail("mmCreateProcess", -1, ENOENT);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_EQ(job.Pid(), -1);
}

TEST_F(CtrlCpuProcess, TaskTakesTheContextOfTheStart) {
    EXPECT_EQ(job.Init(cfg), 0);
    const auto context = tiv::test::MakeJobContext();
    common->jobCtx = context;

    EXPECT_EQ(job.Process(), 0);

    common->jobCtx.reset();
    EXPECT_EQ(context.use_count(), 2);
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(CtrlCpuProcess, TaskRunsUnderItsName) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);

    EXPECT_TRUE(log.WaitFor('I', "New thread QTRX_PerfScript begins to run"));
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(CtrlCpuProcess, TaskWithoutABufferLeavesTheRecorderRunning) {
    EXPECT_EQ(job.Init(cfg), 0);
    params->hostProfiling = true;
    mmCalls.ClearCalls();

    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(job.Pid(), 4001);
    EXPECT_EQ(mmCalls.Count("mmCreateTaskWithThreadAttr"), 0U);
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(CtrlCpuProcess, RefusedThreadFailsTheJobAndLeavesTheRecorderToUninit) {
    EXPECT_EQ(job.Init(cfg), 0);
    mmCalls.Return("mmCreateTaskWithThreadAttr", -1);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(
        log.Has('E', "[ProfCtrlcpuJob::Process]Failed to start perfExtraTask_ thread, ret=-1"));
    EXPECT_EQ(job.Pid(), 4001);
    EXPECT_EQ(job.Uninit(), 0);
    EXPECT_EQ(mmCalls.Calls("mmWaitPid").back().Value("pid"), 4001);
}

TEST_F(CtrlCpuUninit, KillsEvenWithoutARecorder) {
    EXPECT_EQ(job.Uninit(), 0);

    const std::vector<Child> children = script.Children();
    ASSERT_EQ(children.size(), 1U);
    EXPECT_EQ(children[0].line, KILL);
    EXPECT_EQ(children[0].environment, Texts{"PATH=/usr/bin:/usr/sbin:/var"});
    EXPECT_EQ(children[0].stdoutFile, "");
    EXPECT_TRUE(log.Has('I', "Succeeded to kill process, ret=0, exitCode=0"));
}

TEST_F(CtrlCpuUninit, FailedKillIsTheResultWhenThereIsNothingToWaitFor) {
    mmCalls.Fail("mmCreateProcess", -1, ENOENT);

    EXPECT_EQ(job.Uninit(), -1);

    EXPECT_TRUE(log.Has('E', "Failed to kill process perf, ret=-1"));
}

TEST_F(CtrlCpuUninit, KillsThenWaitsThenJoinsTheTask) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);
    mmCalls.ClearCalls();
    script.exitCode = 137;

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(OrderOf({"mmCreateProcess", "mmWaitPid", "mmJoinTask"}),
              (Texts{"mmCreateProcess", "mmWaitPid", "mmWaitPid", "mmJoinTask"}));
    const Call recorderWait = mmCalls.Calls("mmWaitPid").back();
    EXPECT_EQ(recorderWait.Value("pid"), 4001);
    EXPECT_EQ(recorderWait.Value("options"), MM_WAIT_BLOCK);
    EXPECT_TRUE(log.Has('I', "Process 4001 exited, exit code=137"));
    EXPECT_TRUE(log.Contains('I', "PerfExtraTask the total data size: "));
    EXPECT_EQ(job.Pid(), -1);
}

TEST_F(CtrlCpuUninit, FailedWaitIsReportedAndTheTaskEndsAllTheSame) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);
    mmCalls.Fail("mmWaitPid", -1, ECHILD, 1, 1);

    EXPECT_EQ(job.Uninit(), -1);

    EXPECT_TRUE(log.Has('E', "Failed to wait process 4001, ret=-1"));
    EXPECT_TRUE(log.Contains('I', "PerfExtraTask the total data size: "));
    EXPECT_EQ(job.Pid(), -1);
}

TEST_F(CtrlCpuUninit, WithoutATaskItOnlyWaits) {
    EXPECT_EQ(job.Init(cfg), 0);
    job.ForgetTask();
    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(mmCalls.Count("mmJoinTask"), 0U);
}

TEST_F(CtrlCpuUninit, DropsTheEvents) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(cfg->eventSets[0].events, nullptr);
}

TEST_F(CtrlCpuUninit, SecondInitEndsTheRunningTask) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_TRUE(log.Contains('I', "PerfExtraTask the total data size: "));
    EXPECT_EQ(job.Uninit(), 0);
    EXPECT_TRUE(log.Has('I', "PerfExtraTask is uninited"));
}

TEST_F(CtrlCpuUninit, JobRunsAgainInTheNextReplay) {
    EXPECT_EQ(CommandFor({"0x11"}), std::string(RECORD) + "0050 {r11}");
    SetEvents({"0x12"});

    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);
    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(script.Lines(), (Texts{std::string(RECORD) + "0050 {r11}", KILL,
                                     std::string(RECORD) + "0050 {r12}", KILL}));
    EXPECT_EQ(mmCalls.Count("mmJoinTask"), 2U);
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
