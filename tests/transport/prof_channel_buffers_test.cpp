// Tests of the buffers that travel between readers and link.
#include "transport/prof_channel_buffers.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "support/failing_new.h"

namespace analysis::rokt::transport {
namespace {

ProfChannelBuffers& Buffers() { return ProfChannelBuffers::Instance(); }

// The flags that the kernel gives for the mapping of an address.
std::string MappingFlags(uintptr_t address) {
    std::ifstream maps("/proc/self/smaps");
    std::string line;
    bool inside = false;
    while (std::getline(maps, line)) {
        std::istringstream words(line);
        uintptr_t first = 0;
        uintptr_t end = 0;
        char dash = 0;
        if (words >> std::hex >> first >> dash >> end && dash == '-') {
            inside = first <= address && address < end;
        } else if (inside && line.rfind("VmFlags:", 0) == 0) {
            return line + " ";
        }
    }
    return "";
}

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

TEST_F(ChannelBuffers, FreshRoomMayLieOnLargePages) {
    if (!std::filesystem::exists("/sys/kernel/mm/transparent_hugepage")) {
        GTEST_SKIP() << "this kernel has no transparent large pages";
    }
    const auto chunk = Buffers().MakeChunk();
    const auto middle = reinterpret_cast<uintptr_t>(chunk->chunk.data()) + CHANNEL_BUFFER_SIZE / 2;

    EXPECT_NE(MappingFlags(middle).find(" hg "), std::string::npos);
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

TEST_F(ChannelBuffers, GivingRoomBackTakesNoMemory) {
    std::vector<std::shared_ptr<ProfileFileChunk>> chunks;
    for (int i = 0; i < 32; ++i) {
        Attach();
        chunks.push_back(Buffers().MakeChunk());
    }
    const tiv::test::FailingNew failing;

    chunks.clear();

    EXPECT_EQ(failing.Failed(), 0U);
    EXPECT_EQ(Buffers().IdleCount(), 32U);
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
