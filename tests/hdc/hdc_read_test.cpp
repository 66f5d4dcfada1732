// Reassembly of whole buffers.
#include <gmock/gmock.h>

#include "hdc/fragment.h"
#include "hdc/hdc_fixture.h"
#include "hdc/hdc_session_read.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using testing::ElementsAre;

class HdcReading : public HdcFixture {
 protected:
    // Pushes one driver message per fragment of `bytes`, cut into pieces of `piece` bytes.
    void PushFragments(const std::string& bytes, size_t piece) {
        for (size_t at = 0; at < bytes.size(); at += piece) {
            driver.PushMessage(session,
                               Fragment(bytes.substr(at, piece), at + piece >= bytes.size()));
        }
    }

    void ExpectStoreRefused(const std::string& message) {
        driver.PushMessage(session, message);

        EXPECT_EQ(Read(), -1);

        EXPECT_THAT(log.Texts('E'), ElementsAre("Hdc store package, error",
                                                "[HdcSessionRead]Hdc receive package, error"));
        EXPECT_EQ(driver.OpenMessages(), 0U);
    }
};

TEST_F(HdcReading, OneFragmentIsAWholeBuffer) {
    driver.PushMessage(session, Fragment("abc", true));

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "abc");
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, FragmentsAreJoinedInOrder) {
    const std::string bytes = Pattern(300000);
    PushFragments(bytes, 1012);

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, bytes);
}

TEST_F(HdcReading, WhatAWriteSentIsReadBack) {
    const std::string bytes = Pattern(2 * 524288);
    ASSERT_EQ(Write(bytes), 0);
    TurnSessionRound();

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, bytes);
}

TEST_F(HdcReading, SeveralBuffersOfOneReceiveAreJoinedInIndexOrder) {
    driver.PushBuffers(session,
                       {Fragment("ab", false), Fragment("cd", false), Fragment("e", true)});

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "abcde");
    EXPECT_EQ(driver.calls.Count("halHdcRecv"), 1U);
}

TEST_F(HdcReading, BufferThatIsNullOrEmptyIsPassedOver) {
    driver.PushBuffers(session, {std::nullopt, std::string(), Fragment("ab", true)});

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "ab");
}

TEST_F(HdcReading, BufferOfANegativeLengthIsPassedOver) {
    std::string odd = Fragment("xy", true);
    const auto get = driver.drvHdcGetMsgBuffer;
    driver.drvHdcGetMsgBuffer = [&](HDC_MSG msg, int32_t index, char** buf, int32_t* len) {
        const int32_t ret = get(msg, index, buf, len);
        if (index == 0) {
            *buf = odd.data();
            *len = -1;
        }
        return ret;
    };
    driver.PushBuffers(session, {Fragment("xy", true), Fragment("ab", true)});

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "ab");
}

TEST_F(HdcReading, ReceiveWithoutABufferGoesOn) {
    driver.PushBuffers(session, {});
    driver.PushMessage(session, Fragment("ab", true));

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "ab");
}

TEST_F(HdcReading, EmptyFragmentInTheMiddleAddsNothing) {
    driver.PushMessage(session, Fragment("ab", false));
    driver.PushMessage(session, Fragment("", false));
    driver.PushMessage(session, Fragment("cd", true));

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "abcd");
}

TEST_F(HdcReading, LastMarkOtherThanOneDoesNotEndTheBuffer) {
    std::string odd = Fragment("ab", false);
    odd[8] = 2;
    driver.PushMessage(session, odd);
    driver.PushMessage(session, Fragment("cd", true));

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "abcd");
}

TEST_F(HdcReading, WrongMagicFailsTheRead) { ExpectStoreRefused(Fragment("abc", true, 175)); }

TEST_F(HdcReading, MessageShorterThanAHeaderFailsTheRead) {
    ExpectStoreRefused(std::string(8, '\0'));
}

TEST_F(HdcReading, HeaderAloneIsAFragmentOfNoBytes) {
    driver.PushMessage(session, Fragment("", false).substr(0, 9));
    driver.PushMessage(session, Fragment("ab", true));

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "ab");
}

TEST_F(HdcReading, LengthAboveWhatArrivedFailsTheRead) {
    ExpectStoreRefused(Word(4) + Word(176) + "\1abc");
}

TEST_F(HdcReading, LengthOfWhatArrivedIsTaken) {
    driver.PushMessage(session, Word(3) + Word(176) + "\1abc");

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "abc");
}

TEST_F(HdcReading, HugeLengthAllocatesNothing) {
    WatchMallocs(1000);
    ExpectStoreRefused(Word(UINT32_MAX) + Word(176) + "\1abc");
    EXPECT_EQ(WatchedMallocs(), 0U);
    WatchMallocs(0);
}

TEST_F(HdcReading, FailureForgetsEarlierFragments) {
    const long blocks = LiveMallocBlocks();
    driver.PushMessage(session, Fragment("ab", false));
    ExpectStoreRefused(Fragment("abc", true, 1));

    driver.PushMessage(session, Fragment("cd", true));
    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(received, "cd");
    EXPECT_EQ(LiveMallocBlocks(), blocks);
}

TEST_F(HdcReading, EmptyLastFragmentWithNothingBeforeItIsRefused) {
    driver.PushMessage(session, Fragment("", true));

    EXPECT_EQ(Read(), -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("bufLen is nullptr"));
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, SessionClosedByTheFarEndGivesOne) {
    driver.PushMessage(session, Fragment("ab", false));
    driver.ClosePeer(session);

    EXPECT_EQ(Read(), 1);
    EXPECT_TRUE(log.Has('I', "[HdcSessionRead]Session is closed."));
    EXPECT_EQ(log.CountOf('E'), 0U);
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, NoDataGivesTwoWithoutABlock) {
    EXPECT_EQ(Read(false), 2);
    EXPECT_EQ(driver.OpenMessages(), 0U);
    EXPECT_EQ(log.CountOf('I'), 0U);
}

TEST_F(HdcReading, NoDataBehindAFirstFragmentForgetsIt) {
    driver.PushMessage(session, Fragment("ab", false));
    EXPECT_EQ(Read(false), 2);

    driver.PushMessage(session, Fragment("cd", true));
    EXPECT_EQ(Read(false), 0);
    EXPECT_EQ(received, "cd");
}

TEST_F(HdcReading, BlockingReadPassesNoDataOn) {
    driver.calls.Return("halHdcRecv", 36);

    EXPECT_EQ(Read(true), 2);
}

TEST_F(HdcReading, OtherReceiveCodeFailsTheRead) {
    driver.calls.Return("halHdcRecv", 40);

    EXPECT_EQ(Read(), -1);
    EXPECT_TRUE(log.Has('E', "Hdc Receive, error 40"));
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, DriverIsAskedWithLengthAndTimeOutZero) {
    driver.PushMessage(session, Fragment("ab", true));
    EXPECT_EQ(Read(), 0);

    const Call call = driver.calls.Calls("halHdcRecv").at(0);
    EXPECT_EQ(call.Value("len"), 0);
    EXPECT_EQ(call.Value("timeout"), 0);
    EXPECT_EQ(driver.calls.Calls("drvHdcAllocMsg").at(0).Value("count"), 1);
}

TEST_F(HdcReading, MessageIsReusedBetweenFragmentsOnly) {
    PushFragments("abcdef", 2);

    EXPECT_EQ(Read(), 0);
    EXPECT_EQ(driver.calls.Count("drvHdcReuseMsg"), 2U);
    EXPECT_EQ(driver.calls.Count("drvHdcFreeMsg"), 1U);
}

TEST_F(HdcReading, FailedAllocationIsReported) {
    driver.calls.Return("drvHdcAllocMsg", 12);
    driver.calls.Add({"drvHdcAllocMsg", {}, 0, 1, {}, {}, 0, {}, true});

    EXPECT_EQ(Read(), -1);
    EXPECT_EQ(Read(), -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("Hdc Alloc Msg, error 12", "Hdc Alloc Msg, error 0"));
}

TEST_F(HdcReading, FailedBufferQueryEndsThePass) {
    driver.PushBuffers(session, {Fragment("ab", false), Fragment("cd", true)});
    driver.calls.Return("drvHdcGetMsgBuffer", 13);

    EXPECT_EQ(Read(), -1);
    EXPECT_THAT(log.Texts('E'), ElementsAre("Hdc Get Msg Buffer, error 13",
                                            "[HdcSessionRead]Hdc receive package, error"));
    EXPECT_EQ(driver.calls.Count("drvHdcGetMsgBuffer"), 1U);
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, FailedReuseFailsTheRead) {
    PushFragments("abcd", 2);
    driver.calls.Return("drvHdcReuseMsg", 14);

    EXPECT_EQ(Read(), -1);
    EXPECT_TRUE(log.Has('E', "Hdc Reuse Msg, error: 14"));
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, FailedFreeFailsTheRead) {
    const long blocks = LiveMallocBlocks();
    driver.PushMessage(session, Fragment("ab", true));
    driver.calls.Return("drvHdcFreeMsg", 15);

    EXPECT_EQ(Read(), -1);
    EXPECT_TRUE(log.Has('E', "Hdc Free Msg, error: 15"));
    EXPECT_EQ(LiveMallocBlocks(), blocks);
}

TEST_F(HdcReading, WantOfMemoryFailsTheRead) {
    driver.PushMessage(session, Fragment(Pattern(5000), true));
    FailingMalloc failing(5000);

    EXPECT_EQ(Read(), -1);

    EXPECT_EQ(failing.Failed(), 1U);
    EXPECT_TRUE(log.Has('E', "Ide Xrmalloc Failed"));
    EXPECT_TRUE(log.Has('E', "Hdc store package, error"));
}

TEST_F(HdcReading, WantOfMemoryInTheMiddleFreesWhatWasStored) {
    const long blocks = LiveMallocBlocks();
    PushFragments(Pattern(9000), 3000);
    FailingMalloc failing(6000);

    EXPECT_EQ(Read(), -1);

    EXPECT_EQ(failing.Failed(), 1U);
    EXPECT_EQ(LiveMallocBlocks(), blocks);
    EXPECT_EQ(driver.OpenMessages(), 0U);
}

TEST_F(HdcReading, SecondLongBufferTakesOneAllocation) {
    const std::string bytes = Pattern(4 << 20);
    PushFragments(bytes, 524276);
    ASSERT_EQ(Read(), 0);
    PushFragments(bytes, 524276);
    WatchMallocs(100000);

    void* buf = nullptr;
    uint32_t len = 0;
    EXPECT_EQ(HdcRead(session, &buf, &len), 0);

    EXPECT_EQ(WatchedMallocs(), 1U);
    EXPECT_EQ(len, bytes.size());
    IdeXfree(buf);
    WatchMallocs(0);
}

TEST_F(HdcReading, DebugLinesMarkTheListOperations) {
    PushFragments("abcd", 2);

    EXPECT_EQ(Read(), 0);

    EXPECT_THAT(log.Texts('D'), ElementsAre("iovec list add begin", "iovec list add begin",
                                            "iovec list free begin", "iovec list free end"));
}

TEST_F(HdcReading, SessionReadChecksItsArgumentsInOrder) {
    void* buf = nullptr;
    EXPECT_EQ(HdcSessionRead(nullptr, nullptr, nullptr, 0), -1);
    EXPECT_EQ(HdcSessionRead(session, nullptr, nullptr, 0), -1);
    EXPECT_EQ(HdcSessionRead(session, &buf, nullptr, 0), -1);

    EXPECT_THAT(log.Texts('E'),
                ElementsAre("session is nullptr", "recv_buf is nullptr", "recv_len is nullptr"));
}

TEST(HdcBufferLength, SumMayReach32BitsAndNotExceedThem) {
    EXPECT_TRUE(FitsInBufferLength(0, 0));
    EXPECT_TRUE(FitsInBufferLength(UINT32_MAX, 0));
    EXPECT_TRUE(FitsInBufferLength(UINT32_MAX - 5ULL, 5));
    EXPECT_FALSE(FitsInBufferLength(UINT32_MAX - 5ULL, 6));
    EXPECT_FALSE(FitsInBufferLength(1, UINT32_MAX));
    EXPECT_FALSE(FitsInBufferLength(UINT32_MAX + 1ULL, 0));
}

}  // namespace tiv::test
