// What a perf source makes of the kernel's counters.
#include "channel_bench.h"
#include "refused_calls.h"
#include "soft_driver/channel_ring.h"
#include "soft_driver/channel_writer.h"
#include "soft_driver/perf_counters.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/ready_set.h"

namespace tiv::test {
namespace {

using soft_driver::ChannelRing;
using soft_driver::ChannelSettings;
using soft_driver::ChannelWriter;
using soft_driver::PerfCounters;
using soft_driver::PerfSource;
using soft_driver::ReadySet;
using soft_driver::StartRecord;

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

    const CountingMachine machine_;
};

TEST_F(GivenCounters, CountOfPartOfTheTimeIsScaledUpToTheWhole) {
    EXPECT_EQ((Counts{500}), FirstCounts(5, 100, 1));
    EXPECT_EQ((Counts{10}), FirstCounts(5, 100, 50));
}

TEST_F(GivenCounters, CountOfTheWholeTimeIsKeptExactly) {
    EXPECT_EQ((Counts{9007199254740993}), FirstCounts(9007199254740993, 100, 100));
}

TEST_F(GivenCounters, EventThatWasNeverMeasuredGivesNone) {
    EXPECT_EQ((Counts{}), FirstCounts(0, 100, 0));
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

}  // namespace
}  // namespace tiv::test
