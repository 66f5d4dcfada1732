// Tests of the job that counts cache events through the helper script.
#include "job_wrapper/prof_mini_llc_job.h"

#include "config/config_manager.h"
#include "job_wrapper/script_double.h"
#include "support/failing_new.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using Common::Config::ConfigManager;
using tiv::test::Call;
using tiv::test::Child;
using tiv::test::FakeDriver;
using Texts = std::vector<std::string>;

constexpr const char* KILL = "sudo /var/prof_collect.sh --kill";
constexpr const char* STAT =
    "sudo /var/prof_collect.sh --stat /var/log/npu/profiling/1/llc.data.6 ";
constexpr uint32_t SLICE = 262144;

class OpenMiniLlcJob : public ProfMiniLlcJob {
 public:
    int32_t Pid() {
        const tiv::MutexLock lock(jobMutex);
        return llcPid;
    }
    std::shared_ptr<CollectionJobCfg> Cfg() {
        const tiv::MutexLock lock(jobMutex);
        return collectionJobCfg;
    }
};

// A platform of type 0 that asks for two cache events.
class MiniLlc : public tiv::test::ScriptJobTest {
 protected:
    MiniLlc() {
        UsePlatformType(0);
        params->zelnar_llc_profiling = "on";
        SetEvents({"read", "write"});
    }

    static void UsePlatformType(int64_t chip) {
        FakeDriver::Instance().SetDeviceInfo(0, 1, chip << 8);
        ConfigManager::Instance().Uninit();
        ConfigManager::Instance().Init();
        tiv::test::RecordedLog::Instance().Clear();
    }
    // Puts the script's file, "<dir>/llc.data.6", where the job looks for it.
    void WriteResult(const std::string& content) {
        dir.Write("llc.data.6", content);
        cfg->dataFile = dir.Path("llc.data");
    }
    void StartJob() {
        ASSERT_EQ(job.Init(cfg), 0);
        ASSERT_EQ(job.Process(), 0);
    }

    tiv::test::TempDir dir;
    OpenMiniLlcJob job;
};

using MiniLlcInit = MiniLlc;
using MiniLlcProcess = MiniLlc;
using MiniLlcUninit = MiniLlc;

TEST_F(MiniLlcInit, RunsOnPlatformType0ForTheWholeSystem) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_TRUE(job.IsGlobalJobLevel());
}

TEST_F(MiniLlcInit, DeclinesWithoutEvents) {
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

TEST_F(MiniLlcInit, HostSideRunDeclinesWithoutALine) {
    MoveToSide(1);
    params->hostProfiling = true;

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(MiniLlcInit, OtherSideDeclinesAndKeepsNothing) {
    MoveToSide(1);

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Has('I', "Not run in device Side, Mini LLC Profiling not enabled"));
    EXPECT_EQ(job.Cfg(), nullptr);
}

TEST_F(MiniLlcInit, SwitchedOffDeclines) {
    params->zelnar_llc_profiling = "off";

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Has('I', "Mini LLC Profiling not enabled"));
    EXPECT_EQ(job.Cfg(), cfg);
}

TEST_F(MiniLlcInit, PlatformWithADriverChannelDeclines) {
    UsePlatformType(5);

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Has('I', "Mini LLC Profiling not enabled"));
}

TEST_F(MiniLlcProcess, WithoutInitDeclines) {
    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('I', "Job check event param not pass"));
}

TEST_F(MiniLlcProcess, DroppedEventsAreRefused) {
    ASSERT_EQ(job.Init(cfg), 0);
    cfg->eventSets[0].events = nullptr;

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('I', "Job check event param not pass"));
    EXPECT_TRUE(Opened().empty());
}

TEST_F(MiniLlcProcess, StartsTheStatisticAside) {
    params->llc_interval = 50;
    StartJob();

    const std::string command = std::string(STAT) + "read,write 50";
    const Child child = script.Children().front();
    EXPECT_EQ(child.line, command);
    EXPECT_EQ(child.environment, Texts{"PATH=/usr/bin/:/usr/sbin:/var"});
    EXPECT_EQ(child.stdoutFile, "");
    EXPECT_TRUE(log.Has('I', "llc_event:read,write, profLlcCmd:" + command));
    EXPECT_TRUE(log.Has('I', "Begin to start profiling llc, cmd=" + command));
    EXPECT_TRUE(log.Has('I', "start profiling llc, pid = 4001, ret=0"));
    EXPECT_EQ(job.Pid(), 4001);
    EXPECT_EQ(mmCalls.Count("mmWaitPid"), 0U);
}

TEST_F(MiniLlcProcess, IntervalHasNoUpperBound) {
    params->llc_interval = 5000;
    StartJob();

    EXPECT_EQ(script.Lines(), Texts{std::string(STAT) + "read,write 5000"});
}

TEST_F(MiniLlcProcess, IntervalThatIsNotPositiveIs100) {
    params->llc_interval = 0;
    StartJob();
    params->llc_interval = -1;
    StartJob();

    EXPECT_EQ(script.Lines(),
              (Texts{std::string(STAT) + "read,write 100", std::string(STAT) + "read,write 100"}));
}

TEST_F(MiniLlcProcess, DataFileIsMadeEmptyAndKeptInTheConfiguration) {
    StartJob();

    EXPECT_EQ(cfg->dataFile, "/var/log/npu/profiling/1/llc.data");
    EXPECT_EQ(Opened(), Texts{"/var/log/npu/profiling/1/llc.data.6"});
    EXPECT_EQ(mmCalls.Calls("mmOpen2")[0].Value("flags"), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC);
}

TEST_F(MiniLlcProcess, EventsWithOtherCharactersStartNothing) {
    SetEvents({"a.b"});

    StartJob();

    EXPECT_TRUE(log.Has('I', "llc_event:a.b, profLlcCmd:"));
    EXPECT_TRUE(log.Has('E', "llc events is invalid.a.b"));
    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(MiniLlcProcess, EmptyEventTextStartsNothing) {
    SetEvents({""});

    StartJob();

    EXPECT_TRUE(log.Has('I', "llc_event:, profLlcCmd:"));
    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(MiniLlcProcess, BlanksInTheEventsPartArguments) {
    SetEvents({"a b"});

    StartJob();

    EXPECT_EQ(script.Children()[0].arguments,
              (Texts{"/var/prof_collect.sh", "--stat", "/var/log/npu/profiling/1/llc.data.6", "a",
                     "b", "20"}));
}

TEST_F(MiniLlcProcess, DataFileThatCannotBeMadeStartsNothing) {
    mmCalls.Fail("mmOpen2", -1, EACCES);

    StartJob();

    EXPECT_TRUE(log.Has('E',
                        "Failed to open /var/log/npu/profiling/1/llc.data.6, devId=1, "
                        "devIdOnHost:6"));
    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(MiniLlcProcess, DirectoryThatCannotBeMadeStartsNothing) {
    mmCalls.Replace({});
    mmCalls.Fail("mmMkdir", -1, EACCES, -1);

    StartJob();

    EXPECT_TRUE(log.Has('E', "Creating dir: /var/log/npu/profiling/1 err!"));
    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(MiniLlcProcess, StatisticThatCannotBeStartedFailsTheJob) {
    ASSERT_EQ(job.Init(cfg), 0);
    mmCalls.Fail("mmCreateProcess", -1, ENOENT);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('I', "start profiling llc, pid = 4294967295, ret=-1"));
    EXPECT_TRUE(log.Has('E', "Function ret check failed"));
}

TEST_F(MiniLlcProcess, FailedStartForgetsTheStatisticOfAnEarlierReplay) {
    StartJob();
    EXPECT_EQ(job.Uninit(), 0);
    mmCalls.Fail("mmCreateProcess", -1, ENOENT);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_EQ(job.Pid(), -1);
}

TEST_F(MiniLlcUninit, KillsEvenWithoutAStatistic) {
    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(script.Lines(), Texts{KILL});
    EXPECT_EQ(script.Children()[0].environment, Texts{"PATH=/usr/bin:/usr/sbin:/var"});
    EXPECT_TRUE(log.Has('I', "Succeeded to kill process, ret=0, exitCode=0"));
}

TEST_F(MiniLlcUninit, FailedKillIsReported) {
    mmCalls.Fail("mmCreateProcess", -1, ENOENT);

    EXPECT_EQ(job.Uninit(), -1);

    EXPECT_TRUE(log.Has('E', "Failed to kill process perf, ret=-1"));
}

TEST_F(MiniLlcUninit, WaitsForTheStatisticAndKeepsItsPid) {
    StartJob();
    script.exitCode = 143;

    EXPECT_EQ(job.Uninit(), 0);

    const Call wait = mmCalls.Calls("mmWaitPid").back();
    EXPECT_EQ(wait.Value("pid"), 4001);
    EXPECT_EQ(wait.Value("options"), MM_WAIT_BLOCK);
    EXPECT_TRUE(log.Has('I', "Process 4001 exited, exit code=143"));
    EXPECT_EQ(job.Pid(), 4001);
}

TEST_F(MiniLlcUninit, FailedWaitIsReportedAndTheFileGoesAllTheSame) {
    StartJob();
    WriteResult("counts");
    mmCalls.Fail("mmWaitPid", -1, ECHILD, 1, 1);

    EXPECT_EQ(job.Uninit(), -1);

    EXPECT_TRUE(log.Has('E', "Failed to wait process 4001, ret=-1"));
    EXPECT_EQ(collector.Payloads(), Texts{"counts"});
}

TEST_F(MiniLlcUninit, ReplayWithoutAStatisticWaitsForTheOldOne) {
    StartJob();
    EXPECT_EQ(job.Uninit(), 0);
    SetEvents({"a.b"});
    StartJob();
    mmCalls.ClearCalls();

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(mmCalls.Calls("mmWaitPid").back().Value("pid"), 4001);
}

TEST_F(MiniLlcUninit, ChunkCarriesTheNamesOfTheJob) {
    StartJob();
    WriteResult("counts");

    EXPECT_EQ(job.Uninit(), 0);

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].chunk, "counts");
    EXPECT_EQ(chunks[0].chunkSize, 6U);
    EXPECT_EQ(chunks[0].fileName, "data/llc.data.null");
    EXPECT_EQ(chunks[0].extraInfo, "job7.2");
    EXPECT_EQ(chunks[0].offset, -1);
    EXPECT_EQ(chunks[0].chunkModule, 3U);
    EXPECT_FALSE(chunks[0].isLastChunk);
}

TEST_F(MiniLlcUninit, ContextOfTheReplayOutlivesItsOwner) {
    StartJob();
    WriteResult("counts");
    common->jobCtx.reset();

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(collector.Payloads(), Texts{"counts"});
}

TEST_F(MiniLlcUninit, FileOf262144BytesMakesAFullChunkAndAnEmptyOne) {
    StartJob();
    WriteResult(std::string(SLICE, 'x'));

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(collector.Payloads(), (Texts{std::string(SLICE, 'x'), ""}));
}

TEST_F(MiniLlcUninit, EmptyFileMakesOneEmptyChunk) {
    StartJob();
    WriteResult("");

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(collector.Payloads(), Texts{""});
}

TEST_F(MiniLlcUninit, MissingFileEndsQuietly) {
    StartJob();
    log.Clear();

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(log.CountOf('E') + log.CountOf('W'), 0U);
    EXPECT_TRUE(collector.Payloads().empty());
}

TEST_F(MiniLlcUninit, RefusedSlicesAreReportedAndTheNextOneFollows) {
    StartJob();
    WriteResult(std::string(SLICE + 1, 'x'));
    analysis::rokt::transport::UploaderMgr::Instance().DelUploader("job7");

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(log.Count('E', "Upload llc data failed , jobId: job7"), 2U);
}

TEST_F(MiniLlcUninit, BufferThatDoesNotFitInMemoryIsReported) {
    StartJob();
    WriteResult("counts");
    log.SetLevel(DLOG_ERROR);
    tiv::test::FailNextNewOfAtLeast(SLICE + 1);

    EXPECT_EQ(job.Uninit(), 0);

    tiv::test::FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(collector.Payloads().empty());
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
