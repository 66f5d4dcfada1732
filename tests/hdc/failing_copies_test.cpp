// Fragments and requests when a copy fails.
#include <gmock/gmock.h>

#include "hdc/fragment_store.h"
#include "hdc/hdc_fixture.h"
#include "hdc/request_packet.h"
#include "support/failing_copy.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using testing::ElementsAre;

class FailedCopy : public HdcFixture {
 protected:
    const long blocks = LiveMallocBlocks();
};

TEST_F(FailedCopy, OfAPayloadEndsTheReadAndFreesWhatCame) {
    driver.PushMessage(session, Fragment("abc", false));
    driver.PushMessage(session, Fragment("def", true));
    const FailingCopy failing(1);

    EXPECT_EQ(Read(), -1);

    EXPECT_THAT(log.Texts('E'),
                ElementsAre("memory copy failed, ret: 34", "Hdc store package, error",
                            "[HdcSessionRead]Hdc receive package, error"));
    EXPECT_EQ(driver.calls.Count("drvHdcFreeMsg"), 1U);
}

TEST_F(FailedCopy, OfAPayloadIsNotCounted) {
    const std::string fragment = Fragment("abc", true);
    FragmentStore store;
    {
        const FailingCopy failing;
        EXPECT_FALSE(store.Store(fragment.data(), fragment.size()));
    }

    EXPECT_EQ(store.PassLength(), 0U);
    store.Clear();
    EXPECT_EQ(LiveMallocBlocks(), blocks);
}

TEST_F(FailedCopy, OfASliceEndsTheWriteWithNothingMoreSent) {
    driver.SetMaxSegment(1024);
    const FailingCopy failing(1);

    EXPECT_EQ(Write(Pattern(2000)), -1);

    EXPECT_EQ(driver.Sent(session).size(), 1U);
    EXPECT_THAT(log.Texts('E'), ElementsAre("memory copy failed"));
    EXPECT_EQ(driver.calls.Count("drvHdcFreeMsg"), 1U);
}

TEST_F(FailedCopy, OfAValueMakesNoPacket) {
    IdeTlvReq* packet = nullptr;
    uint32_t length = 7;
    const FailingCopy failing;

    EXPECT_EQ(IdeCreatePacket(5, "abc", 3, &packet, &length), -1);

    EXPECT_EQ(packet, nullptr);
    EXPECT_EQ(length, 7U);
    EXPECT_EQ(LiveMallocBlocks(), blocks);
    EXPECT_THAT(log.Texts('E'), ElementsAre("[IdeCreatePacket]memory copy failed, err: 34"));
}

}  // namespace tiv::test
