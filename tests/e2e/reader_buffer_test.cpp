// The buffers of the channel readers, in the sizes that the report configuration allows.
#include <gtest/gtest.h>

#include "e2e/channel_job.h"

namespace tiv::e2e {

namespace {

constexpr uint64_t MIB = 1024 * 1024;
constexpr uint64_t HEADER = 72;
constexpr uint64_t LIMIT = 40 * MIB - HEADER;

class ReaderBuffer : public DaemonTest, public testing::WithParamInterface<uint64_t> {
 protected:
    void StartDaemonWithBufferOf(uint64_t bytes) {
        const std::string report = R"({"device":{"channels":[{"channel":8,"channel_buffer_size":)" +
                                   std::to_string(bytes) + "}]}}";
        daemon_ = std::make_unique<ChildProcess>(
            directory_.Path(), "daemon", std::vector<std::string>{TIV_WITH_FAULTS_PROGRAM},
            Environment{{"TIV_REPORT_CONFIG", directory_.Write("report.json", report)}});
        ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();
    }
};

}  // namespace

TEST_P(ReaderBuffer, FillsItsChunksAndLosesNothing) {
    ConfigureDriver(CounterConfig(1, ",\"limit_bytes\":" + std::to_string(LIMIT)));
    StartDaemonWithBufferOf(GetParam());
    ChannelJob job(link_, 0, "buffer");
    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(job.sink.WaitForBytes(HEADER + LIMIT));

    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.data->GetState(), host::DataSession::State::COMPLETE) << job.data->Failure();
    EXPECT_EQ(job.sink.Error(), "");
    EXPECT_EQ(job.sink.Runs(), std::vector<uint64_t>{HEADER + LIMIT});
    EXPECT_GE(job.sink.Chunks(), 40 * MIB / GetParam());
}

INSTANTIATE_TEST_SUITE_P(Smallest, ReaderBuffer, testing::Values(1 * MIB));
INSTANTIATE_TEST_SUITE_P(Largest, ReaderBuffer, testing::Values(4 * MIB));

}  // namespace tiv::e2e
