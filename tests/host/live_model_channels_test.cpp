// Channels and bytes of the live view: which stream they belong to, and their rates.
#include <gtest/gtest.h>

#include "host/channel_bytes.h"
#include "host/live_bench.h"

namespace tiv::test {
namespace {

using host::ChannelSource;
using host::LiveSnapshot;

constexpr const char* LLC = "data/llc.data";

// What the feed counts of a channel's file.
host::FeedCounts Counted(uint64_t bytes) {
    host::FeedCounts counts;
    counts.bytes = bytes;
    counts.streams.push_back({0, host::FileKind::CHANNEL, "llc.data", bytes, 1});
    return counts;
}

// Two files of a device, and one of the same name of another device.
host::FeedCounts ThreeFiles() {
    host::FeedCounts counts = Counted(1);
    counts.streams.push_back({0, host::FileKind::CHANNEL, "other.data", 1, 1});
    counts.streams.push_back({1, host::FileKind::CHANNEL, "llc.data", 1, 1});
    return counts;
}

TEST(LiveModel, ReadingsOfWhatWasNeverNamedAreLeftOut) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    bench.model.OnMemory({0, SECOND_NS, 7, 1000});
    bench.model.OnChannelCount({7, SECOND_NS, 0, 0, 10, SECOND_NS});
    bench.model.OnChannelLoss({7, SECOND_NS, 5});

    const LiveSnapshot snapshot = bench.Snapshot();

    EXPECT_FALSE(snapshot.memory.totalBytes.has_value());
    EXPECT_TRUE(snapshot.streams.at(0).events.empty());
    EXPECT_EQ(0u, snapshot.streams.at(0).lostRecords);
}

TEST(LiveModel, BytesPerSecondNeedTwoCounts) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1000), 5 * SECOND_NS);
    EXPECT_FALSE(bench.Snapshot().bytesPerSecond.has_value());
    EXPECT_FALSE(bench.Snapshot().streams.at(0).bytesPerSecond.has_value());

    bench.model.TakeCounts(Counted(5000), 7 * SECOND_NS);

    EXPECT_EQ(2000, bench.Snapshot().bytesPerSecond);
    EXPECT_EQ(2000, bench.Snapshot().streams.at(0).bytesPerSecond);
    EXPECT_EQ(5000u, bench.Snapshot().streams.at(0).bytes);
}

TEST(LiveModel, BytesPerSecondForgetWhatIsLongAgo) {
    LiveBench bench;
    for (uint64_t second = 0; second <= 30; ++second) {
        bench.model.TakeCounts(Counted(second < 20 ? 0 : 4000), second * SECOND_NS);
    }

    EXPECT_EQ(0, bench.Snapshot().bytesPerSecond);
}

TEST(LiveModel, EventsOfAChannelHaveRates) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    bench.Give(LLC, "# started\n1.000 500 loads\n1.500 200 loads\n2.000 100 loads\n");
    bench.Give(LLC, "2.000 <not supported> stores\n");

    const auto events = bench.Snapshot().streams.at(0).events;
    ASSERT_EQ(1u, events.size());
    EXPECT_EQ("loads", events[0].name);
    EXPECT_DOUBLE_EQ(300, events[0].perSecond.value_or(-1));
}

TEST(LiveModel, ChannelBehindAGapHasNoRatesUntilItIsReadAgain) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    bench.Give(LLC, "# started\n1.000 500 loads\n1.500 200 loads\n");

    bench.Give(LLC, "7.000 1", true);
    ASSERT_EQ(1u, bench.Snapshot().streams.at(0).events.size());
    EXPECT_FALSE(bench.Snapshot().streams.at(0).events[0].perSecond.has_value());
    bench.Give(LLC, "00 loads\n8.000 400 loads\n");

    ASSERT_EQ(1u, bench.Snapshot().streams.at(0).events.size());
    EXPECT_EQ(400, bench.Snapshot().streams.at(0).events[0].perSecond);
}

// A record waits for what comes behind it, which might be a header.
const std::string NEXT = Count(2 * SECOND_NS, 1, 0, 1);

// Two seconds of an event on two cores, 10 and 20 times in the second one.
std::string CountsOfTwoCores() {
    return PerfHeader() + Count(SECOND_NS, 0, 0, 5) + Count(SECOND_NS, 0, 1, 7) +
           Count(2 * SECOND_NS, 0, 0, 10) + Count(2 * SECOND_NS, 0, 1, 20);
}

TEST(LiveModel, CountsOfTheCoresAddUpAndLossesAreTold) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);

    bench.Give(LLC, CountsOfTwoCores() + Count(2 * SECOND_NS, UINT32_MAX, UINT32_MAX, 44) +
                        Count(2 * SECOND_NS, UINT32_MAX, UINT32_MAX, 6) + NEXT);

    const auto stream = bench.Snapshot().streams.at(0);
    EXPECT_EQ("software events", stream.source);
    EXPECT_EQ(50u, stream.lostRecords);
    ASSERT_EQ(2u, stream.events.size());
    EXPECT_DOUBLE_EQ(30, stream.events[0].perSecond.value_or(-1));
    EXPECT_FALSE(stream.events[1].perSecond.has_value());
}

TEST(LiveModel, DriversChannelBehindAGapIsReadFromItsNextHeader) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    bench.Give(LLC, CountsOfTwoCores());

    bench.Give(LLC, Count(3 * SECOND_NS, 0, 0, 1).substr(5) + CountsOfTwoCores() + NEXT, true);

    const auto events = bench.Snapshot().streams.at(0).events;
    ASSERT_EQ(2u, events.size());
    EXPECT_DOUBLE_EQ(30, events[0].perSecond.value_or(-1));
}

// A channel of a file of some device, with the events "loads" and "stores".
void Start(LiveBench& bench, uint32_t channel, int deviceId, const std::string& file,
           ChannelSource source = ChannelSource::PERF,
           const std::vector<std::string>& events = {"loads", "stores"}) {
    bench.model.OnChannel({deviceId, channel, channel, file, "source", source,
                           host::ChannelClock::RAW_MONOTONIC, 10, events});
}

// The channel counts 10 of its first event within a second.
void CountTen(LiveBench& bench, uint32_t channel, int32_t core = 0) {
    bench.model.OnChannelCount({channel, 2 * SECOND_NS, 0, core, 10, SECOND_NS});
}

TEST(LiveModel, ChannelsBelongToTheStreamOfTheirDeviceAndFile) {
    LiveBench bench;
    bench.model.TakeCounts(ThreeFiles(), SECOND_NS);
    Start(bench, 1, 0, LLC, ChannelSource::PERF, {"a"});
    Start(bench, 2, 0, "other.data", ChannelSource::PERF, {"b"});
    Start(bench, 3, 1, LLC, ChannelSource::PERF, {"c"});

    const auto streams = bench.Snapshot().streams;

    for (const size_t i : {0u, 1u, 2u}) {
        ASSERT_EQ(1u, streams.at(i).events.size());
        EXPECT_EQ(std::string(1, static_cast<char>('a' + i)), streams[i].events[0].name);
    }
}

TEST(LiveModel, ChannelThatStartsAnewTakesThePlaceOfItsFormerSelfOnly) {
    LiveBench bench;
    bench.model.TakeCounts(ThreeFiles(), SECOND_NS);
    Start(bench, 1, 0, LLC);
    Start(bench, 2, 0, "data/other.data");
    Start(bench, 3, 1, LLC);
    for (const uint32_t channel : {1u, 2u, 3u}) {
        CountTen(bench, channel);
    }

    Start(bench, 4, 0, LLC);

    const auto streams = bench.Snapshot().streams;
    EXPECT_EQ(2u, streams.at(0).events.size());
    EXPECT_FALSE(streams[0].events.at(0).perSecond.has_value());
    EXPECT_EQ(10, streams.at(1).events.at(0).perSecond);
    EXPECT_EQ(10, streams.at(2).events.at(0).perSecond);
}

TEST(LiveModel, EventsOfAStatisticStandSideBySide) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    Start(bench, 1, 0, LLC, ChannelSource::STATISTIC, {"loads"});
    Start(bench, 2, 0, LLC, ChannelSource::STATISTIC, {"stores"});
    CountTen(bench, 2);

    Start(bench, 3, 0, LLC, ChannelSource::STATISTIC, {"loads"});

    const auto stream = bench.Snapshot().streams.at(0);
    EXPECT_EQ("", stream.source);
    ASSERT_EQ(2u, stream.events.size());
    EXPECT_EQ("stores", stream.events[0].name);
    EXPECT_EQ(10, stream.events[0].perSecond);
    EXPECT_EQ("loads", stream.events[1].name);
}

TEST(LiveModel, GapOfAFileIsNoneOfOthers) {
    LiveBench bench;
    bench.model.TakeCounts(ThreeFiles(), SECOND_NS);
    Start(bench, 1, 0, LLC);
    Start(bench, 2, 0, "data/other.data");
    Start(bench, 3, 1, LLC);
    for (const uint32_t channel : {1u, 2u, 3u}) {
        CountTen(bench, channel);
    }

    bench.model.ForgetChannels(0, LLC);

    const auto streams = bench.Snapshot().streams;
    EXPECT_FALSE(streams.at(0).events.at(0).perSecond.has_value());
    EXPECT_EQ(10, streams.at(1).events.at(0).perSecond);
    EXPECT_EQ(10, streams.at(2).events.at(0).perSecond);
}

TEST(LiveModel, SumThatTheChannelGivesCountsAloneWhenItIsKnown) {
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    Start(bench, 1, 0, LLC);
    CountTen(bench, 1, 0);
    bench.model.OnChannelCount({1, SECOND_NS, 0, host::ALL_CORES, 77, {}});
    EXPECT_EQ(10, bench.Snapshot().streams.at(0).events.at(0).perSecond);

    CountTen(bench, 1, host::ALL_CORES);
    EXPECT_EQ(10, bench.Snapshot().streams.at(0).events.at(0).perSecond);
    EXPECT_FALSE(bench.Snapshot().streams.at(0).events.at(1).perSecond.has_value());
}

TEST(LiveModel, ChannelsBeyondTheMostThatAreKeptAreLeftOut) {
    constexpr uint32_t MOST = 256;
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    for (uint32_t channel = 1; channel <= MOST + 1; ++channel) {
        Start(bench, channel, 0, LLC, ChannelSource::STATISTIC, {std::to_string(channel)});
    }

    const auto events = bench.Snapshot().streams.at(0).events;

    EXPECT_EQ(MOST, events.size());
    EXPECT_EQ("256", events.back().name);
}

TEST(LiveModel, CountsOfMoreCoresThanAreKeptAreLeftOut) {
    constexpr int32_t MOST = 4096;
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    Start(bench, 1, 0, LLC);
    for (int32_t core = 0; core < MOST + 10; ++core) {
        CountTen(bench, 1, core);
    }

    EXPECT_EQ(10 * MOST, bench.Snapshot().streams.at(0).events.at(0).perSecond);
}

TEST(LiveModel, CoresThatAreKeptAreReadOnWhenThereAreNoMore) {
    constexpr int32_t MOST = 4096;
    LiveBench bench;
    bench.model.TakeCounts(Counted(1), SECOND_NS);
    Start(bench, 1, 0, LLC);
    for (int32_t core = 0; core < MOST; ++core) {
        CountTen(bench, 1, core);
    }

    bench.model.OnChannelCount({1, 3 * SECOND_NS, 0, 7, 90, SECOND_NS});

    EXPECT_EQ(10 * MOST + 80, bench.Snapshot().streams.at(0).events.at(0).perSecond);
}

TEST(LiveModel, BytesPerSecondAreThoseOfTheDeviceAndTheKind) {
    LiveBench bench;
    host::FeedCounts counts;
    counts.streams.push_back({0, host::FileKind::OTHER, "llc.data", 50, 1});
    counts.streams.push_back({0, host::FileKind::CHANNEL, "llc.data", 100, 1});
    counts.streams.push_back({1, host::FileKind::CHANNEL, "llc.data", 200, 1});
    bench.model.TakeCounts(counts, SECOND_NS);
    counts.streams[1].bytes += 10;
    counts.streams[2].bytes += 20;

    bench.model.TakeCounts(counts, 2 * SECOND_NS);

    const auto streams = bench.Snapshot().streams;
    EXPECT_EQ(0, streams.at(0).bytesPerSecond);
    EXPECT_EQ(10, streams.at(1).bytesPerSecond);
    EXPECT_EQ(20, streams.at(2).bytesPerSecond);
}

}  // namespace
}  // namespace tiv::test
