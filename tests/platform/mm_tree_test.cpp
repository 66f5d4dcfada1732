// Tests of directory lists and of the removal of trees.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/mm_api.h"
#include "platform/system_calls.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"
#include "support/scoped_limit.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::ScopedLimit;
using tiv::test::TempDir;

// Called once, before the next removal of an entry of this name.
struct Interruption {
    std::string name;
    std::function<void()> act;
} interruption;

bool Exists(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

}  // namespace

// The linker sends every unlinkat of the program here.
extern "C" int __real_unlinkat(int directory, const char* name, int flags);
extern "C" int __wrap_unlinkat(int directory, const char* name, int flags);

extern "C" int __wrap_unlinkat(int directory, const char* name, int flags) {
    if (interruption.act && interruption.name == name) {
        std::exchange(interruption.act, {})();
    }
    return __real_unlinkat(directory, name, flags);
}

namespace {

TEST(MmRmdir, FailsWithoutAReaderOfTheDirectoryAndLeavesNoDescriptor) {
    TempDir dir;
    const std::string tree = dir.MakeDir("tree");
    const int before = dup(STDERR_FILENO);
    close(before);
    tiv::test::refusal = ENOMEM;

    const int32_t result = mmRmdir(tree.c_str());
    tiv::test::refusal = 0;

    EXPECT_NE(0, result);
    EXPECT_EQ(ENOMEM, mmGetErrorCode());
    const int behind = dup(STDERR_FILENO);
    EXPECT_EQ(before, behind) << "the lowest descriptor is free again";
    close(behind);
    EXPECT_TRUE(Exists(tree));
}

TEST(MmRmdir, AsksForTypesThatTheFileSystemDoesNotTell) {
    TempDir dir;
    dir.MakeDir("tree/a");
    dir.Write("tree/a/f", "1");
    tiv::test::typesAreHidden = true;

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    tiv::test::typesAreHidden = false;
    EXPECT_FALSE(Exists(dir.Path("tree")));
}

TEST(MmRmdir, TakesWhatComesBehindTheLastEntryToo) {
    TempDir dir;
    dir.MakeDir("tree");
    tiv::test::beforeRmdir = [&dir] { dir.Write("tree/late", "1"); };

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
}

TEST(MmRmdir, ErrorIsThatOfTheDirectoryThatCannotBeOpened) {
    TempDir dir;
    dir.MakeDir("tree/a");
    dir.Write("tree/a/f", "1");
    const int next = dup(STDIN_FILENO);
    close(next);
    const ScopedLimit oneMore(RLIMIT_NOFILE, static_cast<rlim_t>(next) + 1);

    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));
    EXPECT_EQ(EMFILE, mmGetErrorCode());
}

TEST(MmRmdir, RemovesAWholeTree) {
    TempDir dir;
    dir.MakeDir("tree/a/b");
    dir.MakeDir("tree/empty");
    dir.Write("tree/f", "1");
    dir.Write("tree/a/b/f", "2");

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
    EXPECT_TRUE(Exists(dir.Path()));
}

TEST(MmRmdir, RemovesAnEmptyDirectory) {
    TempDir dir;
    dir.MakeDir("tree");

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
}

TEST(MmRmdir, RemovesALinkInTheTreeAndNotItsTarget) {
    TempDir dir;
    dir.MakeDir("kept");
    dir.Write("kept/f", "abc");
    dir.MakeDir("tree");
    ASSERT_EQ(0, symlink(dir.Path("kept").c_str(), dir.Path("tree/link").c_str()));

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
    EXPECT_EQ("abc", dir.Read("kept/f"));
}

TEST(MmRmdir, StopsInADirectoryThatIsMovedAway) {
    TempDir dir;
    dir.MakeDir("tree/a/b");
    dir.Write("tree/a/b/f", "1");
    dir.MakeDir("other");
    dir.Write("other/kept", "2");
    interruption = {
        "f",
        [&] { ASSERT_EQ(0, rename(dir.Path("tree/a/b").c_str(), dir.Path("other/b").c_str())); }};

    EXPECT_NE(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_EQ(EBUSY, errno);
    EXPECT_EQ("2", dir.Read("other/kept"));
}

TEST(MmRmdir, RefusesALinkToADirectory) {
    TempDir dir;
    dir.MakeDir("kept");
    dir.Write("kept/f", "abc");
    ASSERT_EQ(0, symlink(dir.Path("kept").c_str(), dir.Path("link").c_str()));

    EXPECT_NE(0, mmRmdir(dir.Path("link").c_str()));
    EXPECT_NE(0, mmRmdir(dir.Path("link/").c_str()));

    EXPECT_TRUE(Exists(dir.Path("link")));
    EXPECT_EQ("abc", dir.Read("kept/f"));
}

TEST(MmRmdir, RefusesAFileAndWhatIsMissing) {
    TempDir dir;
    dir.Write("f", "abc");

    EXPECT_NE(0, mmRmdir(dir.Path("f").c_str()));
    EXPECT_EQ(ENOTDIR, mmGetErrorCode());
    EXPECT_EQ("abc", dir.Read("f"));
    EXPECT_NE(0, mmRmdir(dir.Path("none").c_str()));
    EXPECT_EQ(ENOENT, mmGetErrorCode());
    EXPECT_NE(0, mmRmdir(""));
    EXPECT_NE(0, mmRmdir(nullptr));
}

TEST(MmRmdir, RefusesAPathThatEndsInDots) {
    TempDir dir;
    dir.MakeDir("tree/a");
    dir.Write("tree/f", "abc");

    EXPECT_NE(0, mmRmdir(dir.Path("tree/a/..").c_str()));
    EXPECT_NE(0, mmRmdir(dir.Path("tree/.").c_str()));

    EXPECT_EQ("abc", dir.Read("tree/f"));
}

TEST(MmRmdir, TakesAPathWithASlashAtItsEnd) {
    TempDir dir;
    dir.MakeDir("tree/a");

    EXPECT_EQ(0, mmRmdir(dir.Path("tree//").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
}

void MakeChain(const std::string& root, int depth) {
    ASSERT_EQ(0, mkdir(root.c_str(), 0700));
    int fd = open(root.c_str(), O_RDONLY | O_DIRECTORY);
    for (int i = 0; i < depth; ++i) {
        ASSERT_EQ(0, mkdirat(fd, "d", 0700));
        const int next = openat(fd, "d", O_RDONLY | O_DIRECTORY);
        close(fd);
        fd = next;
    }
    close(fd);
}

void* Remove(void* path) {
    EXPECT_EQ(0, mmRmdir(static_cast<const char*>(path)));
    return nullptr;
}

TEST(MmRmdir, RemovesAChainOfThousandsOnASmallStackWithFewDescriptors) {
    TempDir dir;
    std::string root = dir.Path("deep");
    MakeChain(root, 3000);
    const ScopedLimit few(RLIMIT_NOFILE, 64);
    const mmUserBlock block = {Remove, root.data()};
    mmThreadAttr attr = {};
    attr.threadStackFlag = 1;
    attr.stackSize = 131072;
    mmThread handle = 0;

    ASSERT_EQ(0, mmCreateTaskWithThreadAttr(&handle, &block, &attr));
    ASSERT_EQ(0, mmJoinTask(&handle));

    EXPECT_FALSE(Exists(root));
}

TEST(MmRmdir, RemovesAWideTree) {
    TempDir dir;
    for (int i = 0; i < 300; ++i) {
        dir.MakeDir("tree/" + std::to_string(i));
        dir.Write("tree/" + std::to_string(i) + "/f", "");
    }

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
}

TEST(MmRmdir, LeavesNoDescriptorOpen) {
    TempDir dir;
    dir.MakeDir("tree/a/b/c");
    const int before = dup(STDERR_FILENO);
    close(before);

    ASSERT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    const int after = dup(STDERR_FILENO);
    close(after);
    EXPECT_EQ(before, after);
}

std::vector<std::string> Names(mmDirent** list, int32_t count) {
    std::vector<std::string> names;
    for (int32_t i = 0; i < count; ++i) {
        names.emplace_back(list[i]->d_name);
    }
    return names;
}

int32_t ByName(const mmDirent** left, const mmDirent** right) {
    return strcmp((*left)->d_name, (*right)->d_name);
}

int32_t NoDots(const mmDirent* entry) { return entry->d_name[0] == '.' ? 0 : 1; }

TEST(MmScandir, ListsEveryEntryWithTheTwoDots) {
    TempDir dir;
    dir.Write("b", "");
    dir.MakeDir("a");
    mmDirent** list = nullptr;

    const int32_t count = mmScandir(dir.Path().c_str(), &list, nullptr, ByName);

    ASSERT_EQ(4, count);
    EXPECT_EQ((std::vector<std::string>{".", "..", "a", "b"}), Names(list, count));
    EXPECT_EQ(DT_DIR, list[2]->d_type);
    EXPECT_EQ(DT_REG, list[3]->d_type);
    mmScandirFree(list, count);
}

TEST(MmScandir, TellsALinkToADirectoryAsALink) {
    TempDir dir;
    dir.MakeDir("a");
    ASSERT_EQ(0, symlink(dir.Path("a").c_str(), dir.Path("link").c_str()));
    mmDirent** list = nullptr;

    const int32_t count = mmScandir(dir.Path().c_str(), &list, NoDots, ByName);

    ASSERT_EQ(2, count);
    EXPECT_EQ(DT_DIR, list[0]->d_type);
    EXPECT_EQ(DT_LNK, list[1]->d_type);
    mmScandirFree(list, count);
}

TEST(MmScandir, KeepsWhatTheFilterAccepts) {
    TempDir dir;
    dir.Write("b", "");
    dir.Write(".hidden", "");
    mmDirent** list = nullptr;

    const int32_t count = mmScandir(dir.Path().c_str(), &list, NoDots, nullptr);

    ASSERT_EQ(1, count);
    EXPECT_STREQ("b", list[0]->d_name);
    mmScandirFree(list, count);
}

TEST(MmScandir, HoldsTheLongestName) {
    TempDir dir;
    const std::string name(255, 'n');
    dir.Write(name, "");
    mmDirent** list = nullptr;

    const int32_t count = mmScandir(dir.Path().c_str(), &list, NoDots, nullptr);

    ASSERT_EQ(1, count);
    EXPECT_EQ(name, list[0]->d_name);
    mmScandirFree(list, count);
}

TEST(MmScandir, IsNegativeForWhatIsNoDirectory) {
    TempDir dir;
    dir.Write("f", "");
    mmDirent** list = nullptr;

    EXPECT_LT(mmScandir(dir.Path("none").c_str(), &list, nullptr, nullptr), 0);
    EXPECT_EQ(ENOENT, mmGetErrorCode());
    EXPECT_LT(mmScandir(dir.Path("f").c_str(), &list, nullptr, nullptr), 0);
    EXPECT_LT(mmScandir(nullptr, &list, nullptr, nullptr), 0);
    EXPECT_LT(mmScandir(dir.Path().c_str(), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(nullptr, list);
}

TEST(MmScandir, WithoutMemoryThereIsNoListAndNothingIsKept) {
    const TempDir dir;
    const std::string path = dir.Path();
    mmDirent** list = nullptr;
    int32_t count = -1;
    size_t failures = 0;
    while (count < 0 && failures < 50) {
        const long before = tiv::test::LiveMallocBlocks();
        const tiv::test::FailingMalloc failing(1, failures++);
        count = mmScandir(path.c_str(), &list, nullptr, nullptr);
        EXPECT_TRUE(count >= 0 || mmGetErrorCode() == ENOMEM);
        EXPECT_TRUE(count >= 0 || tiv::test::LiveMallocBlocks() == before);
        EXPECT_EQ(count >= 0, list != nullptr);
    }

    EXPECT_EQ(2, count);
    EXPECT_LT(3u, failures);  // the list and each of its entries
    mmScandirFree(list, count);
}

TEST(MmScandir, EntriesThatDoNotFitInMemoryAreAFailure) {
    const TempDir dir;
    const std::string path = dir.Path();
    mmDirent** list = nullptr;
    const tiv::test::FailingNew failing;

    EXPECT_LT(mmScandir(path.c_str(), &list, nullptr, nullptr), 0);

    EXPECT_EQ(ENOMEM, mmGetErrorCode());
    EXPECT_EQ(nullptr, list);
}

TEST(MmRmdir, WithoutMemoryNothingIsRemoved) {
    TempDir dir;
    const std::string tree = dir.MakeDir("tree");
    (void)dir.MakeDir("tree/inner");
    {
        const tiv::test::FailingNew failing(0, 1000);
        EXPECT_NE(0, mmRmdir(tree.c_str()));
        EXPECT_EQ(ENOMEM, mmGetErrorCode());
    }

    EXPECT_TRUE(Exists(dir.Path("tree/inner")));
}

TEST(MmScandirFree, TakesNull) {
    mmScandirFree(nullptr, 0);
    mmScandirFree(nullptr, 3);
    SUCCEED();
}

}  // namespace
