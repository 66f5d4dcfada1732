// Tests of the three system jobs: when they run, how often they sample, what they send.
#include "job_wrapper/prof_sys_info_job.h"

#include <limits>

#include "config/platform.h"
#include "job_wrapper/collection_register.h"
#include "job_wrapper/sample_job.h"
#include "job_wrapper/timer_manager.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "transport/uploader_mgr.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;
using tiv::test::FailingMalloc;
using tiv::test::FailingNew;
using tiv::test::FakeDriver;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;

constexpr uint64_t NS_OF_100_MS = 100000000;

template <class Job>
class OpenJob : public Job {
 public:
    std::shared_ptr<CollectionJobCfg> Cfg() {
        const tiv::MutexLock lock(this->jobMutex);
        return this->collectionJobCfg;
    }
    bool HoldsUploader() {
        const tiv::MutexLock lock(this->jobMutex);
        return this->upLoader_ != nullptr;
    }
    uint64_t Interval() {
        const tiv::MutexLock lock(this->jobMutex);
        return this->sampleIntervalNs;
    }
};

using StatJob = OpenJob<ProfSysStatJob>;
using MemJob = OpenJob<ProfSysMemJob>;
using PidsJob = OpenJob<ProfAllPidsJob>;

// A device side with an uploader for the job and all three switches on.
class SysInfoJob : private tiv::test::FreshDoubles, public ::testing::Test {
 protected:
    SysInfoJob() {
        FakeDriver::Instance().drvGetPlatformInfo = [](uint32_t* info) {
            *info = 0;
            return 0;
        };
        EXPECT_EQ(Common::Platform::Platform::Instance().InitRunSide(), 0);
        common->devId = 1;
        common->devIdOnHost = 6;
        common->params = params;
        common->jobCtx = tiv::test::MakeJobContext();
        cfg->comParams = common;
        params->job_id = "job7";
        params->sys_profiling = "on";
        params->pid_profiling = "on";
        UploaderMgr::Instance().AddUploader("job7", collector.Get());
        log.Clear();
        FakeMm::Instance().calls.ClearCalls();
    }
    ~SysInfoJob() override { UploaderMgr::Instance().DelUploader("job7"); }

    static void MoveToSide(uint32_t side) {
        FakeDriver::Instance().drvGetPlatformInfo = [side](uint32_t* info) {
            *info = side;
            return 0;
        };
        EXPECT_EQ(Common::Platform::Platform::Instance().InitRunSide(), 0);
        RecordedLog::Instance().Clear();
    }
    uint64_t PeriodOf(int tag) {
        std::shared_ptr<Uploader> uploader;
        return ProfTimerJobCommonInit(cfg, uploader, tag);
    }
    template <class Job>
    int InitOf() {
        Job job;
        return job.Init(cfg);
    }
    template <class Job>
    void RunFor(size_t ticks) {
        Job job;
        ASSERT_EQ(job.Init(cfg), 0);
        ASSERT_EQ(job.Process(), 0);
        // The timer may tick before it has the job's handler.
        const size_t before = FakeMm::Instance().calls.Count("mmSleep");
        ASSERT_TRUE(FakeMm::Instance().calls.WaitForCalls("mmSleep", before + ticks));
        ASSERT_EQ(job.Uninit(), 0);
    }

    RecordedLog& log = RecordedLog::Instance();
    tiv::test::ChunkCollector collector;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params =
        std::make_shared<analysis::rokt::message::ProfileParams>();
    std::shared_ptr<CollectionJobCommonParams> common =
        std::make_shared<CollectionJobCommonParams>();
    std::shared_ptr<CollectionJobCfg> cfg = std::make_shared<CollectionJobCfg>();
};

using SysInfoPeriod = SysInfoJob;
using SysInfoInit = SysInfoJob;
using SysInfoProcess = SysInfoJob;

TEST_F(SysInfoPeriod, EachTagReadsItsOwnInterval) {
    params->cpu_sampling_interval = 111;
    params->sys_sampling_interval = 222;
    params->pid_sampling_interval = 333;

    EXPECT_EQ(PeriodOf(0), 111000000U);
    EXPECT_EQ(PeriodOf(1), 222000000U);
    EXPECT_EQ(PeriodOf(2), 333000000U);
    EXPECT_EQ(PeriodOf(3), 111000000U);
}

TEST_F(SysInfoPeriod, IntervalsUpTo100GiveThe100MillisecondFloor) {
    for (const int32_t intervalMs : {std::numeric_limits<int32_t>::min(), -1, 0, 1, 99, 100}) {
        params->sys_sampling_interval = intervalMs;
        EXPECT_EQ(PeriodOf(1), NS_OF_100_MS) << intervalMs;
    }
    params->sys_sampling_interval = 101;
    EXPECT_EQ(PeriodOf(1), 101000000U);
}

TEST_F(SysInfoPeriod, ProductNeeds64Bits) {
    params->sys_sampling_interval = std::numeric_limits<int32_t>::max();

    EXPECT_EQ(PeriodOf(1), 2147483647000000U);
}

TEST_F(SysInfoPeriod, FoundUploaderIsHandedOutAndLogged) {
    params->sys_sampling_interval = 250;
    std::shared_ptr<Uploader> uploader;

    EXPECT_EQ(ProfTimerJobCommonInit(cfg, uploader, 1), 250000000U);

    EXPECT_EQ(uploader, collector.Get());
    EXPECT_TRUE(log.Has('I',
                        "[ProfTimerJobCommonInit]devId:1, devIdOnHost:6, timerTag:1, "
                        "sampleIntervalMs:250"));
}

TEST_F(SysInfoPeriod, WithoutAnUploaderItIsZero) {
    UploaderMgr::Instance().DelUploader("job7");

    EXPECT_EQ(PeriodOf(0), 0U);

    EXPECT_TRUE(log.Has('E', "Failed to get devId(1) upLoader, devIdOnHost : 6"));
}

TEST_F(SysInfoPeriod, IncompleteConfigurationGivesAllBits) {
    std::shared_ptr<Uploader> uploader;
    common->jobCtx = nullptr;

    EXPECT_EQ(ProfTimerJobCommonInit(nullptr, uploader, 0), std::numeric_limits<uint64_t>::max());
    EXPECT_EQ(PeriodOf(0), std::numeric_limits<uint64_t>::max());

    EXPECT_EQ(log.Count('I', "Job check context param failed"), 2U);
}

TEST_F(SysInfoInit, AllThreeRunWhenAskedFor) {
    EXPECT_EQ(InitOf<StatJob>(), 0);
    EXPECT_EQ(InitOf<MemJob>(), 0);
    EXPECT_EQ(InitOf<PidsJob>(), 0);
}

TEST_F(SysInfoInit, AllThreeAreGlobal) {
    EXPECT_TRUE(StatJob().IsGlobalJobLevel());
    EXPECT_TRUE(MemJob().IsGlobalJobLevel());
    EXPECT_TRUE(PidsJob().IsGlobalJobLevel());
}

TEST_F(SysInfoInit, SystemMemoryHasThePeriodOfSysSamplingInterval) {
    MemJob job;
    params->sys_sampling_interval = 1;
    ASSERT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Interval(), NS_OF_100_MS);
    params->sys_sampling_interval = 250;

    ASSERT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Interval(), 250000000U);
}

TEST_F(SysInfoInit, SystemCpuHasThePeriodOfCpuSamplingInterval) {
    StatJob job;
    params->sys_sampling_interval = 700;
    params->cpu_sampling_interval = 20;
    ASSERT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Interval(), NS_OF_100_MS);
    params->cpu_sampling_interval = 300;

    ASSERT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Interval(), 300000000U);
}

TEST_F(SysInfoInit, ProcessesHaveThePeriodOfPidSamplingInterval) {
    PidsJob job;
    params->pid_sampling_interval = 400;

    ASSERT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Interval(), 400000000U);
}

TEST_F(SysInfoInit, SwitchesThatAreOffDecline) {
    params->sys_profiling = "off";
    params->pid_profiling = "ON";

    EXPECT_EQ(InitOf<StatJob>(), -1);
    EXPECT_EQ(InitOf<MemJob>(), -1);
    EXPECT_EQ(InitOf<PidsJob>(), -1);

    EXPECT_EQ(log.Texts('I'), (std::vector<std::string>{"sys_profiling not enabled",
                                                        "sys mem profiling not enabled",
                                                        "pid_profiling not enabled"}));
}

TEST_F(SysInfoInit, OnlyOnInSmallLettersIsOn) {
    params->sys_profiling = "ON";

    EXPECT_EQ(InitOf<StatJob>(), -1);
    EXPECT_EQ(InitOf<MemJob>(), -1);

    EXPECT_EQ(log.Texts('I'), (std::vector<std::string>{"sys_profiling not enabled",
                                                        "sys mem profiling not enabled"}));
}

TEST_F(SysInfoInit, HostToolThatReportsMemoryKeepsSystemMemoryOff) {
    params->zelnar = "on";

    EXPECT_EQ(InitOf<MemJob>(), -1);
    EXPECT_EQ(InitOf<StatJob>(), 0);

    EXPECT_TRUE(log.Has('I', "sys mem profiling not enabled"));
}

TEST_F(SysInfoInit, HostSideRunDeclinesWithoutALine) {
    params->hostProfiling = true;
    MoveToSide(1);

    EXPECT_EQ(InitOf<StatJob>(), -1);
    EXPECT_EQ(InitOf<MemJob>(), -1);
    EXPECT_EQ(InitOf<PidsJob>(), -1);

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(SysInfoInit, OtherSideDeclinesBeforeTheSwitchIsRead) {
    MoveToSide(1);
    params->sys_profiling = "off";
    params->pid_profiling = "off";

    EXPECT_EQ(InitOf<StatJob>(), -1);
    EXPECT_EQ(InitOf<MemJob>(), -1);
    EXPECT_EQ(InitOf<PidsJob>(), -1);

    EXPECT_EQ(log.Texts('I'),
              (std::vector<std::string>{"Not in device Side, SysStat Profiling not enabled",
                                        "Not in device Side, SysMem Profiling not enabled",
                                        "Not in device Side, AllPids Profiling not enabled"}));
}

TEST_F(SysInfoInit, ConfigurationIsKeptFromTheSideTestOn) {
    StatJob offSide;
    StatJob switchedOff;
    params->sys_profiling = "off";

    EXPECT_EQ(switchedOff.Init(cfg), -1);
    MoveToSide(1);
    EXPECT_EQ(offSide.Init(cfg), -1);

    EXPECT_EQ(switchedOff.Cfg(), cfg);
    EXPECT_EQ(offSide.Cfg(), nullptr);
}

TEST_F(SysInfoInit, IncompleteConfigurationsDecline) {
    StatJob job;
    common->params = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);
    common->params = params;
    common->jobCtx = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);
    cfg->comParams = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);
    EXPECT_EQ(job.Init(nullptr), -1);

    EXPECT_EQ(log.Count('I', "Job check context param failed"), 4U);
    EXPECT_EQ(log.Lines().size(), 4U);
}

TEST_F(SysInfoInit, JobWithoutAnUploaderDeclines) {
    UploaderMgr::Instance().DelUploader("job7");
    StatJob job;

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_TRUE(log.Has('E', "Failed to get devId(1) upLoader, devIdOnHost : 6"));
    EXPECT_FALSE(job.HoldsUploader());
}

TEST_F(SysInfoInit, UploaderOfAnEarlierReplayIsNotKept) {
    StatJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    UploaderMgr::Instance().DelUploader("job7");

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_FALSE(job.HoldsUploader());
}

TEST_F(SysInfoInit, UploaderStaysWhenTheRegistryRefusesTheJob) {
    StatJob job;

    ASSERT_EQ(job.Init(cfg), 0);

    EXPECT_TRUE(job.HoldsUploader());
}

TEST_F(SysInfoProcess, WithoutInitDeclines) {
    EXPECT_EQ(StatJob().Process(), -1);
    EXPECT_EQ(MemJob().Process(), -1);
    EXPECT_EQ(PidsJob().Process(), -1);

    EXPECT_EQ(log.Count('I', "Job check comm param failed"), 3U);
}

TEST_F(SysInfoProcess, SystemCpuReachesTheUploader) {
    RunFor<StatJob>(2);

    EXPECT_TRUE(log.Has('I', "statHandler Init succ, sampleIntervalNs_:100000000"));
    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/SystemCpuUsage.data.null");
    EXPECT_EQ(chunks[0].extraInfo, "job7.2");
    EXPECT_EQ(chunks[0].chunkModule, 3U);
    EXPECT_NE(chunks[0].chunk.find("\nIndex:0\nDataLen:"), std::string::npos);
    EXPECT_NE(chunks[0].chunk.find("\ncpu "), std::string::npos);
}

TEST_F(SysInfoProcess, SystemMemoryReachesTheUploader) {
    RunFor<MemJob>(2);

    EXPECT_TRUE(log.Has('I', "memHandler Init succ, sampleIntervalNs_:100000000"));
    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/Memory.data.null");
    EXPECT_NE(chunks[0].chunk.find("\nMemTotal:"), std::string::npos);
}

TEST_F(SysInfoProcess, OwnProcessReachesTheUploader) {
    RunFor<PidsJob>(2);

    EXPECT_TRUE(log.Has('I', "pidsHandler Init succ, sampleIntervalNs_:100000000"));
    const std::string own = "data/" + std::to_string(getpid()) + "-";
    std::vector<std::string> names;
    for (const auto& chunk : collector.Finish()) {
        if (chunk.fileName.rfind(own, 0) == 0) {
            names.push_back(chunk.fileName);
        }
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{own + "Memory.data.null", own + "CpuUsage.data.null"}));
}

TEST_F(SysInfoProcess, HandlersCarryTheTimerTags) {
    StatJob stat;
    MemJob mem;
    PidsJob pids;
    ASSERT_EQ(stat.Init(cfg) + mem.Init(cfg) + pids.Init(cfg), 0);

    ASSERT_EQ(stat.Process() + mem.Process() + pids.Process(), 0);

    EXPECT_TRUE(log.Has('I', "ProfTimer RegisterTimerHandler tag 0"));
    EXPECT_TRUE(log.Has('I', "ProfTimer RegisterTimerHandler tag 1"));
    EXPECT_TRUE(log.Has('I', "ProfTimer RegisterTimerHandler tag 2"));
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 1U);
    (void)(stat.Uninit() + mem.Uninit() + pids.Uninit());
}

TEST_F(SysInfoProcess, StatBufferHas8192Bytes) {
    StatJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    int result = -1;
    {
        const FailingMalloc noMore(8193);
        result = job.Process();
    }

    EXPECT_EQ(result, 0);
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(SysInfoProcess, StatBufferThatCannotBeHadFailsTheJob) {
    StatJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    const FailingMalloc noBuffer(8192);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('E', "statHandler Init Failed"));
    EXPECT_FALSE(log.Has('I', "Start ProfTimer begin"));
}

TEST_F(SysInfoProcess, MemBufferHas32768Bytes) {
    MemJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    int result = -1;
    {
        const FailingMalloc noMore(32769);
        result = job.Process();
    }

    EXPECT_EQ(result, 0);
    EXPECT_EQ(job.Uninit(), 0);
}

TEST_F(SysInfoProcess, MemBufferThatCannotBeHadFailsTheJob) {
    MemJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    const FailingMalloc noBuffer(32768);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('E', "memHandler Init Failed"));
}

TEST_F(SysInfoProcess, HandlerThatCannotBeMadeFailsTheJob) {
    PidsJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    int result = 0;
    {
        const FailingNew noMemory;
        result = job.Process();
    }

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
}

TEST_F(SysInfoProcess, UninitRemovesTheHandlerStopsTheTimerAndLetsTheUploaderGo) {
    StatJob job;
    ASSERT_EQ(job.Init(cfg), 0);
    ASSERT_EQ(job.Process(), 0);
    log.Clear();

    EXPECT_EQ(job.Uninit(), 0);

    const std::vector<std::string> texts = log.Texts('I');
    ASSERT_FALSE(texts.empty());
    EXPECT_EQ(texts.front(), "ProfTimer RemoveTimerHandler tag 0 begin");
    EXPECT_EQ(texts.back(), "StopProfTimer end");
    EXPECT_TRUE(log.Contains('I', "FlushBuf data/SystemCpuUsage.data"));
    EXPECT_FALSE(job.HoldsUploader());
}

TEST_F(SysInfoProcess, UninitWithoutProcessIsZeroToo) {
    MemJob job;

    EXPECT_EQ(job.Uninit(), 0);

    // The timer's count has wrapped: a start brings it back to 0 for whatever runs next.
    TimerManager::Instance().StartProfTimer();
}

TEST_F(SysInfoProcess, JobRunsAgainInTheNextReplay) {
    StatJob job;
    for (int replay = 0; replay < 2; ++replay) {
        ASSERT_EQ(job.Init(cfg), 0);
        ASSERT_EQ(job.Process(), 0);
        ASSERT_EQ(job.Uninit(), 0);
    }

    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 2U);
}

TEST_F(SysInfoProcess, SecondDeviceIsRefusedByTheRegistryAndItsOtherJobsRun) {
    const auto first = std::make_shared<ProfSysStatJob>();
    const auto second = std::make_shared<ProfSysStatJob>();
    const auto pids = std::make_shared<ProfAllPidsJob>();
    CollectionRegisterMgr& table = CollectionRegisterMgr::Instance();
    ASSERT_EQ(first->Init(cfg) + second->Init(cfg) + pids->Init(cfg), 0);

    EXPECT_EQ(table.RegisterCollectionJob(0, PROF_JOB_SYS_STAT, first), 0);
    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_SYS_STAT, second), -1);
    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_ALL_PIDS, pids), 0);

    EXPECT_TRUE(log.Has('W', "IsGlobalJobLevel, devId:0 jobTag:30"));
    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_SYS_STAT), -1);
    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_ALL_PIDS), 0);
    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_SYS_STAT), 0);
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
