// What the tests of channel readers and their poller share: one job with its uploader.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "config/json_parser.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"
#include "transport/prof_channel.h"
#include "transport/recording_transport.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {

constexpr uint32_t MIB = 1048576;
constexpr uint32_t DEVICE = 2;
constexpr uint32_t CHANNEL = 8;

// The job "job1" of host device 3, collecting device 2. A scripted read gives a length without
// writing data, and after the script the channel is empty. The report
// configuration is empty.
class ChannelFixture : public testing::Test {
 protected:
    using ChannelReader = analysis::rokt::transport::ChannelReader;

    explicit ChannelFixture(bool withData = true)
        : link(std::make_shared<RecordingTransport>(withData)),
          jobCtx(std::make_shared<analysis::rokt::message::JobContext>()) {
        Zelnarer::Parser::JsonParser::Instance().Uninit();
        jobCtx->job_id = "job1";
        jobCtx->dev_id = "3";
        EXPECT_EQ(
            analysis::rokt::transport::UploaderMgr::Instance().CreateUploader("job1", link, 512),
            0);
    }
    ~ChannelFixture() override {
        EXPECT_EQ(analysis::rokt::transport::UploaderMgr::Instance().Uninit(), 0);
    }

    // A reader that is inited.
    std::shared_ptr<ChannelReader> MakeReader(uint32_t channel = CHANNEL,
                                              uint32_t device = DEVICE) {
        auto reader = std::make_shared<ChannelReader>(
            static_cast<int32_t>(device), static_cast<int32_t>(channel), "data/llc.data", jobCtx);
        EXPECT_EQ(reader->Init(), 0);
        return reader;
    }

    static FakeDriver& Driver() { return FakeDriver::Instance(); }
    static RecordedLog& Log() { return RecordedLog::Instance(); }
    static FakeMm& Mm() { return FakeMm::Instance(); }

    static void OpenChannel(uint32_t channel = CHANNEL, uint32_t device = DEVICE) {
        ProfStartPara para{};
        EXPECT_EQ(prof_drv_start(device, channel, &para), 0);
    }

    static void ScriptReads(const std::vector<int32_t>& lengths) {
        for (const int32_t length : lengths) {
            Driver().calls.Return("prof_channel_read", length);
        }
    }

    // The room that each read offered.
    static std::vector<int64_t> RoomsOffered() {
        std::vector<int64_t> rooms;
        for (const Call& call : Driver().calls.Calls("prof_channel_read")) {
            rooms.push_back(call.Value("len"));
        }
        return rooms;
    }

    // Chunks handed to the uploader so far, sent or not.
    static size_t Uploads() { return Log().Count('D', "UploadData id[job1] uploader start"); }

    static void ConfigureChannel8(const std::string& member) {
        const TempDir directory;
        Zelnarer::Parser::JsonParser::Instance().Init(directory.Write(
            "report.json", R"({"device":{"channels":[{"channel":8,)" + member + "}]}}"));
    }

    std::shared_ptr<RecordingTransport> link;
    std::shared_ptr<analysis::rokt::message::JobContext> jobCtx;
};

}  // namespace tiv::test
