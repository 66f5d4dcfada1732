// Tests of one job's collection: its directories, its channels, its jobs and its end.
#include "device/collect_engine.h"

#include <fcntl.h>

#include <algorithm>

#include "config/config_manager.h"
#include "device/device_fixture.h"
#include "job_wrapper/prof_channel_manager.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "transport/channel_poll.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {
namespace {

using Analysis::Rokt::Common::Config::ConfigManager;
using analysis::rokt::device::CollectEngine;
using Analysis::Rokt::JobWrapper::ProfChannelManager;
using analysis::rokt::message::StatusInfo;
using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;

constexpr const char* WORKING_DIR = "/var/log/npu/profiling/";
constexpr const char* JOB_DIR = "/var/log/npu/profiling/job";
constexpr const char* DEVICE_DIR = "/var/log/npu/profiling/3";
// Jobs that an engine has.
constexpr size_t JOBS = 6;

constexpr const char* SAMPLE_NOTHING = R"({"job_id":"job"})";
constexpr const char* SAMPLE_LLC = R"({"job_id":"job","zelnar_llc_profiling":"on"})";
constexpr const char* SAMPLE_PIDS = R"({"job_id":"job","pid_profiling":"on"})";

class Engine : public DeviceTest {
 protected:
    Engine() {
        EXPECT_EQ(engine.Init(3), 0);
        engine.SetDevIdOnHost(5);
    }

    int StartCollect(const std::string& config = SAMPLE_NOTHING) {
        return engine.CollectStart(config, status);
    }
    int StartReplay() { return engine.ReplayStart(nullptr, status, nullptr); }
    static CollectEngine::EventList Events(std::vector<std::string> events) {
        return std::make_shared<std::vector<std::string>>(std::move(events));
    }
    // Info and debug lines that begin with `start`, in order.
    std::vector<std::string> LinesFrom(char level, const std::string& start) const {
        std::vector<std::string> found = log.Texts(level);
        found.erase(
            std::remove_if(found.begin(), found.end(),
                           [&](const std::string& text) { return text.rfind(start, 0) != 0; }),
            found.end());
        return found;
    }
    static bool PollerIsHeld() {
        return ProfChannelManager::Instance().GetChannelPoller() != nullptr;
    }
    void StopUploader() {
        std::shared_ptr<Uploader> uploader;
        UploaderMgr::Instance().GetUploader("job", uploader);
        uploader->Stop(false);
    }

    // Keeps the command lines of children and starts none; each has ended when it is waited for.
    void CatchChildren() {
        FakeMm::Instance().mmOpen2 = [](const char*, int32_t flags, uint32_t) {
            return open("/dev/null", flags & ~(O_CREAT | O_TRUNC));
        };
        FakeMm::Instance().mmCreateProcess = [this](const char* cmd, const mmArgvEnv* args,
                                                    const char*, mmProcess* pid) {
            std::string line = cmd;
            for (int32_t i = 1; i < args->argvCount; ++i) {
                line += std::string(" ") + args->argv[i];
            }
            children.push_back(line);
            *pid = 4711;
            return 0;
        };
        FakeMm::Instance().mmWaitPid = [](mmProcess, int32_t* exitCode, int32_t) {
            *exitCode = 0;
            return 1;
        };
    }

    std::vector<std::string> children;
    CollectEngine engine;
    StatusInfo status;
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(Engine, HostNumberReplacesTheLoggedOne) {
    engine.SetDevIdOnHost(6);

    EXPECT_TRUE(log.Has('I', "CreateCollectionJobArray to set jobCfg"));
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :0"));
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :5"));
}

TEST_F(Engine, StartedCollectionHasItsDirectories) {
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

TEST_F(Engine, EngineWithoutInitRefusesAndTouchesNothing) {
    CollectEngine fresh;

    EXPECT_EQ(fresh.CollectStart(SAMPLE_NOTHING, status), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "Collection engine was not initialized.");
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
}

TEST_F(Engine, BrokenConfigurationRemovesTheWorkingDirectoryItself) {
    EXPECT_EQ(StartCollect("nonsense"), -1);

    EXPECT_EQ(status.info, "invalid sample configuration");
    EXPECT_TRUE(log.Has('E', "Failed to parse sampleConfig: \"nonsense\"."));
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{WORKING_DIR, DEVICE_DIR}));
    EXPECT_TRUE(log.Has('I', "Removing collected data: \"/var/log/npu/profiling/\""));
    EXPECT_TRUE(log.Has('I', "Removing collected data: \"/var/log/npu/profiling/3\""));
}

TEST_F(Engine, JobIdThatLeavesTheWorkingDirectoryMakesAndRemovesNothing) {
    EXPECT_EQ(StartCollect(R"({"job_id":"../../../../etc"})"), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_TRUE(PathsOf("mmMkdir").empty());
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
    EXPECT_EQ(log.CountOf('E'), 2u);
}

TEST_F(Engine, DetourThatStaysInsideIsTakenAsItIs) {
    EXPECT_EQ(StartCollect(R"({"job_id":"a/../job"})"), 0);

    const std::vector<std::string> made = PathsOf("mmMkdir");
    EXPECT_EQ(std::count(made.begin(), made.end(), "/var/log/npu/profiling/a/../job"), 1);
}

TEST_F(Engine, JobIdOfHalfAMillionComponentsIsRefused) {
    std::string deep;
    for (int i = 0; i < 250000; ++i) {
        deep += "a/";
    }

    EXPECT_EQ(StartCollect(R"({"job_id":")" + deep + R"("})"), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
}

TEST_F(Engine, RefusedJobDirectoryIsReported) {
    FakeMm::Instance().calls.Replace({});
    FakeMm::Instance().calls.Fail("mmMkdir", -1, EACCES, -1);
    FakeMm::Instance().calls.Return("mmRmdir", 0, -1);

    EXPECT_EQ(StartCollect(), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_TRUE(log.Has('E', "Creating dir failed: /var/log/npu/profiling/job"));
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{JOB_DIR, DEVICE_DIR}));
}

TEST_F(Engine, RefusedPollerRemovesTheDirectories) {
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

TEST_F(Engine, FailedChannelListRemovesTheDirectoriesAndGivesThePollerBack) {
    FakeDriver::Instance().calls.Return("prof_drv_get_channels", 1);

    EXPECT_EQ(StartCollect(), -1);

    EXPECT_TRUE(log.Has('E', "[CollectEngine::CollectStart]Failed to GetAllChannels"));
    EXPECT_EQ(status.info, "");
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(PathsOf("mmRmdir"), (std::vector<std::string>{JOB_DIR, DEVICE_DIR}));
    EXPECT_FALSE(PollerIsHeld());
}

TEST_F(Engine, ParametersThatDoNotFitInMemoryMakeAndRemoveNothing) {
    log.SetLevel(DLOG_ERROR);
    const std::string config = "{}";
    {
        const FailingNew failing(0);
        EXPECT_EQ(engine.CollectStart(config, status), -1);
    }

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(PathsOf("mmRmdir").empty());
}

TEST_F(Engine, TableEndsAtAJobThatDoesNotFitInMemory) {
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

TEST_F(Engine, JobWithoutAConfigurationDoesNotRun) {
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

TEST_F(Engine, StopOfASecondTaskOnTheDeviceStopsTheFirstOnesJobs) {
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

TEST_F(Engine, SystemWideJobOfAnotherDeviceKeepsTheSecondOut) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();
    CollectEngine second;
    ASSERT_EQ(second.Init(4), 0);
    ASSERT_EQ(second.CollectStart(SAMPLE_PIDS, status), 0);

    EXPECT_EQ(second.ReplayStart(nullptr, status, nullptr), -1);
    EXPECT_EQ(second.ReplayStop(status), 0);

    EXPECT_EQ(engine.ReplayStop(status), 0);
    EXPECT_FALSE(log.Has('D', "Device 5 Collection Job 32 Unregister"));
}

TEST_F(Engine, ReplayNeedsAStartedCollection) {
    EXPECT_EQ(StartReplay(), -1);
    EXPECT_EQ(status.info, "collection engine has not been started");

    status.info.clear();
    EXPECT_EQ(engine.ReplayStop(status), -1);
    EXPECT_EQ(status.info, "collection engine has not been started");
    EXPECT_EQ(status.status, 1);
}

TEST_F(Engine, ControlEventWithout0xIsRefused) {
    StartCollect();

    EXPECT_EQ(engine.ReplayStart(Events({"11"}), status, nullptr), -1);

    EXPECT_EQ(status.info, "[CollectStart] pmu event is not valid.");
    EXPECT_TRUE(log.Has('E', "[CheckPmuEventIsValid]ctrlCpuEvent is not valid!"));
    EXPECT_TRUE(log.Has('E', "[CollectStart] pmu event is not valid."));
}

TEST_F(Engine, LlcEventsAreJoinedBeforeTheyAreChecked) {
    StartCollect();

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"a", "b.c"})), -1);

    EXPECT_EQ(status.info, "[CollectStart] pmu event is not valid.");
    EXPECT_TRUE(log.Has('E', "llc events is invalid.a,b.c"));
    EXPECT_TRUE(log.Has('E', "[CheckPmuEventIsValid]llcEvent is not valid!"));
}

TEST_F(Engine, JobsAreAskedInTheOrderOfTheirTags) {
    StartCollect();

    StartReplay();

    EXPECT_EQ(LinesFrom('I', "CollectRegister Start jobId"),
              (std::vector<std::string>{
                  "CollectRegister Start jobId 2 ", "CollectRegister Start jobId 3 ",
                  "CollectRegister Start jobId 29 ", "CollectRegister Start jobId 30 ",
                  "CollectRegister Start jobId 31 ", "CollectRegister Start jobId 32 "}));
    EXPECT_TRUE(log.Has('I', "Start to register collction job:job"));
}

TEST_F(Engine, ReplayWithAllSwitchesOffFailsWithTheNumberOfJobs) {
    StartCollect();

    EXPECT_EQ(StartReplay(), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "");
    EXPECT_TRUE(log.Has('I', "Total count of job registered: "));
    EXPECT_EQ(LinesFrom('D', "Collection Job"),
              (std::vector<std::string>{
                  "Collection Job 2 No Run; Total: 0", "Collection Job 3 No Run; Total: 1",
                  "Collection Job 29 No Run; Total: 2", "Collection Job 30 No Run; Total: 3",
                  "Collection Job 31 No Run; Total: 4", "Collection Job 32 No Run; Total: 5"}));
    EXPECT_TRUE(log.Has('E', "CollectionJobRegisterAndRun failed, fail_cnt:6"));
}

TEST_F(Engine, OneRunningJobIsEnough) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);

    EXPECT_EQ(StartReplay(), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(log.Has('D', "Collection Job 32 Register"));
    EXPECT_TRUE(log.Has('I', "Total count of job registered: 32"));
}

TEST_F(Engine, RunningJobsAreJoinedByCommas) {
    const auto data = FileUploader("job");
    StartCollect(R"({"job_id":"job","pid_profiling":"on","sys_profiling":"on"})");

    EXPECT_EQ(StartReplay(), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 30,31,32"));
}

TEST_F(Engine, LlcEventsReachTheChannelJob) {
    StartCollect(SAMPLE_LLC);

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"write"})), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 2"));
    const std::vector<DriverStart> starts = FakeDriver::Instance().Starts();
    ASSERT_EQ(starts.size(), 1u);
    EXPECT_EQ(starts[0].devId, 3u);
    EXPECT_EQ(starts[0].channelId, 8u);
    EXPECT_EQ(starts[0].userData, std::string("\x14\0\0\0\x02\0\0\0", 8));
}

TEST_F(Engine, LlcEventsReachTheScriptJobOnPlatformType0) {
    FakeDriver::Instance().SetDeviceInfo(0, 1, 0);
    ConfigManager::Instance().Uninit();
    ConfigManager::Instance().Init();
    CatchChildren();
    StartCollect(SAMPLE_LLC);

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"read", "write"})), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 3"));
    EXPECT_EQ(children.at(0),
              "sudo /var/prof_collect.sh --stat /var/log/npu/profiling/3/llc.data.5 read,write 20");
    EXPECT_TRUE(FakeDriver::Instance().Starts().empty());
}

TEST_F(Engine, ControlEventsReachTheScriptJobAlone) {
    CatchChildren();
    StartCollect(SAMPLE_LLC);

    EXPECT_EQ(engine.ReplayStart(Events({"0x11", "0x2a"}), status, nullptr), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 29"));
    EXPECT_EQ(children.at(0),
              "sudo /var/prof_collect.sh --record "
              "/var/log/npu/profiling/3/ai_ctrl_cpu.data.5 0050 {r11,r2a}");
}

TEST_F(Engine, EventsAreDroppedAtTheStopOfTheReplay) {
    CatchChildren();
    StartCollect(SAMPLE_LLC);
    const CollectEngine::EventList ctrlEvents = Events({"0x11"});
    const CollectEngine::EventList llcEvents = Events({"read"});
    EXPECT_EQ(engine.ReplayStart(ctrlEvents, status, llcEvents), 0);
    // The caller, row 29; the caller, rows 2 and 3.
    EXPECT_EQ(ctrlEvents.use_count(), 2);
    EXPECT_EQ(llcEvents.use_count(), 3);

    EXPECT_EQ(engine.ReplayStop(status), 0);

    EXPECT_EQ(ctrlEvents.use_count(), 1);
    EXPECT_EQ(llcEvents.use_count(), 1);
}

TEST_F(Engine, JobsOfTheTableRunInTheOrderOfTheirTags) {
    const auto data = FileUploader("job");
    CatchChildren();
    StartCollect(R"({"job_id":"job","pid_profiling":"on","zelnar_llc_profiling":"on"})");

    EXPECT_EQ(engine.ReplayStart(Events({"0x11"}), status, Events({"read"})), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 2,29,32"));
}

TEST_F(Engine, SecondReplayStartFindsItsJobsTaken) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();

    EXPECT_EQ(StartReplay(), -1);

    EXPECT_TRUE(log.Has('D', "Collection Job 32 No Run; Total: 5"));
}

TEST_F(Engine, ReplayStopBeforeAReplaySucceeds) {
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

TEST_F(Engine, StoppedJobGivesItsSlotBack) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();

    EXPECT_EQ(engine.ReplayStop(status), 0);
    EXPECT_FALSE(log.Has('D', "Device 5 Collection Job 32 Unregister"));

    EXPECT_EQ(StartReplay(), 0);
}

TEST_F(Engine, SamplesGoUnderHostNumberAndSampleJobIdWithoutATag) {
    const auto data = FileUploader("job");
    StartCollect(R"({"job_id":"job","sys_profiling":"on"})");

    StartReplay();
    // The second look at the clock comes after the first sample.
    ASSERT_TRUE(FakeMm::Instance().calls.WaitForCalls("mmGetTickCount", 3));
    EXPECT_EQ(engine.CollectStop(status), 0);

    const std::vector<std::string> sent = data->Sent();
    EXPECT_NE(std::find(sent.begin(), sent.end(), "chunk data/SystemCpuUsage.data. job.5"),
              sent.end());
}

TEST_F(Engine, StopEndsEverythingInOrder) {
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

TEST_F(Engine, StopLeavesThePollerToTheOtherJob) {
    StartCollect();
    CollectEngine other;
    ASSERT_EQ(other.Init(4), 0);
    ASSERT_EQ(other.CollectStart(R"({"job_id":"other"})", status), 0);

    EXPECT_EQ(engine.CollectStop(status), 0);
    EXPECT_TRUE(PollerIsHeld());

    EXPECT_EQ(other.CollectStop(status), 0);
    EXPECT_FALSE(PollerIsHeld());
}

TEST_F(Engine, StopWithoutParametersIsRefused) {
    CollectEngine fresh;

    EXPECT_EQ(fresh.CollectStop(status), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_TRUE(log.Has('E', "[CollectStop]Config is null"));
}

TEST_F(Engine, FailedFinishStillRunsEveryStepOfTheStop) {
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

TEST_F(Engine, UninitStopsACollectionThatRuns) {
    const auto data = FileUploader("job");
    StartCollect();

    engine.Uninit();
    EXPECT_TRUE(log.Has('I', "stop collect ..."));
    EXPECT_EQ(data.use_count(), 1);

    engine.SetDevIdOnHost(9);
    EXPECT_FALSE(log.Has('I', "SetDevIdOnHost devId :5"));
}

TEST_F(Engine, FailedStopDuringUninitKeepsTheParameters) {
    const auto data = FileUploader("job");
    StartCollect();
    StopUploader();

    engine.Uninit();
    EXPECT_TRUE(log.Has('D', "[CollectEngine]Collect stop failed."));

    engine.SetDevIdOnHost(9);
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :5"));
}

TEST_F(Engine, UninitAfterAStopDoesNotStopAgain) {
    StartCollect();
    EXPECT_EQ(engine.CollectStop(status), 0);

    engine.Uninit();

    EXPECT_EQ(log.Count('I', "stop collect ..."), 1u);
}

}  // namespace
}  // namespace tiv::test
