// Paths and record files.
#include <gtest/gtest.h>
#include <unistd.h>

#include "common/failing_libc.h"
#include "common/utils.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"

namespace analysis::rokt::common::utils {
namespace {

using tiv::test::FailingCall;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;
using tiv::test::TempDir;

bool Logged(char level, const std::string& text) {
    return RecordedLog::Instance().Has(level, text);
}

class UtilsPath : public testing::Test {
 protected:
    UtilsPath() {
        FakeMm::Instance().Reset();
        RecordedLog::Instance().Clear();
    }

    TempDir dir;
};

TEST_F(UtilsPath, DirectoriesAreToldFromFiles) {
    dir.Write("file", "x");

    EXPECT_TRUE(Utils::IsDir(dir.Path()));
    EXPECT_FALSE(Utils::IsDir(dir.Path("file")));
    EXPECT_FALSE(Utils::IsDir(dir.Path("missing")));
    EXPECT_FALSE(Utils::IsDir(""));
}

TEST_F(UtilsPath, ExistenceIsThatOfAnyEntry) {
    dir.Write("file", "x");

    EXPECT_TRUE(Utils::IsFileExist(dir.Path("file")));
    EXPECT_TRUE(Utils::IsFileExist(dir.Path()));
    EXPECT_FALSE(Utils::IsFileExist(dir.Path("missing")));
    EXPECT_FALSE(Utils::IsFileExist(""));
}

TEST_F(UtilsPath, AccessibleDirectoryIsSilent) {
    EXPECT_TRUE(Utils::IsDirAccessible(dir.Path()));
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0U);
}

TEST_F(UtilsPath, FileIsNoAccessibleDirectory) {
    dir.Write("file", "x");

    EXPECT_FALSE(Utils::IsDirAccessible(dir.Path("file")));

    EXPECT_TRUE(Logged('E', "Path file is not a dir"));
}

TEST_F(UtilsPath, DirectoryWithoutWritePermissionIsNotAccessible) {
    FakeMm::Instance().mmAccess2 = [](const char*, int32_t mode) { return mode == W_OK ? -1 : 0; };

    EXPECT_FALSE(Utils::IsDirAccessible("/usr/lib"));

    EXPECT_TRUE(Logged('E', "No access to dir lib"));
}

TEST_F(UtilsPath, LinkIsToldByItsInode) {
    dir.Write("file", "x");
    ASSERT_EQ(symlink(dir.Path("file").c_str(), dir.Path("link").c_str()), 0);

    EXPECT_FALSE(Utils::IsSoftLink(dir.Path("file")));
    EXPECT_TRUE(Utils::IsSoftLink(dir.Path("link")));
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0U);
}

TEST_F(UtilsPath, MissingPathCountsAsALink) {
    EXPECT_TRUE(Utils::IsSoftLink(dir.Path("missing")));

    EXPECT_TRUE(Logged('E', "stat missing fail, ret=-1 errno=2"));
}

TEST_F(UtilsPath, SplitGivesDirectoryAndBaseName) {
    std::string parent;
    std::string base;

    EXPECT_EQ(Utils::SplitPath("/a/b/c", parent, base), 0);

    EXPECT_EQ(parent, "/a/b");
    EXPECT_EQ(base, "c");
}

TEST_F(UtilsPath, FailedSplitIsTold) {
    FakeMm::Instance().mmDirName = [](char*) -> char* { return nullptr; };
    std::string parent = "kept";
    std::string base = "kept";

    EXPECT_EQ(Utils::SplitPath("/a/b", parent, base), -1);

    EXPECT_EQ(parent, "kept");
    EXPECT_EQ(base, "kept");
    EXPECT_TRUE(Logged('E', "OsalDirName or OsalBaseName failed"));
}

TEST_F(UtilsPath, NamesOfTheHalves) {
    EXPECT_EQ(Utils::BaseName("/a/b"), "b");
    EXPECT_EQ(Utils::BaseName("/a/b/"), "b");
    EXPECT_EQ(Utils::BaseName("b"), "b");
    EXPECT_EQ(Utils::BaseName(""), "");
    EXPECT_EQ(Utils::DirName("/a/b"), "/a");
    EXPECT_EQ(Utils::DirName("b"), ".");
    EXPECT_EQ(Utils::DirName(""), "");
}

TEST_F(UtilsPath, SlashIsAppendedOnce) {
    EXPECT_EQ(Utils::AppendSlash("/a"), "/a/");
    EXPECT_EQ(Utils::AppendSlash("/a/"), "/a/");
    EXPECT_EQ(Utils::AppendSlash(""), "");
    EXPECT_EQ(Utils::JoinPath("/proc", "123"), "/proc/123");
    EXPECT_EQ(Utils::JoinPath("/proc/", "123"), "/proc/123");
}

TEST_F(UtilsPath, RelativePathIsWhatFollowsTheDirectory) {
    std::string out;

    EXPECT_EQ(Utils::RelativePath("/var/log/5/data/x", "/var/log/5", out), 0);
    EXPECT_EQ(out, "data/x");
    EXPECT_EQ(Utils::RelativePath("d/\\/\\x/y", "d", out), 0);
    EXPECT_EQ(out, "x/y");
    EXPECT_EQ(Utils::RelativePath("/data/x", "", out), 0);
    EXPECT_EQ(out, "data/x");
}

TEST_F(UtilsPath, DirectoryThatIsNotInThePathLeavesTheResultAlone) {
    std::string out = "kept";

    EXPECT_EQ(Utils::RelativePath("/secret/file", "/other/place", out), -1);

    EXPECT_EQ(out, "kept");
    EXPECT_TRUE(Logged('E', "Failed to find \"place\" from \"file\""));
}

TEST_F(UtilsPath, CanonicalPathHasNoLinksAndDots) {
    dir.Write("file", "x");
    ASSERT_EQ(symlink("file", dir.Path("link").c_str()), 0);
    const std::string real = Utils::CanonicalizePath(dir.Path());

    EXPECT_EQ(Utils::CanonicalizePath(dir.Path("./link")), real + "/file");

    EXPECT_TRUE(Logged('I', "Input path:link, canonicalized path:file"));
}

TEST_F(UtilsPath, MissingPathHasNoCanonicalForm) {
    FakeMm::Instance().calls.Return("mmRealPath", -1);

    EXPECT_EQ(Utils::CanonicalizePath(dir.Path("missing")), "");

    EXPECT_TRUE(Logged('E', "OsalRealPath ret=-1."));
}

TEST_F(UtilsPath, FileSizeIsInBytes) {
    dir.Write("file", "12345");

    EXPECT_EQ(Utils::GetFileSize(dir.Path("file")), 5);
    EXPECT_EQ(Utils::GetFileSize(dir.Path("missing")), -1);
}

TEST_F(UtilsPath, RecordsAreAppended) {
    EXPECT_EQ(Utils::WriteFile(dir.Path("record"), "one\n"), 0);
    EXPECT_EQ(Utils::WriteFile(dir.Path("record"), "two\n"), 0);

    EXPECT_EQ(dir.Read("record"), "one\ntwo\n");
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0U);
}

TEST_F(UtilsPath, RecordThatCannotBeOpenedIsTold) {
    EXPECT_EQ(Utils::WriteFile(dir.Path("missing/record"), "x"), -1);

    EXPECT_TRUE(Logged('E', "Failed to open record"));
}

TEST_F(UtilsPath, RecordThatCannotBeWrittenIsTold) {
    EXPECT_EQ(Utils::WriteFile("/dev/full", "x"), -1);

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              std::vector<std::string>({"Failed to write prof dir"}));
}

TEST_F(UtilsPath, LinkThatCannotBeExaminedCountsAsALink) {
    dir.Write("file", "x");
    const FailingCall failing("lstat");

    EXPECT_TRUE(Utils::IsSoftLink(dir.Path("file")));

    EXPECT_TRUE(Logged('E', "lstat file fail, ret=-1 errno=5"));
}

TEST_F(UtilsPath, SplitWithoutMemoryIsTold) {
    std::string parent;
    std::string base;
    {
        const FailingCall firstHalf("strdup");
        EXPECT_EQ(Utils::SplitPath("/a/b", parent, base), -1);
    }
    const FailingCall secondHalf("strdup", 1, 1);

    EXPECT_EQ(Utils::SplitPath("/a/b", parent, base), -1);

    EXPECT_EQ(RecordedLog::Instance().Count('E', "QTRX_STRDUP failed"), 2U);
}

TEST_F(UtilsPath, RecordWithoutDescriptorIsTold) {
    const FailingCall failing("fileno");

    EXPECT_EQ(Utils::WriteFile(dir.Path("record"), "x"), -1);

    EXPECT_TRUE(Logged('E', "Failed to get file description for record"));
}

TEST_F(UtilsPath, RecordThatCannotBeLockedIsNotWritten) {
    const FailingCall failing("flock");

    EXPECT_EQ(Utils::WriteFile(dir.Path("record"), "x"), -1);

    EXPECT_EQ(dir.Read("record"), "");
    EXPECT_TRUE(Logged('E', "Failed to get file lock"));
}

TEST_F(UtilsPath, LockIsReleasedAtTheSecondAttempt) {
    const FailingCall failing("flock", 1, 1);

    EXPECT_EQ(Utils::WriteFile(dir.Path("record"), "x"), 0);

    EXPECT_EQ(dir.Read("record"), "x");
}

TEST_F(UtilsPath, LockThatIsNotReleasedInTwoAttemptsIsTold) {
    const FailingCall failing("flock", 2, 1);

    EXPECT_EQ(Utils::WriteFile(dir.Path("record"), "x"), -1);

    EXPECT_TRUE(Logged('E', "Failed to release file lock"));
}

TEST_F(UtilsPath, UnknownOwnProgramIsAWarning) {
    const FailingCall failing("readlink", 2);

    EXPECT_EQ(Utils::GetSelfPath(), "");

    EXPECT_EQ(tiv::test::LinksRead(),
              (std::vector<std::string>{"/proc/self/exe", "/local/proc/self/exe"}));
    EXPECT_TRUE(Logged('W', "Can't Get self bin directory"));
}

TEST_F(UtilsPath, OwnProgramIsFound) {
    const std::string path = Utils::GetSelfPath();

    EXPECT_EQ(Utils::BaseName(path), "test_common");
    EXPECT_TRUE(Logged('I', "Get self bin directory len: " + std::to_string(path.size())));
}

}  // namespace
}  // namespace analysis::rokt::common::utils
