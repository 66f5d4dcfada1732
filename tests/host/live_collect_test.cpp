// tivctl collect --live on a pseudo-terminal, with a daemon played by the test.
#include "host/live_bench.h"
#include "host/live_terminal.h"
#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

namespace fs = std::filesystem;

class LiveCollectTest : public TivctlTest {
 protected:
    void StartLive(const std::vector<std::string>& more, unsigned short columns,
                   unsigned short rows) {
        setenv("LC_ALL", "C.UTF-8", 1);
        Listen(0);
        std::vector<std::string> words = {"collect", "--live", "--output", output_};
        words.insert(words.end(), more.begin(), more.end());
        terminal_ = std::make_unique<TerminalRun>(words, columns, rows);
    }
    void CollectLive(const std::vector<std::string>& more, unsigned short columns,
                     unsigned short rows) {
        StartLive(more, columns, rows);
        Begin();
    }

    std::unique_ptr<TerminalRun> terminal_;
};

TEST_F(LiveCollectTest, WithoutATerminalSaysWhatToDoAndCollectsNothing) {
    Collect({"--live"});

    EXPECT_EQ(2, tivctl_->Wait());

    EXPECT_EQ(0u, tivctl_->Errors().find("tivctl: a live view needs a terminal"));
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(LiveCollectTest, ShowsTheStreamThatIsBeingWritten) {
    CollectLive({"--duration", "1h"}, 80, 24);
    const std::string bytes = Record(SECOND_NS, 0, ProcessStat(42, "worker", 0, 0));
    data_->Send(ChunkMessage("data/42-CpuUsage.data", bytes));
    ASSERT_TRUE(terminal_->WaitForText("worker"));
    EXPECT_EQ(0u, terminal_->Screen().Row(1).find("tivctl collect  device 0  collecting "));

    terminal_->Press("q");
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
    EXPECT_EQ("complete", Manifest()["state"]);
    EXPECT_EQ(true, Manifest()["stoppedEarly"]);
    EXPECT_EQ(bytes.size(), Manifest()["devices"][0]["bytes"]);
    EXPECT_NE(std::string::npos, terminal_->Bytes().find("ending the job; press Ctrl-C again"));
}

TEST_F(LiveCollectTest, EndOfTheTimeRestoresTheTerminalForTheSummary) {
    CollectLive({"--duration", "0s"}, 80, 24);
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
    EXPECT_NE(std::string::npos, terminal_->Screen().All().find("result: "));
}

TEST_F(LiveCollectTest, OutputOfTheCommandGoesIntoTheResult) {
    CollectLive({"--", "sh", "-c", "cat; echo to people; echo to the screen >&2"}, 80, 24);
    End();

    EXPECT_EQ(0, terminal_->Wait());

    std::ifstream log(Result() + "/command.log");
    EXPECT_EQ("to people\nto the screen\n", std::string(std::istreambuf_iterator<char>(log), {}));
    EXPECT_EQ(std::string::npos, terminal_->Bytes().find("to people"));
    EXPECT_EQ(0, Manifest()["command"]["exitStatus"]);
}

TEST_F(LiveCollectTest, CommandWhoseOutputCannotBeKeptIsNotStarted) {
    const std::string ran = directory_.Path("ran");
    StartLive({"--", "touch", ran}, 80, 24);
    control_ = Accept();
    control_->ReadAndAnswer();
    fs::remove_all(Result());
    data_ = Accept();
    data_->ReadAndAnswer();
    EXPECT_EQ("analysis.rokt.proto.JobStartReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.ReplayStartReq", control_->ReadAndAnswer());

    EXPECT_EQ(2, terminal_->Wait());

    EXPECT_NE(std::string::npos,
              terminal_->Bytes().find("/command.log: No such file or directory; nothing was "
                                      "collected"));
    EXPECT_FALSE(fs::exists(ran));
}

TEST_F(LiveCollectTest, KeyThatQuitsEndsTheCommand) {
    CollectLive({"--", "sh", "-c", "sleep 1000"}, 80, 24);
    ASSERT_TRUE(terminal_->WaitForText("collecting"));

    terminal_->Press("q");
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_EQ(SIGINT, Manifest()["command"]["signal"]);
}

TEST_F(LiveCollectTest, TerminalThatNobodyReadsCostsNoChunk) {
    constexpr int CHUNKS = 3000;
    CollectLive({"--duration", "1h"}, 200, 3000);
    uint64_t bytes = 0;
    for (int i = 0; i < CHUNKS; ++i) {
        const std::string data =
            Record(SECOND_NS, 0, ProcessStat(7, "p" + std::to_string(i), 0, 0));
        data_->Send(ChunkMessage(fmt::format("data/{}-CpuUsage.data", i % 2500 + 1), data));
        bytes += data.size();
    }
    // The stop stands behind all data, so the finish cannot come before it.
    terminal_->Press("\x03");
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->ReadAndAnswer());
    data_->Send(FinishMessage());

    EXPECT_EQ(0, terminal_->Wait());

    EXPECT_EQ("complete", Manifest()["state"]);
    EXPECT_EQ(CHUNKS, Manifest()["devices"][0]["chunks"]);
    EXPECT_EQ(bytes, Manifest()["devices"][0]["bytes"]);
}

}  // namespace
}  // namespace tiv::test
