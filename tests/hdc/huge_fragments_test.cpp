// Fragments that together leave 32 bits.
#include <gmock/gmock.h>
#include <sys/mman.h>

#include "hdc/fragment_store.h"
#include "hdc/hdc_fixture.h"
#include "support/failing_copy.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using testing::ElementsAre;

constexpr uint32_t HALF = 2147483648;
constexpr size_t ROOM = HALF + 4096UL;

// Copies only seem to happen, so nothing here takes up memory.
class HugeFragments : public HdcFixture {
 protected:
    HugeFragments() {
        EXPECT_NE(fragment, MAP_FAILED);
        EXPECT_TRUE(Store(HALF));
    }
    ~HugeFragments() override { EXPECT_EQ(munmap(fragment, ROOM), 0); }

    bool Store(uint32_t length) {
        const std::string head = Word(length) + Word(176) + std::string(1, '\1');
        head.copy(static_cast<char*>(fragment), head.size());
        return store.Store(static_cast<const char*>(fragment), ROOM);
    }
    // Not refused for its length, but for want of memory.
    bool AsksForMemory(uint32_t length) {
        const FailingMalloc failing(HALF, 0, 2);
        EXPECT_FALSE(Store(length));
        return failing.Failed() != 0;
    }

    void* fragment = mmap(nullptr, ROOM, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    const SeemingCopies seeming;
    FragmentStore store;
};

TEST_F(HugeFragments, OfOneMessageMayComeTo4294967295Bytes) {
    EXPECT_FALSE(AsksForMemory(HALF));
    EXPECT_THAT(log.Texts('E'),
                ElementsAre("buf_len : 2147483648 bytes, packet->len: 2147483648 bytes"));

    EXPECT_TRUE(AsksForMemory(HALF - 1));
}

TEST_F(HugeFragments, OfSeveralMessagesMayComeTo4294967295Bytes) {
    store.BeginPass();

    EXPECT_FALSE(AsksForMemory(HALF));
    EXPECT_TRUE(log.Texts('E').empty());

    EXPECT_TRUE(AsksForMemory(HALF - 1));
}

}  // namespace tiv::test
