// Tests of a collection whose start or end fails half-way.
#include <new>

#include "device/collect_engine.h"
#include "device/device_fixture.h"
#include "job_wrapper/prof_channel_manager.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "transport/channel_poll.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::CollectEngine;
using Analysis::Rokt::JobWrapper::ProfChannelManager;
using analysis::rokt::message::StatusInfo;

constexpr const char* SAMPLE_NOTHING = R"({"job_id":"job"})";

class EngineFailure : public DeviceTest {
 protected:
    EngineFailure() { EXPECT_EQ(engine.Init(3), 0); }

    CollectEngine engine;
    StatusInfo status;
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(EngineFailure, RefusedPollerGivesItsUseBack) {
    log.SetLevel(DLOG_ERROR);
    FakeMm::Instance().calls.OnCall([](const Call& call) {
        if (call.function == "mmChmod" && call.Text("path") == "/var/log/npu/profiling/3") {
            FakeMm::Instance().calls.OnCall({});
            FailNextNewOfAtLeast(sizeof(analysis::rokt::transport::ChannelPoll));
        }
    });
    ASSERT_EQ(engine.CollectStart(SAMPLE_NOTHING, status), -1);
    FailNextNewOfAtLeast(0);
    ASSERT_TRUE(log.Has('E', "[CollectEngine::CollectStart]Failed to init channel poll"));

    ASSERT_EQ(engine.CollectStart(SAMPLE_NOTHING, status), 0);
    EXPECT_NE(ProfChannelManager::Instance().GetChannelPoller(), nullptr);
    EXPECT_EQ(engine.CollectStop(status), 0);

    EXPECT_EQ(ProfChannelManager::Instance().GetChannelPoller(), nullptr);
}

TEST_F(EngineFailure, RefusedDeviceDirectoryIsReportedAndTheJobDirectoryRemoved) {
    FakeMm::Instance().calls.Replace({});
    FakeMm::Instance().calls.Return("mmRmdir", 0, -1);
    FakeMm::Instance().calls.Return("mmChmod", 0, -1);
    Fault refused;
    refused.function = "mmMkdir";
    refused.match = {{"path", "/var/log/npu/profiling/3"}};
    refused.result = -1;
    FakeMm::Instance().calls.Add(refused);
    FakeMm::Instance().calls.Return("mmMkdir", 0, -1);

    EXPECT_EQ(engine.CollectStart(SAMPLE_NOTHING, status), -1);

    EXPECT_EQ(status.info, "Failed to create tmp root result directory.");
    EXPECT_TRUE(log.Has('I', "Creating dir: \"/var/log/npu/profiling/job\", ret=0"));
    EXPECT_TRUE(log.Has('E', "Creating dir failed: /var/log/npu/profiling/3"));
    EXPECT_EQ(PathsOf("mmRmdir"),
              (std::vector<std::string>{"/var/log/npu/profiling/job", "/var/log/npu/profiling/3"}));
}

TEST_F(EngineFailure, ExceptionDuringUninitStaysInsideAndKeepsTheParameters) {
    ASSERT_EQ(engine.CollectStart(SAMPLE_NOTHING, status), 0);
    FakeMm::Instance().calls.OnCall([](const Call& call) {
        if (call.function == "mmRmdir") {
            FakeMm::Instance().calls.OnCall({});
            throw std::bad_alloc();
        }
    });

    engine.Uninit();
    EXPECT_TRUE(log.Has('D', "[CollectEngine]Uinit failed."));

    engine.SetDevIdOnHost(9);
    EXPECT_TRUE(log.Has('I', "SetDevIdOnHost devId :0"));
    ProfChannelManager::Instance().UnInit(true);
}

}  // namespace
}  // namespace tiv::test
