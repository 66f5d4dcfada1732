// Tests of the stop of a replay and of the end of a collection.
#include <algorithm>

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

TEST_F(EngineStop, JobsEndThenDirectoriesThenTheDataSessionThenThePoller) {
    StartCollect();
    const std::vector<std::string> order = {
        "stop collect ...",
        "Stop",
        "Stop Job",
        "Data collection finished under agent mode.",
        "Removing collected data: \"/var/log/npu/profiling/job\"",
        "Removing collected data: \"/var/log/npu/profiling/3\"",
        "Entering device(5) FinishCollection...jobId:job",
        "Device(5) leaving finish_collection...",
        "ProfChannelManager UnInit index:1"};

    EXPECT_EQ(engine.CollectStop(status), 0);

    std::vector<std::string> seen = log.OwnTexts('I');
    seen.erase(std::remove_if(seen.begin(), seen.end(),
                              [&](const std::string& text) {
                                  return std::count(order.begin(), order.end(), text) == 0;
                              }),
               seen.end());
    EXPECT_EQ(seen, order);
}

TEST_F(EngineStop, StopLeavesNothingBehind) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();

    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_EQ(status.status, 0);
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

TEST_F(EngineStop, StopWithoutAStartOnlyEndsTheDataSession) {
    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_FALSE(log.Has('I', "stop collect ..."));
    EXPECT_TRUE(log.Has('I', "Entering device(5) FinishCollection...jobId:"));
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

TEST_F(EngineStop, AfterAFailedUninitNothingStartsEither) {
    const auto data = FileUploader("job");
    StartCollect();
    StopUploader();

    engine.Uninit();

    EXPECT_EQ(StartCollect(), -1);
    EXPECT_EQ(status.info, "Collection engine was not initialized.");
}

TEST_F(EngineStop, UninitAfterAStopDoesNotStopAgain) {
    StartCollect();
    EXPECT_EQ(engine.CollectStop(status), 0);

    engine.Uninit();

    EXPECT_EQ(log.Count('I', "stop collect ..."), 1u);
}

}  // namespace
}  // namespace tiv::test
