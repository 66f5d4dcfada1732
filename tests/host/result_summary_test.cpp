// The closing table of tivctl, and the samples that it counts.
#include "host/result_summary.h"

#include "host/channel_bytes.h"
#include "host/tivctl_bench.h"
#include "support/failing_new.h"

namespace tiv::test {
namespace {

using host::CountSamples;

constexpr const char* SAMPLE = "tool 7 [000] 12.345678: 1 cpu-clock: \n\tffff main (tool)\n\n";
constexpr const char* RECORD = "TimeStamp:1\nIndex:0\nDataLen:2\nab\n";

class ResultSummary : public testing::Test {
 protected:
    ResultSummary() { directory_.MakeDir("data"); }
    std::string Write(const std::string& name, const std::string& content) const {
        return directory_.Write(name, content);
    }

    TempDir directory_;
};

std::string Times(const std::string& text, size_t count) {
    std::string all;
    for (size_t i = 0; i < count; ++i) {
        all += text;
    }
    return all;
}

}  // namespace

TEST_F(ResultSummary, RecordsOfASamplerAreCounted) {
    EXPECT_EQ(CountSamples(Write("data/Memory.data", Times(RECORD, 3))), 3u);
}

TEST_F(ResultSummary, SamplesOfTheCpuProfileAreCounted) {
    EXPECT_EQ(CountSamples(Write("data/ai_ctrl_cpu.data", Times(SAMPLE, 4))), 4u);
}

TEST_F(ResultSummary, EmptyCpuProfileHasNoSamples) {
    EXPECT_EQ(CountSamples(Write("data/ai_ctrl_cpu.data", "")), 0u);
}

TEST_F(ResultSummary, OtherFilesAreNotCounted) {
    EXPECT_EQ(CountSamples(Write("data/llc.data", SAMPLE)), std::nullopt);
    EXPECT_EQ(CountSamples(Write("data/empty", "")), std::nullopt);
    EXPECT_EQ(CountSamples(Write("data/ai_ctrl_cpu.data.x", SAMPLE)), std::nullopt);
}

TEST_F(ResultSummary, RecordsOfAPerfChannelAreCountedOverItsStarts) {
    const std::string start = PerfHeader() + Count(100, 0, 0, 5) + Count(100, 1, 0, 7);
    EXPECT_EQ(CountSamples(Write("data/llc.data", start)), 2u);
    EXPECT_EQ(CountSamples(Write("data/llc.data", start + start + "rest")), 4u);
    EXPECT_EQ(CountSamples(Write("data/llc.data", PerfHeader())), 0u);
}

TEST_F(ResultSummary, NumbersOfACountingChannelAreCounted) {
    const std::string stream = Header(2, {}, 8) + Numbers(0, 200000);  // more than a block

    EXPECT_EQ(CountSamples(Write("data/llc.data", stream)), 200000u);
}

TEST_F(ResultSummary, CountsOfTheCacheStatisticAreCounted) {
    const std::string text =
        "# started\n 0.10 7 cache\n 0.20 <not supported> cache\n 0.30 9 cache\n";

    EXPECT_EQ(CountSamples(Write("data/llc.data", text)), 2u);
}

TEST_F(ResultSummary, ChannelThatReplaysAFileDoesNotSayWhatItsRecordsAre) {
    const std::string replay = Header(3, {}, 0) + "bytes of the file";
    EXPECT_EQ(CountSamples(Write("data/llc.data", replay)), std::nullopt);
    EXPECT_EQ(CountSamples(Write("data/llc.data", PerfHeader() + Count(1, 0, 0, 5) + replay)),
              std::nullopt);
    EXPECT_EQ(CountSamples(Write("data/llc.data", "")), std::nullopt);
}

TEST_F(ResultSummary, MissingFileIsNotCounted) {
    EXPECT_EQ(CountSamples(directory_.Path("data/ai_ctrl_cpu.data")), std::nullopt);
}

TEST_F(ResultSummary, LongProfileIsCountedAcrossItsBlocks) {
    const size_t samples = 40000;  // more than two blocks of a megabyte
    const std::string path = Write("data/ai_ctrl_cpu.data", Times(SAMPLE, samples));
    ASSERT_GT(std::filesystem::file_size(path), 2u << 20);

    EXPECT_EQ(CountSamples(path), samples);
}

TEST_F(ResultSummary, LineWithoutAnEndIsNotKept) {
    const std::string path = Write("data/ai_ctrl_cpu.data", SAMPLE);
    std::filesystem::resize_file(path, 16u << 20);  // a hole: the rest is one line
    FailNextNewOfAtLeast(2u << 20);

    const auto samples = CountSamples(path);

    FailNextNewOfAtLeast(0);
    EXPECT_EQ(samples, 1u);
}

TEST_F(TivctlTest, SummaryOfACompleteJobNamesTheSamplerThatSentNothing) {
    Listen(0);
    Collect({"--cpu", "--llc", "read", "--duration", "0s"});
    Begin();
    data_->Send(ChunkMessage("data/SystemCpuUsage.data", RECORD));
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    const std::string output = tivctl_->Output();
    EXPECT_EQ(
        "  data session: complete, the device sent everything it had\n"
        "  device 0: nothing arrived from the sampler llc: too short a time, or the daemon's log "
        "tells why\n",
        output.substr(output.find("  data session")));
}

TEST_F(TivctlTest, SummaryShowsSizeAndSamplesOfTheCpuProfile) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    data_->Send(ChunkMessage("data/ai_ctrl_cpu.data", Times(SAMPLE, 20)));
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    EXPECT_NE(
        std::string::npos,
        tivctl_->Output().find("  data/ai_ctrl_cpu.data                 1         20     1.1 kB\n"))
        << tivctl_->Output();
}

}  // namespace tiv::test
