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

    // Whether the first of several fragments makes room for `room` bytes after a long buffer.
    bool ReservesAfter(size_t longLength, size_t room) {
        EXPECT_TRUE(Store(Fragment(Pattern(longLength - 1), false)));
        EXPECT_TRUE(Store(Fragment("z", true)));
        EXPECT_EQ(store.Merge(&buffer, &length), 0);
        IdeXfree(buffer);
        return MallocsOfFirstFragment(room) == 1 && MallocsOfFirstFragment(room + 1) == 0;
    }
    // Its allocations of at least so many bytes.
    size_t MallocsOfFirstFragment(size_t bytes) {
        const std::string first = Fragment("a", false);
        WatchMallocs(bytes);
        EXPECT_TRUE(store.Store(first.data(), first.size()));
        const size_t mallocs = WatchedMallocs();
        WatchMallocs(0);
        store.Clear();
        return mallocs;
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

TEST_F(FragmentStoring, ReserveThatIsRefusedLeavesTheBytesTheirRoom) {
    const std::string first = Pattern(3000);
    const std::string second = Pattern(1000);
    ASSERT_TRUE(Store(Fragment(first, false)));
    const FailingMalloc failing(5000);

    ASSERT_TRUE(Store(Fragment(second, true)));

    EXPECT_EQ(failing.Failed(), 1U);
    ASSERT_EQ(store.Merge(&buffer, &length), 0);
    EXPECT_TRUE(std::string(static_cast<char*>(buffer), length) == first + second);
    IdeXfree(buffer);
    EXPECT_EQ(log.CountOf('E'), 0U);
}

TEST_F(FragmentStoring, BytesThatFindNoRoomAreNamed) {
    ASSERT_TRUE(Store(Fragment(Pattern(3000), false)));
    const FailingMalloc failing(4000, 0, 2);
    const std::string second = Fragment(Pattern(1000), true);

    EXPECT_FALSE(store.Store(second.data(), second.size()));

    EXPECT_EQ(failing.Failed(), 2U);
    EXPECT_THAT(log.Texts('E'), ElementsAre("ran out of memory while trying to allocate 4000 bytes",
                                            "Ide Xrmalloc Failed"));
}

TEST_F(FragmentStoring, BufferThatCannotBeCutToItsSizeIsHandedOutAsItIs) {
    const std::string first = Pattern(70000);
    ASSERT_TRUE(Store(Fragment(first, false)));
    ASSERT_TRUE(Store(Fragment("abc", true)));
    const FailingMalloc failing(70003);

    ASSERT_EQ(store.Merge(&buffer, &length), 0);

    EXPECT_EQ(failing.Failed(), 1U);
    EXPECT_TRUE(std::string(static_cast<char*>(buffer), length) == first + "abc");
    IdeXfree(buffer);
}

TEST_F(FragmentStoring, LongBufferReservesItsLengthTheNextTimeUpToALimit) {
    constexpr size_t UNIT = 65536;
    constexpr size_t LIMIT = 16777216;

    EXPECT_TRUE(ReservesAfter(2 * UNIT - 1, 2 * UNIT));
    EXPECT_TRUE(ReservesAfter(2 * UNIT, 2 * UNIT));
    EXPECT_TRUE(ReservesAfter(2 * UNIT + 1, 3 * UNIT));
    EXPECT_TRUE(ReservesAfter(LIMIT + 1, LIMIT));
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
