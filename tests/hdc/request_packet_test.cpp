// Request packets: making, freeing, reading.
#include "hdc/request_packet.h"

#include <gmock/gmock.h>

#include <numeric>

#include "hdc/hdc_fixture.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using testing::ElementsAre;

class RequestPacket : public HdcFixture {
 protected:
    // A packet as it lies on the wire, with a length of its own choice.
    static std::string Packet(uint32_t len, const std::string& value, uint32_t type = 5) {
        return Word(type) + Word(77) + Word(len) + value;
    }

    int32_t ReadRequest(const std::string& bytes) {
        driver.PushMessage(session, Fragment(bytes, true));
        return IdeHdcReadRequest(MakeIdeSessionRef(session), &request);
    }

    ~RequestPacket() override { KbxIdeFreePacket(request); }

    IdeTlvReq* request = nullptr;
    uint32_t length = 0;
};

TEST_F(RequestPacket, HoldsHeaderValueAndAZeroByte) {
    ASSERT_EQ(IdeCreatePacket(17, "abc", 3, &request, &length), 0);

    EXPECT_EQ(length, 15U);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(request), 16),
              Word(17) + Word(0) + Word(3) + std::string("abc\0", 4));
}

TEST_F(RequestPacket, EmptyValueMakesTwelveBytes) {
    ASSERT_EQ(IdeCreatePacket(5, "", 0, &request, &length), 0);

    EXPECT_EQ(length, 12U);
    EXPECT_EQ(request->len, 0U);
    EXPECT_EQ(request->value[0], '\0');
}

TEST_F(RequestPacket, NullArgumentsAreRefused) {
    EXPECT_EQ(IdeCreatePacket(5, nullptr, 0, &request, &length), -1);
    EXPECT_EQ(IdeCreatePacket(5, "a", 1, nullptr, &length), -1);
    EXPECT_EQ(IdeCreatePacket(5, "a", 1, &request, nullptr), -1);

    EXPECT_EQ(log.Count('E', "[IdeCreatePacket]input invalid parameter"), 3U);
}

TEST_F(RequestPacket, LengthThatLeavesNoRoomForTheHeaderIsRefused) {
    EXPECT_EQ(IdeCreatePacket(5, "a", 4294967283U, &request, &length), -1);

    EXPECT_TRUE(log.Has('E', "[IdeCreatePacket]value_len: 4294967283 bytes, tlv_len: 12 bytes"));
}

TEST_F(RequestPacket, LargestLengthFailsOnlyForWantOfMemory) {
    FailingMalloc failing(1U << 31);

    EXPECT_EQ(IdeCreatePacket(5, "a", 4294967282U, &request, &length), -1);

    EXPECT_EQ(failing.Failed(), 1U);
    EXPECT_TRUE(log.Has('E', "malloc memory failed"));
    EXPECT_FALSE(log.Contains('E', "value_len"));
}

TEST_F(RequestPacket, KbxFormMakesTypeFive) {
    ASSERT_EQ(KbxIdeCreatePacket("abc", 3, &request, &length), 0);

    EXPECT_EQ(request->type, 5U);
    EXPECT_EQ(request->dev_id, 0U);
    EXPECT_EQ(length, 15U);
}

TEST_F(RequestPacket, KbxFormClearsBothOutputsOnFailure) {
    auto* const stale = reinterpret_cast<IdeTlvReq*>(&length);
    request = stale;
    length = 99;

    EXPECT_EQ(KbxIdeCreatePacket(nullptr, 3, &request, &length), -1);

    EXPECT_EQ(request, nullptr);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(KbxIdeCreatePacket("a", 1, nullptr, nullptr), -1);
}

TEST_F(RequestPacket, FreeClearsThePointerAndLeavesNullAlone) {
    ASSERT_EQ(KbxIdeCreatePacket("abc", 3, &request, &length), 0);

    KbxIdeFreePacket(request);
    EXPECT_EQ(request, nullptr);
    KbxIdeFreePacket(request);
    EXPECT_EQ(request, nullptr);
}

TEST_F(RequestPacket, RequestIsReadWithAZeroByteBehindItsValue) {
    ASSERT_EQ(ReadRequest(Packet(3, "abc")), 0);

    EXPECT_EQ(request->type, 5U);
    EXPECT_EQ(request->dev_id, 77U);
    EXPECT_EQ(request->len, 3U);
    EXPECT_STREQ(request->value, "abc");
}

// 24 bytes fill a block of the allocator: behind them stands no zero by chance.
TEST_F(RequestPacket, ZeroByteStandsBehindAValueThatFillsItsBlockToo) {
    ASSERT_EQ(ReadRequest(Packet(12, "abcdefghijkl")), 0);
    EXPECT_EQ(request->value[12], '\0');
    KbxIdeFreePacket(request);

    ASSERT_EQ(KbxIdeCreatePacket("abcdefghijkl", 12, &request, &length), 0);
    EXPECT_EQ(request->value[12], '\0');
}

TEST_F(RequestPacket, RequestOfTwelveBytesIsValid) {
    ASSERT_EQ(ReadRequest(Packet(0, "")), 0);

    EXPECT_EQ(request->len, 0U);
    EXPECT_EQ(request->value[0], '\0');
}

TEST_F(RequestPacket, LengthOneTooLargeIsRefused) {
    EXPECT_EQ(ReadRequest(Packet(4, "abc")), -1);

    EXPECT_EQ(request, nullptr);
    EXPECT_TRUE(log.Has('E', "recv len: 15 bytes, req len 4 bytes, size 12 bytes"));
}

TEST_F(RequestPacket, LengthOneTooSmallIsRefused) {
    EXPECT_EQ(ReadRequest(Packet(2, "abc")), -1);

    EXPECT_EQ(request, nullptr);
    EXPECT_TRUE(log.Has('E', "recv len: 15 bytes, req len 2 bytes, size 12 bytes"));
}

TEST_F(RequestPacket, BufferShorterThanAHeaderIsRefusedWithoutReadingItsLength) {
    EXPECT_EQ(ReadRequest(std::string(5, '\xFF')), -1);

    EXPECT_EQ(request, nullptr);
    EXPECT_TRUE(log.Has('E', "recv len: 5 bytes, req len 0 bytes, size 12 bytes"));
}

TEST_F(RequestPacket, LengthCutInItsLastByteIsNotRead) {
    EXPECT_EQ(ReadRequest(std::string(11, '\xFF')), -1);

    EXPECT_TRUE(log.Has('E', "recv len: 11 bytes, req len 0 bytes, size 12 bytes"));
}

TEST_F(RequestPacket, LengthThatWrapsAroundIsRefused) {
    EXPECT_EQ(ReadRequest(Packet(UINT32_MAX, "")), -1);

    EXPECT_TRUE(log.Has('E', "recv len: 12 bytes, req len -1 bytes, size 12 bytes"));
}

TEST_F(RequestPacket, RefusalsFreeEverything) {
    const long blocks = LiveMallocBlocks();

    EXPECT_EQ(ReadRequest(Packet(4, "abc")), -1);

    EXPECT_EQ(LiveMallocBlocks(), blocks);
    EXPECT_EQ(driver.OpenMessages(), 0U);
    EXPECT_FALSE(driver.IsClosed(session));
}

TEST_F(RequestPacket, WantOfMemoryForTheCopyFailsTheRead) {
    const long blocks = LiveMallocBlocks();
    FailingMalloc failing(5012, 1);

    EXPECT_EQ(ReadRequest(Packet(5000, Pattern(5000))), -1);

    EXPECT_EQ(failing.Failed(), 1U);
    EXPECT_TRUE(log.Has('E', "Ide Xmalloc failed"));
    EXPECT_EQ(LiveMallocBlocks(), blocks);
}

TEST_F(RequestPacket, NullOutIsRefused) {
    EXPECT_EQ(IdeHdcReadRequest(MakeIdeSessionRef(session), nullptr), -1);
    EXPECT_TRUE(log.Has('E', "req is nullptr"));
}

TEST_F(RequestPacket, SilentSessionIsGivenUpAfterAttempt141) {
    std::vector<uint32_t> pauses(141);
    std::iota(pauses.begin(), pauses.end(), 1U);

    EXPECT_EQ(IdeHdcReadRequest(MakeIdeSessionRef(session), &request), -1);

    EXPECT_EQ(FakeMm::Instance().Sleeps(), pauses);
    EXPECT_EQ(driver.calls.Count("halHdcRecv"), 141U);
    EXPECT_THAT(log.Texts('W'),
                ElementsAre("no received request in 142 times", "Ide Read ret: -1"));
}

TEST_F(RequestPacket, SessionClosedWhileTheReadWaitsGivesOneAtOnce) {
    driver.calls.Return("halHdcRecv", 36, 3);
    driver.ClosePeer(session);

    EXPECT_EQ(IdeHdcReadRequest(MakeIdeSessionRef(session), &request), 1);

    EXPECT_THAT(FakeMm::Instance().Sleeps(), ElementsAre(1, 2, 3));
    EXPECT_THAT(log.Texts('W'), ElementsAre("Ide Read ret: 1"));
}

TEST_F(RequestPacket, LateRequestIsRead) {
    driver.calls.Return("halHdcRecv", 36, 140);

    EXPECT_EQ(ReadRequest(Packet(3, "abc")), 0);
    EXPECT_EQ(FakeMm::Instance().Sleeps().size(), 140U);
}

TEST_F(RequestPacket, ReadWithoutTheFlagBlocksOnceAndPassesItsResultOn) {
    void* buf = nullptr;
    driver.calls.Return("halHdcRecv", 36);

    EXPECT_EQ(IdeRead(MakeIdeSessionRef(session), &buf, &length, false), 2);

    EXPECT_EQ(driver.calls.Count("halHdcRecv"), 1U);
    EXPECT_EQ(driver.calls.Calls("halHdcRecv").at(0).Value("flag"), 0);
    EXPECT_TRUE(FakeMm::Instance().Sleeps().empty());
}

TEST_F(RequestPacket, ReadWithANullOutFailsInSilence) {
    void* buf = nullptr;
    EXPECT_EQ(IdeRead(MakeIdeSessionRef(session), nullptr, &length, true), -1);
    EXPECT_EQ(IdeRead(MakeIdeSessionRef(session), &buf, nullptr, false), -1);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(RequestPacket, SessionReferenceIsOfKindOne) {
    EXPECT_EQ(MakeIdeSessionRef(session).kind, 1);
    EXPECT_EQ(MakeIdeSessionRef(session).session, session);
}

}  // namespace tiv::test
