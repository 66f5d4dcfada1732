// Tests of the removal of trees.
#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "platform/mm_api.h"
#include "platform/system_calls.h"
#include "support/failing_new.h"
#include "support/scoped_limit.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::ScopedLimit;
using tiv::test::TempDir;

// Called once, before the next removal of an entry of this name, which fails with `error` unless
// that is 0.
struct Interruption {
    std::string name;
    std::function<void()> act;
    int error = 0;
} interruption;

bool Exists(const std::string& path) {
    struct stat status = {};
    return lstat(path.c_str(), &status) == 0;
}

void Fill(const std::string& directory) {
    close(open((directory + "/late").c_str(), O_WRONLY | O_CREAT, 0600));
}

}  // namespace

// The linker sends every unlinkat of the program here.
extern "C" int __real_unlinkat(int directory, const char* name, int flags);
extern "C" int __wrap_unlinkat(int directory, const char* name, int flags);

extern "C" int __wrap_unlinkat(int directory, const char* name, int flags) {
    if (interruption.act && interruption.name == name) {
        std::exchange(interruption.act, {})();
        if (interruption.error != 0) {
            errno = interruption.error;
            return -1;
        }
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

TEST(MmRmdir, GivesUpOnADirectoryThatIsFilledAgainAndAgain) {
    TempDir dir;
    dir.MakeDir("tree");
    int fillings = 0;
    std::function<void()> fill = [&] {
        dir.Write("tree/late", "1");
        ++fillings;
        tiv::test::beforeRmdir = fill;
    };
    fill();

    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));

    tiv::test::beforeRmdir = {};
    EXPECT_EQ(ENOTEMPTY, mmGetErrorCode());
    EXPECT_EQ(1 + 16, fillings);
}

TEST(MmRmdir, GivesUpOnASubdirectoryThatIsFilledAgainAndAgain) {
    TempDir dir;
    dir.MakeDir("tree/d");
    int fillings = 0;
    std::function<void()> fill = [&] {
        if (fillings == 1000) {
            return;
        }
        dir.Write("tree/d/late", "1");
        ++fillings;
        interruption = {"d", fill};
    };
    fill();

    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));

    interruption = {};
    EXPECT_EQ(ENOTEMPTY, mmGetErrorCode());
    EXPECT_LT(fillings, 1000);
}

TEST(MmRmdir, GivesUpWhereDirectoriesAppearAgainAndAgain) {
    for (const std::string filled : {"tree/d", "tree/d/d"}) {
        TempDir dir;
        dir.MakeDir("tree/d/d");
        int fillings = 0;
        std::function<void()> fill = [&] {
            if (fillings == 1000) {
                return;
            }
            dir.MakeDir(filled + "/new");
            dir.Write(filled + "/new/late", "1");
            ++fillings;
            interruption = {"d", fill};
        };
        fill();

        EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str())) << filled;

        interruption = {};
        EXPECT_EQ(ENOTEMPTY, mmGetErrorCode()) << filled;
        EXPECT_LT(fillings, 1000) << filled;
    }
}

TEST(MmRmdir, GivesUpOnADirectoryThatGetsDirectoriesAgainAndAgain) {
    TempDir dir;
    dir.MakeDir("tree");
    int fillings = 0;
    std::function<void()> fill = [&] {
        if (fillings == 1000) {
            return;
        }
        dir.MakeDir("tree/new");
        dir.Write("tree/new/late", "1");
        ++fillings;
        tiv::test::beforeRmdir = fill;
    };
    fill();

    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));

    tiv::test::beforeRmdir = {};
    EXPECT_EQ(ENOTEMPTY, mmGetErrorCode());
    EXPECT_EQ(1 + 16, fillings);
}

TEST(MmRmdir, TakesManyDirectoriesThatAreFilledOnceMore) {
    constexpr int DEPTH = 20;
    TempDir dir;
    std::vector<std::string> chain = {dir.MakeDir("tree")};
    for (int i = 0; i < DEPTH; ++i) {
        chain.push_back(chain.back() + "/d");
        ASSERT_EQ(0, mkdir(chain.back().c_str(), 0700));
    }
    Fill(chain.back());
    int call = 0;
    std::function<void()> fill = [&] {
        // Once per directory on the way down; on the way up it is tried, found full and tried
        // again.
        if (call >= DEPTH && (call - DEPTH) % 3 == 0) {
            Fill(chain.back());
            chain.pop_back();
        }
        ++call;
        interruption = {"d", fill};
    };
    interruption = {"d", fill};

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    interruption = {};
    EXPECT_EQ(1u, chain.size());
}

TEST(MmRmdir, TakesManyNeighboursThatAreFilledOnceMore) {
    constexpr int NEIGHBOURS = 20;
    TempDir dir;
    const auto fillAll = [&dir] {
        for (int i = 0; i < NEIGHBOURS; ++i) {
            Fill(dir.Path("tree/" + std::to_string(i) + "/d"));
        }
    };
    for (int i = 0; i < NEIGHBOURS; ++i) {
        dir.MakeDir("tree/" + std::to_string(i) + "/d");
    }
    fillAll();
    int call = 0;
    std::function<void()> fill = [&] {
        // Each is tried and found full, emptied and tried, and the same once more.
        if (call++ % 4 == 1) {
            fillAll();
        }
        interruption = {"d", fill};
    };
    interruption = {"d", fill};

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    interruption = {};
    EXPECT_EQ(4 * NEIGHBOURS, call);
}

TEST(MmRmdir, EntryThatGoesByItselfIsNoFailure) {
    TempDir dir;
    dir.MakeDir("tree");
    dir.Write("tree/f", "1");
    interruption = {"f", [&dir] { EXPECT_EQ(0, unlink(dir.Path("tree/f").c_str())); }};

    EXPECT_EQ(0, mmRmdir(dir.Path("tree").c_str()));

    EXPECT_FALSE(Exists(dir.Path("tree")));
}

TEST(MmRmdir, EntryThatMayNotGoEndsTheWork) {
    for (const std::string entry : {"file", "directory"}) {
        TempDir dir;
        dir.MakeDir("tree/directory");
        dir.Write("tree/file", "1");
        interruption = {entry, [] {}, EPERM};

        EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));

        EXPECT_EQ(EPERM, mmGetErrorCode());
        EXPECT_TRUE(Exists(dir.Path("tree/" + entry)));
    }
}

TEST(MmRmdir, DirectoriesThatCannotBeToldApartStayWhereTheyAre) {
    TempDir dir;
    dir.MakeDir("tree/d");
    dir.Write("tree/d/f", "1");

    tiv::test::statToFail = 1;  // on the way down
    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));
    EXPECT_EQ(EIO, mmGetErrorCode());
    EXPECT_TRUE(Exists(dir.Path("tree/d/f")));

    tiv::test::statToFail = 2;  // on the way up
    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));
    EXPECT_EQ(EIO, mmGetErrorCode());
    EXPECT_TRUE(Exists(dir.Path("tree/d")));
}

TEST(MmRmdir, EntryWhoseTypeCannotBeHadIsTakenForAFile) {
    TempDir dir;
    dir.MakeDir("tree/d");
    tiv::test::typesAreHidden = true;
    tiv::test::statToFail = 1;

    EXPECT_EQ(-1, mmRmdir(dir.Path("tree").c_str()));

    tiv::test::typesAreHidden = false;
    EXPECT_EQ(EISDIR, mmGetErrorCode());
    EXPECT_TRUE(Exists(dir.Path("tree/d")));
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

TEST(MmRmdir, RefusesTheWorkingDirectory) {
    TempDir dir;
    dir.Write("f", "abc");
    ASSERT_EQ(0, chdir(dir.Path().c_str()));

    EXPECT_NE(0, mmRmdir("."));

    EXPECT_EQ(EINVAL, mmGetErrorCode());
    EXPECT_EQ("abc", dir.Read("f"));
    EXPECT_EQ(0, chdir("/"));
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

}  // namespace
