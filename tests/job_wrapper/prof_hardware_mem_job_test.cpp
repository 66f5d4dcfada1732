// Tests of the jobs over memory hardware: when they run, and the records that they pack.
#include "job_wrapper/prof_hardware_mem_job.h"

#include "job_wrapper/channel_job.h"
#include "job_wrapper/collection_register.h"
#include "support/failing_malloc.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::FailingMalloc;
using tiv::test::FakeDriver;
using Texts = std::vector<std::string>;
using Words = std::vector<uint32_t>;

constexpr uint32_t ALL_ONES = 0xFFFFFFFF;

// Every switch is on and the list has one event.
class HardwareMem : public tiv::test::ChannelJobTest {
 protected:
    HardwareMem() {
        params->ddr_profiling = "on";
        params->hbmProfiling = "on";
        params->zelnar_llc_profiling = "on";
        params->memProfiling = "on";
        params->app = "app";
        SetEvents({"read"});
    }

    template <class Job>
    int InitOf() {
        Job job;
        return job.Init(cfg);
    }
    template <class Job>
    int Start() {
        Job job;
        EXPECT_EQ(job.Init(cfg), 0);
        const int result = job.Process();
        (void)job.Uninit();
        return result;
    }
    // The record of a job that starts.
    template <class Job>
    Words RecordOf() {
        EXPECT_EQ(Start<Job>(), 0);
        return Record();
    }
    // The record of a job whose events were dropped between the look at them and the start.
    template <class Job>
    Words RecordWithoutEvents() {
        Job job;
        EXPECT_EQ(job.Init(cfg), 0);
        StoreEvents(*cfg, nullptr);
        EXPECT_EQ(job.Process(), 0);
        (void)job.Uninit();
        return Record();
    }
    template <class Job>
    uint32_t ChannelOf() {
        EXPECT_EQ(Start<Job>(), 0);
        return driver.Starts().back().channelId;
    }
    template <class Job>
    uint32_t PeriodOf() {
        EXPECT_EQ(Start<Job>(), 0);
        const auto start = driver.Starts().back();
        uint32_t period = 0;
        memcpy(&period, start.userData.data(), sizeof(period));
        EXPECT_EQ(period, start.para.samplePeriod);
        return period;
    }
    template <class Job>
    void ExpectNoMemory(size_t bytes, const std::string& text) {
        Job job;
        ASSERT_EQ(job.Init(cfg), 0);
        log.SetLevel(DLOG_ERROR);
        int result = 0;
        {
            const FailingMalloc noRecord(bytes);
            result = job.Process();
        }
        EXPECT_EQ(result, -1);
        EXPECT_TRUE(log.Has('E', text));
        EXPECT_TRUE(driver.Starts().empty());
    }
};

using HardwareMemInit = HardwareMem;
using HardwareMemRecord = HardwareMem;
using HardwareMemPeriod = HardwareMem;

TEST_F(HardwareMemInit, AllRunWhenAskedFor) {
    EXPECT_EQ(InitOf<ProfDdrJob>(), 0);
    EXPECT_EQ(InitOf<ProfHbmJob>(), 0);
    EXPECT_EQ(InitOf<ProfLlcJob>(), 0);
    EXPECT_EQ(InitOf<ProfAppMemJob>(), 0);
    EXPECT_EQ(InitOf<ProfDevMemJob>(), 0);
    EXPECT_EQ(InitOf<ProfAiStackMemJob>(), 0);
}

TEST_F(HardwareMemInit, NoneIsGlobal) {
    EXPECT_FALSE(ProfDdrJob().IsGlobalJobLevel());
    EXPECT_FALSE(ProfHbmJob().IsGlobalJobLevel());
    EXPECT_FALSE(ProfLlcJob().IsGlobalJobLevel());
    EXPECT_FALSE(ProfAppMemJob().IsGlobalJobLevel());
    EXPECT_FALSE(ProfDevMemJob().IsGlobalJobLevel());
    EXPECT_FALSE(ProfAiStackMemJob().IsGlobalJobLevel());
}

TEST_F(HardwareMemInit, SwitchesThatAreOffDecline) {
    params->ddr_profiling = "off";
    params->hbmProfiling = "";
    params->zelnar_llc_profiling = "ON";
    params->memProfiling = "off";

    EXPECT_EQ(InitOf<ProfDdrJob>(), -1);
    EXPECT_EQ(InitOf<ProfHbmJob>(), -1);
    EXPECT_EQ(InitOf<ProfLlcJob>(), -1);
    EXPECT_EQ(InitOf<ProfAppMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfDevMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfAiStackMemJob>(), -1);

    EXPECT_TRUE(log.Has('I', "DDR Profiling not enabled"));
    EXPECT_TRUE(log.Has('I', "HBM Profiling not enabled"));
    EXPECT_TRUE(log.Has('I', "LLC Profiling not enabled"));
    EXPECT_TRUE(log.Has('I', "Application Memory not enabled."));
    EXPECT_TRUE(log.Has('I', "Device Memory not enabled"));
    EXPECT_TRUE(log.Has('I', "Ai stack Memory not enabled"));
}

TEST_F(HardwareMemInit, ApplicationMemoryNeedsAnApplication) {
    params->app = "";

    EXPECT_EQ(InitOf<ProfAppMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfDevMemJob>(), 0);

    EXPECT_TRUE(log.Has('I', "Application Memory not enabled."));
}

TEST_F(HardwareMemInit, EventJobsDeclineWithoutEvents) {
    SetEvents({});

    EXPECT_EQ(InitOf<ProfDdrJob>(), -1);
    EXPECT_EQ(InitOf<ProfHbmJob>(), -1);
    EXPECT_EQ(InitOf<ProfLlcJob>(), -1);
    EXPECT_EQ(InitOf<ProfDevMemJob>(), 0);

    EXPECT_EQ(log.Count('I', "Job check event param not pass"), 3U);
}

TEST_F(HardwareMemInit, IncompleteConfigurationsDecline) {
    cfg->comParams = nullptr;

    EXPECT_EQ(InitOf<ProfDdrJob>(), -1);
    EXPECT_EQ(InitOf<ProfHbmJob>(), -1);
    EXPECT_EQ(InitOf<ProfLlcJob>(), -1);
    EXPECT_EQ(InitOf<ProfAppMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfDevMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfAiStackMemJob>(), -1);
    EXPECT_EQ(ProfLlcJob().Init(nullptr), -1);

    EXPECT_EQ(log.Count('I', "Job check event param not pass"), 4U);
    EXPECT_EQ(log.Count('I', "Job check comm param failed"), 3U);
}

TEST_F(HardwareMemInit, HostSideRunDeclinesWithoutALine) {
    params->hostProfiling = true;
    EXPECT_EQ(InitOf<ProfDdrJob>(), -1);
    EXPECT_EQ(InitOf<ProfHbmJob>(), -1);
    EXPECT_EQ(InitOf<ProfLlcJob>(), -1);
    EXPECT_EQ(InitOf<ProfAppMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfDevMemJob>(), -1);
    EXPECT_EQ(InitOf<ProfAiStackMemJob>(), -1);

    EXPECT_TRUE(log.OwnTexts('I').empty());
}

TEST_F(HardwareMemInit, JobThatIsSwitchedOffKeepsTheConfiguration) {
    params->ddr_profiling = "off";
    params->memProfiling = "off";
    ProfDdrJob ddr;
    ProfDevMemJob memory;
    EXPECT_EQ(ddr.Init(cfg), -1);
    EXPECT_EQ(memory.Init(cfg), -1);

    EXPECT_EQ(ddr.Process(), 0);
    EXPECT_EQ(memory.Process(), 0);

    EXPECT_EQ(driver.Starts().size(), 2U);
}

TEST_F(HardwareMemInit, HostSideRunKeepsNoConfiguration) {
    params->hostProfiling = true;
    ProfLlcJob llc;
    ProfAppMemJob memory;
    EXPECT_EQ(llc.Init(cfg), -1);
    EXPECT_EQ(memory.Init(cfg), -1);

    EXPECT_EQ(llc.Process(), -1);
    EXPECT_EQ(memory.Process(), -1);

    EXPECT_EQ(log.Count('I', "Job check comm param failed"), 2U);
}

TEST_F(HardwareMemInit, PlatformType0LeavesTheCacheToTheScript) {
    driver.SetDeviceInfo(0, 1, 0);
    ReadChip();
    params->zelnar_llc_profiling = "off";

    EXPECT_EQ(InitOf<ProfLlcJob>(), -1);

    EXPECT_TRUE(log.Has('I', "Mini LLC Profiling not transport by driver channel"));
    EXPECT_FALSE(log.Has('I', "LLC Profiling not enabled"));
}

TEST_F(HardwareMemRecord, EachClassHasItsChannel) {
    EXPECT_EQ(ChannelOf<ProfDdrJob>(), 7U);
    EXPECT_EQ(ChannelOf<ProfHbmJob>(), 1U);
    EXPECT_EQ(ChannelOf<ProfLlcJob>(), 8U);
    EXPECT_EQ(ChannelOf<ProfAppMemJob>(), 130U);
    EXPECT_EQ(ChannelOf<ProfDevMemJob>(), 131U);
    EXPECT_EQ(ChannelOf<ProfAiStackMemJob>(), 142U);
}

TEST_F(HardwareMemRecord, DdrCarriesTheMasterIdAndOneWordPerEvent) {
    SetEvents({"read", "master_id", "write"});
    params->ddr_interval = 30;
    params->ddr_master_id = 9;

    EXPECT_EQ(RecordOf<ProfDdrJob>(), (Words{30, 9, 2, 0, 1}));

    EXPECT_EQ(driver.Starts()[0].para.userDataSize, 20U);
    EXPECT_FALSE(log.Contains('W', "not support"));
    EXPECT_TRUE(log.Has('I', "start profiling Channel 7, events:read,master_id,write, ret=0"));
}

TEST_F(HardwareMemRecord, DdrWithoutMasterIdTakesEveryMaster) {
    SetEvents({"write", "read", "write"});
    params->ddr_master_id = 9;

    EXPECT_EQ(RecordOf<ProfDdrJob>(), (Words{20, ALL_ONES, 3, 1, 0, 1}));
}

TEST_F(HardwareMemRecord, DdrSkipsAnUnknownEventWithAWarning) {
    SetEvents({"bad", "read"});

    EXPECT_EQ(RecordOf<ProfDdrJob>(), (Words{20, ALL_ONES, 1, 0}));

    EXPECT_TRUE(log.Has('W', "DDR event:bad not support"));
}

TEST_F(HardwareMemRecord, HbmKnowsNoMasterId) {
    SetEvents({"master_id"});
    params->ddr_master_id = 9;

    EXPECT_EQ(RecordOf<ProfHbmJob>(), (Words{20, ALL_ONES, 0}));

    EXPECT_EQ(driver.Starts()[0].para.userDataSize, 12U);
    EXPECT_TRUE(log.Has('W', "HBM event:master_id not support"));
}

TEST_F(HardwareMemRecord, HbmHasOneWordPerEvent) {
    SetEvents({"read", "write"});

    EXPECT_EQ(RecordOf<ProfHbmJob>(), (Words{20, ALL_ONES, 2, 0, 1}));
}

TEST_F(HardwareMemRecord, LastOfSeveralLlcEventsWins) {
    SetEvents({"read", "write"});

    EXPECT_EQ(RecordOf<ProfLlcJob>(), (Words{20, 2}));

    EXPECT_TRUE(log.Has('I', "start profiling Channel 8, events:read,write, ret=0"));
}

TEST_F(HardwareMemRecord, LlcReadIs1) {
    SetEvents({"write", "read"});

    EXPECT_EQ(RecordOf<ProfLlcJob>(), (Words{20, 1}));
}

TEST_F(HardwareMemRecord, LlcSkipsAnUnknownEventWithAWarning) {
    SetEvents({"bad"});

    EXPECT_EQ(RecordOf<ProfLlcJob>(), (Words{20, 0}));

    EXPECT_TRUE(log.Has('W', "LLC event:bad not support"));
}

TEST_F(HardwareMemRecord, LlcWithoutEventsCountsNothing) {
    params->llc_interval = 20;

    EXPECT_EQ(RecordWithoutEvents<ProfLlcJob>(), (Words{20, 0}));

    EXPECT_EQ(log.CountOf('W'), 0U);
}

TEST_F(HardwareMemRecord, DdrWithoutEventsHasItsHeadOnly) {
    params->ddr_interval = 20;

    EXPECT_EQ(RecordWithoutEvents<ProfDdrJob>(), (Words{20, ALL_ONES, 0}));
}

TEST_F(HardwareMemRecord, ApplicationMemoryIsView0) {
    params->memInterval = 33;

    EXPECT_EQ(RecordOf<ProfAppMemJob>(), (Words{33, 0, 0, 0}));
}

TEST_F(HardwareMemRecord, DeviceMemoryIsView1) {
    params->memInterval = 33;

    EXPECT_EQ(RecordOf<ProfDevMemJob>(), (Words{33, 0, 1, 0}));
}

TEST_F(HardwareMemRecord, AiStackMemoryIsView0) {
    params->memInterval = 33;

    EXPECT_EQ(RecordOf<ProfAiStackMemJob>(), (Words{33, 0, 0, 0}));
}

TEST_F(HardwareMemRecord, EventRecordThatDoesNotFitInMemoryStartsNothing) {
    ExpectNoMemory<ProfDdrJob>(16, "ProfDdrJob ProfMalloc TagDdrProfileConfig failed");
    ExpectNoMemory<ProfHbmJob>(16, "ProfHbmJob ProfMalloc TagTsHbmProfileConfig failed");
    ExpectNoMemory<ProfLlcJob>(8, "ProfLlcJob ProfMalloc TagLlcProfileConfig failed");

    EXPECT_EQ(log.Count('E', "ProfPeripheralJob SetPeripheralConfig failed"), 3U);
}

TEST_F(HardwareMemRecord, MemoryRecordThatDoesNotFitInMemoryStartsNothing) {
    ExpectNoMemory<ProfAppMemJob>(16, "ProfAppMemJob ProfMalloc TagMemProfileConfig failed");
    ExpectNoMemory<ProfDevMemJob>(16, "ProfDevMemJob ProfMalloc TagMemProfileConfig failed");
    ExpectNoMemory<ProfAiStackMemJob>(16,
                                      "ProfAiStackMemJob ProfMalloc TagMemProfileConfig failed");
}

TEST_F(HardwareMemPeriod, IntervalsFrom1To1000AreTaken) {
    for (const int32_t interval : {1, 2, 999, 1000}) {
        params->ddr_interval = interval;
        params->hbmInterval = interval;
        params->llc_interval = interval;
        EXPECT_EQ(PeriodOf<ProfDdrJob>(), static_cast<uint32_t>(interval));
        EXPECT_EQ(PeriodOf<ProfHbmJob>(), static_cast<uint32_t>(interval));
        EXPECT_EQ(PeriodOf<ProfLlcJob>(), static_cast<uint32_t>(interval));
    }
}

TEST_F(HardwareMemPeriod, OtherIntervalsLeaveIt1) {
    for (const int32_t interval : {-1, 0, 1001}) {
        params->ddr_interval = interval;
        params->hbmInterval = interval;
        params->llc_interval = interval;
        EXPECT_EQ(PeriodOf<ProfDdrJob>(), 1U);
        EXPECT_EQ(PeriodOf<ProfHbmJob>(), 1U);
        EXPECT_EQ(PeriodOf<ProfLlcJob>(), 1U);
    }
}

TEST_F(HardwareMemPeriod, MemoryJobsTakeTheirsUnchecked) {
    params->memInterval = 5000;
    EXPECT_EQ(PeriodOf<ProfAppMemJob>(), 5000U);
    params->memInterval = 0;
    EXPECT_EQ(PeriodOf<ProfDevMemJob>(), 0U);
    params->memInterval = -1;
    EXPECT_EQ(PeriodOf<ProfAiStackMemJob>(), ALL_ONES);
}

TEST_F(HardwareMem, SecondTaskOnTheDeviceIsRefusedAndOtherDevicesAreNot) {
    auto& table = CollectionRegisterMgr::Instance();
    const auto first = std::make_shared<ProfLlcJob>();
    const auto second = std::make_shared<ProfLlcJob>();
    const auto elsewhere = std::make_shared<ProfLlcJob>();
    ASSERT_EQ(first->Init(cfg) + second->Init(cfg) + elsewhere->Init(cfg), 0);

    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, first), 0);
    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, second), -1);
    EXPECT_EQ(table.RegisterCollectionJob(2, PROF_JOB_LLC, elsewhere), 0);

    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_LLC), 0);
    EXPECT_EQ(table.UnregisterCollectionJob(2, PROF_JOB_LLC), 0);
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
