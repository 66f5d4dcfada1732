// Tests of the start of a collection: the job table, the directories and the channels.
#include <algorithm>

#include "device/engine_fixture.h"
#include "job_wrapper/prof_perf_job.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "transport/channel_poll.h"

namespace tiv::test {
namespace {

// Jobs that an engine has.
constexpr size_t JOBS = 6;

class EngineStart : public EngineTest {};

TEST_F(EngineStart, HostNumberReplacesTheLoggedOne) {
    engine.SetDevIdOnHost(6);

    EXPECT_TRUE(log.Has('I', "CreateCollectionJobArray to set jobCfg"));
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :0"));
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :5"));
}

TEST_F(EngineStart, StartedCollectionHasItsDirectories) {
    EXPECT_EQ(StartCollect(), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(log.Has('I', "parse sampleConfig: \"{\"job_id\":\"job\"}\"."));
    EXPECT_TRUE(log.Has('I', "Collection started, sample config:{\"job_id\":\"job\"}"));
    EXPECT_TRUE(log.Has('I', "Creating dir: \"/var/log/npu/profiling/job\", ret=0"));
    EXPECT_TRUE(log.Has('I', "Creating dir: \"/var/log/npu/profiling/3\", ret=0"));
    const std::vector<std::string> made = PathsOf("mmMkdir");
    EXPECT_EQ(std::count(made.begin(), made.end(), JOB_DIR), 1);
    EXPECT_EQ(made.back(), DEVICE_DIR);
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
}

TEST_F(EngineStart, EngineWithoutInitRefusesAndTouchesNothing) {
    CollectEngine fresh;

    EXPECT_EQ(fresh.CollectStart(SAMPLE_NOTHING, status), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "Collection engine was not initialized.");
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
}

TEST_F(EngineStart, BrokenConfigurationRemovesTheWorkingDirectoryItself) {
    EXPECT_EQ(StartCollect("nonsense"), -1);

    EXPECT_EQ(status.info, "invalid sample configuration");
    EXPECT_TRUE(log.Has('E', "Failed to parse sampleConfig: \"nonsense\"."));
    EXPECT_TRUE(PathsOf("mmMkdir").empty());
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{WORKING_DIR, DEVICE_DIR}));
    EXPECT_TRUE(log.Has('I', "Removing collected data: \"/var/log/npu/profiling/\""));
    EXPECT_TRUE(log.Has('I', "Removing collected data: \"/var/log/npu/profiling/3\""));
}

TEST_F(EngineStart, JobIdThatLeavesTheWorkingDirectoryMakesAndRemovesNothing) {
    EXPECT_EQ(StartCollect(R"({"job_id":"../../../../etc"})"), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_TRUE(PathsOf("mmMkdir").empty());
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
    EXPECT_EQ(log.Texts('E'),
              (std::vector<std::string>{"Job directory not made, it lies outside the working "
                                        "directory: job_id=../../../../etc",
                                        "Job directory not removed, it lies outside the working "
                                        "directory: job_id=../../../../etc"}));
}

TEST_F(EngineStart, ZeroByteBehindTheWayOutOfTheWorkingDirectoryHidesNothing) {
    const std::string jobId("a/../..\0", 8);

    EXPECT_EQ(StartCollect(R"({"job_id":")" + jobId + R"("})"), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_TRUE(PathsOf("mmMkdir").empty());
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
}

TEST_F(EngineStart, DetourThatStaysInsideIsTakenAsItIs) {
    EXPECT_EQ(StartCollect(R"({"job_id":"a/../job"})"), 0);

    const std::vector<std::string> made = PathsOf("mmMkdir");
    EXPECT_EQ(std::count(made.begin(), made.end(), "/var/log/npu/profiling/a/../job"), 1);
}

TEST_F(EngineStart, JobIdOfHalfAMillionComponentsIsRefused) {
    std::string deep;
    for (int i = 0; i < 250000; ++i) {
        deep += "a/";
    }

    EXPECT_EQ(StartCollect(R"({"job_id":")" + deep + R"("})"), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
}

TEST_F(EngineStart, SecondStartThatFailsEndsTheStartedState) {
    EXPECT_EQ(StartCollect(), 0);

    EXPECT_EQ(StartCollect("nonsense"), -1);
    EXPECT_EQ(status.status, 1);

    EXPECT_EQ(StartReplay(), -1);
    EXPECT_EQ(status.info, "collection engine has not been started");
    Analysis::Rokt::JobWrapper::ProfChannelManager::Instance().UnInit(true);
}

TEST_F(EngineStart, RefusedJobDirectoryIsReported) {
    FakeMm::Instance().calls.Replace({});
    FakeMm::Instance().calls.Fail("mmMkdir", -1, EACCES, -1);
    FakeMm::Instance().calls.Return("mmRmdir", 0, -1);

    EXPECT_EQ(StartCollect(), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_TRUE(log.Has('E', "Creating dir failed: /var/log/npu/profiling/job"));
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{JOB_DIR, DEVICE_DIR}));
    EXPECT_FALSE(PollerIsHeld());
    EXPECT_TRUE(FakeDriver::Instance().calls.Calls("prof_drv_get_channels").empty());
}

TEST_F(EngineStart, RefusedPollerRemovesTheDirectories) {
    log.SetLevel(DLOG_ERROR);
    FakeMm::Instance().calls.OnCall([](const Call& call) {
        if (call.function == "mmChmod" && call.Text("path") == DEVICE_DIR) {
            FailNextNewOfAtLeast(sizeof(analysis::rokt::transport::ChannelPoll));
        }
    });

    EXPECT_EQ(StartCollect(), -1);

    FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "[CollectEngine::CollectStart]Failed to init channel poll"));
    EXPECT_EQ(status.info, "");
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{JOB_DIR, DEVICE_DIR}));
    EXPECT_TRUE(FakeDriver::Instance().calls.Calls("prof_drv_get_channels").empty());
}

TEST_F(EngineStart, FailedChannelListRemovesTheDirectoriesAndGivesThePollerBack) {
    FakeDriver::Instance().calls.Return("prof_drv_get_channels", 1);

    EXPECT_EQ(StartCollect(), -1);

    EXPECT_TRUE(log.Has('E', "[CollectEngine::CollectStart]Failed to GetAllChannels"));
    EXPECT_EQ(status.info, "");
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{JOB_DIR, DEVICE_DIR}));
    EXPECT_FALSE(PollerIsHeld());
}

TEST_F(EngineStart, ParametersThatDoNotFitInMemoryMakeAndRemoveNothing) {
    log.SetLevel(DLOG_ERROR);
    const std::string config = "{}";
    {
        const FailingNew failing(0);
        EXPECT_EQ(engine.CollectStart(config, status), -1);
    }

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
}

TEST_F(EngineStart, TableEndsAtAJobThatDoesNotFitInMemory) {
    CollectEngine small;
    log.Clear();
    log.SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(1);  // the parameters pass, the first job fails
        EXPECT_EQ(small.Init(3), 0);
    }
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(small.CollectStart(SAMPLE_NOTHING, status), 0);

    EXPECT_EQ(small.ReplayStart(nullptr, status, nullptr), -1);

    EXPECT_TRUE(log.Has('E', "CollectionJobRegisterAndRun failed, fail_cnt:0"));
}

TEST_F(EngineStart, NoJobIsConfiguredWhenOneDoesNotFitInMemory) {
    CollectEngine small;
    log.Clear();
    FailNextNewOfAtLeast(sizeof(Analysis::Rokt::JobWrapper::ProfCtrlcpuJob));

    EXPECT_EQ(small.Init(3), 0);

    FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_FALSE(log.Has('I', "CreateCollectionJobArray to set jobCfg"));
}

TEST_F(EngineStart, JobWithoutAConfigurationDoesNotRun) {
    CollectEngine small;
    log.SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(1 + JOBS);  // the parameters and the jobs pass
        EXPECT_EQ(small.Init(3), 0);
    }
    EXPECT_EQ(small.CollectStart(SAMPLE_PIDS, status), 0);

    EXPECT_EQ(small.ReplayStart(Events({"0x11"}), status, Events({"a"})), -1);

    EXPECT_TRUE(
        log.Has('E', "CollectionJobRegisterAndRun failed, fail_cnt:" + std::to_string(JOBS)));
    EXPECT_EQ(small.CollectStop(status), 0);
}

}  // namespace
}  // namespace tiv::test
