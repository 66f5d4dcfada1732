// Tests of the buffers that travel between readers and link.
#include "transport/prof_channel_buffers.h"

#include <gtest/gtest.h>

#include "support/failing_new.h"

namespace analysis::rokt::transport {
namespace {

ProfChannelBuffers& Buffers() { return ProfChannelBuffers::Instance(); }

// Readers that a test attaches leave with it.
class ChannelBuffers : public testing::Test {
 protected:
    ~ChannelBuffers() override {
        for (; readers > 0; --readers) {
            Buffers().Detach();
        }
    }
    void Attach() {
        Buffers().Attach();
        ++readers;
    }
    void Detach() {
        Buffers().Detach();
        --readers;
    }

    int readers = 0;
};

TEST_F(ChannelBuffers, ChunkHasRoomForOneBufferAndDefaultFields) {
    const auto chunk = Buffers().MakeChunk();

    EXPECT_GE(chunk->chunk.capacity(), CHANNEL_BUFFER_SIZE);
    EXPECT_EQ(chunk->chunkSize, 0U);
    EXPECT_EQ(chunk->offset, -1);
    EXPECT_FALSE(chunk->isLastChunk);
}

TEST_F(ChannelBuffers, RoomComesBackWhileAReaderIsAttached) {
    Attach();
    auto chunk = Buffers().MakeChunk();
    const char* room = chunk->chunk.data();

    chunk.reset();
    EXPECT_EQ(Buffers().IdleCount(), 1U);

    tiv::test::FailNextNewOfAtLeast(CHANNEL_BUFFER_SIZE);
    chunk = Buffers().MakeChunk();
    tiv::test::FailNextNewOfAtLeast(0);

    EXPECT_EQ(chunk->chunk.data(), room);
    EXPECT_EQ(Buffers().IdleCount(), 0U);
}

TEST_F(ChannelBuffers, RoomIsFreedWithoutReaders) {
    Buffers().MakeChunk().reset();

    EXPECT_EQ(Buffers().IdleCount(), 0U);
}

TEST_F(ChannelBuffers, LastReaderTakesTheRoomAlong) {
    Attach();
    Buffers().MakeChunk().reset();

    Detach();

    EXPECT_EQ(Buffers().IdleCount(), 0U);
}

TEST_F(ChannelBuffers, KeepsFourBuffersForEachReader) {
    Attach();
    std::vector<std::shared_ptr<ProfileFileChunk>> chunks = {
        Buffers().MakeChunk(), Buffers().MakeChunk(), Buffers().MakeChunk(), Buffers().MakeChunk(),
        Buffers().MakeChunk()};

    chunks.clear();

    EXPECT_EQ(Buffers().IdleCount(), 4U);
}

TEST_F(ChannelBuffers, KeepsAtMost32Buffers) {
    std::vector<std::shared_ptr<ProfileFileChunk>> chunks;
    for (int i = 0; i < 33; ++i) {
        Attach();
        chunks.push_back(Buffers().MakeChunk());
    }

    chunks.clear();

    EXPECT_EQ(Buffers().IdleCount(), 32U);
}

TEST_F(ChannelBuffers, RoomThatWasTakenOutDoesNotComeBack) {
    Attach();
    auto chunk = Buffers().MakeChunk();
    chunk->chunk = "short";
    chunk->chunk.shrink_to_fit();

    chunk.reset();

    EXPECT_EQ(Buffers().IdleCount(), 0U);
}

}  // namespace
}  // namespace analysis::rokt::transport
