// Making, listing and removing directories.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>

#include "common/utils.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "support/temp_dir.h"

namespace analysis::rokt::common::utils {
namespace {

using tiv::test::FakeMm;
using tiv::test::RecordedLog;
using tiv::test::TempDir;
using Texts = std::vector<std::string>;

bool Logged(char level, const std::string& text) {
    return RecordedLog::Instance().Has(level, text);
}

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

Texts Sorted(Texts texts) {
    std::sort(texts.begin(), texts.end());
    return texts;
}

class UtilsDir : public testing::Test {
 protected:
    UtilsDir() {
        FakeMm::Instance().Reset();
        RecordedLog::Instance().Clear();
    }

    size_t Calls(const std::string& function) { return FakeMm::Instance().calls.Count(function); }
    bool Exists(const std::string& name) { return std::filesystem::exists(dir.Path(name)); }

    TempDir dir;
};

TEST_F(UtilsDir, ParentsAreMadeFirst) {
    EXPECT_EQ(Utils::CreateDir(dir.Path("a/b")), 0);

    EXPECT_TRUE(std::filesystem::is_directory(dir.Path("a/b")));
    EXPECT_EQ(
        RecordedLog::Instance().OwnTexts('I'),
        Texts({"CreateDir dir a with 750", "Success to mkdir, FilePath : a, FileMode : 750",
               "CreateDir dir b with 750", "Success to mkdir, FilePath : b, FileMode : 750"}));
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('D'),
              Texts({"The file already exists, " + Utils::BaseName(dir.Path())}));
}

TEST_F(UtilsDir, ModeIs0750WhateverTheUmask) {
    const mode_t before = umask(0077);

    EXPECT_EQ(Utils::CreateDir(dir.Path("a/b")), 0);
    umask(before);

    EXPECT_EQ(ModeOf(dir.Path("a")), 0750U);
    EXPECT_EQ(ModeOf(dir.Path("a/b")), 0750U);
}

TEST_F(UtilsDir, TrailingSlashIsTheSameDirectory) {
    EXPECT_EQ(Utils::CreateDir(dir.Path("a/b/")), 0);

    EXPECT_TRUE(std::filesystem::is_directory(dir.Path("a/b")));
}

TEST_F(UtilsDir, ExistingDirectoryIsLeftAsItIs) {
    ASSERT_EQ(chmod(dir.Path().c_str(), 0700), 0);

    EXPECT_EQ(Utils::CreateDir(dir.Path()), 0);

    EXPECT_EQ(ModeOf(dir.Path()), 0700U);
    EXPECT_EQ(Calls("mmMkdir"), 0U);
    EXPECT_EQ(Calls("mmChmod"), 0U);
    EXPECT_TRUE(Logged('D', "The file already exists, " + Utils::BaseName(dir.Path())));
}

TEST_F(UtilsDir, ExistingFileCountsAsMade) {
    dir.Write("file", "x");

    EXPECT_EQ(Utils::CreateDir(dir.Path("file")), 0);

    EXPECT_EQ(dir.Read("file"), "x");
}

TEST_F(UtilsDir, EmptyPathFails) { EXPECT_EQ(Utils::CreateDir(""), -1); }

TEST_F(UtilsDir, PathOf4096BytesFailsAtOnce) {
    EXPECT_EQ(Utils::CreateDir(std::string(4096, '/')), -1);
    EXPECT_EQ(Calls("mmAccess2"), 0U);

    EXPECT_EQ(Utils::CreateDir(std::string(4095, '/')), 0);
}

TEST_F(UtilsDir, HundredsOfComponentsAreMade) {
    std::string path = dir.Path();
    while (path.size() < 2000) {
        path += "/a";
    }

    EXPECT_EQ(Utils::CreateDir(path), 0);

    EXPECT_TRUE(std::filesystem::is_directory(path));
}

TEST_F(UtilsDir, DirectoryMadeMeanwhileIsNoFailure) {
    FakeMm::Instance().calls.Fail("mmMkdir", -1, EEXIST);

    EXPECT_EQ(Utils::CreateDir(dir.Path("a")), 0);

    EXPECT_TRUE(Logged('I', "Success to mkdir, FilePath : a, FileMode : 750"));
}

TEST_F(UtilsDir, RefusedDirectoryFailsTheCall) {
    FakeMm::Instance().calls.Fail("mmMkdir", -1, EACCES);

    EXPECT_EQ(Utils::CreateDir(dir.Path("a/b")), -1);

    EXPECT_EQ(Calls("mmMkdir"), 1U);
    EXPECT_EQ(Calls("mmChmod"), 0U);
}

TEST_F(UtilsDir, FailedChmodIsOnlyAWarning) {
    FakeMm::Instance().calls.Return("mmChmod", -1);

    EXPECT_EQ(Utils::CreateDir(dir.Path("a")), 0);

    EXPECT_TRUE(Logged('W', "Chmod : a unsuccessfully"));
    EXPECT_TRUE(Logged('I', "Success to mkdir, FilePath : a, FileMode : 750"));
}

TEST_F(UtilsDir, FailedSplitFailsTheCall) {
    FakeMm::Instance().mmDirName = [](char*) -> char* { return nullptr; };

    EXPECT_EQ(Utils::CreateDir(dir.Path("a")), -1);

    EXPECT_TRUE(Logged('E', "Split path failed"));
    EXPECT_EQ(Calls("mmMkdir"), 0U);
}

TEST_F(UtilsDir, ClimbEndsWhenNothingExists) {
    FakeMm::Instance().mmAccess2 = [](const char*, int32_t) { return -1; };

    EXPECT_EQ(Utils::CreateDir("/a/b"), -1);

    EXPECT_EQ(Calls("mmMkdir"), 0U);
}

TEST_F(UtilsDir, RemovalOfTheDirectoryTakesItsTree) {
    ASSERT_EQ(Utils::CreateDir(dir.Path("a/b/c")), 0);
    dir.Write("a/b/file", "x");

    Utils::RemoveDir(dir.Path("a"), true);

    EXPECT_FALSE(Exists("a"));
    EXPECT_TRUE(Logged('I', "RemoveDir dir a"));
}

TEST_F(UtilsDir, RemovalOfTheContentKeepsTheDirectory) {
    ASSERT_EQ(Utils::CreateDir(dir.Path("a/b/c")), 0);
    dir.Write("a/file", "x");
    dir.Write("a/.hidden", "x");

    Utils::RemoveDir(dir.Path("a"), false);

    EXPECT_TRUE(Exists("a"));
    EXPECT_TRUE(std::filesystem::is_empty(dir.Path("a")));
}

TEST_F(UtilsDir, RemovalOfTheContentAcceptsATrailingSlash) {
    ASSERT_EQ(Utils::CreateDir(dir.Path("a/b")), 0);

    Utils::RemoveDir(dir.Path("a/"), false);

    EXPECT_TRUE(std::filesystem::is_empty(dir.Path("a")));
}

TEST_F(UtilsDir, LinksAreRemovedAndNotFollowed) {
    ASSERT_EQ(Utils::CreateDir(dir.Path("kept")), 0);
    ASSERT_EQ(Utils::CreateDir(dir.Path("a/b")), 0);
    dir.Write("kept/file", "x");
    ASSERT_EQ(symlink(dir.Path("kept").c_str(), dir.Path("a/link").c_str()), 0);
    ASSERT_EQ(symlink(dir.Path("kept").c_str(), dir.Path("a/b/link").c_str()), 0);

    Utils::RemoveDir(dir.Path("a"), false);

    EXPECT_TRUE(std::filesystem::is_empty(dir.Path("a")));
    EXPECT_TRUE(Exists("kept/file"));
}

TEST_F(UtilsDir, EmptyPathAndRootAreNeverRemoved) {
    Utils::RemoveDir("", true);
    Utils::RemoveDir("/", true);
    Utils::RemoveDir("/", false);

    EXPECT_EQ(RecordedLog::Instance().Count('E', "empty compare failed."), 3U);
    EXPECT_EQ(RecordedLog::Instance().CountOf('I'), 0U);
    EXPECT_EQ(Calls("mmRmdir"), 0U);
    EXPECT_EQ(Calls("mmScandir"), 0U);
}

TEST_F(UtilsDir, FailedRemovalIsAWarningWithTheErrorCode) {
    FakeMm::Instance().calls.Fail("mmRmdir", -1, EBUSY);

    Utils::RemoveDir(dir.Path("a"), true);

    EXPECT_TRUE(Logged('W', "OsalRmdir failed a. ErrorCode : 16"));
}

TEST_F(UtilsDir, FailedListingIsAWarningWithTheErrorCode) {
    Utils::RemoveDir(dir.Path("missing"), false);

    EXPECT_TRUE(Logged('W', "OsalScandir failed missing. ErrorCode : 2"));
}

TEST_F(UtilsDir, EntriesAreListedAsFullPaths) {
    ASSERT_EQ(Utils::CreateDir(dir.Path("sub/deeper")), 0);
    dir.Write("one", "");
    dir.Write("two", "");

    EXPECT_EQ(Sorted(Utils::GetFiles(dir.Path())), Texts({dir.Path("one"), dir.Path("two")}));
    EXPECT_EQ(Utils::GetChildDirs(dir.Path()), Texts({dir.Path("sub")}));
}

TEST_F(UtilsDir, MissingDirectoryHasNoEntries) {
    EXPECT_EQ(Utils::GetFiles(dir.Path("missing")), Texts());
    EXPECT_EQ(Utils::GetChildDirs(dir.Path("missing")), Texts());
}

}  // namespace
}  // namespace analysis::rokt::common::utils
