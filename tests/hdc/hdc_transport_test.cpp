// Sending, receiving and closing through a transport.
#include "hdc/hdc_transport.h"

#include <gmock/gmock.h>

#include <thread>

#include "common/perf_count.h"
#include "hdc/chunk_support.h"
#include "hdc/hdc_fixture.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using analysis::rokt::ProfileFileChunk;
using Analysis::Rokt::Common::Statistics::PerfCount;
using analysis::rokt::transport::HDCTransport;
using analysis::rokt::transport::ITransport;
using analysis::rokt::transport::KbxTransport;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr const char* REFUSAL = "MESSAGE_CONTAINER_NO_SUPPORT";

class Transport : public HdcFixture {
 protected:
    Transport() : transport(std::make_shared<HDCTransport>(session, false, nullptr)) {}
    ~Transport() override { transport->DestroyPacket(packet); }

    static std::string Packet(const std::string& value, uint32_t type = 5) {
        return Word(type) + Word(0) + Word(static_cast<uint32_t>(value.size())) + value;
    }

    int Receive(const std::string& bytes) {
        driver.PushMessage(session, Fragment(bytes, true));
        return transport->RecvPacket(&packet);
    }

    std::shared_ptr<HDCTransport> transport;
    IdeTlvReq* packet = nullptr;
};

TEST_F(Transport, RawBufferGoesOutAsAPacketAndGivesItsOwnLength) {
    EXPECT_EQ(transport->SendBuffer("abc", 3), 3);

    EXPECT_THAT(driver.Sent(session), ElementsAre(Fragment(Packet("abc"), true)));
}

TEST_F(Transport, EmptyRawBufferIsAPacketWithoutAValue) {
    EXPECT_EQ(transport->SendBuffer("", 0), 0);

    EXPECT_THAT(driver.Sent(session), ElementsAre(Fragment(Packet(""), true)));
}

TEST_F(Transport, AttributeIsTheSessionsOwnOrMinusOne) {
    driver.SetSessionAttr(session, HDC_ATTR_PEER_PID, 4711);

    EXPECT_EQ(transport->Attribute(HDC_ATTR_PEER_PID), 4711);
    driver.calls.Return("halHdcGetSessionAttr", 8);
    EXPECT_EQ(transport->Attribute(HDC_ATTR_PEER_PID), -1);
    EXPECT_EQ(transport->CloseSession(), 0);
    EXPECT_EQ(transport->Attribute(HDC_ATTR_PEER_PID), -1);
}

TEST_F(Transport, NullBufferIsRefused) {
    EXPECT_EQ(transport->SendBuffer(nullptr, 3), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("buffer is null"));
    EXPECT_THAT(driver.Sent(session), IsEmpty());
}

TEST_F(Transport, NegativeLengthMakesNoPacket) {
    EXPECT_EQ(transport->SendBuffer("abc", -1), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("Failed to KbxIdeCreatePacket, err=-1."));
    EXPECT_THAT(driver.Sent(session), IsEmpty());
}

TEST_F(Transport, FailedWriteIsReportedWithThePacketsLength) {
    driver.calls.Return("halHdcSend", 9);

    EXPECT_EQ(transport->SendBuffer("abc", 3), -1);

    EXPECT_TRUE(log.Has('E', "hdc write failed, outLen=15 bytes, err=-1."));
}

TEST_F(Transport, WantOfMemoryForThePacketSendsNothing) {
    const std::string bytes = Pattern(200000);
    FailingMalloc failing(200000);

    EXPECT_EQ(transport->SendBuffer(bytes.data(), 200000), -1);

    EXPECT_TRUE(log.Has('E', "malloc memory failed"));
    EXPECT_EQ(log.Texts('E').back(), "Failed to KbxIdeCreatePacket, err=-1.");
    EXPECT_THAT(driver.Sent(session), IsEmpty());
}

TEST_F(Transport, WantOfMemoryForAChunksPacketLosesThatChunkOnly) {
    const auto chunk = MakeChunk(Pattern(200000));
    FailingMalloc failing(200000);

    EXPECT_EQ(transport->SendBuffer(chunk), -1);
    EXPECT_TRUE(log.Has('E', "malloc memory failed"));
    EXPECT_EQ(log.Texts('E').back(), "Failed to KbxIdeCreatePacket, err=-1.");
    EXPECT_TRUE(log.Has('D', "SendBuffer size -1/" + std::to_string(PlainFrame(*chunk).size())));

    EXPECT_EQ(transport->SendBuffer(chunk), 0);
}

TEST_F(Transport, RawSendIsCountedWithItsValueLength) {
    FakeMm::Instance().UseFakeClock();
    driver.halHdcSend = [](HDC_SESSION, HDC_MSG, uint64_t, uint32_t) {
        FakeMm::Instance().AdvanceClock(2000000);
        return 0;
    };
    transport->perfCount = std::make_shared<PerfCount>("module", 1);

    EXPECT_EQ(transport->SendBuffer("abc", 3), 3);

    EXPECT_TRUE(log.Contains('I', "overhead Sum_: 2000000 ns, package nums: 1, package size: 3,"));
}

TEST_F(Transport, ChunkSendIsCountedWithItsFrameLength) {
    FakeMm::Instance().UseFakeClock();
    driver.halHdcSend = [](HDC_SESSION, HDC_MSG, uint64_t, uint32_t) {
        FakeMm::Instance().AdvanceClock(2000000);
        return 0;
    };
    transport->perfCount = std::make_shared<PerfCount>("module", 1);
    const auto chunk = MakeChunk("abc");

    EXPECT_EQ(transport->SendBuffer(chunk), 0);

    EXPECT_TRUE(log.Contains(
        'I', "package size: " + std::to_string(PlainFrame(*chunk).size()) + ", throughput"));
}

TEST_F(Transport, FailedSendIsNotCounted) {
    FakeMm::Instance().UseFakeClock();
    driver.halHdcSend = [](HDC_SESSION, HDC_MSG, uint64_t, uint32_t) {
        FakeMm::Instance().AdvanceClock(2000000);
        return 9;
    };
    transport->perfCount = std::make_shared<PerfCount>("module", 1);

    EXPECT_EQ(transport->SendBuffer("abc", 3), -1);

    EXPECT_FALSE(log.Contains('I', "package size"));
}

TEST_F(Transport, ChunkGoesOutAsThePlainEncodingOfItsMessage) {
    const auto chunk = MakeChunk(Pattern(1000));
    const std::string frame = PlainFrame(*chunk);

    EXPECT_EQ(transport->SendBuffer(chunk), 0);

    EXPECT_THAT(driver.Sent(session), ElementsAre(Fragment(Packet(frame), true)));
    const std::string size = std::to_string(frame.size());
    EXPECT_TRUE(log.Has('D', "SendBuffer size " + size + "/" + size));
}

TEST_F(Transport, ChunkOfFourMebibytesArrivesInFragments) {
    const auto chunk = MakeChunk(Pattern(4 << 20));

    ASSERT_EQ(transport->SendBuffer(chunk), 0);
    TurnSessionRound();

    EXPECT_EQ(Read(), 0);
    EXPECT_TRUE(received == Packet(PlainFrame(*chunk)));
}

TEST_F(Transport, ChunkTakesNoMemoryForItsFragments) {
    const auto chunk = MakeChunk(Pattern(600000));
    ASSERT_EQ(transport->SendBuffer(chunk), 0);
    const auto first = driver.Sent(session);
    int sent = -1;
    size_t mallocs = 1;
    std::thread other([&] {  // it has no fragment buffer
        WatchMallocs(500000);
        sent = transport->SendBuffer(chunk);
        mallocs = WatchedMallocs();
    });
    other.join();

    EXPECT_EQ(sent, 0);
    EXPECT_EQ(driver.Sent(session).size(), 2 * first.size());
    EXPECT_EQ(driver.Sent(session).at(first.size()), first.at(0));
    EXPECT_EQ(driver.Sent(session).at(first.size() + 1), first.at(1));
    EXPECT_EQ(mallocs, 0U);
}

// Whoever sends a packet of his own may have found its memory where the chunk's packet was.
TEST_F(Transport, OnlyTheChunkBeingSentGoesOutInPlace) {
    std::vector<char*> starts;
    const auto add = driver.drvHdcAddMsgBuffer;
    driver.drvHdcAddMsgBuffer = [&](HDC_MSG msg, char* buf, int32_t len) {
        starts.push_back(buf);
        return add(msg, buf, len);
    };
    ASSERT_EQ(transport->SendBuffer(MakeChunk("abc")), 0);
    ASSERT_EQ(starts.size(), 1U);
    const char* const chunkPacket = starts[0] + 9;

    EXPECT_EQ(transport->SendKbxBuffer(chunkPacket, 12), 0);

    ASSERT_EQ(starts.size(), 2U);
    EXPECT_NE(starts[1], starts[0]);
}

TEST_F(Transport, ChunkWithoutExtraInfoIsRefused) {
    const auto chunk = MakeChunk("abc");
    chunk->extraInfo.clear();

    EXPECT_EQ(transport->SendBuffer(chunk), -1);
    EXPECT_EQ(transport->SendBuffer(std::shared_ptr<ProfileFileChunk>()), -1);

    EXPECT_EQ(log.Count('E', "FileChunk info is empty in HDC SendBuffer"), 2U);
    EXPECT_THAT(driver.Sent(session), IsEmpty());
}

TEST_F(Transport, FailedChunkSendGivesMinusOne) {
    driver.calls.Return("halHdcSend", 9);
    const auto chunk = MakeChunk("abc");

    EXPECT_EQ(transport->SendBuffer(chunk), -1);

    EXPECT_TRUE(log.Has('D', "SendBuffer size -1/" + std::to_string(PlainFrame(*chunk).size())));
}

// Counts the packets that reach the virtual operation.
class CountingTransport : public HDCTransport {
 public:
    using HDCTransport::HDCTransport;
    int SendKbxBuffer(const void*, int length) override {
        lengths.push_back(length);
        return 0;
    }
    std::vector<int> lengths;
};

TEST_F(Transport, BothFormsSendThroughTheVirtualOperation) {
    CountingTransport counting(session, false, nullptr);
    const auto chunk = MakeChunk("abc");

    EXPECT_EQ(counting.SendBuffer("abc", 3), 3);
    EXPECT_EQ(counting.SendBuffer(chunk), 0);

    EXPECT_THAT(counting.lengths,
                ElementsAre(15, static_cast<int>(PlainFrame(*chunk).size()) + 12));
}

TEST_F(Transport, PacketsOfTwoThreadsDoNotMix) {
    driver.SetMaxSegment(1024);
    const std::string first(200000, 'a');
    const std::string second(200000, 'b');
    const auto send = driver.halHdcSend;
    driver.halHdcSend = [send](HDC_SESSION to, HDC_MSG msg, uint64_t flag, uint32_t timeout) {
        std::this_thread::yield();
        return send(to, msg, flag, timeout);
    };

    std::thread other([&] { EXPECT_EQ(transport->SendBuffer(first.data(), 200000), 200000); });
    EXPECT_EQ(transport->SendBuffer(second.data(), 200000), 200000);
    other.join();
    TurnSessionRound();

    ASSERT_EQ(Read(), 0);
    const std::string one = received;
    ASSERT_EQ(Read(), 0);
    EXPECT_TRUE((one == Packet(first) && received == Packet(second)) ||
                (one == Packet(second) && received == Packet(first)));
}

TEST_F(Transport, PacketIsReceivedWhateverItsType) {
    EXPECT_EQ(Receive(Packet("abc", 99)), 15);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->type, 99U);
    EXPECT_EQ(packet->len, 3U);
}

TEST_F(Transport, PacketWithALyingLengthIsHandedOn) {
    EXPECT_EQ(Receive(Word(5) + Word(0) + Word(1000) + "abc"), 15);
    EXPECT_EQ(packet->len, 1000U);
}

TEST_F(Transport, PacketOfElevenBytesIsAFailedRead) {
    EXPECT_EQ(Receive(std::string(11, 'x')), -1);

    EXPECT_THAT(log.Texts('W'), ElementsAre("hdc read failed: ret=0; bufLen=11"));
    EXPECT_EQ(packet, nullptr);
}

TEST_F(Transport, PacketOfTwelveBytesIsReceived) { EXPECT_EQ(Receive(Packet("")), 12); }

TEST_F(Transport, ContainerRefusalGivesMinusTwoAndThePacket) {
    EXPECT_EQ(Receive(Packet(REFUSAL)), -2);
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->len, 28U);
}

TEST_F(Transport, LongerTextThatBeginsLikeTheRefusalIsAPacket) {
    EXPECT_EQ(Receive(Packet(std::string(REFUSAL) + "!")), 41);
}

TEST_F(Transport, RefusalIsNotReadBeyondWhatArrived) {
    EXPECT_EQ(Receive(Word(5) + Word(0) + Word(28) + std::string(REFUSAL, 27)), 39);
}

TEST_F(Transport, OtherTextOfTheRefusalsLengthIsAPacket) {
    EXPECT_EQ(Receive(Packet("MESSAGE_CONTAINER_NO_SUPPORX")), 40);
}

TEST_F(Transport, NullOutReceivesNothing) {
    EXPECT_EQ(transport->RecvPacket(nullptr), -1);
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(Transport, FailedReadIsAWarning) {
    driver.ClosePeer(session);

    EXPECT_EQ(transport->RecvPacket(&packet), -1);
    EXPECT_THAT(log.Texts('W'), ElementsAre("hdc read failed: ret=1; bufLen=0"));
}

TEST_F(Transport, CloseFromAnotherThreadEndsABlockedReceive) {
    int result = 0;
    std::thread reader([&] { result = transport->RecvPacket(&packet); });
    ASSERT_TRUE(driver.calls.WaitForCalls("halHdcRecv", 1));

    EXPECT_EQ(transport->CloseSession(), 0);
    reader.join();

    EXPECT_EQ(result, -1);
}

TEST_F(Transport, CloseFromAnotherThreadEndsABlockedSend) {
    driver.StallSends(true);
    int result = 0;
    std::thread writer([&] { result = transport->SendBuffer("abc", 3); });
    ASSERT_TRUE(driver.calls.WaitForCalls("halHdcSend", 1));

    EXPECT_EQ(transport->CloseSession(), 0);
    writer.join();

    EXPECT_EQ(result, -1);
}

TEST_F(Transport, SecondCloseDoesNothing) {
    EXPECT_EQ(transport->CloseSession(), 0);
    EXPECT_EQ(transport->CloseSession(), 0);

    EXPECT_EQ(driver.calls.Count("drvHdcSessionClose"), 1U);
    EXPECT_EQ(log.Count('I', "close HDC session"), 1U);
}

TEST_F(Transport, RefusedCloseLeavesTheTransportClosed) {
    driver.calls.Return("drvHdcSessionClose", 3);

    EXPECT_EQ(transport->CloseSession(), 0);
    EXPECT_EQ(transport->CloseSession(), 0);

    EXPECT_EQ(driver.calls.Count("drvHdcSessionClose"), 1U);
    EXPECT_TRUE(log.Has('E', "Hdc Session Close Failed, error: 3"));
}

TEST_F(Transport, SendOnAClosedTransportFails) {
    transport->CloseSession();

    EXPECT_EQ(transport->SendBuffer("abc", 3), -1);
    EXPECT_EQ(transport->SendBuffer(MakeChunk("abc")), -1);

    EXPECT_EQ(log.Count('E', "session is nullptr"), 2U);
    EXPECT_TRUE(log.Has('E', "hdc write failed, outLen=15 bytes, err=-1."));
}

TEST_F(Transport, LastHolderClosesTheSession) {
    std::shared_ptr<ITransport> holder = transport;
    transport = std::make_shared<HDCTransport>(nullptr, false, nullptr);
    EXPECT_FALSE(driver.IsClosed(session));

    holder.reset();

    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(Transport, ClientSideDestroysItsClient) {
    HDC_CLIENT client = HdcClientInit(4);
    transport = std::make_shared<HDCTransport>(driver.NewSession(), true, client);
    EXPECT_EQ(driver.OpenClients(), 1U);

    transport = std::make_shared<HDCTransport>(nullptr, false, nullptr);

    EXPECT_EQ(driver.OpenClients(), 0U);
}

TEST_F(Transport, ClientIsLeftAloneByAServerSide) {
    HDC_CLIENT client = HdcClientInit(4);
    transport = std::make_shared<HDCTransport>(driver.NewSession(), false, client);
    transport = std::make_shared<HDCTransport>(nullptr, true, nullptr);

    EXPECT_EQ(driver.OpenClients(), 1U);
    EXPECT_EQ(driver.calls.Count("drvHdcClientDestroy"), 0U);
}

TEST_F(Transport, DestroyPacketAlwaysGivesZero) {
    IdeTlvReq* made = nullptr;
    uint32_t length = 0;
    ASSERT_EQ(KbxIdeCreatePacket("a", 1, &made, &length), 0);

    EXPECT_EQ(transport->DestroyPacket(made), 0);
    EXPECT_EQ(transport->DestroyPacket(nullptr), 0);
}

TEST_F(Transport, HooksDoNothing) {
    transport->Hook0();
    transport->Hook1(1);
    transport->Hook2(2);
    transport->Hook3(3, 4);

    EXPECT_TRUE(log.Lines().empty());
    EXPECT_TRUE(driver.calls.Calls().empty());
}

TEST(FileChunk, StartsWithItsDefaults) {
    const ProfileFileChunk chunk;

    EXPECT_FALSE(chunk.isLastChunk);
    EXPECT_EQ(chunk.chunkModule, 0U);
    EXPECT_EQ(chunk.chunkSize, 0U);
    EXPECT_EQ(chunk.offset, -1);
    EXPECT_EQ(chunk.chunk + chunk.fileName + chunk.extraInfo, "");
}

}  // namespace tiv::test
