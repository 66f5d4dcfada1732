// Tests of the three system jobs at work: what they send and how they end.
#include <algorithm>

#include "job_wrapper/collection_register.h"
#include "job_wrapper/sys_info_job.h"
#include "job_wrapper/timer_manager.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::FailingMalloc;
using tiv::test::FailingNew;
using tiv::test::FakeMm;

using SysInfoProcess = SysInfoJob;

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
    ASSERT_FALSE(chunks.empty());
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
    ASSERT_FALSE(chunks.empty());
    EXPECT_EQ(chunks[0].fileName, "data/Memory.data.null");
    EXPECT_NE(chunks[0].chunk.find("\nMemTotal:"), std::string::npos);
}

TEST_F(SysInfoProcess, OwnProcessReachesTheUploader) {
    RunFor<PidsJob>(2);

    EXPECT_TRUE(log.Has('I', "pidsHandler Init succ, sampleIntervalNs_:100000000"));
    const std::string own = "data/" + std::to_string(getpid()) + "-";
    std::vector<std::string> names;
    for (const auto& chunk : collector.Finish()) {
        const bool isNew = std::find(names.begin(), names.end(), chunk.fileName) == names.end();
        if (isNew && chunk.fileName.rfind(own, 0) == 0) {
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

    const std::vector<std::string> texts = log.OwnTexts('I');
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
