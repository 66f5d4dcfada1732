// The program tivctl: what it does without a job, and its end in every phase.
#include <fcntl.h>
#include <sys/ioctl.h>

#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;

TEST_F(TivctlTest, WithoutADaemonExits3SaysWhatToDoAndLeavesNothing) {
    Collect({});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_EQ(
        "tivctl: cannot reach device 0: No such file or directory; no daemon serves it here: "
        "start `tiv`, or set TIV_RUNTIME_DIR to the directory that holds its sockets\n",
        tivctl_->Errors());
    EXPECT_EQ("", tivctl_->Output());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTest, DeviceWithNothingToDoIsRefusedBeforeAnythingStarts) {
    Collect({"--device", "3", "--device", "5", "--cpu"});

    EXPECT_EQ(2, tivctl_->Wait());

    EXPECT_EQ(
        "tivctl: device 5 would have nothing to do: cpu, memory and processes are sampled "
        "once for the whole system, by the first device named (device 3); leave --device 5 "
        "out\n",
        tivctl_->Errors());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTest, SeveralDevicesAreAskedInTheirOrder) {
    Collect({"--device", "7", "--device", "1", "--llc", "read"});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_EQ(0u, tivctl_->Errors().find("tivctl: cannot reach device 7: "));
}

TEST_F(TivctlTest, OutputThatCannotBeMadeExits1) {
    const std::string file = directory_.Write("file", "");
    TivctlRun run(directory_, {"collect", "--output", file});

    EXPECT_EQ(1, run.Wait());

    EXPECT_NE(std::string::npos, run.Errors().find("choose another directory with --output"));
    EXPECT_EQ("", run.Output());
}

TEST_F(TivctlTest, BadDriverConfigurationIsToldWithTheFileToMend) {
    setenv("TIV_DRIVER_CONFIG", directory_.Write("driver.json", "{").c_str(), 1);
    Collect({});

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_NE(std::string::npos,
              tivctl_->Errors().find("mend the file that TIV_DRIVER_CONFIG names"));
}

TEST_F(TivctlTest, BadDriverConfigurationIsToldBeforeASettingIsHeldAgainstThePlatform) {
    setenv("TIV_DRIVER_CONFIG", directory_.Write("driver.json", "{").c_str(), 1);
    Collect({"--set", "ai_core_metrics=Memory"});

    EXPECT_EQ(3, tivctl_->Wait());

    const std::string errors = tivctl_->Errors();
    const size_t why = errors.find("driver configuration cannot be used");
    ASSERT_NE(std::string::npos, why) << errors;
    EXPECT_NE(std::string::npos, errors.find("the driver said above what is wrong", why));
}

TEST_F(TivctlTest, MessagesThatNobodyTakesAreNoReasonToCrash) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    Collect({}, full);

    EXPECT_EQ(3, tivctl_->Wait());

    close(full);
}

TEST_F(TivctlTest, ReaderOfTheMessagesThatHasGoneEndsNothing) {
    int ends[2];
    ASSERT_EQ(0, pipe2(ends, O_CLOEXEC));
    close(ends[0]);
    Collect({}, ends[1]);
    close(ends[1]);

    EXPECT_EQ(3, tivctl_->Wait());
}

TEST_F(TivctlTest, RefusalShowsTheDevicesWordsOnOneLine) {
    Listen(0);
    Collect({});

    Accept()->ReadAndAnswer(1, "not\x1b[2J now");

    EXPECT_EQ(3, tivctl_->Wait());
    EXPECT_EQ("tivctl: device 0: control handshake refused: not [2J now\n", tivctl_->Errors());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTest, WholeJobIsComplete) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    data_->Send(ChunkMessage("data/a", "one"));
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    const json manifest = Manifest();
    EXPECT_EQ("complete", manifest["state"]);
    const json file = {{"name", "data/a"}, {"bytes", 3}, {"chunks", 1}, {"dataModule", 3}};
    EXPECT_EQ(json::array({file}), manifest["devices"][0]["files"]);
    EXPECT_EQ(false, manifest["stoppedEarly"]);
    EXPECT_EQ("one", directory_.Read(fs::relative(Result(), directory_.Path()).string() +
                                     "/device_0/data/a"));
}

TEST_F(TivctlTest, HostileFileNamesAreRefusedReportedAndNeverComplete) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    data_->Send(ChunkMessage("../../../evil\x1b", "x"));
    data_->Send(ChunkMessage("data/\xff\xfe", "y"));
    End();

    EXPECT_EQ(4, tivctl_->Wait());

    const json manifest = Manifest();
    EXPECT_EQ("incomplete", manifest["state"]);
    EXPECT_EQ(false, manifest["devices"][0]["complete"]);
    EXPECT_EQ(true, manifest["devices"][0]["finishArrived"]);
    EXPECT_EQ((json{{"../../../evil\\x1b", 1}}), manifest["devices"][0]["refusedNames"]);
    EXPECT_EQ(1u, manifest["devices"][0]["files"].size());
    EXPECT_FALSE(fs::exists(directory_.Path("evil\x1b")));
    EXPECT_NE(std::string::npos,
              tivctl_->Output().find("refused file name \"../../../evil\\x1b\""));
}

TEST_F(TivctlTest, FinishWithoutAnAcceptedStopIsNotComplete) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    data_->Send(FinishMessage());
    control_->Send(AnswerMessage(1, "no"));

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ("incomplete", Manifest()["state"]);
    EXPECT_EQ(true, Manifest()["devices"][0]["finishArrived"]);
    EXPECT_EQ(false, Manifest()["devices"][0]["complete"]);
    EXPECT_EQ("device 0: job stop refused: no", Manifest()["devices"][0]["failure"]);
}

TEST_F(TivctlTest, RefusedStopEndsTheDrainWithoutAFinish) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->ReadAndAnswer(1, "no such job"));

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ(false, Manifest()["devices"][0]["finishArrived"]);
    EXPECT_EQ("device 0: job stop refused: no such job", Manifest()["devices"][0]["failure"]);
}

TEST_F(TivctlTest, DeviceThatFallsSilentAfterTheStopIsGivenUpAndItsDataKept) {
    Listen(0);
    Collect({"--duration", "0s", "--drain-timeout", "1s"});
    Begin();
    data_->Send(ChunkMessage("data/a", "one"));
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());

    EXPECT_EQ(4, tivctl_->Wait());

    const std::string failure =
        "device 0: nothing arrived for 1.0s and the device did not say that it has sent "
        "everything: the rest is given up; the daemon is stuck or the link is down: see the "
        "daemon's log, or wait longer with --drain-timeout";
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("tivctl: " + failure + "\n"));
    EXPECT_NE(std::string::npos, tivctl_->Output().find("data session: INCOMPLETE, " + failure));
    EXPECT_EQ("incomplete", Manifest()["state"]);
    EXPECT_EQ(failure, Manifest()["devices"][0]["failure"]);
    EXPECT_EQ(3, Manifest()["devices"][0]["files"][0]["bytes"]);
}

TEST_F(TivctlTest, SilenceBeforeTheStopDoesNotCount) {
    Listen(0);
    Collect({"--duration", "500ms", "--drain-timeout", "1s"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->Read());
    const auto before = std::chrono::steady_clock::now();
    control_->Send(AnswerMessage(0));
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::seconds(1));
}

TEST_F(TivctlTest, SilenceAfterTheStopCountsFromTheLastArrival) {
    Listen(0);
    Collect({"--duration", "0s", "--drain-timeout", "1500ms"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    (void)poll(nullptr, 0, 300);
    const auto sent = std::chrono::steady_clock::now();
    data_->Send(ChunkMessage("data/a", "one"));

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(1500));
    EXPECT_EQ(3, Manifest()["devices"][0]["bytes"]);
}

TEST_F(TivctlTest, DataSessionThatEndsInTheMiddleIsIncompleteAndKeepsTheData) {
    Listen(0);
    Collect({"--duration", "1h"});
    Begin();
    data_->Send(ChunkMessage("data/a", "one"));
    data_.reset();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->ReadAndAnswer());

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ("incomplete", Manifest()["state"]);
    EXPECT_EQ(3, Manifest()["devices"][0]["bytes"]);
    EXPECT_NE(std::string::npos,
              tivctl_->Errors().find("tivctl: device 0: a session ended in the middle of the "
                                     "collection; keeping what arrived\n"));
}

TEST_F(TivctlTest, DaemonThatDiesIsToldOnceWithoutTheStopThatItCannotGet) {
    Listen(0);
    Collect({"--duration", "1h"});
    Begin();
    control_.reset();
    data_.reset();

    EXPECT_EQ(4, tivctl_->Wait());

    const std::string errors = tivctl_->Errors();
    EXPECT_EQ(std::string::npos, errors.find("stop")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("ERROR")) << errors;
    EXPECT_NE(std::string::npos, errors.find("the daemon died or the link broke")) << errors;
}

TEST_F(TivctlTest, FileThatCannotBeWrittenExits1) {
    Listen(0);
    Collect({"--duration", "1h"});
    Begin();
    fs::remove_all(Result() + "/device_0");
    data_->Send(ChunkMessage("data/a", "one"));
    EXPECT_EQ("", data_->Read()) << "the broken session is closed at once";
    control_->ReadAndAnswer();
    control_->ReadAndAnswer();

    EXPECT_EQ(1, tivctl_->Wait());

    EXPECT_NE(
        std::string::npos,
        tivctl_->Errors().find("No such file or directory; make room there, or choose another "
                               "directory with --output\n"));
    EXPECT_EQ("incomplete", Manifest()["state"]);
}

TEST_F(TivctlTest, CtrlCWhileNoDaemonIsThereLeavesWith130AndNothing) {
    Collect({"--wait", "1h"});
    ASSERT_TRUE(tivctl_->WaitForHandler());
    tivctl_->Interrupt();

    EXPECT_EQ(130, tivctl_->Wait());

    EXPECT_EQ("tivctl: left before the collection began; nothing is kept\n", tivctl_->Errors());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTest, CtrlCDuringAHandshakeLeavesWith130AndNothing) {
    Listen(0);
    Collect({});
    const auto control = Accept();
    EXPECT_EQ("analysis.rokt.proto.CtrlChannelHandshake", control->Read());
    tivctl_->Interrupt();

    EXPECT_EQ(130, tivctl_->Wait());

    EXPECT_EQ("", control->Read());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTest, CtrlCDuringTheDataHandshakeLeavesWith130) {
    Listen(0);
    Collect({});
    control_ = Accept();
    control_->ReadAndAnswer();
    data_ = Accept();
    EXPECT_EQ("analysis.rokt.proto.DataChannelHandshake", data_->Read());
    tivctl_->Interrupt();

    EXPECT_EQ(130, tivctl_->Wait());
    EXPECT_EQ("", data_->Read());
}

TEST_F(TivctlTest, CtrlCDuringTheStartEndsTheSessions) {
    Listen(0);
    Collect({});
    control_ = Accept();
    control_->ReadAndAnswer();
    data_ = Accept();
    data_->ReadAndAnswer();
    EXPECT_EQ("analysis.rokt.proto.JobStartReq", control_->Read());
    tivctl_->Interrupt();

    EXPECT_EQ(130, tivctl_->Wait());
    EXPECT_EQ("", control_->Read());
    EXPECT_EQ("", data_->Read());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTest, CtrlCDuringTheCollectionEndsTheJobProperlyAndKeepsTheData) {
    Listen(0);
    Collect({"--duration", "1h"});
    Begin();
    data_->Send(ChunkMessage("data/a", "one"));
    ASSERT_TRUE(tivctl_->WaitForError("collecting"));
    tivctl_->Interrupt();
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    EXPECT_EQ(true, Manifest()["stoppedEarly"]);
    EXPECT_EQ("complete", Manifest()["state"]);
    EXPECT_NE(
        std::string::npos,
        tivctl_->Errors().find("ending the job; press Ctrl-C again to leave at once: what came "
                               "so far stays in " +
                               Result() + "\n"));
}

TEST_F(TivctlTest, FirstCtrlCDuringTheDrainGoesOnAndTheSecondLeavesAtOnce) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    control_->ReadAndAnswer();
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    tivctl_->Interrupt();
    ASSERT_TRUE(tivctl_->WaitForError("press Ctrl-C again"));
    tivctl_->Interrupt();

    EXPECT_EQ(130, tivctl_->Wait());

    EXPECT_EQ("running", Manifest()["state"]);
    EXPECT_EQ(false, Manifest()["complete"]);
}

// A terminal whose size nobody has set: it reports 0 columns.
class Terminal {
 public:
    Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        (void)grantpt(master_);
        (void)unlockpt(master_);
        slave_ = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
    }
    ~Terminal() {
        close(master_);
        close(slave_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] int Slave() const { return slave_; }
    void SetColumns(unsigned short columns) const {
        struct winsize size = {};
        size.ws_col = columns;
        (void)ioctl(slave_, TIOCSWINSZ, &size);
    }
    // What was painted until the line was removed.
    [[nodiscard]] std::string ReadUntil(const std::string& end) const {
        std::string text;
        char byte = 0;
        while (text.find(end) == std::string::npos && read(master_, &byte, 1) == 1) {
            text += byte;
        }
        return text;
    }

 private:
    int master_;
    int slave_ = -1;
};

TEST_F(TivctlTest, ProgressOnATerminalOf0ColumnsIsWholeAndCountsAs80) {
    Listen(0);
    const Terminal terminal;
    Collect({"--duration", "1h"}, terminal.Slave());
    Begin();
    data_->Send(ChunkMessage("data/a", "four"));

    const std::string painted = terminal.ReadUntil("4 B  0 B/s  1 files");
    tivctl_->Interrupt();
    End();

    EXPECT_NE(std::string::npos, painted.find("\r\033[Kcollecting  ")) << painted;
    EXPECT_NE(std::string::npos, painted.find(" of 1h00m  ")) << painted;
    EXPECT_EQ(0, tivctl_->Wait());
}

TEST_F(TivctlTest, ProgressIsCutToTheTerminal) {
    Listen(0);
    const Terminal terminal;
    terminal.SetColumns(11);
    Collect({"--duration", "1h"}, terminal.Slave());
    Begin();

    const std::string first = terminal.ReadUntil("\r\033[K");
    const std::string painted = terminal.ReadUntil("\r\033[K");
    tivctl_->Interrupt();
    End();

    EXPECT_EQ("collecting\r\033[K", painted);
    EXPECT_EQ(0, tivctl_->Wait());
}

TEST_F(TivctlTest, QuietWritesNothing) {
    Listen(0);
    Collect({"--duration", "0s", "--quiet"});
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_EQ("", tivctl_->Errors());
    EXPECT_EQ("", tivctl_->Output());
}

}  // namespace
}  // namespace tiv::test
