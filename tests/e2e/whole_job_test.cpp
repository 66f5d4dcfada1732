// A whole job from the handshakes to the finish, through the library and through tivctl.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "e2e/daemon_test.h"
#include "host/result/record_reader.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using host::DataSession;
using nlohmann::json;

// More than three readings of /proc/stat and /proc/meminfo, or of every process, hold in any case.
constexpr uint64_t SEVERAL_SAMPLES = 20000;
constexpr uint64_t SEVERAL_PASSES_OVER_ALL_PROCESSES = 200000;

class WholeJob : public DaemonTest {};

uint64_t Samples(const std::string& stream) {
    host::RecordReader reader([](const host::SampleRecord&) {});
    reader.Feed(stream);
    reader.Finish();
    EXPECT_EQ(reader.UnreadableBytes(), 0u);
    return reader.Records();
}

std::string OnlyResult(const std::string& output) {
    for (const auto& entry : fs::directory_iterator(output)) {
        return entry.path().string();
    }
    return "";
}

}  // namespace

TEST_F(WholeJob, SystemSamplesArriveAndTheDataSessionEndsComplete) {
    StartDaemon();
    HostJob job(link_, 0, "whole-job");

    ASSERT_TRUE(job.Start(SampleConfig("whole-job", {{"sys_profiling", "on"}})).Accepted());
    ASSERT_TRUE(daemon_->WaitForReads(SEVERAL_SAMPLES));
    const host::Reply stopped = job.Stop();

    EXPECT_TRUE(stopped.Accepted()) << stopped.message;
    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
    const auto files = job.sink.Files();
    ASSERT_EQ(files.count("data/SystemCpuUsage.data"), 1u);
    ASSERT_EQ(files.count("data/Memory.data"), 1u);
    EXPECT_GE(Samples(files.at("data/SystemCpuUsage.data")), 2u);
    EXPECT_GE(Samples(files.at("data/Memory.data")), 2u);
}

TEST_F(WholeJob, WorkingDirectoriesLiveAsLongAsTheJob) {
    StartDaemon();
    HostJob job(link_, 0, "dirs-job");

    ASSERT_TRUE(job.Start(SampleConfig("dirs-job", {{"sys_profiling", "on"}})).Accepted());
    EXPECT_TRUE(fs::is_directory("/var/log/npu/profiling/dirs-job"));
    EXPECT_TRUE(fs::is_directory("/var/log/npu/profiling/0"));
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_FALSE(fs::exists("/var/log/npu/profiling/dirs-job"));
    EXPECT_FALSE(fs::exists("/var/log/npu/profiling/0"));
}

TEST_F(WholeJob, StartEmptiesTheProfilerDirectory) {
    fs::create_directories("/usr/local/profiler/old/deep");
    std::ofstream("/usr/local/profiler/old/deep/file") << "x";

    StartDaemon();

    EXPECT_TRUE(fs::is_empty("/usr/local/profiler"));
}

TEST_F(WholeJob, SecondJobFollowsOnNewSessions) {
    StartDaemon();
    {
        HostJob first(link_, 0, "first");
        ASSERT_TRUE(first.Start(SampleConfig("first", {{"sys_profiling", "on"}})).Accepted());
        ASSERT_TRUE(first.Stop().Accepted());
    }
    // The receiver of the first job ends with its session, which is closed now.
    EXPECT_TRUE(Eventually([&] {
        HostJob second(link_, 0, "second");
        const host::Reply reply = second.Start(SampleConfig("second", {{"sys_profiling", "on"}}));
        return reply.Accepted() && second.Stop().Accepted() &&
               second.data->GetState() == DataSession::State::COMPLETE;
    }));
}

TEST_F(WholeJob, ReplaysFollowEachOtherWithinOneJob) {
    StartDaemon();
    HostJob job(link_, 0, "replays");
    ASSERT_TRUE(job.Start(SampleConfig("replays", {{"sys_profiling", "on"}})).Accepted());

    ASSERT_TRUE(job.control->StopReplay().Accepted());
    ASSERT_TRUE(job.control->StartReplay({}, {}).Accepted());
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE);
}

TEST_F(WholeJob, TivctlLeavesACompleteResult) {
    StartDaemon();
    const std::string output = directory_.MakeDir("results");

    const auto tivctl = Tivctl({"collect", "--duration", "1s", "--output", output});

    ASSERT_EQ(tivctl->Wait(), 0) << tivctl->Errors();
    const std::string result = OnlyResult(output);
    const json manifest = json::parse(FileContent(result + "/manifest.json"));
    EXPECT_EQ(manifest["state"], "complete");
    EXPECT_EQ(manifest["devices"][0]["finishArrived"], true);
    for (const auto& file : manifest["devices"][0]["files"]) {
        const std::string path = result + "/device_0/" + file["name"].get<std::string>();
        EXPECT_EQ(fs::file_size(path), file["bytes"].get<uint64_t>()) << path;
        EXPECT_EQ(file["dataModule"], 3);
    }
    EXPECT_GE(Samples(FileContent(result + "/device_0/data/Memory.data")), 2u);
    EXPECT_NE(tivctl->Output().find("data session: complete"), std::string::npos);
}

TEST_F(WholeJob, TwoDevicesAtOnceShareTheSystemSamplers) {
    ConfigureDriver(R"({"devices": 2})");
    StartDaemon(2);
    HostJob first(link_, 0, "job-on-0");
    HostJob second(link_, 1, "job-on-1");

    ASSERT_TRUE(first.Start(SampleConfig("job-on-0", {{"sys_profiling", "on"}})).Accepted());
    ASSERT_TRUE(second.Start(SampleConfig("job-on-1", {{"pid_profiling", "on"}})).Accepted());
    ASSERT_TRUE(daemon_->WaitForReads(SEVERAL_PASSES_OVER_ALL_PROCESSES));
    ASSERT_TRUE(second.Stop().Accepted());
    ASSERT_TRUE(first.Stop().Accepted());

    EXPECT_EQ(first.data->GetState(), DataSession::State::COMPLETE);
    EXPECT_EQ(second.data->GetState(), DataSession::State::COMPLETE);
    EXPECT_EQ(first.sink.Files().count("data/Memory.data"), 1u);
    const std::string own = "data/" + std::to_string(getpid()) + "-CpuUsage.data";
    EXPECT_EQ(second.sink.Files().count(own), 1u);
    EXPECT_EQ(second.sink.Files().count("data/Memory.data"), 0u);
}

TEST_F(WholeJob, SecondDeviceGoesWithoutTheSystemSamplersThatTheFirstHolds) {
    ConfigureDriver(R"({"devices": 2})");
    StartDaemon(2);
    HostJob first(link_, 0, "job-on-0");
    HostJob second(link_, 1, "job-on-1");
    ASSERT_TRUE(first.Start(SampleConfig("job-on-0", {{"sys_profiling", "on"}})).Accepted());

    ASSERT_TRUE(
        second.Start(SampleConfig("job-on-1", {{"sys_profiling", "on"}, {"pid_profiling", "on"}}))
            .Accepted());
    EXPECT_TRUE(daemon_->WaitForError("IsGlobalJobLevel, devId:0 jobTag:30"));
    ASSERT_TRUE(daemon_->WaitForReads(SEVERAL_PASSES_OVER_ALL_PROCESSES));
    ASSERT_TRUE(second.Stop().Accepted());
    ASSERT_TRUE(daemon_->WaitForReads(SEVERAL_SAMPLES));
    ASSERT_TRUE(first.Stop().Accepted());

    EXPECT_GE(Samples(first.sink.Files()["data/Memory.data"]), 2u);
    EXPECT_EQ(second.sink.Files().count("data/Memory.data"), 0u);
    const std::string own = "data/" + std::to_string(getpid()) + "-CpuUsage.data";
    EXPECT_EQ(second.sink.Files().count(own), 1u);
}

TEST_F(WholeJob, CtrlCEndsTheJobAndKeepsTheData) {
    StartDaemon();
    const std::string output = directory_.MakeDir("results");
    const auto tivctl = Tivctl({"collect", "--duration", "1h", "--output", output});
    ASSERT_TRUE(tivctl->WaitForError("collecting"));
    ASSERT_TRUE(fs::exists("/var/log/npu/profiling/0"));

    tivctl->Signal(SIGINT);

    ASSERT_EQ(tivctl->Wait(), 0) << tivctl->Errors();
    const json manifest = json::parse(FileContent(OnlyResult(output) + "/manifest.json"));
    EXPECT_EQ(manifest["state"], "complete");
    EXPECT_EQ(manifest["stoppedEarly"], true);
}

}  // namespace tiv::e2e
