// The checked allocators, and the home directory.
#include "common/memory_utils.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "common/failing_libc.h"
#include "common/impl_utils.h"
#include "common/utils.h"
#include "support/failing_malloc.h"
#include "support/recorded_log.h"

// Under the sanitizers a request that cannot be met gives null, as it does without them.
extern "C" const char* __asan_default_options();
extern "C" const char* __tsan_default_options();
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }

namespace {

using analysis::rokt::common::utils::Utils;
using tiv::test::RecordedLog;

constexpr size_t IMPOSSIBLE_SIZE = SIZE_MAX / 4;

std::string Bytes(const void* block, size_t size) {
    return std::string(static_cast<const char*>(block), size);
}

TEST(IdeXmalloc, SizeZeroIsNull) {
    EXPECT_EQ(IdeXmalloc(0), nullptr);
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(IdeXmalloc, BlockIsZeroed) {
    void* const block = IdeXmalloc(64);

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, 64), std::string(64, '\0'));
    IdeXfree(block);
}

TEST(IdeXmalloc, ShortMemoryIsToldWithItsSize) {
    EXPECT_EQ(IdeXmalloc(IMPOSSIBLE_SIZE), nullptr);

    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E', "ran out of memory while trying to allocate 4611686018427387903 bytes"));
}

TEST(IdeXrmalloc, SizeZeroIsNull) {
    char old[4] = "abc";

    EXPECT_EQ(IdeXrmalloc(old, sizeof(old), 0), nullptr);
}

TEST(IdeXrmalloc, NullBlockGivesAFreshOne) {
    void* const block = IdeXrmalloc(nullptr, 10, 4);

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, 4), std::string(4, '\0'));
    IdeXfree(block);
}

TEST(IdeXrmalloc, GrowingKeepsTheContentAndTheOldBlock) {
    const char old[4] = {'a', 'b', 'c', 'd'};

    void* const block = IdeXrmalloc(old, sizeof(old), 8);

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, 8), std::string("abcd\0\0\0\0", 8));
    EXPECT_EQ(Bytes(old, 4), "abcd");
    IdeXfree(block);
}

TEST(IdeXrmalloc, ShrinkingCutsTheContent) {
    const char old[4] = {'a', 'b', 'c', 'd'};

    void* const block = IdeXrmalloc(old, sizeof(old), 2);

    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, 2), "ab");
    IdeXfree(block);
}

TEST(IdeXrmalloc, ShortMemoryIsNull) {
    const char old[1] = {'a'};

    EXPECT_EQ(IdeXrmalloc(old, sizeof(old), IMPOSSIBLE_SIZE), nullptr);
}

TEST(IdeXfree, NullIsAllowed) {
    IdeXfree(nullptr);

    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(ProfMalloc, BlockIsZeroedAndFreeingClearsThePointer) {
    void* block = Utils::ProfMalloc(16);
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(Bytes(block, 16), std::string(16, '\0'));

    Utils::ProfFree(block);

    EXPECT_EQ(block, nullptr);
}

TEST(ProfMalloc, FreeingGivesTheBlockBack) {
    const long before = tiv::test::LiveMallocBlocks();
    void* block = Utils::ProfMalloc(16);
    ASSERT_EQ(tiv::test::LiveMallocBlocks(), before + 1);

    Utils::ProfFree(block);

    EXPECT_EQ(tiv::test::LiveMallocBlocks(), before);
}

TEST(ProfMalloc, FailuresAreSilent) {
    EXPECT_EQ(Utils::ProfMalloc(0), nullptr);
    EXPECT_EQ(Utils::ProfMalloc(IMPOSSIBLE_SIZE), nullptr);
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(HomeDirectory, IsThatOfTheRealUser) {
    EXPECT_EQ(tiv::HomeDirectory(), getpwuid(getuid())->pw_dir);
}

TEST(HomeDirectory, IsEmptyForAnUnknownUser) {
    const tiv::test::HomeInDatabase unknown(nullptr);

    EXPECT_EQ(tiv::HomeDirectory(), "");
}

TEST(HomeDirectory, IsShorterThanTheLongestPath) {
    const std::string longest(4095, 'h');
    const std::string tooLong(4096, 'h');

    const tiv::test::HomeInDatabase home(longest.c_str());
    EXPECT_EQ(tiv::HomeDirectory(), longest);
    const tiv::test::HomeInDatabase other(tooLong.c_str());
    EXPECT_EQ(tiv::HomeDirectory(), "");
}

TEST(ExpandHome, OnlyTildeAndSlashInFrontAreReplaced) {
    const std::string home = tiv::HomeDirectory();

    EXPECT_EQ(tiv::ExpandHome("~/x"), home + "/x");
    EXPECT_EQ(tiv::ExpandHome("~x"), "~x");
    EXPECT_EQ(tiv::ExpandHome("/usr/local/profiler/"), "/usr/local/profiler/");
    EXPECT_EQ(tiv::ExpandHome(""), "");
}

}  // namespace
