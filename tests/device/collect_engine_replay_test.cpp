// Tests of the start of a replay: which jobs run, and with which events.
#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <new>
#include <thread>

#include "config/config_manager.h"
#include "device/engine_fixture.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"

namespace tiv::test {
namespace {

using Analysis::Rokt::Common::Config::ConfigManager;

class EngineReplay : public EngineTest {
 protected:
    // Keeps the command lines of children and starts none; each has ended when it is waited for.
    void CatchChildren() {
        FakeMm::Instance().mmOpen2 = [](const char*, int32_t flags, uint32_t) {
            return open("/dev/null", flags & ~(O_CREAT | O_TRUNC));
        };
        FakeMm::Instance().mmCreateProcess = [lines = children](const char* cmd,
                                                                const mmArgvEnv* args, const char*,
                                                                mmProcess* pid) {
            std::string line = cmd;
            for (int32_t i = 1; i < args->argvCount; ++i) {
                line += std::string(" ") + args->argv[i];
            }
            lines->push_back(line);
            *pid = 4711;
            return 0;
        };
        FakeMm::Instance().mmWaitPid = [](mmProcess, int32_t* exitCode, int32_t) {
            *exitCode = 0;
            return 1;
        };
    }

    // False when the data of device 3's channel 8 has not been taken within ten seconds.
    static bool ChannelIsRead() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (FakeDriver::Instance().PendingChannelBytes(3, 8) != 0) {
            if (std::chrono::steady_clock::now() > deadline) {
                return false;
            }
            std::this_thread::yield();
        }
        return true;
    }

    // The engine still stops its jobs when the members here are gone.
    std::shared_ptr<std::vector<std::string>> children =
        std::make_shared<std::vector<std::string>>();
};

TEST_F(EngineReplay, SystemWideJobOfAnotherDeviceKeepsTheSecondOut) {
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

TEST_F(EngineReplay, JobsBesideARefusedSystemWideOneGoOn) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_SYSTEM);
    ASSERT_EQ(StartReplay(), 0);
    CollectEngine second;
    ASSERT_EQ(second.Init(4), 0);
    second.SetDevIdOnHost(6);
    ASSERT_EQ(second.CollectStart(SAMPLE_SYSTEM_AND_PIDS, status), 0);

    EXPECT_EQ(second.ReplayStart(nullptr, status, nullptr), 0);
    EXPECT_TRUE(log.Has('W', "IsGlobalJobLevel, devId:3 jobTag:30"));
    EXPECT_TRUE(log.Has('D', "Collection Job 30 No Run; Total: 3"));
    EXPECT_TRUE(log.Has('I', "Total count of job registered: 32"));
    EXPECT_EQ(second.ReplayStop(status), 0);
    EXPECT_TRUE(log.Has('D', "Device 6 Collection Job 30 Unregister"));
    EXPECT_FALSE(log.Has('D', "Device 6 Collection Job 32 Unregister"));

    EXPECT_EQ(engine.ReplayStop(status), 0);
    EXPECT_FALSE(log.Has('D', "Device 5 Collection Job 30 Unregister"));
}

TEST_F(EngineReplay, ChannelJobRunsOnceForEachDevice) {
    CollectEngine other;
    CollectEngine same;
    for (CollectEngine* next : {&engine, &other, &same}) {
        ASSERT_EQ(next == &engine ? 0 : next->Init(next == &other ? 4 : 3), 0);
        ASSERT_EQ(next->CollectStart(SAMPLE_LLC, status), 0);
    }

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"read"})), 0);
    EXPECT_EQ(other.ReplayStart(nullptr, status, Events({"read"})), 0);
    EXPECT_EQ(same.ReplayStart(nullptr, status, Events({"read"})), -1);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("prof_drv_start"), 2u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("prof_stop"), 0u);
    EXPECT_EQ(log.CountOf('W'), 0u);
}

TEST_F(EngineReplay, ReplayNeedsAStartedCollection) {
    EXPECT_EQ(StartReplay(), -1);
    EXPECT_EQ(status.info, "collection engine has not been started");

    status.info.clear();
    EXPECT_EQ(engine.ReplayStop(status), -1);
    EXPECT_EQ(status.info, "collection engine has not been started");
    EXPECT_EQ(status.status, 1);
}

TEST_F(EngineReplay, ContextThatDoesNotFitInMemoryFailsTheReplayWithoutItsEvents) {
    StartCollect();
    const CollectEngine::EventList events = Events({"0x11"});
    log.SetLevel(DLOG_ERROR);
    {
        const FailingNew failing(0);
        EXPECT_EQ(engine.ReplayStart(events, status, nullptr), -1);
    }

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(events.use_count(), 1);
}

TEST_F(EngineReplay, ControlEventWithout0xIsRefused) {
    StartCollect();

    EXPECT_EQ(engine.ReplayStart(Events({"11"}), status, nullptr), -1);

    EXPECT_EQ(status.status, 1);
    EXPECT_EQ(status.info, "[CollectStart] pmu event is not valid.");
    EXPECT_TRUE(log.Has('E', "[CheckPmuEventIsValid]ctrlCpuEvent is not valid!"));
    EXPECT_TRUE(log.Has('E', "[CollectStart] pmu event is not valid."));
}

TEST_F(EngineReplay, LlcEventsAreJoinedBeforeTheyAreChecked) {
    StartCollect();

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"a", "b.c"})), -1);

    EXPECT_EQ(status.info, "[CollectStart] pmu event is not valid.");
    EXPECT_TRUE(log.Has('E', "llc events is invalid.a,b.c"));
    EXPECT_TRUE(log.Has('E', "[CheckPmuEventIsValid]llcEvent is not valid!"));
}

TEST_F(EngineReplay, JobsAreAskedInTheOrderOfTheirTags) {
    StartCollect();

    StartReplay();

    EXPECT_EQ(LinesFrom('I', "CollectRegister Start jobId"),
              (std::vector<std::string>{
                  "CollectRegister Start jobId 2 ", "CollectRegister Start jobId 3 ",
                  "CollectRegister Start jobId 29 ", "CollectRegister Start jobId 30 ",
                  "CollectRegister Start jobId 31 ", "CollectRegister Start jobId 32 "}));
    EXPECT_TRUE(log.Has('I', "Start to register collction job:job"));
}

TEST_F(EngineReplay, ReplayWithAllSwitchesOffFailsWithTheNumberOfJobs) {
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

TEST_F(EngineReplay, OneRunningJobIsEnough) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);

    EXPECT_EQ(StartReplay(), 0);

    EXPECT_EQ(status.status, 0);
    EXPECT_TRUE(log.Has('D', "Collection Job 32 Register"));
    EXPECT_TRUE(log.Has('I', "Total count of job registered: 32"));
}

TEST_F(EngineReplay, RunningJobsAreJoinedByCommas) {
    const auto data = FileUploader("job");
    StartCollect(R"({"job_id":"job","pid_profiling":"on","sys_profiling":"on"})");

    EXPECT_EQ(StartReplay(), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 30,31,32"));
}

TEST_F(EngineReplay, LlcEventsReachTheChannelJob) {
    StartCollect(SAMPLE_LLC);

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"write"})), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 2"));
    const std::vector<DriverStart> starts = FakeDriver::Instance().Starts();
    ASSERT_EQ(starts.size(), 1u);
    EXPECT_EQ(starts[0].devId, 3u);
    EXPECT_EQ(starts[0].channelId, 8u);
    EXPECT_EQ(starts[0].userData, std::string("\x14\0\0\0\x02\0\0\0", 8));
}

TEST_F(EngineReplay, ChannelDataArrivesUnderTheNameOfItsTag) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_LLC);
    ASSERT_EQ(engine.ReplayStart(nullptr, status, Events({"read"})), 0);
    FakeDriver::Instance().PushChannelData(3, 8, "x");
    ASSERT_TRUE(ChannelIsRead());

    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_EQ(data->Sent().at(0), "chunk data/llc.data.null job.5");
}

TEST_F(EngineReplay, LlcEventsReachTheScriptJobOnPlatformType0) {
    FakeDriver::Instance().SetDeviceInfo(0, 1, 0);
    ConfigManager::Instance().Uninit();
    ConfigManager::Instance().Init();
    CatchChildren();
    StartCollect(SAMPLE_LLC);

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"read", "write"})), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 3"));
    EXPECT_EQ(children->at(0),
              "sudo /var/prof_collect.sh --stat /var/log/npu/profiling/3/llc.data.5 read,write 20");
    EXPECT_TRUE(FakeDriver::Instance().Starts().empty());
}

TEST_F(EngineReplay, ControlEventsReachTheScriptJobAlone) {
    CatchChildren();
    StartCollect(SAMPLE_LLC);

    EXPECT_EQ(engine.ReplayStart(Events({"0x11", "0x2a"}), status, nullptr), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 29"));
    EXPECT_EQ(children->at(0),
              "sudo /var/prof_collect.sh --record "
              "/var/log/npu/profiling/3/ai_ctrl_cpu.data.5 0050 {r11,r2a}");
}

TEST_F(EngineReplay, EventsAreDroppedAtTheStopOfTheReplay) {
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

TEST_F(EngineReplay, JobsOfTheTableRunInTheOrderOfTheirTags) {
    const auto data = FileUploader("job");
    CatchChildren();
    StartCollect(R"({"job_id":"job","pid_profiling":"on","zelnar_llc_profiling":"on"})");

    EXPECT_EQ(engine.ReplayStart(Events({"0x11"}), status, Events({"read"})), 0);

    EXPECT_TRUE(log.Has('I', "Total count of job registered: 2,29,32"));
}

TEST_F(EngineReplay, JobWhoseStartFailsIsANoRunAndStoppedAllTheSame) {
    const auto data = FileUploader("job");
    FakeDriver::Instance().calls.Return("prof_drv_start", 5);
    StartCollect(R"({"job_id":"job","pid_profiling":"on","zelnar_llc_profiling":"on"})");

    EXPECT_EQ(engine.ReplayStart(nullptr, status, Events({"read"})), 0);
    EXPECT_EQ(engine.ReplayStop(status), 0);

    EXPECT_TRUE(log.Has('D', "Collection Job 2 Register"));
    EXPECT_TRUE(log.Has('D', "Collection Job 2 No Run; Total: 0"));
    EXPECT_TRUE(log.Has('I', "Total count of job registered: 32"));
    EXPECT_EQ(FakeDriver::Instance().calls.Count("prof_stop"), 1u);
    EXPECT_FALSE(log.Has('D', "Device 5 Collection Job 2 Unregister"));
}

TEST_F(EngineReplay, JobThatThrowsWhenAskedIsANoRun) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    FakeMm::Instance().calls.OnCall([](const Call& call) {
        if (call.function == "mmMkdir" && call.Text("path") == DEVICE_DIR) {
            throw std::bad_alloc();
        }
    });

    EXPECT_EQ(engine.ReplayStart(Events({"0x11"}), status, nullptr), 0);
    FakeMm::Instance().calls.OnCall({});

    EXPECT_TRUE(log.Has('E', "Init of a collection job failed, jobTag=29: std::bad_alloc"));
    EXPECT_TRUE(log.Has('D', "Collection Job 29 No Run; Total: 2"));
    EXPECT_TRUE(log.Has('I', "Total count of job registered: 32"));
}

TEST_F(EngineReplay, SecondReplayStartFindsItsJobsTaken) {
    const auto data = FileUploader("job");
    StartCollect(SAMPLE_PIDS);
    StartReplay();

    EXPECT_EQ(StartReplay(), -1);

    EXPECT_EQ(log.Count('D', "Collection Job 32 Register"), 2u);
    EXPECT_TRUE(log.Has('D', "Collection Job 32 No Run; Total: 5"));
}

TEST_F(EngineReplay, SamplesGoUnderHostNumberAndSampleJobIdWithoutATag) {
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

}  // namespace
}  // namespace tiv::test
