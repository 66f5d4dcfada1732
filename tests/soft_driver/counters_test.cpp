// What a perf source makes of the kernel's counters.
#include "channel_bench.h"
#include "refused_calls.h"
#include "soft_driver/channel.h"
#include "soft_driver/channel_ring.h"
#include "soft_driver/channel_table.h"
#include "soft_driver/channel_writer.h"
#include "soft_driver/perf_counters.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/ready_set.h"
#include "soft_driver/settings.h"
#include "support/failing_new.h"

namespace tiv::test {
namespace {

using soft_driver::Channel;
using soft_driver::ChannelRing;
using soft_driver::ChannelSettings;
using soft_driver::ChannelTable;
using soft_driver::ChannelWriter;
using soft_driver::DeviceSettings;
using soft_driver::PerfCounters;
using soft_driver::PerfSource;
using soft_driver::ReadySet;
using soft_driver::SourceKind;
using soft_driver::StartRecord;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

using Counts = std::vector<uint64_t>;

// Counters of one event that give these values at their first reading.
class GivenCounters : public ::testing::Test {
 protected:
    Counts FirstCounts(uint64_t count, uint64_t enabledNs, uint64_t runningNs) {
        PerfCounters counters;
        EXPECT_EQ("", counters.Open({"cpu-clock"}));
        CountingMachine::Give(count, enabledNs, runningNs);
        Counts counts;
        for (const auto& step : counters.Read()) {
            counts.push_back(step.count);
        }
        return counts;
    }

    static void GiveRising(uint64_t readings) {
        for (uint64_t i = 1; i <= readings; ++i) {
            CountingMachine::Give(i, i * 100, i * 100);
        }
    }

    const CountingMachine machine_;
};

TEST_F(GivenCounters, CountOfTheWholeTimeIsKeptExactly) {
    EXPECT_EQ((Counts{9007199254740993}), FirstCounts(9007199254740993, 100, 100));
}

TEST_F(GivenCounters, EventThatNoProcessorCountsCannotBeOpened) {
    const RefusedCall refused("syscall", ENODEV);
    PerfCounters counters;

    EXPECT_EQ("cpu-clock", counters.Open({"cpu-clock"}));

    EXPECT_EQ(1, RefusedCall::Count());
}

TEST_F(GivenCounters, NothingIsReadBeforeTheFirstPeriodIsOver) {
    ChannelSettings settings;
    settings.id = 8;
    settings.source.events = {"cpu-clock"};
    PerfSource source(settings);
    ASSERT_TRUE(source.Prepare(StartRecord{3600000, {}}));
    CountingMachine::Give(1, 1, 1);
    ReadySet ready;
    const ReadySet::EntryPtr entry = ready.Open({0, 8}, 0);
    ChannelRing ring(1024);
    ChannelWriter writer(ring, ready, entry);
    Worker producer([&] { source.Run(writer); });
    producer.WaitUntilBlocked();

    ready.Close(entry);
    producer.Join();

    EXPECT_EQ(0u, ready.Used(entry));
}

TEST_F(GivenCounters, FullRingIsToldOnceInTheLog) {
    ChannelSettings settings;
    settings.source.events = {"cpu-clock"};
    PerfSource source(settings);
    ASSERT_TRUE(source.Prepare(StartRecord{1, {}}));
    GiveRising(4);
    ReadySet ready;
    const ReadySet::EntryPtr entry = ready.Open({0, 8}, 0);
    ChannelRing ring(24);
    ChannelWriter writer(ring, ready, entry);
    CaptureStderr();
    Worker producer([&] { source.Run(writer); });
    while (!CountingMachine::AllRead()) {
        std::this_thread::yield();
    }
    ready.Close(entry);
    producer.Join();

    EXPECT_EQ("tiv_driver: warning: records are dropped: channel=0: its ring is full\n",
              GetCapturedStderr());
    EXPECT_EQ(2u, source.Dropped());
}

TEST_F(GivenCounters, SourceWithoutMemoryEndsAndItsChannelStays) {
    ChannelSettings settings;
    settings.id = 8;
    settings.source.kind = SourceKind::PERF;
    settings.source.events = std::vector<std::string>(32, "cpu-clock");
    ReadySet ready;
    Channel channel(3, settings, ready);
    ASSERT_TRUE(channel.Prepare(StartRecord{1, {}}));
    GiveRising(64);
    channel.Open();
    const StderrPipe log;
    FailNextNewOfAtLeast(600);  // a record per event takes 768 bytes
    channel.Begin();

    EXPECT_EQ("tiv_driver: warning: source ended: device=3 channel=8: std::bad_alloc\n",
              log.NextLine());
    char header[1000];
    EXPECT_EQ(392, channel.Read(header, sizeof(header)));
    channel.Stop();
    EXPECT_EQ(
        "tiv_driver: info: channel stopped: device=3 channel=8 source=perf header=392 "
        "delivered=392 lost=0 dropped=0\n",
        log.NextLine());
}

TEST(Counters, UnknownEventIsNamed) {
    PerfCounters counters;

    EXPECT_EQ("no-event", counters.Open({"no-event"}));
    EXPECT_EQ(ENOENT, errno);
    errno = 0;
    EXPECT_FALSE(soft_driver::PerfEventWorks("no-event"));
    EXPECT_EQ(ENOENT, errno);
}

TEST(Counters, CpusThatAreOfflineAreLeftOut) {
    const CountingMachine machine;
    PerfCounters counters;
    ASSERT_EQ("", counters.Open({"cpu-clock"}));

    CountingMachine::Give(5, 100, 100);

    ASSERT_EQ(1u, counters.Read().size());
    CountingMachine::Give(12, 200, 200);
    EXPECT_EQ(7u, counters.Read().at(0).count);
}

TEST(Counters, PartOfTheTimeIsScaledToTheWhole) {
    const CountingMachine machine;
    PerfCounters counters;
    ASSERT_EQ("", counters.Open({"cpu-clock"}));

    CountingMachine::Give(30, 400, 100);

    EXPECT_EQ(120u, counters.Read().at(0).count);
    CountingMachine::Give(50, 700, 200);
    EXPECT_EQ(60u, counters.Read().at(0).count);
}

TEST(Counters, TimeThatWasNotMeasuredBelongsToTheNextStep) {
    const CountingMachine machine;
    PerfCounters counters;
    ASSERT_EQ("", counters.Open({"cpu-clock"}));

    CountingMachine::Give(0, 100, 0);

    EXPECT_TRUE(counters.Read().empty());
    CountingMachine::Give(10, 200, 100);
    EXPECT_EQ(20u, counters.Read().at(0).count);
}

TEST(Counters, FailedReadingGivesNoStep) {
    const CountingMachine machine;
    PerfCounters counters;
    ASSERT_EQ("", counters.Open({"cpu-clock"}));
    CountingMachine::Give(5, 100, 100);
    const RefusedCall refused("read", EIO);

    EXPECT_TRUE(counters.Read().empty());

    EXPECT_EQ(5u, counters.Read().at(0).count);
}

TEST(Counters, ReadingOfNothingGivesNoStep) {
    const CountingMachine machine;
    PerfCounters counters;
    ASSERT_EQ("", counters.Open({"cpu-clock"}));

    EXPECT_TRUE(counters.Read().empty());

    CountingMachine::Give(5, 100, 100);
    EXPECT_EQ(5u, counters.Read().at(0).count);
}

TEST(Counters, MachineThatCountsItsCacheOffersChannel8) {
    const CountingMachine machine;

    const std::vector<ChannelSettings> offered = ChannelTable::Instance().Offered(DeviceSettings());

    ASSERT_EQ(1u, offered.size());
    EXPECT_EQ(8u, offered[0].id);
    EXPECT_EQ("llc", offered[0].name);
    EXPECT_EQ(1u, offered[0].type);
    EXPECT_EQ(SourceKind::PERF, offered[0].source.kind);
    EXPECT_EQ((std::vector<std::string>{"LLC-loads", "LLC-stores"}), offered[0].source.events);
    EXPECT_TRUE(offered[0].source.eventsAreDefault);
}

// The events of the cache channel after a start with these words.
std::vector<std::string> EventsFor(const std::vector<uint32_t>& words, uint32_t channel = 8,
                                   bool areDefault = true) {
    ChannelSettings settings;
    settings.id = channel;
    settings.source.events = {"cpu-clock"};
    settings.source.eventsAreDefault = areDefault;
    PerfSource source(settings);
    EXPECT_TRUE(source.Prepare(StartRecord{1, words}));
    return source.Describe().events;
}

TEST(Counters, StartOfTheCacheChannelChoosesItsSide) {
    const CountingMachine machine;
    using Events = std::vector<std::string>;

    EXPECT_EQ(Events{"LLC-loads"}, EventsFor({20, 1}));
    EXPECT_EQ(Events{"LLC-stores"}, EventsFor({20, 2}));
    EXPECT_EQ(Events{"cpu-clock"}, EventsFor({20, 0}));
    EXPECT_EQ(Events{"cpu-clock"}, EventsFor({20, 3}));
    EXPECT_EQ(Events{"cpu-clock"}, EventsFor({20}));
    EXPECT_EQ(Events{"cpu-clock"}, EventsFor({20, 2}, 9));
    EXPECT_EQ(Events{"cpu-clock"}, EventsFor({20, 1}, 8, false));
}

}  // namespace
}  // namespace tiv::test
