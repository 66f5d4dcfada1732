// Child processes and the environment.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>

#include "common/utils.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"

namespace analysis::rokt::common::utils {
namespace {

using tiv::test::FakeMm;
using tiv::test::RecordedLog;
using tiv::test::TempDir;

bool Logged(char level, const std::string& text) {
    return RecordedLog::Instance().Has(level, text);
}

class UtilsProcess : public testing::Test {
 protected:
    UtilsProcess() {
        FakeMm::Instance().Reset();
        RecordedLog::Instance().Clear();
        shell.cmd = "/bin/sh";
        std::filesystem::current_path(
            "/");  // the run before may have left a directory that is gone
    }

    int Exec(const std::vector<std::string>& argv) {
        return Utils::ExecCmd(shell, argv, environment, exitCode, pid);
    }
    size_t Started() { return FakeMm::Instance().calls.Count("mmCreateProcess"); }

    TempDir dir;
    ExecCmdParam shell;
    std::vector<std::string> environment{"PATH=/usr/bin:/bin", "WORD=hello"};
    int exitCode = 0;
    mmProcess pid = -1;
    bool isExited = false;
};

TEST_F(UtilsProcess, SynchronousRunGivesTheExitCode) {
    EXPECT_EQ(Exec({"-c", "exit 7"}), 0);

    EXPECT_EQ(exitCode, 7);
    EXPECT_EQ(pid, -1);
}

TEST_F(UtilsProcess, ChildGetsItsArgumentsAndOnlyItsEnvironment) {
    shell.stdoutRedirectFile = dir.Path("out");

    EXPECT_EQ(Exec({"-c", "echo \"$0 $1 $WORD ${HOME:-none}\"", "/bin/sh", "two words"}), 0);

    EXPECT_EQ(dir.Read("out"), "/bin/sh two words hello none\n");
}

TEST_F(UtilsProcess, FirstArgumentIsTheProgram) {
    std::vector<std::string> words;
    int32_t counts[2] = {0, 0};
    FakeMm::Instance().mmCreateProcess = [&](const char* cmd, const mmArgvEnv* block, const char*,
                                             mmProcess*) {
        words = {cmd, block->argv[0], block->argv[1], block->envp[1]};
        counts[0] = block->argvCount;
        counts[1] = block->envpCount;
        EXPECT_EQ(block->argv[2], nullptr);
        EXPECT_EQ(block->envp[2], nullptr);
        return -1;
    };
    shell.async = true;

    EXPECT_EQ(Exec({"-x"}), -1);

    EXPECT_EQ(words, (std::vector<std::string>{"/bin/sh", "/bin/sh", "-x", "WORD=hello"}));
    EXPECT_EQ(counts[0], 2);
    EXPECT_EQ(counts[1], 2);
}

TEST_F(UtilsProcess, OutputIsInheritedWithoutARedirectFile) {
    bool inherited = false;
    FakeMm::Instance().mmCreateProcess = [&](const char*, const mmArgvEnv*, const char* file,
                                             mmProcess*) {
        inherited = file == nullptr;
        return -1;
    };

    EXPECT_EQ(Exec({}), -1);

    EXPECT_TRUE(inherited);
}

TEST_F(UtilsProcess, MessageIsCutToBaseNames) {
    shell.stdoutRedirectFile = dir.Path("out");

    EXPECT_EQ(Exec({"-c", "exit 0", "/secret/place"}), 0);

    EXPECT_TRUE(Logged('I', "Execute cmd:\"sh place\", stdoutRedirectFile=out"));
}

TEST_F(UtilsProcess, ArgumentsWithoutAPathAreToldWhole) {
    EXPECT_EQ(Exec({"-c", "exit 0"}), 0);

    EXPECT_TRUE(Logged('I', "Execute cmd:\"sh -c exit 0\", stdoutRedirectFile="));
}

TEST_F(UtilsProcess, SynchronousRunRefusesAnExitCodeOfMinusOne) {
    exitCode = -1;

    EXPECT_EQ(Exec({"-c", "exit 0"}), -1);

    EXPECT_EQ(Started(), 0U);
}

TEST_F(UtilsProcess, ProgramIsNeeded) {
    shell.cmd = "";

    EXPECT_EQ(Exec({}), -1);
    shell.async = true;
    EXPECT_EQ(Exec({}), -1);

    EXPECT_EQ(Started(), 0U);
}

TEST_F(UtilsProcess, SynchronousRunChangesToTheProgramsDirectory) {
    EXPECT_EQ(Exec({"-c", "exit 0"}), 0);

    EXPECT_EQ(std::filesystem::current_path(), std::filesystem::canonical("/bin"));
}

TEST_F(UtilsProcess, FailedChangeOfDirectoryIsAWarning) {
    FakeMm::Instance().calls.Return("mmChdir", -1);

    EXPECT_EQ(Exec({"-c", "exit 3"}), 0);

    EXPECT_EQ(exitCode, 3);
    EXPECT_TRUE(Logged('W', "chdir(bin) failed."));
}

TEST_F(UtilsProcess, ProgramThatCannotBeStartedFails) {
    shell.cmd = dir.Path("missing");

    EXPECT_EQ(Exec({}), -1);

    EXPECT_EQ(exitCode, 0);
}

TEST_F(UtilsProcess, FailedWaitFailsTheRun) {
    shell.async = true;
    ASSERT_EQ(Exec({"-c", "exit 5"}), 0);
    shell.async = false;
    FakeMm::Instance().mmCreateProcess = [](const char*, const mmArgvEnv*, const char*,
                                            mmProcess*) { return 0; };
    FakeMm::Instance().calls.Return("mmWaitPid", -1);

    EXPECT_EQ(Exec({}), -1);

    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(Utils::WaitProcess(pid, isExited, exitCode, true), 0);
}

TEST_F(UtilsProcess, AsynchronousRunGivesTheProcessAndStaysWhereItIs) {
    const auto before = std::filesystem::current_path();
    shell.async = true;
    exitCode = -1;

    EXPECT_EQ(Exec({"-c", "exit 9"}), 0);

    ASSERT_GT(pid, 0);
    EXPECT_EQ(std::filesystem::current_path(), before);
    EXPECT_EQ(Utils::WaitProcess(pid, isExited, exitCode, true), 0);
    EXPECT_TRUE(isExited);
    EXPECT_EQ(exitCode, 9);
}

TEST_F(UtilsProcess, TooManyArgumentsAreRefused) {
    EXPECT_EQ(Exec(std::vector<std::string>(1048577)), -1);

    EXPECT_TRUE(Logged('E', "invalid argv or envp size"));
    EXPECT_EQ(RecordedLog::Instance().CountOf('I'), 0U);
}

TEST_F(UtilsProcess, AsManyArgumentsAndVariablesAsAllowedArePassed) {
    int32_t counts[2] = {0, 0};
    FakeMm::Instance().mmCreateProcess = [&](const char*, const mmArgvEnv* block, const char*,
                                             mmProcess*) {
        counts[0] = block->argvCount;
        counts[1] = block->envpCount;
        return 0;
    };
    RecordedLog::Instance().SetLevel(DLOG_ERROR);
    environment.assign(1048576, "");
    shell.async = true;

    EXPECT_EQ(Exec(std::vector<std::string>(1048576)), 0);

    EXPECT_EQ(counts[0], 1048577);
    EXPECT_EQ(counts[1], 1048576);
}

TEST_F(UtilsProcess, TooManyVariablesAreRefused) {
    environment.assign(1048577, "");

    EXPECT_EQ(Exec({}), -1);

    EXPECT_TRUE(Logged('E', "invalid argv or envp size"));
}

TEST_F(UtilsProcess, ShortMemoryIsTold) {
    const std::vector<std::string> argv;
    int result = 0;
    RecordedLog::Instance().SetLevel(DLOG_ERROR);
    {
        tiv::test::FailingNew failing;
        result = Exec(argv);
    }

    EXPECT_EQ(result, -1);
    EXPECT_TRUE(Logged('E', "Pointer is null"));
    EXPECT_EQ(Started(), 0U);
}

TEST_F(UtilsProcess, RunningChildHasNotExited) {
    FakeMm::Instance().calls.Return("mmWaitPid", 0);
    isExited = true;
    exitCode = 4;

    EXPECT_EQ(Utils::WaitProcess(17, isExited, exitCode, false), 0);

    EXPECT_FALSE(isExited);
    EXPECT_EQ(exitCode, 4);
    EXPECT_EQ(FakeMm::Instance().calls.Calls("mmWaitPid")[0].Value("options"), 1);
}

TEST_F(UtilsProcess, WaitWithoutEndFails) {
    FakeMm::Instance().calls.Return("mmWaitPid", 0);

    EXPECT_EQ(Utils::WaitProcess(17, isExited, exitCode, true), -1);

    EXPECT_EQ(FakeMm::Instance().calls.Calls("mmWaitPid")[0].Value("options"), 0);
}

TEST_F(UtilsProcess, FailedWaitFails) {
    FakeMm::Instance().calls.Return("mmWaitPid", -1, 2);
    isExited = true;

    EXPECT_EQ(Utils::WaitProcess(17, isExited, exitCode, false), -1);
    EXPECT_EQ(Utils::WaitProcess(17, isExited, exitCode, true), -1);

    EXPECT_FALSE(isExited);
}

TEST_F(UtilsProcess, AnyOtherResultOfAWaitIsAFailure) {
    FakeMm::Instance().calls.Return("mmWaitPid", 2, 2);

    EXPECT_EQ(Utils::WaitProcess(17, isExited, exitCode, false), -1);
    EXPECT_EQ(Utils::WaitProcess(17, isExited, exitCode, true), -1);

    EXPECT_FALSE(isExited);
}

TEST_F(UtilsProcess, WorkingDirectoryChanges) {
    EXPECT_EQ(Utils::ChangeWorkDir(dir.Path()), 0);
    EXPECT_EQ(std::filesystem::current_path(), std::filesystem::canonical(dir.Path()));
    EXPECT_EQ(Utils::ChangeWorkDir(dir.Path("missing")), -1);
    EXPECT_EQ(Utils::ChangeWorkDir("/"), 0);
}

TEST_F(UtilsProcess, EnvironmentVariableIsTextOrEmpty) {
    setenv("TIV_TEST_VARIABLE", "value", 1);

    EXPECT_EQ(Utils::GetEnvString("TIV_TEST_VARIABLE"), "value");
    unsetenv("TIV_TEST_VARIABLE");
    EXPECT_EQ(Utils::GetEnvString("TIV_TEST_VARIABLE"), "");
}

TEST_F(UtilsProcess, DynamicModeIsTheWholeValue) {
    setenv("PROFILING_MODE", "dynamic", 1);
    EXPECT_TRUE(Utils::IsDynProfMode());
    setenv("PROFILING_MODE", "dynamic mode", 1);
    EXPECT_FALSE(Utils::IsDynProfMode());
    unsetenv("PROFILING_MODE");
    EXPECT_FALSE(Utils::IsDynProfMode());
}

}  // namespace
}  // namespace analysis::rokt::common::utils
