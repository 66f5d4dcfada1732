// Fragmentation of whole buffers.
#include <gmock/gmock.h>

#include <thread>

#include "hdc/fragment.h"
#include "hdc/hdc_fixture.h"
#include "hdc/hdc_session_write.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using testing::ElementsAre;

constexpr uint32_t SEGMENT = 1024;
constexpr size_t CAPACITY = SEGMENT - 12;

class HdcWriting : public HdcFixture {
 protected:
    HdcWriting() { driver.SetMaxSegment(SEGMENT); }

    std::vector<std::string> Sent() const { return driver.Sent(session); }
};

TEST_F(HdcWriting, BufferOfSegmentMinus12GoesInOneFragment) {
    const std::string bytes = Pattern(CAPACITY);

    EXPECT_EQ(Write(bytes), 0);

    EXPECT_THAT(Sent(), ElementsAre(Fragment(bytes, true)));
    EXPECT_EQ(Sent().at(0).size(), SEGMENT);
}

TEST_F(HdcWriting, BufferOfSegmentMinus11GoesInTwoFragments) {
    const std::string bytes = Pattern(CAPACITY + 1);

    EXPECT_EQ(Write(bytes), 0);

    ASSERT_EQ(Sent().size(), 2U);
    EXPECT_EQ(Sent()[0], Fragment(bytes.substr(0, CAPACITY), false));
    EXPECT_EQ(Sent()[1].size(), 13U);
    EXPECT_EQ(Sent()[1].substr(0, 10), Fragment(bytes.substr(CAPACITY), true).substr(0, 10));
}

TEST_F(HdcWriting, MultipleOfThePayloadHasNoEmptyFragmentBehindIt) {
    const std::string bytes = Pattern(2 * CAPACITY);

    EXPECT_EQ(Write(bytes), 0);

    EXPECT_THAT(Sent(), ElementsAre(Fragment(bytes.substr(0, CAPACITY), false),
                                    Fragment(bytes.substr(CAPACITY), true)));
}

TEST_F(HdcWriting, FragmentStartsWithLengthMagicAndLastMark) {
    EXPECT_EQ(Write("abc"), 0);

    const std::string sent = Sent().at(0);
    EXPECT_EQ(sent, std::string("\3\0\0\0\xB0\0\0\0\1abc\0\0\0", 15));
    EXPECT_EQ(driver.calls.Calls("drvHdcAddMsgBuffer").at(0).Value("len"), 15);
}

TEST_F(HdcWriting, BytesBehindAFirstPayloadAreZeroWhateverWasWrittenBefore) {
    EXPECT_EQ(Write(Pattern(CAPACITY)), 0);
    EXPECT_EQ(Write("abc"), 0);

    EXPECT_EQ(Sent().at(1), Fragment("abc", true));
}

TEST_F(HdcWriting, SmallestAndLargestSegmentWork) {
    EXPECT_EQ(Write(Pattern(3000)), 0);
    EXPECT_EQ(Sent().size(), 3U);

    driver.SetMaxSegment(524288);
    EXPECT_EQ(Write(Pattern(524288 - 12)), 0);
    EXPECT_EQ(Sent().size(), 4U);
    EXPECT_EQ(Sent().at(3).size(), 524288U);
}

TEST_F(HdcWriting, SegmentOutsideItsBoundsFailsBeforeAMessageIsAllocated) {
    driver.SetMaxSegment(1023);
    EXPECT_EQ(Write("abc"), -1);
    driver.SetMaxSegment(524289);
    EXPECT_EQ(Write("abc"), -1);

    EXPECT_THAT(
        log.Texts('E'),
        ElementsAre("Get Hdc Capacity Segment Invaild: 1023", "Hdc Capacity Failed, err: -1",
                    "Get Hdc Capacity Segment Invaild: 524289", "Hdc Capacity Failed, err: -1"));
    EXPECT_EQ(driver.calls.Count("drvHdcAllocMsg"), 0U);
}

TEST_F(HdcWriting, SessionWriteReportsInvalidParameters) {
    EXPECT_EQ(HdcSessionWrite(session, "a", 0, 0), -1);
    EXPECT_EQ(HdcSessionWrite(session, nullptr, 1, 0), -1);
    EXPECT_EQ(HdcSessionWrite(nullptr, "a", 1, 0), -1);

    EXPECT_EQ(log.Count('E', "Invalid Parameter"), 3U);
    EXPECT_EQ(driver.calls.Count("drvHdcGetCapacity"), 0U);
}

TEST_F(HdcWriting, OneMessageAndOneBufferServeTheWholeWrite) {
    std::vector<const char*> buffers;
    const auto add = driver.drvHdcAddMsgBuffer;
    driver.drvHdcAddMsgBuffer = [&](HDC_MSG msg, char* buf, int32_t len) {
        buffers.push_back(buf);
        return add(msg, buf, len);
    };

    EXPECT_EQ(Write(Pattern(3 * CAPACITY)), 0);

    EXPECT_THAT(buffers, ElementsAre(buffers.at(0), buffers.at(0), buffers.at(0)));
    EXPECT_EQ(driver.calls.Count("drvHdcAllocMsg"), 1U);
    EXPECT_EQ(driver.calls.Calls("drvHdcAllocMsg").at(0).Value("count"), 1);
    EXPECT_EQ(driver.calls.Count("drvHdcReuseMsg"), 3U);
    EXPECT_EQ(driver.calls.Count("drvHdcFreeMsg"), 1U);
}

TEST_F(HdcWriting, SendsWaitWithoutATimeOut) {
    EXPECT_EQ(Write(Pattern(2 * CAPACITY)), 0);

    for (const Call& call : driver.calls.Calls("halHdcSend")) {
        EXPECT_EQ(call.Value("timeout"), 0);
        EXPECT_EQ(call.Value("flag"), 0);
    }
}

TEST_F(HdcWriting, FailedMessageAllocationIsReported) {
    driver.calls.Return("drvHdcAllocMsg", 12);
    driver.calls.Add({"drvHdcAllocMsg", {}, 0, 1, {}, {}, 0, {}, true});

    EXPECT_EQ(Write("abc"), -1);
    EXPECT_EQ(Write("abc"), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("Hdc Alloc Msg, error: 12", "Hdc Alloc Msg, error: 0"));
    EXPECT_EQ(driver.calls.Count("drvHdcAddMsgBuffer"), 0U);
    EXPECT_EQ(driver.calls.Count("drvHdcFreeMsg"), 0U);
}

TEST_F(HdcWriting, FailedAddEndsTheWrite) {
    driver.calls.Return("drvHdcAddMsgBuffer", 13);

    EXPECT_EQ(Write(Pattern(2 * CAPACITY)), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Add Msg Buffer, error: 13"));
    EXPECT_TRUE(Sent().empty());
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcWriting, FailedSendInTheMiddleSendsNothingMore) {
    driver.calls.Return("halHdcSend", 14, 1, 1);

    EXPECT_EQ(Write(Pattern(3 * CAPACITY)), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Send, error: 14"));
    ASSERT_EQ(Sent().size(), 1U);
    EXPECT_EQ(Sent()[0].at(8), '\0');
    EXPECT_EQ(driver.calls.Count("halHdcSend"), 2U);
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcWriting, FailedReuseEndsTheWriteEvenBehindTheLastFragment) {
    driver.calls.Return("drvHdcReuseMsg", 15);

    EXPECT_EQ(Write("abc"), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Reuse Msg, error: 15"));
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcWriting, FailedFreeFailsAWriteThatSentEverything) {
    driver.calls.Return("drvHdcFreeMsg", 16);

    EXPECT_EQ(Write("abc"), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Free Msg, error: 16"));
    EXPECT_EQ(Sent().size(), 1U);
}

TEST_F(HdcWriting, WantOfMemoryNamesTheSegmentAndFreesTheMessage) {
    const std::string bytes = Pattern(CAPACITY);
    int32_t ret = 0;
    std::thread writer([&] {
        FailingMalloc failing(SEGMENT);
        ret = Write(bytes);
    });
    writer.join();

    EXPECT_EQ(ret, -1);
    EXPECT_TRUE(log.Has('E', "[HdcSessionWrite]IdeXmalloc 1024 Size failed"));
    EXPECT_EQ(driver.OpenMessages(), 0U);
    EXPECT_TRUE(Sent().empty());
}

TEST_F(HdcWriting, SecondWriteOfAThreadAllocatesNoFragmentBuffer) {
    EXPECT_EQ(Write(Pattern(3 * CAPACITY)), 0);
    WatchMallocs(SEGMENT);

    EXPECT_EQ(Write(Pattern(3 * CAPACITY)), 0);
    EXPECT_EQ(HdcWrite(session, "abcdef", 6), 0);

    EXPECT_EQ(WatchedMallocs(), 0U);
    WatchMallocs(0);
}

// A buffer with the room that an in-place write needs, all of it filled with a pattern.
class InPlaceWriting : public HdcWriting {
 protected:
    // The messages of a plain write of the same bytes.
    std::vector<std::string> PlainMessages(const std::string& bytes) {
        EXPECT_EQ(Write(bytes), 0);
        return Sent();
    }

    // The messages of a write within `around`, to a session of its own.
    std::vector<std::string> InPlaceMessages(std::string& around, size_t length) {
        session = driver.NewSession();
        EXPECT_EQ(
            HdcWriteInPlace(session, &around[HDC_ROOM_IN_FRONT], static_cast<int32_t>(length)), 0);
        return Sent();
    }
};

class InPlaceWritingOfSize : public InPlaceWriting, public testing::WithParamInterface<size_t> {};

TEST_P(InPlaceWritingOfSize, SendsTheSameBytesAndLeavesTheBufferAsItWas) {
    const std::string before = Pattern(HDC_ROOM_IN_FRONT + GetParam() + HDC_ROOM_BEHIND);
    std::string around = before;
    const auto plain = PlainMessages(before.substr(HDC_ROOM_IN_FRONT, GetParam()));

    const auto inPlace = InPlaceMessages(around, GetParam());

    EXPECT_TRUE(inPlace == plain);
    EXPECT_TRUE(around == before);
}

INSTANTIATE_TEST_SUITE_P(Sizes, InPlaceWritingOfSize,
                         testing::Values(1, CAPACITY - 3, CAPACITY - 1, CAPACITY, CAPACITY + 1,
                                         2 * CAPACITY - 3, 2 * CAPACITY - 2, 2 * CAPACITY - 1,
                                         2 * CAPACITY, 2 * CAPACITY + 9, 5 * CAPACITY + 500));

TEST_F(InPlaceWriting, SendsFromTheBufferItself) {
    std::string around = Pattern(3 * CAPACITY);
    const char* const bytes = &around[HDC_ROOM_IN_FRONT];
    std::vector<const char*> starts;
    const auto add = driver.drvHdcAddMsgBuffer;
    driver.drvHdcAddMsgBuffer = [&](HDC_MSG msg, char* buf, int32_t len) {
        starts.push_back(buf);
        return add(msg, buf, len);
    };

    InPlaceMessages(around, 2 * CAPACITY);

    EXPECT_THAT(starts, ElementsAre(bytes - 9, bytes - 9 + CAPACITY));
}

TEST_F(InPlaceWriting, FailedSendLeavesTheBufferAsItWasToo) {
    const std::string before = Pattern(3 * CAPACITY);
    std::string around = before;
    driver.calls.Return("halHdcSend", 14, 1, 1);

    EXPECT_EQ(HdcWriteInPlace(session, &around[HDC_ROOM_IN_FRONT], 2 * CAPACITY), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Send, error: 14"));
    EXPECT_TRUE(around == before);
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(InPlaceWriting, ChecksItsArgumentsAsThePlainWriteDoes) {
    char byte = 'a';
    EXPECT_EQ(HdcWriteInPlace(nullptr, &byte, 1), -1);
    EXPECT_EQ(HdcWriteInPlace(session, nullptr, 0), -1);
    EXPECT_EQ(HdcWriteInPlace(session, nullptr, 1), -1);
    EXPECT_EQ(HdcSessionWriteInPlace(session, &byte, 0, 0), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("session is nullptr", "len is invalid",
                                            "buf is nullptr", "Invalid Parameter"));
}

}  // namespace tiv::test
