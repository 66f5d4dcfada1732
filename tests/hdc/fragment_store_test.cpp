// The store behind a read, on its own.
#include "hdc/fragment_store.h"

#include <gmock/gmock.h>

#include "hdc/hdc_fixture.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using testing::ElementsAre;

class FragmentStoring : public HdcFixture {
 protected:
    bool Store(const std::string& fragment) {
        return store.Store(fragment.data(), fragment.size());
    }

    FragmentStore store;
    void* buffer = nullptr;
    uint32_t length = 99;
};

TEST_F(FragmentStoring, MergeHandsOutTheJoinedPayloadsOnce) {
    ASSERT_TRUE(Store(Fragment("ab", false)));
    ASSERT_TRUE(Store(Fragment("cd", true)));

    ASSERT_EQ(store.Merge(&buffer, &length), 0);
    EXPECT_EQ(std::string(static_cast<char*>(buffer), length), "abcd");
    IdeXfree(buffer);

    EXPECT_EQ(store.Merge(&buffer, &length), -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("bufLen is nullptr"));
}

TEST_F(FragmentStoring, MergeOfNothingAsksForTheLengthFirstAndForTheBufferLast) {
    EXPECT_EQ(store.Merge(nullptr, nullptr), -1);
    EXPECT_EQ(store.Merge(nullptr, &length), -1);
    EXPECT_EQ(store.Merge(&buffer, &length), -1);

    EXPECT_THAT(log.Texts('E'),
                ElementsAre("recvLen is nullptr", "bufLen is nullptr", "bufLen is nullptr"));
    EXPECT_EQ(length, 99U);
}

TEST_F(FragmentStoring, MergeOfSomethingRefusesNullOutputs) {
    ASSERT_TRUE(Store(Fragment("ab", true)));

    EXPECT_EQ(store.Merge(&buffer, nullptr), -1);
    EXPECT_EQ(store.Merge(nullptr, &length), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("recvLen is nullptr", "recvBuf is nullptr"));
    EXPECT_EQ(buffer, nullptr);
    EXPECT_EQ(length, 99U);
}

TEST_F(FragmentStoring, RefusedMergeLeavesNothingBehind) {
    const long blocks = LiveMallocBlocks();
    {
        FragmentStore own;
        const std::string fragment = Fragment("ab", true);
        ASSERT_TRUE(own.Store(fragment.data(), fragment.size()));
        EXPECT_EQ(own.Merge(nullptr, &length), -1);
    }

    EXPECT_EQ(LiveMallocBlocks(), blocks);
}

TEST_F(FragmentStoring, PassLengthCountsFromTheBeginOfAPass) {
    ASSERT_TRUE(Store(Fragment("abc", false)));
    EXPECT_EQ(store.PassLength(), 3U);

    store.BeginPass();
    EXPECT_EQ(store.PassLength(), 0U);
    ASSERT_TRUE(Store(Fragment("de", true)));
    EXPECT_EQ(store.PassLength(), 2U);
}

}  // namespace tiv::test
