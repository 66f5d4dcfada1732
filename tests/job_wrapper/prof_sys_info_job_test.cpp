// Tests of the three system jobs: when they run and how often they sample.
#include "job_wrapper/prof_sys_info_job.h"

#include <limits>

#include "job_wrapper/sys_info_job.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;

constexpr uint64_t NS_OF_100_MS = 100000000;

using SysInfoPeriod = SysInfoJob;
using SysInfoInit = SysInfoJob;

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

    EXPECT_EQ(log.OwnTexts('I'), (std::vector<std::string>{"sys_profiling not enabled",
                                                           "sys mem profiling not enabled",
                                                           "pid_profiling not enabled"}));
}

TEST_F(SysInfoInit, OnlyOnInSmallLettersIsOn) {
    params->sys_profiling = "ON";

    EXPECT_EQ(InitOf<StatJob>(), -1);
    EXPECT_EQ(InitOf<MemJob>(), -1);

    EXPECT_EQ(log.OwnTexts('I'), (std::vector<std::string>{"sys_profiling not enabled",
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

    EXPECT_EQ(log.OwnTexts('I'),
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

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
