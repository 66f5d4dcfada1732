// What the tests of driver-channel jobs share: a device with channels and a poller on its driver.
#pragma once

#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "config/config_manager.h"
#include "config/json_parser.h"
#include "driver/drv_channels_mgr.h"
#include "job_wrapper/prof_channel_manager.h"
#include "job_wrapper/sample_job.h"
#include "support/temp_dir.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {

// Device 1 with every channel that a job class knows, and a running poller. The chip is the one of
// the fresh driver and the report configuration is empty.
class ChannelJobTest : public ::testing::Test {
 protected:
    using CollectionJobCfg = Analysis::Rokt::JobWrapper::CollectionJobCfg;
    using CommonParams = Analysis::Rokt::JobWrapper::CollectionJobCommonParams;
    using ProfChannelManager = Analysis::Rokt::JobWrapper::ProfChannelManager;

    ChannelJobTest() {
        Zelnarer::Parser::JsonParser::Instance().Uninit();
        ReadChip();
        UseChannels({1, 7, 8, 130, 131, 142});
        params->job_id = "job7";
        common->devId = 1;
        common->params = params;
        common->jobCtx = MakeJobContext();
        cfg->comParams = common;
        cfg->jobTag = Analysis::Rokt::JobWrapper::PROF_JOB_LLC;
        EXPECT_EQ(ProfChannelManager::Instance().Init(), 0);
        analysis::rokt::transport::UploaderMgr::Instance().AddUploader("job7", collector.Get());
        log.Clear();
    }
    ~ChannelJobTest() override {
        ProfChannelManager::Instance().UnInit(true);
        analysis::rokt::transport::UploaderMgr::Instance().DelUploader("job7");
    }

    static void UseChannels(const std::vector<uint32_t>& ids) {
        FakeDriver::Instance().SetChannels(1, ids);
        EXPECT_EQ(analysis::rokt::driver::DrvChannelsMgr::Instance().GetAllChannels(1), 0);
    }
    static void ReadChip() {
        auto& config = Analysis::Rokt::Common::Config::ConfigManager::Instance();
        config.Uninit();
        config.Init();
    }
    void Configure(const std::string& channel) {
        const std::string path =
            dir.Write("report.json", R"({"device":{"channels":[)" + channel + "]}}");
        Zelnarer::Parser::JsonParser::Instance().Init(path);
    }
    void SetEvents(const std::vector<std::string>& events) {
        cfg->eventSets[0].events = std::make_shared<std::vector<std::string>>(events);
    }
    // The words of the record that the driver got with the last start.
    static std::vector<uint32_t> Record() {
        const std::string bytes = FakeDriver::Instance().Starts().at(0).userData;
        std::vector<uint32_t> words(bytes.size() / sizeof(uint32_t));
        memcpy(words.data(), bytes.data(), words.size() * sizeof(uint32_t));
        return words;
    }
    // Place of a text among all lines; their number when it is missing.
    size_t PlaceOf(const std::string& text) const {
        const auto lines = log.Lines();
        const auto found = std::find_if(lines.begin(), lines.end(),
                                        [&](const LogLine& line) { return line.text == text; });
        return static_cast<size_t>(found - lines.begin());
    }

    RecordedLog& log = RecordedLog::Instance();
    FakeDriver& driver = FakeDriver::Instance();
    TempDir dir;
    ChunkCollector collector;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params =
        std::make_shared<analysis::rokt::message::ProfileParams>();
    std::shared_ptr<CommonParams> common = std::make_shared<CommonParams>();
    std::shared_ptr<CollectionJobCfg> cfg = std::make_shared<CollectionJobCfg>();
};

}  // namespace tiv::test
