// The packet of a chunk against the plain encoding.
#include "hdc/chunk_packet.h"

#include <gmock/gmock.h>

#include "hdc/chunk_support.h"
#include "hdc/hdc_fixture.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::transport::ChunkPacket;

// Bytes around a packet in its memory, and the most that Trim keeps.
constexpr size_t ROOM_AROUND = 16 + 3;
constexpr size_t KEPT = 8388608;

class ChunkPackets : public HdcFixture {
 protected:
    std::string Value() const { return {packet.Packet()->value, packet.ValueLength()}; }

    std::string Build(const ProfileFileChunk& chunk) {
        EXPECT_EQ(packet.Build(chunk), 0);
        return Value();
    }

    ChunkPacket packet;
};

class ChunkPacketsOfSize : public ChunkPackets, public testing::WithParamInterface<size_t> {};

TEST_P(ChunkPacketsOfSize, AreThePlainEncodingByteForByte) {
    const auto chunk = MakeChunk(Pattern(GetParam()));

    EXPECT_TRUE(Build(*chunk) == PlainFrame(*chunk));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ChunkPacketsOfSize,
                         testing::Values(0, 1, 127, 128, 16383, 16384, 2097151, 2097152, 4194304));

TEST_F(ChunkPackets, CarryAHeaderOfTypeFiveAndAZeroByteBehindTheValue) {
    const std::string value = Build(*MakeChunk("abc"));

    EXPECT_EQ(packet.Packet()->type, 5U);
    EXPECT_EQ(packet.Packet()->dev_id, 0U);
    EXPECT_EQ(packet.Packet()->len, value.size());
    EXPECT_EQ(packet.PacketLength(), value.size() + 12);
    EXPECT_EQ(packet.Packet()->value[value.size()], '\0');
}

TEST_F(ChunkPackets, OptionalFieldsAreThePlainEncodingToo) {
    const auto chunk = MakeChunk("abc");
    chunk->isLastChunk = true;
    chunk->offset = 0;
    chunk->chunkModule = 0;
    EXPECT_EQ(Build(*chunk), PlainFrame(*chunk));

    chunk->offset = 123456789012;
    chunk->chunkModule = UINT32_MAX;
    EXPECT_EQ(Build(*chunk), PlainFrame(*chunk));
}

TEST_F(ChunkPackets, FieldsAreThoseOfTheChunk) {
    const auto request = DecodeChunk(Build(*MakeChunk("abc")));

    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->filename(), "data/aicore.data");
    EXPECT_EQ(request->offset(), -1);
    EXPECT_EQ(request->chunk(), "abc");
    EXPECT_EQ(request->chunksizeinbytes(), 3);
    EXPECT_EQ(request->datamodule(), 3);
    EXPECT_FALSE(request->islastchunk());
}

TEST_F(ChunkPackets, OtherFieldsStayUnset) {
    const auto request = DecodeChunk(Build(*MakeChunk("abc")));

    ASSERT_NE(request, nullptr);
    EXPECT_FALSE(request->needack());
    EXPECT_EQ(request->tag(), "");
    EXPECT_EQ(request->tagsuffix(), "");
    EXPECT_EQ(request->chunkstarttime(), 0U);
    EXPECT_EQ(request->chunkendtime(), 0U);
    EXPECT_EQ(request->hdr().magic(), "");
}

TEST_F(ChunkPackets, TagTravelsInTheJobContext) {
    const auto request = DecodeChunk(Build(*MakeChunk("abc")));
    analysis::rokt::message::JobContext context;

    ASSERT_NE(request, nullptr);
    ASSERT_TRUE(context.FromString(request->hdr().job_ctx()));
    EXPECT_EQ(context.job_id, "job7");
    EXPECT_EQ(context.dev_id, "3");
    EXPECT_EQ(context.tag, "null");
}

TEST_F(ChunkPackets, NamesAreCutAtTheirLastDot) {
    const auto chunk = MakeChunk("abc");
    chunk->extraInfo = "a.b.3";
    chunk->fileName = "x.y.z";
    const auto request = DecodeChunk(Build(*chunk));
    analysis::rokt::message::JobContext context;

    ASSERT_NE(request, nullptr);
    ASSERT_TRUE(context.FromString(request->hdr().job_ctx()));
    EXPECT_EQ(context.job_id, "a.b");
    EXPECT_EQ(context.dev_id, "3");
    EXPECT_EQ(context.tag, "z");
    EXPECT_EQ(request->filename(), "x.y");
}

TEST_F(ChunkPackets, NamesWithoutADotLeaveBothPartsEmpty) {
    const auto chunk = MakeChunk("abc");
    chunk->extraInfo = "job7";
    chunk->fileName = "data";
    const auto request = DecodeChunk(Build(*chunk));
    analysis::rokt::message::JobContext context;

    ASSERT_NE(request, nullptr);
    ASSERT_TRUE(context.FromString(request->hdr().job_ctx()));
    EXPECT_EQ(context.job_id, "");
    EXPECT_EQ(context.dev_id, "");
    EXPECT_EQ(context.tag, "");
    EXPECT_EQ(request->filename(), "");
}

TEST_F(ChunkPackets, OnlyTheValidBytesOfALongerStringGoOut) {
    const auto chunk = MakeChunk("abcdef");
    chunk->chunkSize = 4;

    EXPECT_EQ(Build(*chunk), PlainFrame(*chunk));
    EXPECT_EQ(DecodeChunk(Value())->chunk(), "abcd");
}

TEST_F(ChunkPackets, SizeBeyondTheStringSendsWhatThereIs) {
    const auto chunk = MakeChunk("abc");
    chunk->chunkSize = 1ULL << 40;

    const auto request = DecodeChunk(Build(*chunk));

    ASSERT_NE(request, nullptr);
    EXPECT_EQ(request->chunk(), "abc");
    EXPECT_EQ(request->chunksizeinbytes(), 3);
}

TEST_F(ChunkPackets, MemoryServesTheNextChunk) {
    const auto chunk = MakeChunk(Pattern(200000));
    Build(*chunk);
    WatchMallocs(100000);

    EXPECT_TRUE(Build(*chunk) == PlainFrame(*chunk));
    Build(*MakeChunk("abc"));

    EXPECT_EQ(WatchedMallocs(), 0U);
    WatchMallocs(0);
}

TEST_F(ChunkPackets, MemoryServesAPacketThatFillsIt) {
    constexpr size_t MEMORY = 262144;
    Build(*MakeChunk(std::string(200000, 'x')));
    const size_t otherBytes = packet.PacketLength() - 200000;
    const auto filling = MakeChunk(std::string(MEMORY - ROOM_AROUND - otherBytes, 'x'));
    Build(*filling);
    WatchMallocs(MEMORY);

    Build(*filling);

    EXPECT_EQ(WatchedMallocs(), 0U);
    WatchMallocs(0);
}

TEST_F(ChunkPackets, TrimKeepsWhatIsUsualAndDropsWhatIsHuge) {
    Build(*MakeChunk(Pattern(200000)));
    const IdeTlvReq* usual = packet.Packet();
    packet.Trim();
    EXPECT_EQ(packet.Packet(), usual);

    Build(*MakeChunk(std::string(KEPT, 'x')));
    packet.Trim();
    EXPECT_EQ(packet.Packet(), nullptr);
}

TEST_F(ChunkPackets, TrimKeepsWhatJustFitsIntoTheLimit) {
    Build(*MakeChunk(std::string(KEPT - 1000, 'x')));
    const size_t otherBytes = packet.PacketLength() - (KEPT - 1000);
    const size_t fitting = KEPT - ROOM_AROUND - otherBytes;

    ChunkPacket kept;
    ASSERT_EQ(kept.Build(*MakeChunk(std::string(fitting, 'x'))), 0);
    kept.Trim();
    EXPECT_NE(kept.Packet(), nullptr);
    ChunkPacket dropped;
    ASSERT_EQ(dropped.Build(*MakeChunk(std::string(fitting + 1, 'x'))), 0);
    dropped.Trim();
    EXPECT_EQ(dropped.Packet(), nullptr);
}

TEST_F(ChunkPackets, WantOfMemoryFailsTheBuildAndNotTheNext) {
    const auto chunk = MakeChunk(Pattern(200000));
    FailingMalloc failing(200000);

    EXPECT_EQ(packet.Build(*chunk), -1);
    EXPECT_EQ(failing.Failed(), 1U);
    EXPECT_TRUE(Build(*chunk) == PlainFrame(*chunk));
}

}  // namespace tiv::test
