// What the sources put behind the header.
#include <fcntl.h>
#include <linux/perf_event.h>
#include <time.h>

#include "channel_bench.h"
#include "soft_driver/channel_ring.h"
#include "soft_driver/channel_writer.h"
#include "soft_driver/pacer.h"
#include "soft_driver/perf_counters.h"
#include "soft_driver/perf_events.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/ready_set.h"
#include "soft_driver/replay_source.h"

namespace tiv::test {
namespace {

using soft_driver::ChannelRing;
using soft_driver::ChannelSettings;
using soft_driver::ChannelWriter;
using soft_driver::FindPerfEvent;
using soft_driver::Pacer;
using soft_driver::PerfEventWorks;
using soft_driver::PerfSource;
using soft_driver::ReadySet;
using soft_driver::ReplaySource;
using soft_driver::SourceKind;
using soft_driver::SourceSettings;
using soft_driver::StartRecord;
using std::chrono::milliseconds;

class Sources : public ChannelBench {};

TEST_F(Sources, PacedCounterLosesNothingThroughASmallRing) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "ring_bytes": 65536,
                  "bytes_per_second": 100000000000}]})");
    ASSERT_EQ(0, Start(0, 8));

    const std::string bytes = ReadBytes(0, 8, HEADER_BYTES + 8000000, 10007);

    EXPECT_TRUE(Numbers(1000000) == bytes.substr(HEADER_BYTES));
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, PacedCounterTellsTheBytesOfANumber) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "bytes_per_second": 1000000}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(8u, Word(ReadBytes(0, 8, HEADER_BYTES), 24));

    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, HeaderOfACounterMayBeReadInPieces) {
    Configure(R"({"channels": [{"id": 8, "name": "numbers", "source": "counter"}]})");
    ASSERT_EQ(0, Start(0, 8));

    const std::string bytes = ReadBytes(0, 8, HEADER_BYTES + 80, 7);

    EXPECT_EQ("TIVC", bytes.substr(0, 4));
    EXPECT_EQ(HEADER_BYTES, Word(bytes, 8));
    EXPECT_EQ("numbers" + std::string(25, '\0'), bytes.substr(32, 32));
    EXPECT_EQ(Numbers(10), bytes.substr(HEADER_BYTES));
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, CounterEndsAtItsLimit) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "limit_bytes": 80,
                  "bytes_per_second": 1000000}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(Numbers(10), ReadBytes(0, 8, HEADER_BYTES + 80).substr(HEADER_BYTES));
    char byte = 0;
    EXPECT_EQ(0, prof_channel_read(0, 8, &byte, 1));
}

TEST_F(Sources, CounterThatWaitsForRoomStopsAtOnce) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "ring_bytes": 65536,
                  "bytes_per_second": 100000000000}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, BurstIsHandedOverAtOnce) {
    Configure(R"({"channels": [{"id": 8, "source": "counter", "burst_bytes": 2097152,
                  "bytes_per_second": 2000000000, "limit_bytes": 2097152}]})");
    ASSERT_EQ(0, Start(0, 8));
    ASSERT_EQ(HEADER_BYTES, ReadBytes(0, 8, HEADER_BYTES).size());
    ProfPollPair pair{};
    std::string room(2097152, '\0');

    while (prof_channel_read(0, 8, room.data(), 0) == 0 && prof_channel_poll(&pair, 1, 5) == 0) {
    }

    EXPECT_EQ(2097152, prof_channel_read(0, 8, room.data(), 2097152));
    EXPECT_TRUE(Numbers(262144) == room);
}

TEST_F(Sources, ReplayDeliversTheFileOnce) {
    std::string content = Numbers(5000) + "tail";
    Configure(R"({"channels": [{"id": 8, "source": "replay", "ring_bytes": 65536, "file": ")" +
              directory_.Write("data", content) + R"("}]})");
    ASSERT_EQ(0, Start(0, 8));

    const std::string bytes = ReadBytes(0, 8, HEADER_BYTES + content.size());

    EXPECT_EQ(3u, Word(bytes, 12));
    EXPECT_EQ(0u, Word(bytes, 24));
    EXPECT_TRUE(content == bytes.substr(HEADER_BYTES));
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, ReplayGoesRoundAndRound) {
    Configure(R"({"channels": [{"id": 8, "source": "replay", "loop": true, "file": ")" +
              directory_.Write("data", "abc") + R"("}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ("abcabcabca", ReadBytes(0, 8, HEADER_BYTES + 10).substr(HEADER_BYTES));
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, ReplayAtARateDeliversTheFile) {
    Configure(
        R"({"channels": [{"id": 8, "source": "replay", "bytes_per_second": 100000, "file": ")" +
        directory_.Write("data", "paced bytes") + R"("}]})");
    ASSERT_EQ(0, Start(0, 8));

    EXPECT_EQ("paced bytes", ReadBytes(0, 8, HEADER_BYTES + 11).substr(HEADER_BYTES));
}

TEST_F(Sources, ReplayOfAMissingFileDoesNotStart) {
    const std::string file = directory_.Path("absent");
    Configure(R"({"channels": [{"id": 8, "source": "replay", "file": ")" + file + R"("}]})");
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(-1, Start(0, 8));
    EXPECT_EQ(ENOENT, errno);

    EXPECT_EQ(
        "tiv_driver: warning: replay cannot start: file=" + file + ": No such file or directory\n",
        ::testing::internal::GetCapturedStderr());
    ProfPollPair pair{};
    EXPECT_EQ(-4, prof_channel_poll(&pair, 1, 3600));
    EXPECT_EQ(-1, Start(0, 8));
    EXPECT_EQ(ENOENT, errno);
}

TEST(PacerTest, PortionIsAHundredthOfASecondInWholeNumbers) {
    EXPECT_EQ(1000000u, Pacer(100000000, 0, {}).PortionBytes());
    EXPECT_EQ(8u, Pacer(100, 0, {}).PortionBytes());
    EXPECT_EQ(2097152u, Pacer(100, 2097152, {}).PortionBytes());
    EXPECT_FALSE(Pacer(0, 0, {}).IsPaced());
}

TEST(PacerTest, PortionsFollowTheRateAndMakeUpForATenthOfASecondAtMost) {
    const ReadySet::Clock::time_point start{};
    Pacer pacer(1000, 10, start);

    EXPECT_EQ(start + milliseconds(10), pacer.Next(start));
    EXPECT_EQ(start + milliseconds(20), pacer.Next(start + milliseconds(15)));
    EXPECT_EQ(start + milliseconds(900), pacer.Next(start + milliseconds(1000)));
}

TEST(PerfEvents, NamesMeanTheKernelsNumbers) {
    EXPECT_EQ(PERF_TYPE_SOFTWARE, FindPerfEvent("page-faults")->type);
    EXPECT_EQ(PERF_COUNT_SW_PAGE_FAULTS, FindPerfEvent("page-faults")->config);
    EXPECT_EQ(PERF_TYPE_HARDWARE, FindPerfEvent("cache-misses")->type);
    EXPECT_EQ(PERF_COUNT_HW_CACHE_MISSES, FindPerfEvent("cache-misses")->config);
    EXPECT_EQ(PERF_TYPE_HW_CACHE, FindPerfEvent("LLC-store-misses")->type);
    EXPECT_EQ(0x10102u, FindPerfEvent("LLC-store-misses")->config);
    EXPECT_FALSE(FindPerfEvent("LLC-").has_value());
}

#define NEEDS_COUNTERS()                                                        \
    if (!PerfEventWorks("context-switches")) {                                  \
        GTEST_SKIP() << "the kernel refuses system-wide counters to this user"; \
    }

constexpr const char* SOFTWARE =
    R"({"channels": [{"id": 8, "name": "software events", "source": "perf",
        "events": ["page-faults", "context-switches"]}]})";

TEST_F(Sources, PerfHeaderNamesClockPeriodAndEvents) {
    NEEDS_COUNTERS();
    Configure(SOFTWARE);
    ASSERT_EQ(0, Start(0, 8, 7));

    const std::string header = ReadBytes(0, 8, 104);

    EXPECT_EQ(104u, Word(header, 8));
    EXPECT_EQ(1u, Word(header, 12));
    EXPECT_EQ(4u, Word(header, 16));
    EXPECT_EQ(7u, Word(header, 20));
    EXPECT_EQ(24u, Word(header, 24));
    EXPECT_STREQ("software events", header.c_str() + 32);
    EXPECT_EQ(2u, Word(header, 64));
    EXPECT_EQ(std::string("page-faults\0context-switches\0\0\0\0\0\0\0\0", 36), header.substr(68));
    EXPECT_EQ(0, prof_stop(0, 8));
}

uint64_t RawNow() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_RAW, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1000000000 + static_cast<uint64_t>(now.tv_nsec);
}

TEST_F(Sources, PerfRecordsComePerEventAndPeriodWithTheSum) {
    NEEDS_COUNTERS();
    Configure(SOFTWARE);
    const uint64_t before = RawNow();
    ASSERT_EQ(0, Start(0, 8, 1));

    const std::string records = ReadBytes(0, 8, 104 + 200 * 24).substr(104);
    ASSERT_EQ(0, prof_stop(0, 8));

    uint64_t last = before;
    uint64_t switches = 0;
    for (size_t i = 0; i < 200; ++i) {
        EXPECT_EQ(i % 2, Word(records, i * 24 + 8));
        EXPECT_EQ(UINT32_MAX, Word(records, i * 24 + 12));
        EXPECT_LE(last, Quad(records, i * 24));
        last = Quad(records, i * 24);
        switches += i % 2 * Quad(records, i * 24 + 16);
    }
    EXPECT_LE(100u, switches);  // the source itself sleeps once per period
    EXPECT_GE(RawNow(), last);
}

TEST_F(Sources, PerfRecordsPerCpuNameTheCpu) {
    NEEDS_COUNTERS();
    Configure(R"({"channels": [{"id": 8, "source": "perf", "events": ["cpu-clock"],
                  "per_cpu": true, "period_ms": 1}]})");
    ASSERT_EQ(0, Start(0, 8));
    const size_t cpus = static_cast<size_t>(sysconf(_SC_NPROCESSORS_ONLN));
    const size_t header = 80;

    const std::string records = ReadBytes(0, 8, header + cpus * 24).substr(header);

    EXPECT_EQ(0u, Word(records, 12));
    EXPECT_NE(0u, Quad(records, 16));
    EXPECT_EQ(cpus - 1, Word(records, (cpus - 1) * 24 + 12));
    EXPECT_EQ(0, prof_stop(0, 8));
}

TEST_F(Sources, PerfEventThatTheMachineLacksIsNamedWithWhatToChange) {
    if (PerfEventWorks("LLC-loads")) {
        GTEST_SKIP() << "this machine counts its last-level cache";
    }
    Configure(R"({"channels": [{"id": 8, "source": "perf"}]})");
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(-1, Start(0, 8));

    const std::string line = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, line.find("tiv_driver: warning: perf source cannot start: channel=8 "
                            "event=LLC-loads: "))
        << line;
    EXPECT_NE(std::string::npos, line.find("TIV_DRIVER_CONFIG")) << line;
}

// Takes what a ring holds.
std::string Drain(ReadySet& ready, const ReadySet::EntryPtr& entry, ChannelRing& ring) {
    uint64_t bytes = 0;
    (void)ready.Readable(entry, &bytes);
    std::string out(bytes, '\0');
    ring.Read(out.data(), bytes);
    ready.Take(entry, bytes);
    return out;
}

// What a looped replay delivers before it ends by itself.
std::string Delivered(ReplaySource& source) {
    ReadySet ready;
    const ReadySet::EntryPtr entry = ready.Open({0, 8}, 0);
    ChannelRing ring(1024);
    ChannelWriter writer(ring, ready, entry);
    source.Run(writer);
    return Drain(ready, entry, ring);
}

SourceSettings LoopOf(const std::string& file) {
    SourceSettings settings;
    settings.kind = SourceKind::REPLAY;
    settings.file = file;
    settings.loop = true;
    return settings;
}

TEST_F(Sources, LoopedFileWithoutAByteEndsItsReplay) {
    ReplaySource source(LoopOf(directory_.Write("data", "")));
    ASSERT_TRUE(source.Prepare({}));

    EXPECT_EQ("", Delivered(source));
}

TEST_F(Sources, LoopedPipeEndsItsReplayWithItsWriters) {
    const std::string pipe = directory_.Path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    const int writer = open(pipe.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(5, write(writer, "bytes", 5));
    ReplaySource source(LoopOf(pipe));
    ASSERT_TRUE(source.Prepare({}));
    ASSERT_EQ(0, close(writer));

    EXPECT_EQ("bytes", Delivered(source));
}

TEST_F(Sources, ClosedChannelIsLetGoWhileOthersAreOpen) {
    ReadySet ready;
    ReadySet::EntryPtr closed = ready.Open({0, 8}, 0);
    const std::weak_ptr<ReadySet::Entry> watch = closed;
    const ReadySet::EntryPtr other = ready.Open({1, 8}, 0);
    ready.Add(closed, 5);
    ready.Add(other, 5);

    ready.Close(closed);
    closed.reset();

    EXPECT_TRUE(watch.expired());
    ProfPollPair pairs[2] = {};
    ASSERT_EQ(1, ready.Poll(pairs, 2, std::chrono::seconds(50)));
    EXPECT_EQ(1u, pairs[0].devId);
}

TEST_F(Sources, BytesBehindTheCloseReportNoChannel) {
    ReadySet ready;
    const ReadySet::EntryPtr closed = ready.Open({0, 8}, 0);
    const ReadySet::EntryPtr other = ready.Open({1, 8}, 0);
    ready.Close(closed);

    ready.Add(closed, 5);

    ProfPollPair pair{};
    EXPECT_EQ(0, ready.Poll(&pair, 1, std::chrono::seconds(0)));
    EXPECT_EQ(5u, ready.Used(closed));
}

TEST_F(Sources, FullRingOfPerfIsToldInARecordAndInTheLog) {
    NEEDS_COUNTERS();
    ChannelSettings settings;
    settings.id = 8;
    settings.source.kind = SourceKind::PERF;
    settings.source.events = {"cpu-clock", "page-faults"};
    PerfSource source(settings);
    ASSERT_TRUE(source.Prepare(StartRecord{1, {}}));
    ReadySet ready;
    const ReadySet::EntryPtr entry = ready.Open({0, 8}, 0);
    ChannelRing ring(120);
    ChannelWriter writer(ring, ready, entry);
    const StderrPipe log;
    Worker producer([&] { source.Run(writer); });

    EXPECT_EQ("tiv_driver: warning: records are dropped: channel=8: its ring is full\n",
              log.NextLine());
    EXPECT_EQ(96u, Drain(ready, entry, ring).size());
    ProfPollPair pair{};
    EXPECT_EQ(1, ready.Poll(&pair, 1, std::chrono::seconds(50)));
    const std::string records = Drain(ready, entry, ring);
    ready.Close(entry);
    producer.Join();

    EXPECT_EQ(UINT32_MAX, Word(records, 8));
    EXPECT_EQ(UINT32_MAX, Word(records, 12));
    EXPECT_LT(0u, Quad(records, 16));
    EXPECT_EQ(0u, Word(records, 24 + 8));
    EXPECT_LE(Quad(records, 16), source.Dropped());
}

TEST_F(Sources, WithoutConfigurationChannel8CountsTheCacheWhereItCan) {
    if (!PerfEventWorks("LLC-loads")) {
        GTEST_SKIP() << "this machine cannot count its last-level cache";
    }
    ProfDrvChannelList list{};

    ASSERT_EQ(0, prof_drv_get_channels(0, &list));

    EXPECT_EQ(1u, list.channelNum);
    EXPECT_EQ(8u, list.channels[0].channelId);
    EXPECT_STREQ("llc", list.channels[0].channelName);
}

TEST_F(Sources, WithoutCacheCountersASilentChannelKeepsTheListValidAndIsToldOnce) {
    if (PerfEventWorks("LLC-loads") || PerfEventWorks("LLC-stores")) {
        GTEST_SKIP() << "this machine counts its last-level cache";
    }
    ProfDrvChannelList list{};
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(0, prof_drv_get_channels(0, &list));
    EXPECT_EQ(0, prof_drv_get_channels(0, &list));
    EXPECT_EQ(0, Start(0, 1));
    EXPECT_EQ(-1, Start(0, 8));

    const std::string line = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(0u, line.find("tiv_driver: warning: channel 8 is absent: ")) << line;
    EXPECT_EQ(line.size() - 1, line.find('\n')) << line;
    EXPECT_EQ(1u, list.channelNum);
    EXPECT_EQ(1u, list.channels[0].channelId);
    EXPECT_EQ(0, prof_stop(0, 1));
}

}  // namespace
}  // namespace tiv::test
