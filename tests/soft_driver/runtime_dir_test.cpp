// Which directory holds the sockets, and what they are called there.
#include "soft_driver/runtime_dir.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/driver_api.h"
#include "support/scoped_limit.h"
#include "support/temp_dir.h"

namespace tiv::test {
namespace {

using soft_driver::EnsureRuntimeDirectory;
using soft_driver::RuntimeDirectory;
using soft_driver::SocketPath;

constexpr uid_t NOBODY = 65534;
constexpr const char* NONE =
    "tiv_driver: warning: no runtime directory: set TIV_RUNTIME_DIR or XDG_RUNTIME_DIR\n";

// Neither variable is set at first.
class RuntimeDir : public ::testing::Test {
 protected:
    RuntimeDir() {
        unsetenv("TIV_RUNTIME_DIR");
        unsetenv("XDG_RUNTIME_DIR");
    }
    ~RuntimeDir() override {
        if (wasRoot_) {
            EXPECT_EQ(0, seteuid(0));
        }
    }

    // Whether the rest of the test runs as an ordinary user.
    bool LeaveRoot() const { return !wasRoot_ || seteuid(NOBODY) == 0; }

    const bool wasRoot_ = geteuid() == 0;
};

TEST_F(RuntimeDir, VariableOfItsOwnGoesFirst) {
    setenv("TIV_RUNTIME_DIR", "/a/b", 1);
    setenv("XDG_RUNTIME_DIR", "/c", 1);

    EXPECT_EQ("/a/b", RuntimeDirectory());
}

TEST_F(RuntimeDir, RootsIsInRun) {
    if (!wasRoot_) {
        GTEST_SKIP() << "only root has this directory";
    }
    setenv("TIV_RUNTIME_DIR", "", 1);
    setenv("XDG_RUNTIME_DIR", "/c", 1);

    EXPECT_EQ("/run/tiv", RuntimeDirectory());
}

TEST_F(RuntimeDir, OthersIsInTheDirectoryOfTheirSession) {
    if (!LeaveRoot()) {
        GTEST_SKIP() << "this namespace has one user only";
    }
    setenv("XDG_RUNTIME_DIR", "/run/user/7", 1);

    EXPECT_EQ("/run/user/7/tiv", RuntimeDirectory());
}

TEST_F(RuntimeDir, WithoutASessionThereIsNoneAndAWarningTellsWhatToSet) {
    if (!LeaveRoot()) {
        GTEST_SKIP() << "this namespace has one user only";
    }
    ::testing::internal::CaptureStderr();
    errno = 0;

    EXPECT_EQ("", RuntimeDirectory());

    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(NONE, ::testing::internal::GetCapturedStderr());
}

TEST_F(RuntimeDir, WithoutOneThereIsNoServer) {
    if (!LeaveRoot()) {
        GTEST_SKIP() << "this namespace has one user only";
    }
    HDC_SERVER server = nullptr;
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(-1, drvHdcServerCreate(0, 4, &server));

    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ(NONE, ::testing::internal::GetCapturedStderr());
    EXPECT_EQ(nullptr, server);
}

TEST_F(RuntimeDir, WithoutOneNoSocketIsSoughtForASession) {
    if (!LeaveRoot()) {
        GTEST_SKIP() << "this namespace has one user only";
    }
    HDC_CLIENT client = nullptr;
    HDC_SESSION session = nullptr;
    ASSERT_EQ(0, drvHdcClientCreate(&client, 1, 4, 0));
    ::testing::internal::CaptureStderr();
    // A sanitizer looks at the types of new objects with descriptors of its own.
    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, client, &session));
    {
        const ScopedLimit noDescriptor(RLIMIT_NOFILE, 0);
        errno = 0;
        EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, client, &session));
        EXPECT_EQ(ENOENT, errno);
    }

    EXPECT_EQ(NONE + std::string(NONE), ::testing::internal::GetCapturedStderr());
    EXPECT_EQ(nullptr, session);
}

TEST_F(RuntimeDir, LinkToNothingInItsPlaceIsAnError) {
    const TempDir directory;
    const std::string link = directory.Path("run");
    ASSERT_EQ(0, symlink("nothing", link.c_str()));

    EXPECT_FALSE(EnsureRuntimeDirectory(link));

    EXPECT_EQ(EEXIST, errno);
}

TEST_F(RuntimeDir, FileInItsPlaceIsAnError) {
    const TempDir directory;
    const std::string file = directory.Write("run", "");

    EXPECT_FALSE(EnsureRuntimeDirectory(file));

    EXPECT_EQ(ENOTDIR, errno);
}

TEST_F(RuntimeDir, SocketIsNamedAfterDeviceAndService) {
    EXPECT_EQ("/run/tiv/hdc_3_12.sock", SocketPath("/run/tiv", 3, 12));
}

}  // namespace
}  // namespace tiv::test
