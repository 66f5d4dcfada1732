// Tests of one task: its states, and what it refuses.
#include "device/prof_job_handler.h"

#include <thread>

#include "device/device_fixture.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::ProfJobHandler;
using analysis::rokt::message::StatusInfo;

constexpr const char* SAMPLE_NOTHING = R"({"job_id":"job"})";
constexpr const char* SAMPLE_PIDS = R"({"job_id":"job","pid_profiling":"on"})";

// Brings no engine.
class EnginelessTask : public ProfJobHandler {
 public:
    int InitEngine(StatusInfo& status) override {
        status.info = "no engine here";
        return 7;
    }
};

class JobTask : public DeviceTest {
 protected:
    JobTask() {
        EXPECT_EQ(task.Init(0, "0_job", std::make_shared<MemoryTransport>()), 0);
        task.SetDevIdOnHost(0);
    }

    int StartJob(const std::string& sampleConfig = SAMPLE_NOTHING) {
        return task.OnJobStart(JobStart("", sampleConfig), status);
    }
    int StartReplay() { return task.Start(ReplayStart(""), status); }
    int StopReplay() { return task.End(ReplayStop(""), status); }

    static void AddEvents(google::protobuf::RepeatedPtrField<std::string>* field, int count) {
        for (int i = 0; i < count; ++i) {
            *field->Add() = "0x11";
        }
    }
    // A request with eight events in each list that is counted, and `extra` more in one of them.
    static std::shared_ptr<proto::ReplayStartReq> EightOfEach() {
        auto request = ReplayStart("");
        AddEvents(request->mutable_ctrl_cpu_events(), 8);
        AddEvents(request->mutable_ts_cpu_events(), 8);
        AddEvents(request->mutable_ai_cpu_events(), 8);
        AddEvents(request->mutable_llc_events(), 8);
        return request;
    }

    ProfJobHandler task;
    StatusInfo status;
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(JobTask, NullTransportIsRefused) {
    ProfJobHandler other;

    EXPECT_EQ(other.Init(1, "1_job", nullptr), -1);

    EXPECT_TRUE(log.Has('E', "Init failed, transport is null"));
    EXPECT_EQ(other.GetDevId(), -1);
}

TEST_F(JobTask, UninitForgetsDeviceAndKey) {
    EXPECT_EQ(task.GetDevId(), 0);
    EXPECT_EQ(task.GetJobId(), "0_job");

    EXPECT_EQ(task.Uninit(), 0);

    EXPECT_EQ(task.GetDevId(), -1);
    EXPECT_EQ(task.GetJobId(), "");
}

TEST_F(JobTask, NullJobStartLeavesTheStatusAlone) {
    status.status = 7;

    EXPECT_EQ(task.OnJobStart(nullptr, status), -1);

    EXPECT_EQ(status.status, 7);
    EXPECT_TRUE(log.Has('I', "receive job start"));
    EXPECT_TRUE(log.Has('E', "[OnJobStart] message is nullptr"));
}

TEST_F(JobTask, StartedJobHasStatusZero) {
    EXPECT_EQ(StartJob(), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(status.info, "");
}

TEST_F(JobTask, SecondJobStartIsRefusedAndTheJobRunsOn) {
    StartJob();

    EXPECT_EQ(StartJob(), -1);
    EXPECT_EQ(status.info, "Profiling is already running on device");
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(log.Has('E', "InitEngine Profiling is already running on device"));
    EXPECT_TRUE(log.Has('E', "InitEngine failed"));

    EXPECT_EQ(StopReplay(), 0);
}

TEST_F(JobTask, EngineIsMadeByTheMostDerivedTask) {
    EnginelessTask engineless;

    EXPECT_EQ(engineless.OnJobStart(JobStart("", SAMPLE_NOTHING), status), -1);

    EXPECT_EQ(status.info, "no engine here");
    EXPECT_TRUE(log.Has('E', "InitEngine failed"));
}

TEST_F(JobTask, EngineThatDoesNotFitInMemoryIsReported) {
    const auto request = JobStart("", SAMPLE_NOTHING);
    log.SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(0);
        EXPECT_EQ(task.OnJobStart(request, status), -1);
    }

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(log.Has('E', "InitEngine failed"));
    EXPECT_EQ(status.info, "");
}

TEST_F(JobTask, EngineWithoutMemoryForItsParametersIsDropped) {
    const auto request = JobStart("", SAMPLE_NOTHING);
    log.SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(1);
        EXPECT_EQ(task.OnJobStart(request, status), -1);
    }

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(log.Has('E', "InitEngine Failed to init collection engine"));
    EXPECT_EQ(status.info, "Failed to init collection engine");
}

TEST_F(JobTask, FailedCollectStartLeavesTheTaskNotStarted) {
    EXPECT_EQ(StartJob("nonsense"), -1);
    EXPECT_EQ(status.info, "invalid sample configuration");
    EXPECT_TRUE(log.Has('E', "devId 0 CollectStart failed"));
    EXPECT_FALSE(log.Contains('I', "FinishCollection"));  // as every stop of an engine says

    EXPECT_EQ(task.OnJobEnd(status), -1);
    EXPECT_EQ(status.info, "Profiling is not started on device");
    EXPECT_FALSE(log.Contains('I', "FinishCollection"));
}

TEST_F(JobTask, ReplayBeforeTheJobIsRefused) {
    EXPECT_EQ(StartReplay(), -1);

    EXPECT_EQ(status.info, "Profiling is not started on device");
    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(log.Has('I', "receive start"));
    EXPECT_TRUE(log.Has('E', "Start Profiling is not started on device"));
    EXPECT_TRUE(log.Has('E', "Start failed, doing ResetTask!"));
    EXPECT_TRUE(log.Has('I', "ResetTask begin, _is_started:0"));
}

TEST_F(JobTask, NineEventsOfAKindEndTheTask) {
    StartJob();
    const auto request = EightOfEach();
    AddEvents(request->mutable_llc_events(), 1);

    EXPECT_EQ(task.Start(request, status), -1);
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "[Start] pmu event size is not valid!");
    EXPECT_TRUE(log.Has('E', "llc_events_size(9) is not valid!"));
    EXPECT_TRUE(log.Has('E', "Start pmu event size is not valid"));
    EXPECT_TRUE(log.Has('I', "ResetTask begin, _is_started:1"));

    EXPECT_EQ(StopReplay(), -1);
    EXPECT_EQ(status.info, "Profiling is not started on device");
}

TEST_F(JobTask, EventsOfATaskThatIsNotStartedAreNotCounted) {
    const auto request = EightOfEach();
    AddEvents(request->mutable_llc_events(), 1);

    EXPECT_EQ(task.Start(request, status), -1);

    EXPECT_EQ(status.info, "Profiling is not started on device");
    EXPECT_FALSE(log.Has('E', "llc_events_size(9) is not valid!"));
}

TEST_F(JobTask, EventsAreCountedBeforeTheEngineIsLookedFor) {
    StartJob();
    task.OnConnectionReset();

    EXPECT_EQ(task.Start(nullptr, status), -1);

    EXPECT_EQ(status.info, "[Start] pmu event size is not valid!");
}

TEST_F(JobTask, EventsOfBothKindsReachTheirOwnChecks) {
    const auto ctrl = ReplayStart("");
    *ctrl->mutable_ctrl_cpu_events()->Add() = "11";
    const auto llc = ReplayStart("");
    *llc->mutable_llc_events()->Add() = "a.b";

    StartJob();
    EXPECT_EQ(task.Start(ctrl, status), -1);
    EXPECT_TRUE(log.Has('E', "[CheckPmuEventIsValid]ctrlCpuEvent is not valid!"));
    StartJob();
    EXPECT_EQ(task.Start(llc, status), -1);
    EXPECT_TRUE(log.Has('E', "llc events is invalid.a.b"));
}

TEST_F(JobTask, EventCountsAreCheckedInOrderAndTheFirstFailureSpeaks) {
    StartJob();
    const auto request = EightOfEach();
    AddEvents(request->mutable_ai_cpu_events(), 1);
    AddEvents(request->mutable_ts_cpu_events(), 2);

    EXPECT_EQ(task.Start(request, status), -1);

    EXPECT_TRUE(log.Has('E', "ts_cpu_events_size(10) is not valid!"));
    EXPECT_FALSE(log.Contains('E', "ai_cpu_events_size"));
}

TEST_F(JobTask, ControlEventsAreCountedFirstAndLlcEventsLast) {
    StartJob();
    const auto request = EightOfEach();
    AddEvents(request->mutable_llc_events(), 1);
    AddEvents(request->mutable_ai_cpu_events(), 1);
    EXPECT_EQ(task.Start(request, status), -1);
    EXPECT_TRUE(log.Has('E', "ai_cpu_events_size(9) is not valid!"));
    StartJob();
    AddEvents(request->mutable_ts_cpu_events(), 1);
    AddEvents(request->mutable_ctrl_cpu_events(), 1);
    EXPECT_EQ(task.Start(request, status), -1);

    EXPECT_TRUE(log.Has('E', "ctrl_cpu_events_size(9) is not valid!"));
    EXPECT_FALSE(log.Contains('E', "ts_cpu_events_size"));
    EXPECT_FALSE(log.Contains('E', "llc_events_size"));
}

TEST_F(JobTask, ControlAndAiEventCountsHaveTheirOwnTexts) {
    StartJob();
    const auto ctrl = EightOfEach();
    AddEvents(ctrl->mutable_ctrl_cpu_events(), 1);
    EXPECT_EQ(task.Start(ctrl, status), -1);
    StartJob();
    const auto ai = EightOfEach();
    AddEvents(ai->mutable_ai_cpu_events(), 1);
    EXPECT_EQ(task.Start(ai, status), -1);

    EXPECT_TRUE(log.Has('E', "ctrl_cpu_events_size(9) is not valid!"));
    EXPECT_TRUE(log.Has('E', "ai_cpu_events_size(9) is not valid!"));
}

TEST_F(JobTask, EightEventsOfEachKindPassTheCount) {
    const auto data = FileUploader("job");
    StartJob(SAMPLE_PIDS);

    EXPECT_EQ(task.Start(EightOfEach(), status), 0);

    EXPECT_FALSE(log.Has('E', "Start pmu event size is not valid"));
}

TEST_F(JobTask, TsAndAiEventsAreNeverPassedOn) {
    const auto data = FileUploader("job");
    StartJob(SAMPLE_PIDS);
    const auto request = ReplayStart("");
    *request->mutable_ts_cpu_events()->Add() = "not an event";
    *request->mutable_ai_cpu_events()->Add() = "not an event";

    EXPECT_EQ(task.Start(request, status), 0);
}

TEST_F(JobTask, EventsThatDoNotFitInMemoryAreLeftOut) {
    const auto data = FileUploader("job");
    StartJob(SAMPLE_PIDS);
    const auto request = ReplayStart("");
    for (int i = 0; i < 8; ++i) {
        *request->mutable_ctrl_cpu_events()->Add() = "not an event";
    }
    log.SetLevel(DLOG_ERROR);
    FailNextNewOfAtLeast(8 * sizeof(std::string));

    EXPECT_EQ(task.Start(request, status), 0);

    FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
}

TEST_F(JobTask, ModeTextOfTheSampleConfigurationHasNoEffect) {
    const auto data = FileUploader("job");
    StartJob(R"({"job_id":"job","pid_profiling":"on","profiling_mode":"abc"})");

    EXPECT_EQ(StartReplay(), 0);
}

TEST_F(JobTask, NullReplayStartOfARunningTaskFailsTheCount) {
    StartJob();

    EXPECT_EQ(task.Start(nullptr, status), -1);

    EXPECT_EQ(status.info, "[Start] pmu event size is not valid!");
}

TEST_F(JobTask, FailedReplayFinishesTheDataSessionBeforeItReturns) {
    const auto data = FileUploader("job");
    StartJob();

    EXPECT_EQ(StartReplay(), -1);

    EXPECT_EQ(data->Sent().size(), 1u);
    EXPECT_EQ(data.use_count(), 1);
    EXPECT_EQ(PathsOf("mmRmdir"),
              (std::vector<std::string>{"/var/log/npu/profiling/job", "/var/log/npu/profiling/0"}));
}

TEST_F(JobTask, ReplayRunsAnyNumberOfTimesWithinAJob) {
    const auto data = FileUploader("job");
    StartJob(SAMPLE_PIDS);

    EXPECT_EQ(StartReplay(), 0);
    EXPECT_EQ(StopReplay(), 0);
    EXPECT_EQ(StartReplay(), 0);
    EXPECT_EQ(StopReplay(), 0);

    EXPECT_EQ(task.OnJobEnd(status), 0);
}

TEST_F(JobTask, SecondReplayStartWithoutAStopEndsTheTask) {
    const auto data = FileUploader("job");
    StartJob(SAMPLE_PIDS);
    EXPECT_EQ(StartReplay(), 0);

    EXPECT_EQ(StartReplay(), -1);

    EXPECT_EQ(status.info, "");
    EXPECT_TRUE(log.Has('I', "ResetTask begin, _is_started:1"));
    EXPECT_EQ(data.use_count(), 1);
}

TEST_F(JobTask, NullReplayStopIsNamedBeforeTheStateAndResets) {
    StartJob();

    EXPECT_EQ(task.End(nullptr, status), -1);
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "StopReq message is nullptr");
    EXPECT_TRUE(log.Has('I', "receive end"));
    EXPECT_TRUE(log.Has('E', "End message is nullptr"));
    EXPECT_TRUE(log.Has('E', "End failed"));

    EXPECT_EQ(task.OnJobEnd(status), -1);
    EXPECT_EQ(status.info, "Profiling is not started on device");
}

TEST_F(JobTask, NullReplayStopBeforeTheJobIsNamedToo) {
    EXPECT_EQ(task.End(nullptr, status), -1);

    EXPECT_EQ(status.info, "StopReq message is nullptr");
    EXPECT_FALSE(log.Has('E', "End Profiling is not started on device"));
}

TEST_F(JobTask, ReplayStopBeforeTheJobIsRefused) {
    EXPECT_EQ(StopReplay(), -1);

    EXPECT_EQ(status.info, "Profiling is not started on device");
    EXPECT_TRUE(log.Has('E', "End Profiling is not started on device"));
}

TEST_F(JobTask, SecondJobEndIsRefused) {
    StartJob();

    EXPECT_EQ(task.OnJobEnd(status), 0);
    EXPECT_EQ(status.status, 0);
    EXPECT_EQ(task.OnJobEnd(status), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "Profiling is not started on device");
    EXPECT_TRUE(log.Has('I', "receive job end"));
    EXPECT_TRUE(log.Has('E', "OnJobEnd Profiling is not started on device"));
}

TEST_F(JobTask, FailedStopOfTheEngineEndsTheTaskAllTheSame) {
    const auto data = FileUploader("job");
    StartJob();
    std::shared_ptr<analysis::rokt::transport::Uploader> uploader;
    analysis::rokt::transport::UploaderMgr::Instance().GetUploader("job", uploader);
    uploader->Stop(false);

    EXPECT_EQ(task.OnJobEnd(status), -1);
    EXPECT_EQ(status.info, "Stop profiling failed, please check it or see log for more info");

    EXPECT_EQ(StartJob(), 0);
}

TEST_F(JobTask, ResetOfATaskThatNeverStartedDoesNothing) {
    EXPECT_EQ(task.OnConnectionReset(), 0);

    EXPECT_TRUE(log.Has('I', "receive connection reset, _is_started:0"));
    EXPECT_FALSE(log.Has('I', "stop collect ..."));
}

TEST_F(JobTask, ResetStopsTheJobAndKeepsTheStartedState) {
    StartJob();

    EXPECT_EQ(task.OnConnectionReset(), 0);
    EXPECT_TRUE(log.Has('I', "receive connection reset, _is_started:1"));
    EXPECT_TRUE(log.Has('I', "stop collect ..."));

    EXPECT_EQ(task.OnConnectionReset(), -1);
    EXPECT_TRUE(log.Has('E', "OnConnectionReset engine is null"));
    EXPECT_EQ(task.OnJobEnd(status), -1);
    EXPECT_EQ(status.info, "Profiling is not started on device");
}

TEST_F(JobTask, RequestsToATaskWhoseEngineWasResetNameTheEngine) {
    StartJob();
    task.OnConnectionReset();

    EXPECT_EQ(StopReplay(), -1);
    EXPECT_EQ(status.info, "[End] End Engine is null!");
    EXPECT_TRUE(log.Has('E', "End Engine is null"));
    StartJob();
    task.OnConnectionReset();
    EXPECT_EQ(StartReplay(), -1);
    EXPECT_EQ(status.info, "[Start] Start Engine is null!");
    EXPECT_TRUE(log.Has('E', "Start Engine is null"));
}

TEST_F(JobTask, RequestsOfTwoSessionsDoNotOverlap) {
    const auto data = FileUploader("job");
    StartJob();
    data->HoldSends(true);
    std::thread end([this] {
        StatusInfo ended;
        EXPECT_EQ(task.OnJobEnd(ended), 0);
    });
    ASSERT_TRUE(data->WaitForHeldSend());

    std::thread replay([this] { EXPECT_EQ(StartReplay(), -1); });
    data->HoldSends(false);
    end.join();
    replay.join();

    EXPECT_EQ(status.info, "Profiling is not started on device");
}

TEST_F(JobTask, FailedStopDuringAResetIsAWarning) {
    const auto data = FileUploader("job");
    StartJob();
    std::shared_ptr<analysis::rokt::transport::Uploader> uploader;
    analysis::rokt::transport::UploaderMgr::Instance().GetUploader("job", uploader);
    uploader->Stop(false);

    EXPECT_EQ(task.OnConnectionReset(), 0);

    EXPECT_TRUE(log.Has('W', "Failed to stop collect."));
}

}  // namespace
}  // namespace tiv::test
