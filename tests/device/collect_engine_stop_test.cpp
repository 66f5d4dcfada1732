// Tests of the stop of a replay and of the end of a collection.
#include "device/engine_fixture.h"

namespace tiv::test {
namespace {

class EngineStop : public EngineTest {};

TEST_F(EngineStop, StopOfASecondTaskOnTheDeviceStopsTheFirstOnesJobs) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();
    CollectEngine second;
    ASSERT_EQ(second.Init(3), 0);
    ASSERT_EQ(second.CollectStart(R"({"job_id":"second"})", status), 0);

    EXPECT_EQ(second.CollectStop(status), 0);
    EXPECT_EQ(engine.ReplayStop(status), 0);

    EXPECT_TRUE(log.Has('D', "Device 5 Collection Job 32 Unregister"));
}

TEST_F(EngineStop, ReplayStopBeforeAReplaySucceeds) {
    StartCollect();
    const size_t errors = log.CountOf('E');

    EXPECT_EQ(engine.ReplayStop(status), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(log.Has('I', "Stop"));
    EXPECT_TRUE(log.Has('I', "Stop Job"));
    EXPECT_EQ(
        LinesFrom('D', "Device 5 Collection Job"),
        (std::vector<std::string>{
            "Device 5 Collection Job 2 Unregister", "Device 5 Collection Job 3 Unregister",
            "Device 5 Collection Job 29 Unregister", "Device 5 Collection Job 30 Unregister",
            "Device 5 Collection Job 31 Unregister", "Device 5 Collection Job 32 Unregister"}));
    EXPECT_EQ(log.CountOf('E'), errors);
}

TEST_F(EngineStop, StoppedJobGivesItsSlotBack) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();

    EXPECT_EQ(engine.ReplayStop(status), 0);
    EXPECT_FALSE(log.Has('D', "Device 5 Collection Job 32 Unregister"));

    EXPECT_EQ(StartReplay(), 0);
}

TEST_F(EngineStop, StopEndsEverythingInOrder) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();

    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(log.Has('I', "stop collect ..."));
    EXPECT_TRUE(log.Has('I', "Data collection finished under agent mode."));
    EXPECT_TRUE(log.Has('I', "Entering device(5) FinishCollection...jobId:job"));
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{JOB_DIR, DEVICE_DIR}));
    EXPECT_EQ(data.use_count(), 1);
    EXPECT_FALSE(PollerIsHeld());
}

TEST_F(EngineStop, StopLeavesThePollerToTheOtherJob) {
    StartCollect();
    CollectEngine other;
    ASSERT_EQ(other.Init(4), 0);
    ASSERT_EQ(other.CollectStart(R"({"job_id":"other"})", status), 0);

    EXPECT_EQ(engine.CollectStop(status), 0);
    EXPECT_TRUE(PollerIsHeld());

    EXPECT_EQ(other.CollectStop(status), 0);
    EXPECT_FALSE(PollerIsHeld());
}

TEST_F(EngineStop, StopWithoutParametersIsRefused) {
    CollectEngine fresh;

    EXPECT_EQ(fresh.CollectStop(status), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(log.Has('E', "[CollectStop]Config is null"));
}

TEST_F(EngineStop, FailedFinishStillRunsEveryStepOfTheStop) {
    const auto data = FileUploader("job");
    StartCollect();
    StopUploader();

    EXPECT_EQ(engine.CollectStop(status), -1);

    EXPECT_EQ(status.info, "Stop profiling failed, please check it or see log for more info");
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(log.Has('E', "[CollectStop]FinishCollection failed"));
    EXPECT_FALSE(PollerIsHeld());
    EXPECT_EQ(StartReplay(), -1);
}

TEST_F(EngineStop, UninitStopsACollectionThatRuns) {
    const auto data = FileUploader("job");
    StartCollect();

    engine.Uninit();
    EXPECT_TRUE(log.Has('I', "stop collect ..."));
    EXPECT_EQ(data.use_count(), 1);

    engine.SetDevIdOnHost(9);
    EXPECT_FALSE(log.Has('I', "SetDevIdOnHost devId :5"));
}

TEST_F(EngineStop, FailedStopDuringUninitKeepsTheParameters) {
    const auto data = FileUploader("job");
    StartCollect();
    StopUploader();

    engine.Uninit();
    EXPECT_TRUE(log.Has('D', "[CollectEngine]Collect stop failed."));

    engine.SetDevIdOnHost(9);
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :5"));
}

TEST_F(EngineStop, UninitAfterAStopDoesNotStopAgain) {
    StartCollect();
    EXPECT_EQ(engine.CollectStop(status), 0);

    engine.Uninit();

    EXPECT_EQ(log.Count('I', "stop collect ..."), 1u);
}

}  // namespace
}  // namespace tiv::test
