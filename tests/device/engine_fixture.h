// What the tests of a collection share: an engine for device 3, which the host knows as 5.
#pragma once

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "device/collect_engine.h"
#include "device/device_fixture.h"
#include "job_wrapper/prof_channel_manager.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {

constexpr const char* WORKING_DIR = "/var/log/npu/profiling/";
constexpr const char* JOB_DIR = "/var/log/npu/profiling/job";
constexpr const char* DEVICE_DIR = "/var/log/npu/profiling/3";

constexpr const char* SAMPLE_NOTHING = R"({"job_id":"job"})";
constexpr const char* SAMPLE_LLC = R"({"job_id":"job","zelnar_llc_profiling":"on"})";
constexpr const char* SAMPLE_PIDS = R"({"job_id":"job","pid_profiling":"on"})";
constexpr const char* SAMPLE_SYSTEM = R"({"job_id":"job","sys_profiling":"on"})";
constexpr const char* SAMPLE_SYSTEM_AND_PIDS =
    R"({"job_id":"job","sys_profiling":"on","pid_profiling":"on"})";

class EngineTest : public DeviceTest {
 protected:
    using CollectEngine = analysis::rokt::device::CollectEngine;

    EngineTest() {
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
        return Analysis::Rokt::JobWrapper::ProfChannelManager::Instance().GetChannelPoller() !=
               nullptr;
    }
    // The uploader of the job takes nothing more.
    static void StopUploader() {
        std::shared_ptr<::analysis::rokt::transport::Uploader> uploader;
        analysis::rokt::transport::UploaderMgr::Instance().GetUploader("job", uploader);
        uploader->Stop(false);
    }

    CollectEngine engine;
    analysis::rokt::message::StatusInfo status;
    RecordedLog& log = RecordedLog::Instance();
};

}  // namespace tiv::test
