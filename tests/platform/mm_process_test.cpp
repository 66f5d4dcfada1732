// Tests of child processes.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/mm_api.h"
#include "platform/system_calls.h"
#include "support/failing_new.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::TempDir;

const char* const SYSTEM_PATH = "PATH=/usr/bin:/bin";

// The arrays of one call; the words live as long as the object.
class Words {
 public:
    Words(std::vector<std::string> argv, std::vector<std::string> envp)
        : argv_(std::move(argv)), envp_(std::move(envp)) {
        Point(argv_, argvPointers_);
        Point(envp_, envpPointers_);
        block_ = {argvPointers_.data(), static_cast<int32_t>(argv_.size()), envpPointers_.data(),
                  static_cast<int32_t>(envp_.size())};
    }
    Words(const Words&) = delete;
    Words& operator=(const Words&) = delete;

    const mmArgvEnv* Block() const { return &block_; }

 private:
    static void Point(std::vector<std::string>& words, std::vector<char*>& pointers) {
        for (std::string& word : words) {
            pointers.push_back(word.data());
        }
        pointers.push_back(nullptr);
    }

    std::vector<std::string> argv_;
    std::vector<std::string> envp_;
    std::vector<char*> argvPointers_;
    std::vector<char*> envpPointers_;
    mmArgvEnv block_ = {};
};

// Runs a line of the shell to its end and gives the status.
int32_t RunShell(const std::string& line, const char* stdoutFile) {
    const Words words({"sh", "-c", line}, {SYSTEM_PATH});
    mmProcess pid = -1;
    int32_t status = -1;
    EXPECT_EQ(0, mmCreateProcess("sh", words.Block(), stdoutFile, &pid));
    EXPECT_EQ(1, mmWaitPid(pid, &status, MM_WAIT_BLOCK));
    return status;
}

std::string MakeScript(const TempDir& dir, const std::string& name, const std::string& body) {
    const std::string path = dir.Write(name, "#!/bin/sh\n" + body + "\n");
    chmod(path.c_str(), 0755);
    return path;
}

// Status of `cmd` found through `path`; -1000 when it wasn't started.
int32_t RunThroughPath(const std::string& cmd, const std::string& path) {
    const Words words({cmd}, {"A=b", "PATH=" + path});
    mmProcess pid = -1;
    int32_t status = -1;
    if (mmCreateProcess(cmd.c_str(), words.Block(), nullptr, &pid) != 0) {
        return -1000;
    }
    EXPECT_EQ(1, mmWaitPid(pid, &status, MM_WAIT_BLOCK));
    return status;
}

TEST(MmCreateProcess, LooksTheProgramUpInTheChildsPath) {
    TempDir dir;
    MakeScript(dir, "tool_of_this_test", "exit 7");

    EXPECT_EQ(7, RunThroughPath("tool_of_this_test", "/nowhere:" + dir.Path()));
}

TEST(MmCreateProcess, DoesNotLookInTheCallersPath) {
    TempDir empty;

    EXPECT_EQ(-1000, RunThroughPath("sh", empty.Path()));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
}

TEST(MmCreateProcess, TakesTheFirstProgramOfThePath) {
    TempDir dir;
    dir.MakeDir("first");
    dir.MakeDir("second");
    MakeScript(dir, "first/tool", "exit 1");
    MakeScript(dir, "second/tool", "exit 2");

    EXPECT_EQ(1, RunThroughPath("tool", dir.Path("first") + ":" + dir.Path("second")));
}

TEST(MmCreateProcess, PassesOverWhatIsNoProgram) {
    TempDir dir;
    dir.MakeDir("directory/tool");
    dir.MakeDir("plain");
    dir.Write("plain/tool", "no program");
    dir.MakeDir("good");
    MakeScript(dir, "good/tool", "exit 3");

    EXPECT_EQ(3, RunThroughPath("tool", dir.Path("directory") + ":" + dir.Path("plain") + ":" +
                                            dir.Path("good")));
}

TEST(MmCreateProcess, FindsTheProgramInTheMiddleOfThePath) {
    TempDir dir;
    MakeScript(dir, "tool_of_this_test", "exit 5");

    EXPECT_EQ(5, RunThroughPath("tool_of_this_test", "/nowhere:" + dir.Path() + ":/elsewhere"));
}

TEST(MmCreateProcess, EmptyPartOfThePathIsNotTheWorkingDirectory) {
    TempDir dir;
    MakeScript(dir, "tool", "exit 3");
    ASSERT_EQ(0, chdir(dir.Path().c_str()));

    EXPECT_EQ(-1000, RunThroughPath("tool", "::"));
    ASSERT_EQ(0, chdir("/"));
}

TEST(MmCreateProcess, StartsAPathWithASlashAsItIs) {
    TempDir dir;
    const std::string path = MakeScript(dir, "tool", "exit 4");

    EXPECT_EQ(4, RunThroughPath(path, "/nowhere"));
}

TEST(MmCreateProcess, FailsWithoutAPathEntry) {
    const Words words({"sh"}, {"A=b"});
    mmProcess pid = -1;

    EXPECT_NE(0, mmCreateProcess("sh", words.Block(), nullptr, &pid));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
}

TEST(MmCreateProcess, HandsOverWordsAndEnvironmentAndNothingElse) {
    TempDir dir;
    setenv("OF_THE_CALLER", "1", 1);
    const Words words({"sh", "-c", "echo $1 $A [$OF_THE_CALLER]", "sh", "word"},
                      {SYSTEM_PATH, "A=b"});
    mmProcess pid = -1;
    int32_t status = -1;

    ASSERT_EQ(0, mmCreateProcess("sh", words.Block(), dir.Path("out").c_str(), &pid));
    ASSERT_EQ(1, mmWaitPid(pid, &status, MM_WAIT_BLOCK));

    EXPECT_EQ("word b []\n", dir.Read("out"));
}

TEST(MmCreateProcess, WithoutAnEnvironmentTheChildHasAnEmptyOne) {
    TempDir dir;
    char program[] = "/usr/bin/env";
    char* argv[] = {program, nullptr};
    const mmArgvEnv words = {argv, 1, nullptr, 0};
    mmProcess pid = -1;
    int32_t status = -1;

    ASSERT_EQ(0, mmCreateProcess(program, &words, dir.Path("out").c_str(), &pid));
    ASSERT_EQ(1, mmWaitPid(pid, &status, MM_WAIT_BLOCK));

    EXPECT_EQ(0, status);
    EXPECT_EQ("", dir.Read("out"));
}

TEST(MmCreateProcess, EmptiesTheOutputFileAndMakesItForGroupReaders) {
    TempDir dir;
    umask(0022);
    dir.Write("old", "what was there before");

    EXPECT_EQ(0, RunShell("echo out; echo err >&2", dir.Path("out").c_str()));
    EXPECT_EQ(0, RunShell("echo out", dir.Path("old").c_str()));

    struct stat status = {};
    ASSERT_EQ(0, stat(dir.Path("out").c_str(), &status));
    EXPECT_EQ(0640U, status.st_mode & 07777);
    EXPECT_EQ("out\n", dir.Read("out"));
    EXPECT_EQ("out\n", dir.Read("old"));
}

TEST(MmCreateProcess, LetsTheChildInheritTheOutputWithoutAFile) {
    TempDir dir;
    const int saved = dup(STDOUT_FILENO);
    const int file = open(dir.Path("out").c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_EQ(STDOUT_FILENO, dup2(file, STDOUT_FILENO));

    const int32_t status = RunShell("echo inherited", nullptr);
    dup2(saved, STDOUT_FILENO);
    close(file);
    close(saved);

    EXPECT_EQ(0, status);
    EXPECT_EQ("inherited\n", dir.Read("out"));
}

TEST(MmCreateProcess, GivesTheNullDeviceAsInput) {
    TempDir dir;

    EXPECT_EQ(0, RunShell("readlink /proc/$$/fd/0; cat", dir.Path("out").c_str()));

    EXPECT_EQ("/dev/null\n", dir.Read("out"));
}

TEST(MmCreateProcess, HandsDownNoOtherDescriptor) {
    TempDir dir;
    const int open3 = open("/dev/null", O_RDONLY);
    const int high = fcntl(open3, F_DUPFD, 200);
    ASSERT_EQ(0, fcntl(high, F_GETFD));

    EXPECT_EQ(0, RunShell("ls /proc/$$/fd", dir.Path("out").c_str()));
    close(open3);
    close(high);

    EXPECT_EQ("0\n1\n2\n", dir.Read("out").substr(0, 6));
    EXPECT_EQ(std::string::npos, dir.Read("out").find("200"));
}

TEST(MmCreateProcess, ThirdDescriptorIsForeignToo) {
    const int source = open("/dev/null", O_RDONLY);
    const int kept = dup(3);
    ASSERT_EQ(3, dup2(source, 3));

    EXPECT_EQ(0, RunShell("[ ! -e /proc/$$/fd/3 ]", nullptr));

    kept < 0 ? close(3) : dup2(kept, 3);
    close(source);
}

TEST(MmCreateProcess, GivesTheChildTheDefaultOfABrokenPipe) {
    signal(SIGPIPE, SIG_IGN);

    EXPECT_EQ(128 + SIGPIPE, RunShell("kill -PIPE $$; exit 0", nullptr));
}

TEST(MmCreateProcess, GivesTheChildAnEmptySignalMask) {
    sigset_t blocked;
    sigset_t before;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR1);
    ASSERT_EQ(0, pthread_sigmask(SIG_BLOCK, &blocked, &before));

    EXPECT_EQ(128 + SIGUSR1, RunShell("kill -USR1 $$; exit 0", nullptr));

    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST(MmCreateProcess, FailsWhenTheOutputFileCannotBeMade) {
    TempDir dir;
    const Words words({"sh", "-c", "exit 0"}, {SYSTEM_PATH});
    mmProcess pid = -1;

    EXPECT_NE(0, mmCreateProcess("sh", words.Block(), dir.Path("none/out").c_str(), &pid));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
    EXPECT_EQ(-1, pid);
}

TEST(MmCreateProcess, FailsForAProgramThatIsMissing) {
    EXPECT_EQ(-1000, RunThroughPath("/nowhere/tool", "/usr/bin"));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
}

TEST(MmCreateProcess, FailsWithoutMemoryForThePath) {
    const char* const program = "a-program-whose-path-needs-memory";
    const Words words({program}, {SYSTEM_PATH});
    mmProcess pid = 0;
    const tiv::test::FailingNew failing;

    const int32_t result = mmCreateProcess(program, words.Block(), nullptr, &pid);

    EXPECT_EQ(1U, failing.Failed());
    EXPECT_NE(0, result);
    EXPECT_EQ(ENOMEM, mmGetErrorCode());
}

TEST(MmCreateProcess, KeepsNoMemory) {
    EXPECT_EQ(0, RunShell("exit 0", nullptr));
    const size_t before = mallinfo2().uordblks;

    EXPECT_EQ(0, RunShell("exit 0", nullptr));
    EXPECT_EQ(0, RunShell("exit 0", nullptr));

    EXPECT_EQ(before, mallinfo2().uordblks);
}

TEST(MmCreateProcess, GivesItsAttributesBack) {
    EXPECT_EQ(0, RunShell("exit 0", nullptr));

    EXPECT_EQ(0, tiv::test::liveSpawnAttributes);
}

TEST(MmCreateProcess, FailsWithoutAttributesAndGivesNoneBack) {
    const Words words({"true"}, {SYSTEM_PATH});
    mmProcess pid = -1;
    const int before = tiv::test::liveSpawnAttributes;
    tiv::test::refusal = ENOMEM;

    const int32_t result = mmCreateProcess("true", words.Block(), nullptr, &pid);
    tiv::test::refusal = 0;

    EXPECT_NE(0, result);
    EXPECT_EQ(ENOMEM, mmGetErrorCode());
    EXPECT_EQ(-1, pid) << "nothing was started";
    EXPECT_EQ(before, tiv::test::liveSpawnAttributes);
}

TEST(MmCreateProcess, RefusesNull) {
    const Words words({"sh"}, {SYSTEM_PATH});
    const mmArgvEnv noWords = {};
    mmProcess pid = -1;

    EXPECT_NE(0, mmCreateProcess(nullptr, words.Block(), nullptr, &pid));
    EXPECT_NE(0, mmCreateProcess("sh", nullptr, nullptr, &pid));
    EXPECT_NE(0, mmCreateProcess("sh", &noWords, nullptr, &pid));
    EXPECT_NE(0, mmCreateProcess("sh", words.Block(), nullptr, nullptr));
}

TEST(MmWaitPid, GivesTheExitCode) {
    EXPECT_EQ(0, RunShell("exit 0", nullptr));
    EXPECT_EQ(255, RunShell("exit 255", nullptr));
}

TEST(MmWaitPid, GivesTheSignalOfAKilledChild) {
    EXPECT_EQ(128 + SIGKILL, RunShell("kill -KILL $$", nullptr));
}

TEST(MmWaitPid, TellsARunningChildFromAnEndedOne) {
    TempDir dir;
    ASSERT_EQ(0, mkfifo(dir.Path("gate").c_str(), 0600));
    const Words words({"sh", "-c", "read x < " + dir.Path("gate") + "; exit 9"}, {SYSTEM_PATH});
    mmProcess pid = -1;
    int32_t status = 77;
    ASSERT_EQ(0, mmCreateProcess("sh", words.Block(), nullptr, &pid));

    EXPECT_EQ(0, mmWaitPid(pid, &status, MM_WAIT_NO_HANG));
    EXPECT_EQ(77, status);
    close(open(dir.Path("gate").c_str(), O_WRONLY));

    EXPECT_EQ(1, mmWaitPid(pid, &status, MM_WAIT_BLOCK));
    EXPECT_EQ(9, status);
}

TEST(MmWaitPid, GoesOnAfterASignal) {
    tiv::test::interruptions = 2;

    EXPECT_EQ(7, RunShell("exit 7", nullptr));

    EXPECT_EQ(0, tiv::test::interruptions);
}

TEST(MmWaitPid, IsNegativeForWhatIsNoChild) {
    int32_t status = 77;

    EXPECT_LT(mmWaitPid(1, &status, MM_WAIT_BLOCK), 0);
    EXPECT_EQ(ECHILD, mmGetErrorCode());
    EXPECT_EQ(77, status);
    EXPECT_LT(mmWaitPid(1, nullptr, MM_WAIT_BLOCK), 0);
}

}  // namespace
