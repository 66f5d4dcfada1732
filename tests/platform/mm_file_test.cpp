// Tests of files, paths and error texts.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "platform/mm_api.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::TempDir;

mode_t ModeOf(const std::string& path) {
    struct stat status = {};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    return status.st_mode & 07777;
}

TEST(MmUmask, SetsTheMaskAndGivesTheOneBefore) {
    const mode_t before = umask(0077);

    EXPECT_EQ(0077U, mmUmask(0022));
    EXPECT_EQ(0022U, umask(before));
}

TEST(MmOpen2, MakesAFileWithItsModeAndKeepsWhatIsThere) {
    TempDir dir;
    const std::string path = dir.Path("lock");

    const int32_t fd = mmOpen2(path.c_str(), 65, 0600);
    ASSERT_GE(fd, 0);
    EXPECT_EQ(3, write(fd, "abc", 3));
    EXPECT_EQ(0, mmClose(fd));
    EXPECT_EQ(0600U, ModeOf(path));

    const int32_t again = mmOpen2(path.c_str(), 65, 0600);
    EXPECT_EQ(0, mmClose(again));
    EXPECT_EQ("abc", dir.Read("lock"));
}

TEST(MmOpen2, IsNegativeForAMissingPath) {
    TempDir dir;

    EXPECT_LT(mmOpen2(dir.Path("none").c_str(), O_RDONLY, 0), 0);
    EXPECT_EQ(ENOENT, mmGetErrorCode());
    EXPECT_LT(mmOpen2(nullptr, O_RDONLY, 0), 0);
}

TEST(MmClose, FailsForAClosedDescriptor) {
    EXPECT_NE(0, mmClose(-1));
    EXPECT_EQ(EBADF, mmGetErrorCode());
}

TEST(MmRealPath, ResolvesLinksAndDots) {
    TempDir dir;
    dir.MakeDir("real/inner");
    ASSERT_EQ(0, symlink(dir.Path("real").c_str(), dir.Path("link").c_str()));
    char out[PATH_MAX] = {};

    EXPECT_EQ(0, mmRealPath(dir.Path("link/./inner/../inner").c_str(), out, sizeof(out)));

    EXPECT_EQ(dir.Path("real/inner"), out);
}

TEST(MmRealPath, FailsForAMissingPath) {
    TempDir dir;
    char out[PATH_MAX] = {};

    EXPECT_NE(0, mmRealPath(dir.Path("none").c_str(), out, sizeof(out)));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
}

TEST(MmRealPath, FailsWhenTheAnswerDoesNotFit) {
    TempDir dir;
    std::string out(dir.Path().size(), 'x');
    std::string room(dir.Path().size() + 1, 'x');

    EXPECT_NE(0, mmRealPath(dir.Path().c_str(), out.data(), static_cast<int32_t>(out.size())));
    EXPECT_EQ(std::string(dir.Path().size(), 'x'), out);
    EXPECT_EQ(0, mmRealPath(dir.Path().c_str(), room.data(), static_cast<int32_t>(room.size())));
    EXPECT_STREQ(dir.Path().c_str(), room.c_str());
}

TEST(MmRealPath, KeepsNoMemory) {
    const TempDir dir;
    char out[PATH_MAX];
    ASSERT_EQ(0, mmRealPath(dir.Path().c_str(), out, sizeof(out)));
    const size_t before = mallinfo2().uordblks;

    for (int i = 0; i < 10; ++i) {
        EXPECT_EQ(0, mmRealPath(dir.Path().c_str(), out, sizeof(out)));
    }

    EXPECT_EQ(before, mallinfo2().uordblks);
}

TEST(MmRealPath, RefusesNull) {
    char out[8] = {};

    EXPECT_NE(0, mmRealPath(nullptr, out, sizeof(out)));
    EXPECT_NE(0, mmRealPath("/", nullptr, 8));
    EXPECT_NE(0, mmRealPath("/", out, 0));
}

TEST(MmSACleanup, Succeeds) { EXPECT_EQ(0, mmSACleanup()); }

TEST(MmGetErrorCode, IsErrnoOfTheThread) {
    errno = EDOM;

    EXPECT_EQ(EDOM, mmGetErrorCode());
}

TEST(MmGetErrorFormatMessage, WritesTheSystemsText) {
    char text[128] = {};

    EXPECT_EQ(text, mmGetErrorFormatMessage(EINTR, text, sizeof(text)));

    EXPECT_STREQ("Interrupted system call", text);
}

TEST(MmGetErrorFormatMessage, NamesAnUnknownNumber) {
    char text[128] = {};

    EXPECT_EQ(text, mmGetErrorFormatMessage(12345, text, sizeof(text)));

    EXPECT_STREQ("Unknown error 12345", text);
}

TEST(MmGetErrorFormatMessage, CutsToTheBuffer) {
    char text[6] = {};

    EXPECT_EQ(text, mmGetErrorFormatMessage(EINTR, text, sizeof(text)));
    EXPECT_STREQ("Inter", text);
    EXPECT_EQ(nullptr, mmGetErrorFormatMessage(EINTR, nullptr, 6));
    EXPECT_EQ(nullptr, mmGetErrorFormatMessage(EINTR, text, 0));
}

TEST(MmMkdir, TellsApartWhatExists) {
    TempDir dir;

    EXPECT_EQ(0, mmMkdir(dir.Path("a").c_str(), 0750));
    EXPECT_NE(0, mmMkdir(dir.Path("a").c_str(), 0750));
    EXPECT_EQ(EEXIST, mmGetErrorCode());
    EXPECT_NE(0, mmMkdir(dir.Path("none/a").c_str(), 0750));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
}

TEST(MmChmod, SetsTheMode) {
    TempDir dir;
    dir.Write("f", "");

    EXPECT_EQ(0, mmChmod(dir.Path("f").c_str(), 0640));

    EXPECT_EQ(0640U, ModeOf(dir.Path("f")));
    EXPECT_NE(0, mmChmod(dir.Path("none").c_str(), 0640));
}

TEST(MmChdir, MovesTheProcess) {
    TempDir dir;
    char here[PATH_MAX] = {};

    ASSERT_EQ(0, mmChdir(dir.Path().c_str()));
    ASSERT_NE(nullptr, getcwd(here, sizeof(here)));
    ASSERT_EQ(0, chdir("/"));

    EXPECT_EQ(dir.Path(), here);
    EXPECT_NE(0, mmChdir(dir.Path("none").c_str()));
}

TEST(MmUnlink, RemovesTheLinkAndNotItsTarget) {
    TempDir dir;
    dir.Write("f", "abc");
    ASSERT_EQ(0, symlink(dir.Path("f").c_str(), dir.Path("link").c_str()));

    EXPECT_EQ(0, mmUnlink(dir.Path("link").c_str()));

    EXPECT_EQ("abc", dir.Read("f"));
    EXPECT_NE(0, mmUnlink(dir.Path("link").c_str()));
}

TEST(MmIsDir, IsZeroForADirectoryOnly) {
    TempDir dir;
    dir.Write("f", "");

    EXPECT_EQ(0, mmIsDir(dir.Path().c_str()));
    EXPECT_NE(0, mmIsDir(dir.Path("f").c_str()));
    EXPECT_NE(0, mmIsDir(dir.Path("none").c_str()));
}

TEST(MmIsDir, DoesNotFollowALink) {
    TempDir dir;
    dir.MakeDir("d");
    ASSERT_EQ(0, symlink(dir.Path("d").c_str(), dir.Path("link").c_str()));

    EXPECT_NE(0, mmIsDir(dir.Path("link").c_str()));
}

TEST(MmAccess2, AsksForTheMode) {
    TempDir dir;
    dir.Write("f", "");

    EXPECT_EQ(0, mmAccess2(dir.Path("f").c_str(), F_OK));
    EXPECT_EQ(0, mmAccess2(dir.Path("f").c_str(), R_OK));
    EXPECT_NE(0, mmAccess2(dir.Path("f").c_str(), X_OK));
    EXPECT_NE(0, mmAccess2(dir.Path("none").c_str(), F_OK));
}

TEST(MmStatGet, FollowsALink) {
    TempDir dir;
    dir.Write("f", "abc");
    ASSERT_EQ(0, symlink(dir.Path("f").c_str(), dir.Path("link").c_str()));
    struct stat status = {};

    EXPECT_EQ(0, mmStatGet(dir.Path("link").c_str(), &status));

    EXPECT_TRUE(S_ISREG(status.st_mode));
    EXPECT_NE(0, mmStatGet(dir.Path("none").c_str(), &status));
}

TEST(MmGetFileSize, IsTheSizeInBytes) {
    TempDir dir;
    uint64_t size = 7;

    EXPECT_EQ(0, mmGetFileSize(dir.Write("f", "abc").c_str(), &size));
    EXPECT_EQ(3U, size);
    EXPECT_NE(0, mmGetFileSize(dir.Path("none").c_str(), &size));
    EXPECT_NE(0, mmGetFileSize(dir.Path("f").c_str(), nullptr));
}

TEST(MmGetFileSize, IsZeroForAFileOfProc) {
    uint64_t size = 7;

    EXPECT_EQ(0, mmGetFileSize("/proc/stat", &size));

    EXPECT_EQ(0U, size);
}

TEST(MmDirName, IsThePathOfTheDirectory) {
    char path[] = "/a/b/c";
    char bare[] = "c";
    char root[] = "/";

    EXPECT_STREQ("/a/b", mmDirName(path));
    EXPECT_STREQ(".", mmDirName(bare));
    EXPECT_STREQ("/", mmDirName(root));
}

TEST(MmBaseName, IsTheLastPart) {
    char path[] = "/a/b/c";
    char slash[] = "/a/b/";
    char bare[] = "c";

    EXPECT_STREQ("c", mmBaseName(path));
    EXPECT_STREQ("b", mmBaseName(slash));
    EXPECT_STREQ("c", mmBaseName(bare));
}

TEST(MmFile, RefusesNullPaths) {
    struct stat status = {};

    EXPECT_NE(0, mmMkdir(nullptr, 0750));
    EXPECT_NE(0, mmChmod(nullptr, 0750));
    EXPECT_NE(0, mmChdir(nullptr));
    EXPECT_NE(0, mmUnlink(nullptr));
    EXPECT_NE(0, mmIsDir(nullptr));
    EXPECT_NE(0, mmAccess2(nullptr, F_OK));
    EXPECT_NE(0, mmStatGet(nullptr, &status));
    EXPECT_NE(0, mmStatGet("/", nullptr));
}

}  // namespace
