// Chunks that are longer than one send can be.
#include <gmock/gmock.h>
#include <sys/mman.h>
#include <unistd.h>

#include <climits>

#include "hdc/chunk_packet.h"
#include "hdc/chunk_support.h"
#include "hdc/hdc_fixture.h"
#include "support/failing_malloc.h"

namespace tiv::test {

using analysis::rokt::transport::ChunkPacket;

constexpr size_t WINDOW = 16777216;

// Lays the same few pages under all whole windows of the room that a text has reserved.
void ShareMemory(std::string& text) {
    const int pages = memfd_create("tiv_huge_chunk", MFD_CLOEXEC);
    ASSERT_EQ(ftruncate(pages, WINDOW), 0);
    const auto start = reinterpret_cast<uintptr_t>(text.data());
    const uintptr_t first = (start + WINDOW - 1) / WINDOW * WINDOW;
    for (uintptr_t at = first; at + WINDOW <= start + text.capacity(); at += WINDOW) {
        ASSERT_NE(mmap(reinterpret_cast<void*>(at), WINDOW, PROT_READ | PROT_WRITE,
                       MAP_SHARED | MAP_FIXED | MAP_POPULATE, pages, 0),
                  MAP_FAILED);
    }
    EXPECT_EQ(close(pages), 0);
}

class HugeChunks : public testing::Test {
 protected:
    HugeChunks() {
        chunk->chunk.reserve(INT_MAX);
        ShareMemory(chunk->chunk);
    }

    // Whether memory was asked for, of which there is none.
    bool AsksForMemory(size_t length) {
        const FailingMalloc failing(INT_MAX / 2);
        chunk->chunk.resize(length);
        chunk->chunkSize = length;
        EXPECT_EQ(packet.Build(*chunk), -1);
        return failing.Failed() != 0;
    }

    const std::shared_ptr<analysis::rokt::ProfileFileChunk> chunk = MakeChunk("");
    ChunkPacket packet;
};

TEST_F(HugeChunks, HaveNoPacketThatTheSignedLengthOfASendCannotTell) {
    constexpr size_t PACKET_HEADER = 12;
    constexpr size_t LIMIT = INT_MAX - PACKET_HEADER;
    constexpr size_t SHORT = LIMIT - 1000;
    EXPECT_TRUE(AsksForMemory(SHORT));
    const size_t fields = packet.ValueLength() - SHORT;

    EXPECT_TRUE(AsksForMemory(LIMIT - fields));
    EXPECT_FALSE(AsksForMemory(LIMIT - fields + 1));
    EXPECT_FALSE(AsksForMemory(LIMIT + 1));
}

}  // namespace tiv::test
