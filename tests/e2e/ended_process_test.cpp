// A process that ends while every process is sampled.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <filesystem>

#include "e2e/daemon_test.h"
#include "host/result/record_reader.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;

class EndedProcess : public DaemonTest {};

// What one pass over all processes reads at most.
uint64_t BytesOfAPass() {
    constexpr uint64_t FILES_OF_A_PROCESS = 2048;
    const uint64_t buffered = std::min<uint64_t>(FileContent("/proc/stat").size(), 8192);
    uint64_t processes = 0;
    for (const auto& entry : fs::directory_iterator("/proc")) {
        processes += std::isdigit(entry.path().filename().string().front()) != 0 ? 1 : 0;
    }
    return processes * (buffered + FILES_OF_A_PROCESS);
}

uint64_t Samples(const std::string& stream) {
    host::RecordReader reader([](const host::SampleRecord&) {});
    reader.Feed(stream);
    reader.Finish();
    EXPECT_EQ(reader.UnreadableBytes(), 0u);
    return reader.Records();
}

}  // namespace

TEST_F(EndedProcess, IsDroppedWhileTheJobRuns) {
    StartDaemon();
    HostJob job(link_, 0, "ended");
    ChildProcess sleeper(directory_.Path(), "sleeper", {"/bin/sleep", "1h"});
    const std::string own = "data/" + std::to_string(sleeper.Pid()) + "-Memory.data";
    ASSERT_TRUE(job.Start(SampleConfig("ended", {{"pid_profiling", "on"}})).Accepted());
    ASSERT_TRUE(daemon_->WaitForReads(BytesOfAPass()));

    sleeper.Kill();

    // What is buffered of a process leaves when it is dropped.
    EXPECT_TRUE(Eventually([&] { return job.sink.Files().count(own) == 1; }));
    const uint64_t samples = Samples(job.sink.Files()[own]);
    EXPECT_GE(samples, 1u);
    ASSERT_TRUE(daemon_->WaitForReads(BytesOfAPass()));
    ASSERT_TRUE(job.Stop().Accepted());
    EXPECT_EQ(Samples(job.sink.Files()[own]), samples);
}

}  // namespace tiv::e2e
