// Tests of the reader behind a driver channel, and of the channel's start and stop.
#include "job_wrapper/prof_comm_job.h"

#include "common/utils.h"
#include "job_wrapper/channel_job.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"
#include "transport/prof_channel_buffers.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using analysis::rokt::common::utils::Utils;
using tiv::test::Call;
using tiv::test::DriverStart;
using tiv::test::FakeDriver;
using Texts = std::vector<std::string>;

// A job over channel 8 whose record is one word, or that fails with `result`.
class OneWordJob : public ProfPeripheralJob {
 public:
    OneWordJob() { channelId = 8; }
    int SetPeripheralConfig() override REQUIRES(jobMutex) {
        if (result == 0) {
            peripheralCfg.configBuffer = Utils::ProfMalloc(sizeof(uint32_t));
            peripheralCfg.configSize = sizeof(uint32_t);
        }
        return result;
    }
    void SetPeriod(int32_t period) {
        const tiv::MutexLock lock(jobMutex);
        samplePeriod = period;
    }
    bool HoldsBuffer() {
        const tiv::MutexLock lock(jobMutex);
        return peripheralCfg.configBuffer != nullptr;
    }
    DrvPeripheralProfileCfg DriverCfg() {
        const tiv::MutexLock lock(jobMutex);
        return peripheralCfg;
    }

    using ProfDrvJob::CountReadWrite;
    using ProfDrvJob::eventsText;
    using ProfDrvJob::SuffixedName;

    int result = 0;
};

// The class as it is, over channel 8.
class BareJob : public ProfPeripheralJob {
 public:
    BareJob() { channelId = 8; }
};

class PeripheralJob : public tiv::test::ChannelJobTest {
 protected:
    // Runs the job until its last byte is with the uploader, and gives the chunks.
    std::vector<analysis::rokt::ProfileFileChunk> ChunksOf(const std::string& bytes) {
        EXPECT_EQ(job.Init(cfg), 0);
        EXPECT_EQ(job.Process(), 0);
        driver.PushChannelData(1, 8, bytes);
        EXPECT_TRUE(driver.calls.WaitForCalls("prof_channel_read", 2));
        EXPECT_EQ(job.Uninit(), 0);
        return collector.Finish();
    }

    OneWordJob job;
};

TEST_F(PeripheralJob, DeclinesWithoutParameters) {
    EXPECT_EQ(job.Init(nullptr), -1);
    common->params = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);
    cfg->comParams = nullptr;
    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_EQ(log.Count('I', "Job check comm param failed"), 3U);
}

TEST_F(PeripheralJob, ClassItselfHasChannel0WhichNoDeviceHas) {
    ProfPeripheralJob plain;
    ASSERT_EQ(plain.Init(cfg), 0);

    EXPECT_EQ(plain.Process(), 0);

    EXPECT_TRUE(driver.Starts().empty());
    EXPECT_TRUE(log.Has('W', "Channel is invalid, devId:1, channelId:0"));
}

TEST_F(PeripheralJob, HostSideRunDeclinesWithoutALine) {
    params->hostProfiling = true;

    EXPECT_EQ(job.Init(cfg), -1);

    EXPECT_EQ(log.Count('I', "Job check comm param failed"), 0U);
    EXPECT_FALSE(job.IsGlobalJobLevel());
}

TEST_F(PeripheralJob, ProcessAndUninitNeedAConfiguration) {
    EXPECT_EQ(job.Process(), -1);
    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(log.Count('I', "Job check comm param failed"), 2U);
    EXPECT_EQ(driver.calls.Count("prof_stop"), 0U);
}

TEST_F(PeripheralJob, DeviceWithoutTheChannelRunsWithoutData) {
    UseChannels({7});
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);
    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(log.Count('W', "Channel is invalid, devId:1, channelId:8"), 2U);
    EXPECT_EQ(driver.calls.Count("prof_drv_start"), 0U);
    EXPECT_EQ(driver.calls.Count("prof_stop"), 0U);
    EXPECT_FALSE(log.Contains('I', "RemoveReader"));
}

TEST_F(PeripheralJob, ChannelThatIsSwitchedOffRunsWithoutData) {
    Configure(R"({"channel":8,"prof_switch":"off"})");
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);

    EXPECT_TRUE(log.Has('W', "Channel is invalid, devId:1, channelId:8"));
    EXPECT_EQ(driver.calls.Count("prof_drv_start"), 0U);
}

TEST_F(PeripheralJob, ChannelGoneFromTheListIsLeftRunning) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);
    UseChannels({7});

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(driver.calls.Count("prof_stop"), 0U);
    EXPECT_FALSE(log.Contains('I', "RemoveReader"));
}

TEST_F(PeripheralJob, FailedConfigurationMakesNoReaderAndStartsNothing) {
    job.result = 7;
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 7);

    EXPECT_TRUE(log.Has('E', "ProfPeripheralJob SetPeripheralConfig failed"));
    EXPECT_EQ(driver.calls.Count("prof_drv_start"), 0U);
    EXPECT_FALSE(log.Contains('I', "AddReader"));
}

TEST_F(PeripheralJob, ReaderIsThereBeforeTheChannelStarts) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);

    const size_t reader = PlaceOf("AddReader, devId:1, channel:8");
    const size_t begin = PlaceOf("begin to start profiling Channel 8, devId :1");
    const size_t start = PlaceOf(
        "Begin to start profiling DrvPeripheralStart, profDeviceId=1, profChannel=8, "
        "profSamplePeriod=100ms");
    EXPECT_LT(reader, begin);
    EXPECT_LT(begin, start);
    EXPECT_LT(start, log.Lines().size());
    EXPECT_TRUE(log.Has('I', "Begin to start profiling Channel 8, events:"));
    EXPECT_TRUE(log.Has('I', "begin to start profiling Channel 8, devId :1"));
    EXPECT_TRUE(log.Has('I', "start profiling Channel 8, events:, ret=0"));
}

TEST_F(PeripheralJob, DriverGetsTheRecordOfTheJob) {
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);

    const std::vector<DriverStart> starts = driver.Starts();
    ASSERT_EQ(starts.size(), 1U);
    EXPECT_EQ(starts[0].devId, 1U);
    EXPECT_EQ(starts[0].channelId, 8U);
    EXPECT_EQ(starts[0].para.channelType, 1U);
    EXPECT_EQ(starts[0].para.samplePeriod, 100U);
    EXPECT_EQ(starts[0].para.realTime, 1U);
    EXPECT_EQ(starts[0].userData, std::string(4, '\0'));
    EXPECT_FALSE(job.HoldsBuffer());
    EXPECT_EQ(log.CountOf('E'), 0U);
}

TEST_F(PeripheralJob, ClassItselfStartsWithoutARecord) {
    BareJob bare;
    EXPECT_EQ(bare.Init(cfg), 0);

    EXPECT_EQ(bare.Process(), 0);

    const std::vector<DriverStart> starts = driver.Starts();
    ASSERT_EQ(starts.size(), 1U);
    EXPECT_EQ(starts[0].para.userData, nullptr);
    EXPECT_EQ(starts[0].para.userDataSize, 0U);
}

TEST_F(PeripheralJob, ConfiguredPeriodComesBeforeTheJobs) {
    Configure(R"({"channel":8,"peroid":250,"driver_buffer_size":65536,"threshold":50})");
    EXPECT_EQ(job.Init(cfg), 0);
    job.SetPeriod(40);

    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(driver.Starts().at(0).para.samplePeriod, 250U);
    EXPECT_EQ(job.DriverCfg().threshold, 65536U);
}

TEST_F(PeripheralJob, JobsPeriodHoldsWithoutAConfiguredOne) {
    Configure(R"({"channel":7,"peroid":250})");
    EXPECT_EQ(job.Init(cfg), 0);
    job.SetPeriod(40);

    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(driver.Starts().at(0).para.samplePeriod, 40U);
    EXPECT_EQ(job.DriverCfg().threshold, 0U);
}

TEST_F(PeripheralJob, FailedStartIsTheResultAndLeavesTheReaderToUninit) {
    driver.calls.Return("prof_drv_start", 5);
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), -1);

    EXPECT_TRUE(log.Has('I', "start profiling Channel 8, events:, ret=-1"));
    EXPECT_TRUE(log.Has('E', "Function ret check failed"));
    EXPECT_FALSE(job.HoldsBuffer());
    EXPECT_EQ(job.Uninit(), 0);
    EXPECT_TRUE(log.Has('I', "RemoveReader, fid dev, devId:1"));
}

TEST_F(PeripheralJob, ChannelStopsBeforeItsReaderGoes) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(job.Uninit(), 0);

    const size_t stopped = PlaceOf("stop profiling Channel 8 data, ret=0");
    const size_t removal = PlaceOf("ProfDrvJob RemoveReader, key:job7, devId:1, channel:8");
    EXPECT_LT(PlaceOf("begin to stop profiling Channel 8 data"), stopped);
    EXPECT_LT(stopped, removal);
    EXPECT_LT(removal, PlaceOf("RemoveReader, devId:1, channel:8"));
    EXPECT_TRUE(log.Has('I', "begin to stop profiling Channel 8 data"));
    EXPECT_EQ(driver.calls.Count("prof_stop"), 1U);
}

TEST_F(PeripheralJob, FailedStopIsNotPassedOn) {
    driver.calls.Return("prof_stop", -1);
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_TRUE(log.Has('I', "stop profiling Channel 8 data, ret=-1"));
    EXPECT_TRUE(log.Has('I', "RemoveReader, fid dev, devId:1"));
}

TEST_F(PeripheralJob, ChannelListOutlivesTheJob) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);

    EXPECT_EQ(job.Uninit(), 0);
    ProfChannelManager::Instance().UnInit(true);

    EXPECT_TRUE(analysis::rokt::driver::DrvChannelsMgr::Instance().ChannelIsValid(1, 8));
}

TEST_F(PeripheralJob, DataIsNamedAfterTheTagInTheFirstReplay) {
    const auto chunks = ChunksOf("llc bytes");

    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/llc.data.null");
    EXPECT_EQ(chunks[0].extraInfo, "job7.2");
    EXPECT_EQ(chunks[0].chunk.substr(0, chunks[0].chunkSize), "llc bytes");
    EXPECT_EQ(job.DriverCfg().profDataFilePath, "/data/llc.data");
}

TEST_F(PeripheralJob, DataIsNamedAfterTheTagBelowAResultDirectoryToo) {
    common->tmpResultDir = "/var/log/npu/profiling/1";

    const auto chunks = ChunksOf("llc bytes");

    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/llc.data.null");
    EXPECT_EQ(job.DriverCfg().profDataFilePath, "/var/log/npu/profiling/1/data/llc.data");
}

TEST_F(PeripheralJob, TagOfTheConfigurationNamesTheData) {
    cfg->jobTag = 1;

    const auto chunks = ChunksOf("hbm bytes");

    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/hbm.data.null");
    EXPECT_EQ(job.GetJobTag(), 0);
    EXPECT_EQ(job.GetJobName(), "");
}

TEST_F(PeripheralJob, TagOutsideTheTableGivesNoName) {
    cfg->jobTag = JOB_TAG_COUNT;

    const auto chunks = ChunksOf("bytes");

    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, ".null");
}

TEST_F(PeripheralJob, DataFileOfTheConfigurationIsUsedAsItIs) {
    common->tmpResultDir = "/results";
    cfg->dataFile = "/results/data/own.data";

    const auto chunks = ChunksOf("bytes");

    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/own.data.null");
    EXPECT_EQ(job.DriverCfg().profDataFilePath, "/results/data/own.data");
}

TEST_F(PeripheralJob, DataFileFromElsewhereKeepsItsName) {
    common->tmpResultDir = "/results";
    cfg->dataFile = "data/own.data";

    const auto chunks = ChunksOf("bytes");

    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/own.data.null");
    EXPECT_TRUE(log.Has('E', "Failed to find \"results\" from \"own.data\""));
}

TEST_F(PeripheralJob, ChannelStartsWithoutAPollerToo) {
    ProfChannelManager::Instance().UnInit(true);
    EXPECT_EQ(job.Init(cfg), 0);

    EXPECT_EQ(job.Process(), 0);
    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_TRUE(log.Has('I',
                        "ProfDrvJob AddReader failed, key:job7, devId:1, channel:8, "
                        "filepath:/data/llc.data"));
    EXPECT_EQ(driver.Starts().size(), 1U);
    EXPECT_TRUE(log.Has('I', "ProfDrvJob RemoveReader, key:job7, devId:1, channel:8"));
}

TEST_F(PeripheralJob, ChannelStartsWithoutAReaderThatDoesNotFitInMemory) {
    EXPECT_EQ(job.Init(cfg), 0);
    log.SetLevel(DLOG_ERROR);
    tiv::test::FailNextNewOfAtLeast(analysis::rokt::transport::CHANNEL_BUFFER_SIZE);

    EXPECT_EQ(job.Process(), 0);

    tiv::test::FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(driver.Starts().size(), 1U);
}

TEST_F(PeripheralJob, JobRunsAgainInTheNextReplayWithTheNewestConfiguration) {
    EXPECT_EQ(job.Init(cfg), 0);
    EXPECT_EQ(job.Process(), 0);
    EXPECT_EQ(job.Uninit(), 0);
    const auto next = std::make_shared<CollectionJobCfg>(*cfg);
    next->dataFile = "data/next.data";

    EXPECT_EQ(job.Init(next), 0);
    EXPECT_EQ(job.Process(), 0);
    EXPECT_EQ(job.Uninit(), 0);

    EXPECT_EQ(driver.Starts().size(), 2U);
    EXPECT_EQ(job.DriverCfg().profDataFilePath, "data/next.data");
}

TEST(DrvJob, EventsAreJoinedByCommas) {
    const auto events = std::make_shared<std::vector<std::string>>(Texts{"read", "", "write"});

    EXPECT_EQ(OneWordJob::eventsText(events), "read,,write");
    EXPECT_EQ(OneWordJob::eventsText(nullptr), "");
}

TEST(DrvJob, SuffixIsADotAndANumber) {
    EXPECT_EQ(OneWordJob::SuffixedName("data/llc.data", 6), "data/llc.data.6");
}

TEST(DrvJob, OnlyReadAndWriteCount) {
    const auto events =
        std::make_shared<std::vector<std::string>>(Texts{"read", "master_id", "write", "READ"});

    EXPECT_EQ(OneWordJob::CountReadWrite(events), 2U);
    EXPECT_EQ(OneWordJob::CountReadWrite(nullptr), 0U);
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
