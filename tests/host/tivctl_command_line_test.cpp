// What tivctl makes of command lines that start nothing.
#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

TEST_F(TivctlTest, WrongCommandLinesExit2) {
    const std::vector<std::vector<std::string>> wrong = {{},
                                                         {"no-command"},
                                                         {"collect", "--no-option"},
                                                         {"collect", "--device", "x"},
                                                         {"collect", "--duration", "10 parsecs"},
                                                         {"collect", "--duration", "-1s"},
                                                         {"collect", "/no/job/file"},
                                                         {"top", "--drain-timeout", "soon"}};
    for (const auto& words : wrong) {
        TivctlRun run(directory_, words);
        EXPECT_EQ(2, run.Wait()) << words.size();
        EXPECT_NE("", run.Errors());
    }
}

TEST_F(TivctlTest, ProgramForACommandThatRunsNoneIsNotTaken) {
    TivctlRun run(directory_, {"devices", "--", "ls"});

    EXPECT_EQ(2, run.Wait());

    EXPECT_EQ(
        "The following argument was not expected: ls\nRun with --help for more information.\n",
        run.Errors());
    EXPECT_EQ("", run.Output());
}

TEST_F(TivctlTest, WordThatIsNoCommandIsToldWithTheCommands) {
    TivctlRun run(directory_, {"colect\n", "--duration", "1s"});

    EXPECT_EQ(2, run.Wait());

    EXPECT_EQ(
        "tivctl: there is no command \"colect\\x0a\"; the commands are devices, check, collect, "
        "top, "
        "info, report, export, completion, man; run tivctl --help for more\n",
        run.Errors());
}

TEST_F(TivctlTest, DurationThatIsNoneIsToldWithTheFormsThatAre) {
    Collect({"--duration", "soon"});

    EXPECT_EQ(2, tivctl_->Wait());

    EXPECT_NE(std::string::npos,
              tivctl_->Errors().find("\"soon\" is no duration: write 10s, 500ms, 5m or 1h"));
}

TEST_F(TivctlTest, HelpAndVersionExit0) {
    TivctlRun help(directory_, {"collect", "--help"});
    EXPECT_EQ(0, help.Wait());
    EXPECT_NE(std::string::npos, help.Output().find("--interval"));
    TivctlRun version(directory_, {"--version"});
    EXPECT_EQ(0, version.Wait());
    EXPECT_EQ(0u, version.Output().find("tivctl "));
}

}  // namespace
}  // namespace tiv::test
