// Links that are not one socket from end to end, and links of small messages.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "e2e/byte_relay.h"
#include "e2e/daemon_test.h"
#include "host/result/record_reader.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using host::DataSession;
using nlohmann::json;

// More than three readings of /proc/stat and /proc/meminfo hold in any case.
constexpr uint64_t SEVERAL_SAMPLES = 20000;

uint64_t Samples(const std::string& stream) {
    host::RecordReader reader([](const host::SampleRecord&) {});
    reader.Feed(stream);
    reader.Finish();
    EXPECT_EQ(reader.UnreadableBytes(), 0u);
    return reader.Records();
}

class Relay : public DaemonTest {
 protected:
    // The daemon keeps its runtime directory; this process and tivctl see the relay's.
    void StartRelay(const std::string& stallWord = "") {
        const std::string directory = directory_.MakeDir("relay");
        StartDaemon();
        relay_ = std::make_unique<ByteRelay>(directory + "/hdc_0_4.sock", SocketPath(0), stallWord);
        ASSERT_EQ(setenv("TIV_RUNTIME_DIR", directory.c_str(), 1), 0);
    }

    void ExpectWholeJob() {
        HostJob job(link_, 0, "job");
        ASSERT_TRUE(job.Start(SampleConfig("job", {{"sys_profiling", "on"}})).Accepted());
        ASSERT_TRUE(daemon_->WaitForReads(SEVERAL_SAMPLES));
        ASSERT_TRUE(job.Stop().Accepted());

        EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
        auto files = job.sink.Files();
        EXPECT_GE(Samples(files["data/SystemCpuUsage.data"]), 2u);
        EXPECT_GE(Samples(files["data/Memory.data"]), 2u);
    }

    // Everything that the machine has to sample, through tivctl.
    void ExpectWholeCollection() {
        const std::string output = directory_.MakeDir("results");
        const auto tivctl = Tivctl({"collect", "--duration", "1s", "--output", output});
        ASSERT_EQ(tivctl->Wait(), 0) << tivctl->Errors();
        const std::string result = fs::directory_iterator(output)->path().string();
        const json manifest = json::parse(FileContent(result + "/manifest.json"));
        EXPECT_EQ(manifest["state"], "complete");
        EXPECT_GE(Samples(FileContent(result + "/device_0/data/Memory.data")), 2u);
        const std::string own = std::to_string(getpid()) + "-CpuUsage.data";
        EXPECT_GE(Samples(FileContent(result + "/device_0/data/" + own)), 1u);
    }

    std::unique_ptr<ByteRelay> relay_;
};

}  // namespace

TEST_F(Relay, JobOverSingleBytesIsComplete) {
    StartRelay();

    ExpectWholeJob();

    EXPECT_GT(relay_->Bytes(), 1000u);
}

TEST_F(Relay, CollectionOverSingleBytesIsComplete) {
    StartRelay();

    ExpectWholeCollection();

    EXPECT_GT(relay_->Bytes(), 1000u);
}

TEST_F(Relay, EndOfTheRelayIsTheEndOfTheJob) {
    StartRelay();
    HostJob job(link_, 0, "job");
    ASSERT_TRUE(job.Start(SampleConfig("job", {{"sys_profiling", "on"}})).Accepted());

    relay_.reset();

    EXPECT_EQ(job.data->WaitForEnd(std::chrono::seconds(60)), DataSession::State::BROKEN);
    EXPECT_TRUE(daemon_->WaitForError("devIdOnHost(0) Failed to recv packet from host"));
    EXPECT_TRUE(Eventually([] { return !fs::exists("/var/log/npu/profiling/job"); }));
}

TEST_F(Relay, LinkThatStallsAfterTheStopIsGivenUpAndWhatArrivedIsKept) {
    StartRelay("JobStopReq");
    const std::string output = directory_.MakeDir("results");
    const auto tivctl = Tivctl(
        {"collect", "--cpu", "--duration", "1h", "--drain-timeout", "1s", "--output", output});
    const auto samples = [&output] {
        for (const auto& entry : fs::directory_iterator(output)) {
            return FileContent(entry.path().string() + "/device_0/data/SystemCpuUsage.data");
        }
        return std::string();
    };
    ASSERT_TRUE(Eventually([&] { return !samples().empty(); }));

    tivctl->Signal(SIGINT);

    EXPECT_EQ(tivctl->Wait(), 4) << tivctl->Errors();
    EXPECT_NE(tivctl->Errors().find("tivctl: device 0: nothing arrived for 1.0s"),
              std::string::npos)
        << tivctl->Errors();
    const std::string result = fs::directory_iterator(output)->path().string();
    const json manifest = json::parse(FileContent(result + "/manifest.json"));
    EXPECT_EQ(manifest["state"], "incomplete");
    EXPECT_EQ(manifest["devices"][0]["files"][0]["bytes"], samples().size());
}

TEST_F(Relay, JobOverMessagesOf1024BytesIsComplete) {
    ConfigureDriver(R"({"segment_bytes": 1024})");
    StartDaemon();

    ExpectWholeJob();
}

TEST_F(Relay, CollectionOverMessagesOf1024BytesIsComplete) {
    ConfigureDriver(R"({"segment_bytes": 1024})");
    StartDaemon();

    ExpectWholeCollection();
}

TEST_F(Relay, MessagesOf1024BytesOverSingleBytesAreComplete) {
    ConfigureDriver(R"({"segment_bytes": 1024, "send_buffer_bytes": 4096,
                        "receive_buffer_bytes": 4096})");
    StartRelay();

    ExpectWholeJob();
}

}  // namespace tiv::e2e
