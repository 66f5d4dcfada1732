// The single-instance lock.
#include "daemon/ide_platform_util.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "daemon/fake_system.h"
#include "support/failing_malloc.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::FailFileControl;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;
using tiv::test::SetHome;
using Texts = std::vector<std::string>;

// The path that is built for the user's record as it stands; no file is made.
std::string LockPathOnly() {
    FakeMm::Instance().calls.Return("mmOpen2", -5);
    FakeMm::Instance().calls.Return("mmMkdir", -1, -1);
    std::string path;
    EXPECT_EQ(SingleProcessStart(path), -1);
    return path;
}

// A directory of the test's own as the home directory.
class LockFile : public testing::Test {
 protected:
    LockFile() { SetHome(home_); }

    // A start that is refused at a file control command gives the descriptor back.
    static void ExpectRefusedAndClosed() {
        FakeMm::Instance().calls.ClearCalls();
        std::string path;

        EXPECT_EQ(SingleProcessStart(path), -1);

        const auto closes = FakeMm::Instance().calls.Calls("mmClose");
        ASSERT_EQ(closes.size(), 1u);
        EXPECT_EQ(fcntl(static_cast<int>(closes[0].Value("fd")), F_GETFL), -1);
    }

    tiv::test::TempDir dir_;
    const std::string home_ = dir_.Path();
};

// Runs `body` in a child and gives its exit status, -1 when it did not end by itself.
template <class Body>
int InChild(Body body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = -1;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

TEST(LockPath, WithoutAHomeItStandsBelowTheRoot) {
    tiv::test::SetNoUserRecord();
    EXPECT_EQ(LockPathOnly(), "/ide_daemon/.ruvo.lock");
    tiv::test::SetNullHome();
    EXPECT_EQ(LockPathOnly(), "/ide_daemon/.ruvo.lock");
    SetHome("");
    EXPECT_EQ(LockPathOnly(), "/ide_daemon/.ruvo.lock");
}

TEST(LockPath, HomeOf4095CharactersIsUsedAndOf4096IsNot) {
    const std::string longest = "/" + std::string(4094, 'h');
    SetHome(longest);
    EXPECT_EQ(LockPathOnly(), longest + "/ide_daemon/.ruvo.lock");

    SetHome(longest + "h");
    EXPECT_EQ(LockPathOnly(), "/ide_daemon/.ruvo.lock");
}

TEST(LockPath, FileThatDoesNotOpenIsNamedWithItsResult) {
    SetHome("");

    (void)LockPathOnly();

    EXPECT_EQ(RecordedLog::Instance().Texts('E').back(),
              "single process open /ide_daemon/.ruvo.lock fd = -5");
}

TEST_F(LockFile, IsMadeWithItsDirectoryAndLocked) {
    std::string path;

    const int32_t fd = SingleProcessStart(path);

    ASSERT_GE(fd, 0);
    EXPECT_EQ(path, home_ + "/ide_daemon/.ruvo.lock");
    struct stat info {};
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    close(fd);
}

TEST_F(LockFile, OpensWithTheNumbersOfTheInterface) {
    std::string path;

    const int32_t fd = SingleProcessStart(path);

    const auto calls = FakeMm::Instance().calls.Calls("mmOpen2");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].Value("flags"), 65);
    EXPECT_EQ(calls[0].Value("mode"), 384);
    close(fd);
}

TEST_F(LockFile, SecondProcessIsRefused) {
    std::string path;
    const int32_t fd = SingleProcessStart(path);
    ASSERT_GE(fd, 0);

    const int refused = InChild([] {
        std::string second;
        testing::internal::CaptureStdout();
        const int32_t result = SingleProcessStart(second);
        const bool printed =
            testing::internal::GetCapturedStdout() == "tiv is exist, don't start again\n";
        const bool logged = RecordedLog::Instance().Has('E', "tiv is exist, don't start again");
        return result == -1 && printed && logged ? 0 : 1;
    });

    EXPECT_EQ(refused, 0);
    close(fd);
}

TEST_F(LockFile, LockCoversTheWholeFileHoweverLong) {
    std::string path;
    const int32_t fd = SingleProcessStart(path);
    ASSERT_GE(fd, 0);

    const int covered = InChild([&path] {
        const int other = open(path.c_str(), O_WRONLY);
        for (const off_t at : {0, 1, 1 << 30}) {
            struct flock lock {};
            lock.l_type = F_WRLCK;
            lock.l_start = at;
            lock.l_len = 1;
            if (fcntl(other, F_GETLK, &lock) != 0 || lock.l_type != F_WRLCK) {
                return 1;
            }
        }
        return 0;
    });

    EXPECT_EQ(covered, 0);
    close(fd);
}

TEST_F(LockFile, HeldByAnotherItIsClosedAgain) {
    FailFileControl(F_SETLK);

    ExpectRefusedAndClosed();

    EXPECT_EQ(RecordedLog::Instance().Texts('E'), (Texts{"tiv is exist, don't start again"}));
}

TEST_F(LockFile, WithoutItsDescriptorFlagsItIsClosedAgain) {
    FailFileControl(F_GETFD);

    ExpectRefusedAndClosed();

    EXPECT_EQ(RecordedLog::Instance().Texts('E'), (Texts{"single process fcntl get fd"}));
}

TEST_F(LockFile, ThatCannotBeKeptFromChildrenIsClosedAgain) {
    FailFileControl(F_SETFD);

    ExpectRefusedAndClosed();

    EXPECT_EQ(RecordedLog::Instance().Texts('E'), (Texts{"single process fcntl set fd"}));
}

TEST_F(LockFile, LeftBehindByAKilledProcessItStopsNobody) {
    EXPECT_EQ(InChild([] {
                  std::string path;
                  return SingleProcessStart(path) >= 0 ? 0 : 1;
              }),
              0);

    std::string path;
    const int32_t fd = SingleProcessStart(path);

    EXPECT_GE(fd, 0);
    close(fd);
}

TEST_F(LockFile, RemoveTakesTheNameAway) {
    std::string path;
    const int32_t fd = SingleProcessStart(path);
    ASSERT_GE(fd, 0);

    SingleProcessRemove(path);

    EXPECT_FALSE(std::filesystem::exists(path));
    close(fd);
}

TEST_F(LockFile, RemoveOfWhatDoesNotResolveDoesNothing) {
    SingleProcessRemove("");
    SingleProcessRemove(home_ + "/absent");

    EXPECT_TRUE(RecordedLog::Instance().Lines().empty());
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmRealPath"), 1u);
}

TEST_F(LockFile, FailedRemoveIsADebugLine) {
    std::filesystem::create_directory(home_ + "/full");
    std::ofstream(home_ + "/full/file") << "x";

    SingleProcessRemove(home_ + "/full");

    EXPECT_TRUE(RecordedLog::Instance().Has('D', "remove " + home_ + "/full exit code -1"));
}

TEST_F(LockFile, RemoveExpandsTheHomeDirectory) {
    std::ofstream(home_ + "/here") << "x";

    SingleProcessRemove("~/here");

    EXPECT_FALSE(std::filesystem::exists(home_ + "/here"));
}

TEST_F(LockFile, RemoveLeavesOtherPathsWithATildeAlone) {
    SingleProcessRemove("~here");

    EXPECT_EQ(FakeMm::Instance().calls.Calls("mmRealPath").at(0).Text("path"), "~here");
}

TEST_F(LockFile, RemoveWithoutMemoryKeepsTheFile) {
    const std::string path = dir_.Write("here", "x");
    tiv::test::FailingMalloc failing(4096);

    SingleProcessRemove(path);

    EXPECT_EQ(failing.Failed(), 1u);
    EXPECT_EQ(RecordedLog::Instance().Texts('E').back(), "IdeXmalloc failed");
    EXPECT_TRUE(std::filesystem::exists(path));
}
