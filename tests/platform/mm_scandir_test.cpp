// Tests of directory lists.
#include <dirent.h>
#include <errno.h>
#include <gtest/gtest.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "platform/mm_api.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::TempDir;

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

TEST(MmScandirFree, TakesNull) {
    mmScandirFree(nullptr, 0);
    mmScandirFree(nullptr, 3);
    SUCCEED();
}

}  // namespace
