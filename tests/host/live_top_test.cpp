// tivctl top on a pseudo-terminal, with a daemon played by the test.
#include "host/live_bench.h"
#include "host/live_terminal.h"
#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

namespace fs = std::filesystem;

constexpr const char* KEYS = "q quit";

class LiveTopTest : public TivctlTest {
 protected:
    LiveTopTest() {
        setenv("LC_ALL", "C.UTF-8", 1);
        unsetenv("NO_COLOR");
    }

    // The program runs, and its job has begun.
    void Top(unsigned short columns = 80, unsigned short rows = 24,
             const std::vector<std::string>& words = {"top"}) {
        Listen(0);
        terminal_ = std::make_unique<TerminalRun>(words, columns, rows);
        Begin();
    }
    // A process with the CPU of a core for itself.
    void SendProcess(uint32_t pid, const std::string& name) const {
        data_->Send(ChunkMessage(fmt::format("data/{}-CpuUsage.data", pid),
                                 Record(SECOND_NS, 0, ProcessStat(pid, name, 0, 0)) +
                                     Record(2 * SECOND_NS, 1, ProcessStat(pid, name, 99, 1))));
    }
    void SendCpu() const {
        data_->Send(ChunkMessage("data/SystemCpuUsage.data",
                                 Record(SECOND_NS, 0, CpuLine(" ", 0, 0)) +
                                     Record(2 * SECOND_NS, 1, CpuLine(" ", 25, 75))));
    }
    [[nodiscard]] std::string Row(size_t row) const { return terminal_->Screen().Row(row); }

    std::unique_ptr<TerminalRun> terminal_;
};

TEST_F(LiveTopTest, WithoutATerminalSaysWhatToDoAndExits2) {
    TivctlRun run(directory_, {"top"});

    EXPECT_EQ(2, run.Wait());

    EXPECT_EQ(0u, run.Errors().find("tivctl: a live view needs a terminal on standard input and "
                                    "output: run it in one"));
    EXPECT_EQ("", run.Output());
}

TEST_F(LiveTopTest, DumbTerminalIsRefused) {
    setenv("TERM", "dumb", 1);
    TerminalRun run({"top"}, 80, 24);

    EXPECT_EQ(2, run.Wait());
    EXPECT_NE(std::string::npos, run.Bytes().find("TERM calls this one dumb"));
}

TEST_F(LiveTopTest, WithoutADaemonExits3AndNeverTouchesTheScreen) {
    TerminalRun run({"top"}, 80, 24);

    EXPECT_EQ(3, run.Wait());

    EXPECT_EQ(std::string::npos, run.Bytes().find("\033[?1049h"));
    EXPECT_EQ(0u, run.Screen().Row(1).find("tivctl: cannot reach device 0"));
}

TEST_F(LiveTopTest, ShowsWhatArrivesAndQEndsTheJobAndRestoresTheTerminal) {
    Top();
    SendCpu();
    SendProcess(42, "worker");
    ASSERT_TRUE(terminal_->WaitForText("worker")) << terminal_->Screen().All();
    EXPECT_TRUE(terminal_->Screen().IsAlternate());
    EXPECT_FALSE(terminal_->Screen().HasCursor());
    EXPECT_EQ(0u, Row(3).find("all       25.0%   25.0%    0.0%")) << Row(3);
    EXPECT_NE(std::string::npos, terminal_->Screen().All().find("42 R   100.0   99.0    1.0"));

    terminal_->Press("q");
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(LiveTopTest, OnlyWhatIsAskedForIsSampled) {
    Top(80, 24, {"top", "--memory"});

    EXPECT_TRUE(terminal_->WaitForText("not sampled: ask for them with --processes"));

    EXPECT_EQ(std::string::npos, terminal_->Screen().All().find("ask for it with --memory"));
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, CtrlCBeforeTheJobBeginsExits130AndNeverTouchesTheScreen) {
    Listen(0);
    terminal_ = std::make_unique<TerminalRun>(std::vector<std::string>{"top"}, 80, 24);
    control_ = Accept();
    EXPECT_EQ("analysis.rokt.proto.CtrlChannelHandshake", control_->Read());

    terminal_->Press("\x03");

    EXPECT_EQ(130, terminal_->Wait());
    EXPECT_EQ(std::string::npos, terminal_->Bytes().find("\033[?1049h"));
    EXPECT_NE(std::string::npos, terminal_->Bytes().find("tivctl: left before the job began\r\n"));
}

TEST_F(LiveTopTest, PictureThatIsHeldBeforeItsFirstFrameIsShown) {
    Listen(0);
    terminal_ = std::make_unique<TerminalRun>(std::vector<std::string>{"top"}, 80, 24);
    terminal_->Press(" ");
    Begin();

    EXPECT_TRUE(terminal_->WaitForText("tivctl top  ")) << terminal_->Screen().All();

    EXPECT_TRUE(terminal_->WaitForText("PAUSED"));
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, LongEndSaysHowToLeave) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));
    terminal_->Press("q");
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());

    EXPECT_TRUE(terminal_->WaitForText("ending the job; press Ctrl-C to leave at once"));

    data_->Send(FinishMessage());
    control_->Send(AnswerMessage(0));
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, PlanThatIsRefusedExits2AndNeverTouchesTheScreen) {
    TerminalRun run({"top", "--interval", "1ms"}, 200, 24);

    EXPECT_EQ(2, run.Wait());

    EXPECT_EQ(std::string::npos, run.Bytes().find("\033[?1049h"));
    EXPECT_EQ(0u, run.Bytes().find("tivctl: ")) << run.Bytes();
    EXPECT_NE(std::string::npos, run.Bytes().find("--interval")) << run.Bytes();
}

TEST_F(LiveTopTest, ManyQsAreOne) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));

    terminal_->Press("qqqq");
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
}

TEST_F(LiveTopTest, CtrlCEndsTheJobAndRestoresTheTerminal) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));

    terminal_->Press("\x03");
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
}

TEST_F(LiveTopTest, SecondCtrlCLeavesAtOnceWithTheTerminalRestored) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));
    terminal_->Press("\x03");
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->Read());

    terminal_->Press("\x03");

    EXPECT_EQ(130, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
}

TEST_F(LiveTopTest, SigtermEndsTheJobAndRestoresTheTerminal) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));

    terminal_->Signal(SIGTERM);
    End();

    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
}

TEST_F(LiveTopTest, SignalThatKillsRestoresTheTerminalFirst) {
    for (const int signal : {SIGHUP, SIGQUIT}) {
        Top();
        ASSERT_TRUE(terminal_->WaitForText(KEYS));

        terminal_->Signal(signal);

        EXPECT_EQ(128 + signal, terminal_->Wait());
        EXPECT_TRUE(terminal_->IsRestored()) << signal;
        close(listener_);
        listener_ = -1;
        fs::remove(directory_.Path("run/hdc_0_4.sock"));
    }
}

TEST_F(LiveTopTest, CtrlZGivesTheTerminalBackUntilTheProgramGoesOn) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));

    terminal_->Press("\x1a");
    ASSERT_TRUE(terminal_->WaitForStop());
    EXPECT_TRUE(terminal_->IsRestored());

    terminal_->Signal(SIGCONT);
    ASSERT_TRUE(
        terminal_->WaitFor([](const ScreenReader& screen) { return screen.IsAlternate(); }));
    EXPECT_TRUE(terminal_->WaitForText(KEYS)) << "the whole picture is painted anew";
    EXPECT_FALSE(terminal_->HasFoundMode());
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
}

TEST_F(LiveTopTest, SessionThatEndsExits4WithTheTerminalRestoredAndAWordOnIt) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));

    data_.reset();
    control_.reset();

    EXPECT_EQ(4, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
    EXPECT_NE(std::string::npos, terminal_->Screen().All().find("tivctl: a session ended"));
}

TEST_F(LiveTopTest, RefusedStopExits4AndTheSessionsAreClosed) {
    Top();
    ASSERT_TRUE(terminal_->WaitForText(KEYS));

    terminal_->Press("q");
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer(1, "not now"));
    EXPECT_TRUE(control_->IsClosed()) << "a device that stops no replay is asked nothing more";

    EXPECT_EQ(4, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
    EXPECT_NE(std::string::npos, terminal_->Screen().All().find("refused: not now"));
}

TEST_F(LiveTopTest, NewSizeIsTaken) {
    Top(80, 24);
    ASSERT_TRUE(terminal_->WaitFor([](const auto& screen) { return screen.Row(24) != ""; }));

    terminal_->Resize(30, 12);

    EXPECT_TRUE(terminal_->WaitFor([](const auto& screen) {
        return screen.Rows() == 12 && screen.Row(12) == "q quit  c by CPU  m by memory…";
    })) << terminal_->Screen().All();
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, TerminalOf0ColumnsCountsAs80) {
    Top(0, 0);

    EXPECT_TRUE(terminal_->WaitFor([](const auto& screen) {
        return screen.Row(24) == "q quit  c by CPU  m by memory  p by PID  space pause";
    }));
    EXPECT_EQ(80u, Row(2).size()) << Row(2);
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, KeysOrderTheProcessesAndHoldThePicture) {
    Top();
    SendProcess(42, "spinner");
    data_->Send(
        ChunkMessage("data/7-Memory.data", Record(SECOND_NS, 0, ProcessPages(9, 9, "hoarder"))));
    const auto below = [](const std::string& first, const std::string& second) {
        return [=](const ScreenReader& screen) {
            return screen.All().find(first) < screen.All().find(second) &&
                   screen.All().find(second) != std::string::npos;
        };
    };
    EXPECT_TRUE(terminal_->WaitFor(below("spinner", "hoarder")));
    terminal_->Press("m");
    EXPECT_TRUE(terminal_->WaitFor(below("hoarder", "spinner")));
    terminal_->Press("c");
    EXPECT_TRUE(terminal_->WaitFor(below("spinner", "hoarder")));
    terminal_->Press("p");
    EXPECT_TRUE(terminal_->WaitFor(below("hoarder", "spinner")));
    terminal_->Press(" ");
    EXPECT_TRUE(terminal_->WaitForText("PAUSED"));
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, HostileProcessNameIsTextAndNothingElse) {
    Top(120);
    SendProcess(42, "\x1b[?1049l\x1b[2J\xff");

    EXPECT_TRUE(terminal_->WaitForText("  \\x1b[?1049l\\x1b[2J\\xff"));
    EXPECT_TRUE(terminal_->Screen().IsAlternate());

    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, NoColorMeansNone) {
    setenv("NO_COLOR", "1", 1);
    Top();
    SendCpu();
    ASSERT_TRUE(terminal_->WaitForText("25.0%"));

    for (const char* colour : {"\033[32m", "\033[33m", "\033[1;31m"}) {
        EXPECT_EQ(std::string::npos, terminal_->Bytes().find(colour));
    }
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

TEST_F(LiveTopTest, ColoursAreUsedWhereNobodyMinds) {
    setenv("NO_COLOR", "", 1);  // says nothing
    Top();
    SendCpu();
    ASSERT_TRUE(terminal_->WaitForText("25.0%"));

    EXPECT_NE(std::string::npos, terminal_->Bytes().find("\033[32m"));
    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
}

// The frames of these processes are larger than what a pseudo-terminal holds.
constexpr unsigned short MANY_ROWS = 3000;
constexpr uint32_t MANY_PROCESSES = 2500;

TEST_F(LiveTopTest, TerminalThatIsSlowSkipsFramesAndNoChunk) {
    Top(200, MANY_ROWS);
    for (uint32_t pid = 1; pid <= MANY_PROCESSES; ++pid) {
        SendProcess(pid, fmt::format("process{}", pid));
    }
    const auto skipsFrames = [this](const ScreenReader& screen) {
        terminal_->Press("c");  // asks for a frame
        const std::string all = screen.All();
        const size_t at = all.find("skipped 0 chunks, ");
        return at != std::string::npos && std::strtoul(all.c_str() + at + 18, nullptr, 10) > 0;
    };

    EXPECT_TRUE(terminal_->WaitFor(skipsFrames)) << terminal_->Screen().All().substr(0, 2000);

    terminal_->Press("q");
    End();
    EXPECT_EQ(0, terminal_->Wait());
    EXPECT_TRUE(terminal_->IsRestored());
}

TEST_F(LiveTopTest, TerminalThatNobodyReadsIsLeftAllTheSame) {
    Top(200, MANY_ROWS);
    for (uint32_t pid = 1; pid <= MANY_PROCESSES; ++pid) {
        SendProcess(pid, fmt::format("process{}", pid));
    }

    terminal_->Press("q");
    End();

    EXPECT_EQ(0, terminal_->WaitUnread());
    EXPECT_TRUE(terminal_->HasFoundMode());
}

}  // namespace
}  // namespace tiv::test
