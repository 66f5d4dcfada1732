// The checked allocators when a copy fails.
#include <gtest/gtest.h>

#include "common/memory_utils.h"
#include "support/failing_copy.h"
#include "support/failing_malloc.h"
#include "support/recorded_log.h"

namespace tiv::test {

TEST(IdeXmalloc, BlockThatCannotBeClearedIsGivenBack) {
    const long blocks = LiveMallocBlocks();
    const FailingCopy failing;

    EXPECT_EQ(IdeXmalloc(16), nullptr);

    EXPECT_EQ(LiveMallocBlocks(), blocks);
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "[IdeXmalloc]memory clear failed, err: 34"));
}

TEST(IdeXrmalloc, BlockThatTakesNoCopyIsGivenBack) {
    char old[4] = "abc";
    const long blocks = LiveMallocBlocks();
    const FailingCopy failing(1);

    EXPECT_EQ(IdeXrmalloc(old, sizeof(old), 16), nullptr);

    EXPECT_EQ(LiveMallocBlocks(), blocks);
    EXPECT_STREQ(old, "abc");
    EXPECT_TRUE(RecordedLog::Instance().Lines().empty());
}

}  // namespace tiv::test
