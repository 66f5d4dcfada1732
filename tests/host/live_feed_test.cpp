// The bounded way of chunks to the live view.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/live/live_feed.h"
#include "support/failing_new.h"

namespace tiv::test {
namespace {

using host::FileKind;
using host::LiveFeed;
using host::LiveTap;
using host::ReceivedChunk;

// Counts what it gets; can refuse.
class CountingSink : public host::ChunkSink {
 public:
    bool OnChunk(const ReceivedChunk& chunk) override {
        bytes += chunk.data.size();
        return good;
    }
    bool OnFinish() override { return good; }
    uint64_t bytes = 0;
    bool good = true;
};

void Offer(LiveFeed& feed, const std::string& name, const std::string& data, uint64_t time = 1) {
    feed.Offer(0, {name, 3, data}, time);
}

TEST(LiveFeed, ChunksComeInTheirOrderWithWhatTheyAre) {
    LiveFeed feed;
    feed.Offer(2, {"data/SystemCpuUsage.data", 3, "a"}, 7);
    feed.Offer(2, {"data/12-CpuUsage.data", 3, "b"}, 8);

    const auto chunks = feed.Take();

    ASSERT_EQ(2u, chunks.size());
    EXPECT_EQ(FileKind::SYSTEM_CPU, chunks[0].kind);
    EXPECT_EQ("a", chunks[0].data);
    EXPECT_EQ(7u, chunks[0].arrivalNs);
    EXPECT_EQ(FileKind::PROCESS_CPU, chunks[1].kind);
    EXPECT_EQ(12u, chunks[1].pid);
    EXPECT_EQ(2, chunks[1].deviceId);
    EXPECT_TRUE(feed.Take().empty());
}

TEST(LiveFeed, WhatTheViewCannotReadIsCountedButNotCopied) {
    LiveFeed feed;
    Offer(feed, "data/ai_ctrl_cpu.data", "1234");
    Offer(feed, "data/unknown", "12");

    EXPECT_TRUE(feed.Take().empty());
    EXPECT_EQ(6u, feed.Counts().bytes);
    EXPECT_EQ(2u, feed.Counts().chunks);
    EXPECT_EQ(0u, feed.Counts().skipped);
}

TEST(LiveFeed, ChunkForWhichThereIsNoMemoryIsSkippedAndEveryFileHasAGap) {
    LiveFeed feed;
    const std::string data(LiveFeed::MAX_CHUNK_BYTES, 'x');
    FailNextNewOfAtLeast(data.size());
    Offer(feed, "data/Memory.data", data);
    FailNextNewOfAtLeast(0);
    Offer(feed, "data/SystemCpuUsage.data", "c");

    const auto chunks = feed.Take();

    ASSERT_EQ(1u, chunks.size());
    EXPECT_TRUE(chunks[0].afterGap);
    EXPECT_EQ(1u, feed.Counts().skipped);
}

TEST(LiveFeed, LargeChunkIsSkippedAndTheNextOneOfItsFileTellsOfTheGap) {
    LiveFeed feed;
    Offer(feed, "data/llc.data", std::string(LiveFeed::MAX_CHUNK_BYTES + 1, 'x'));
    Offer(feed, "data/Memory.data", "m");
    Offer(feed, "data/llc.data", "y");
    Offer(feed, "data/llc.data", "z");

    const auto chunks = feed.Take();

    ASSERT_EQ(3u, chunks.size());
    EXPECT_FALSE(chunks[0].afterGap);
    EXPECT_TRUE(chunks[1].afterGap);
    EXPECT_FALSE(chunks[2].afterGap);
    EXPECT_EQ(1u, feed.Counts().skipped);
}

TEST(LiveFeed, QueueOfNobodyWhoReadsStaysBoundedByChunks) {
    LiveFeed feed;
    for (size_t i = 0; i < LiveFeed::MAX_WAITING_CHUNKS + 10; ++i) {
        Offer(feed, "data/Memory.data", "m");
    }

    EXPECT_EQ(LiveFeed::MAX_WAITING_CHUNKS, feed.Counts().waiting);
    EXPECT_EQ(10u, feed.Counts().skipped);
    EXPECT_EQ(LiveFeed::MAX_WAITING_CHUNKS, feed.Take().size());
    EXPECT_EQ(0u, feed.Counts().waiting);
    EXPECT_EQ(LiveFeed::MAX_WAITING_CHUNKS, feed.Counts().mostWaiting);
}

TEST(LiveFeed, QueueOfNobodyWhoReadsStaysBoundedByBytes) {
    LiveFeed feed;
    const std::string block(LiveFeed::MAX_CHUNK_BYTES, 'm');
    for (size_t i = 0; i < 100; ++i) {
        Offer(feed, "data/Memory.data", block);
    }

    EXPECT_EQ(LiveFeed::MAX_WAITING_BYTES, feed.Counts().waitingBytes);
    EXPECT_EQ(100 * block.size(), feed.Counts().bytes);
    (void)feed.Take();
    EXPECT_EQ(0u, feed.Counts().waitingBytes);
}

TEST(LiveFeed, StreamsAreCountedByNameAndThoseOfProcessesTogether) {
    LiveFeed feed;
    Offer(feed, "data/1-CpuUsage.data", "12");
    Offer(feed, "data/2-CpuUsage.data", "123");
    Offer(feed, "data/llc.data", "1");

    const auto streams = feed.Counts().streams;

    ASSERT_EQ(2u, streams.size());
    EXPECT_EQ("CPU of processes", streams[0].name);
    EXPECT_EQ(5u, streams[0].bytes);
    EXPECT_EQ(2u, streams[0].chunks);
    EXPECT_EQ("llc.data", streams[1].name);
}

TEST(LiveFeed, DeviceThatInventsNamesDoesNotGrowTheTable) {
    LiveFeed feed;
    for (int i = 0; i < 1000; ++i) {
        Offer(feed, "data/file" + std::to_string(i), "1");
    }

    const auto streams = feed.Counts().streams;
    uint64_t bytes = 0;
    for (const auto& stream : streams) {
        bytes += stream.bytes;
    }

    EXPECT_GE(65u, streams.size());
    EXPECT_EQ(1000u, bytes);
}

TEST(LiveFeed, KnownNameKeepsItsStreamWhenTheTableIsFull) {
    LiveFeed feed;
    for (int i = 0; i < 100; ++i) {
        Offer(feed, "file" + std::to_string(i), "1");
    }
    Offer(feed, "file0", "23");

    const auto streams = feed.Counts().streams;

    EXPECT_EQ("file0", streams.at(0).name);
    EXPECT_EQ(2u, streams.at(0).chunks);
    EXPECT_EQ(3u, streams.at(0).bytes);
}

TEST(LiveFeed, TooManyFilesWithGapsHaveAllOfThem) {
    constexpr int MOST = 65536;
    LiveFeed feed;
    const std::string large(LiveFeed::MAX_CHUNK_BYTES + 1, 'x');
    for (int i = 1; i <= MOST; ++i) {
        Offer(feed, "data/" + std::to_string(i) + "-CpuUsage.data", large);
    }
    Offer(feed, "data/Memory.data", "m");
    EXPECT_FALSE(feed.Take().at(0).afterGap);

    Offer(feed, "data/llc.data", large);
    Offer(feed, "data/Memory.data", "m");

    EXPECT_TRUE(feed.Take().at(0).afterGap);
    EXPECT_EQ(MOST + 1u, feed.Counts().skipped);
}

TEST(LiveFeed, OffersAndTakesOfSeveralThreadsLoseNothing) {
    LiveFeed feed;
    std::atomic<bool> done{false};
    size_t taken = 0;
    std::thread reader([&] {
        while (!done) {
            taken += feed.Take().size();
        }
    });
    std::thread first([&] {
        for (int i = 0; i < 2000; ++i) {
            Offer(feed, "data/Memory.data", "m");
        }
    });
    for (int i = 0; i < 2000; ++i) {
        Offer(feed, "data/SystemCpuUsage.data", "c");
    }
    first.join();
    done = true;
    reader.join();

    EXPECT_EQ(4000u, taken + feed.Take().size() + feed.Counts().skipped);
}

TEST(LiveTap, PassesEveryChunkOnAndTellsWhatTheFilesSay) {
    LiveFeed feed;
    CountingSink files;
    LiveTap tap(feed, 0, &files);

    EXPECT_TRUE(tap.OnChunk({"data/llc.data", 3, "1234"}));
    EXPECT_TRUE(tap.OnFinish());
    files.good = false;
    EXPECT_FALSE(tap.OnChunk({"data/llc.data", 3, "5"}));
    EXPECT_FALSE(tap.OnFinish());

    EXPECT_EQ(5u, files.bytes);
    EXPECT_EQ(5u, feed.Counts().bytes);
}

TEST(LiveTap, FullQueueKeepsNothingFromTheFiles) {
    LiveFeed feed;
    CountingSink files;
    LiveTap tap(feed, 0, &files);
    const std::string block(LiveFeed::MAX_CHUNK_BYTES, 'm');

    for (size_t i = 0; i < 1000; ++i) {
        EXPECT_TRUE(tap.OnChunk({"data/Memory.data", 3, block}));
    }

    EXPECT_EQ(1000 * block.size(), files.bytes);
}

TEST(LiveTap, WithoutFilesNothingIsKept) {
    LiveFeed feed;
    LiveTap tap(feed, 0, nullptr);

    EXPECT_TRUE(tap.OnChunk({"data/llc.data", 3, "1234"}));
    EXPECT_TRUE(tap.OnFinish());
    EXPECT_EQ(1u, feed.Take().size());
}

}  // namespace
}  // namespace tiv::test
