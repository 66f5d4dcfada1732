// The newest values out of a stream of chunks.
#include <gtest/gtest.h>

#include "host/live_bench.h"

namespace tiv::test {
namespace {

using host::LiveSnapshot;
using host::ProcessOrder;

constexpr const char* CPU = "data/SystemCpuUsage.data";
constexpr const char* MEMORY = "data/Memory.data";

std::string Cpu(uint64_t second, uint64_t user, uint64_t idle) {
    return Record(second * SECOND_NS, static_cast<uint32_t>(second),
                  CpuLine(" ", user, idle) + CpuLine("0", user, idle));
}

TEST(LiveModel, RatesNeedTwoReadings) {
    LiveBench bench;
    bench.Give(CPU, Cpu(1, 100, 100));
    EXPECT_FALSE(bench.Snapshot().cores.at(0).percent.has_value());

    bench.Give(CPU, Cpu(2, 130, 170));

    const LiveSnapshot snapshot = bench.Snapshot();
    ASSERT_EQ(2u, snapshot.cores.size());
    EXPECT_EQ(host::ALL_CORES, snapshot.cores[0].core);
    EXPECT_EQ(0, snapshot.cores[1].core);
    EXPECT_DOUBLE_EQ(30, (*snapshot.cores[1].percent)[host::USER]);
    EXPECT_DOUBLE_EQ(70, (*snapshot.cores[1].percent)[host::IDLE]);
}

TEST(LiveModel, RecordsCutAtAChunkBorderAreRead) {
    LiveBench bench;
    const std::string bytes = Cpu(1, 100, 100) + Cpu(2, 130, 170);
    for (const char byte : bytes) {
        bench.Give(CPU, std::string(1, byte));
    }

    EXPECT_DOUBLE_EQ(30, (*bench.Snapshot().cores.at(1).percent)[host::USER]);
}

TEST(LiveModel, CounterThatWentBackIsAGapAndNoSpike) {
    LiveBench bench;
    bench.Give(CPU, Cpu(1, 100, 100) + Cpu(2, 130, 170) + Cpu(3, 10, 10));
    EXPECT_FALSE(bench.Snapshot().cores.at(1).percent.has_value());

    bench.Give(CPU, Cpu(4, 20, 100));

    EXPECT_DOUBLE_EQ(10, (*bench.Snapshot().cores.at(1).percent)[host::USER]);
}

TEST(LiveModel, SkippedChunksStartTheReadingAnew) {
    LiveBench bench;
    bench.Give(CPU, Cpu(1, 100, 100) + Cpu(2, 130, 170).substr(0, 20));

    bench.Give(CPU, Cpu(9, 200, 200), true);
    EXPECT_FALSE(bench.Snapshot().cores.at(1).percent.has_value());
    bench.Give(CPU, Cpu(10, 250, 250));

    EXPECT_DOUBLE_EQ(50, (*bench.Snapshot().cores.at(1).percent)[host::USER]);
    EXPECT_EQ(0u, bench.reader.Unreadable());
}

TEST(LiveReader, FileThatBeginsBehindAGapIsRead) {
    LiveBench bench;
    bench.Give(CPU, Cpu(1, 100, 100), true);
    bench.Give(CPU, Cpu(2, 130, 170));

    EXPECT_DOUBLE_EQ(30, (*bench.Snapshot().cores.at(1).percent)[host::USER]);
}

TEST(LiveReader, FileOfNoKnownKindIsPassedOver) {
    LiveBench bench;
    bench.Give("data/unknown", Cpu(1, 100, 100));

    EXPECT_EQ(0u, bench.reader.Unreadable());
    EXPECT_TRUE(bench.Snapshot().cores.empty());
    EXPECT_TRUE(bench.Snapshot().devices.empty());
}

TEST(LiveModel, HistoryHasAValueForEachSecondAndNoneForAGap) {
    LiveBench bench;
    bench.Give(CPU, Cpu(1, 0, 0) + Cpu(2, 50, 50) + Cpu(3, 150, 50));
    bench.Give(CPU, Cpu(5, 150, 250), true);
    bench.Give(CPU, Cpu(6, 150, 350));

    const host::History expected = {50, 100, std::nullopt, std::nullopt, 0};
    EXPECT_EQ(expected, bench.Snapshot().cores.at(1).busyPercent);
}

TEST(LiveModel, MemoryIsInBytesAndWhatWasNotToldIsAbsent) {
    LiveBench bench;
    bench.Give(MEMORY, Record(1, 0, "MemTotal: 1000 kB\nMemAvailable: 250 kB\n"));

    const host::LiveMemory memory = bench.Snapshot().memory;
    EXPECT_EQ(1024000u, memory.totalBytes);
    EXPECT_EQ(256000u, memory.availableBytes);
    EXPECT_FALSE(memory.swapTotalBytes.has_value());
    EXPECT_EQ((host::History{75}), memory.usedPercent);
}

TEST(LiveModel, ShareOfTheMemoryNeedsATotalThatIsNotExceeded) {
    LiveBench bench;
    bench.Give(MEMORY, Record(1, 0, "MemAvailable: 250 kB\n"));
    bench.Give(MEMORY, Record(2, 1, "MemTotal: 0 kB\nMemAvailable: 0 kB\n"));
    bench.Give(MEMORY, Record(3, 2, "MemTotal: 1000 kB\nMemAvailable: 1001 kB\n"));
    EXPECT_TRUE(bench.Snapshot().memory.usedPercent.empty());

    bench.Give(MEMORY, Record(4, 3, "MemTotal: 1000 kB\nMemAvailable: 1000 kB\n"));

    EXPECT_EQ((host::History{0}), bench.Snapshot().memory.usedPercent);
}

TEST(LiveModel, ProcessHasNameCpuAndMemory) {
    LiveBench bench;
    bench.Give("data/7-Memory.data", Record(SECOND_NS, 0, ProcessPages(20, 10, "worker")));
    bench.Give("data/7-CpuUsage.data",
               Record(SECOND_NS, 0, ProcessStat(7, "worker", 100, 10)) +
                   Record(2 * SECOND_NS, 1, ProcessStat(7, "worker", 150, 20)));

    const auto processes = bench.Snapshot().processes;
    ASSERT_EQ(1u, processes.size());
    EXPECT_EQ("worker", processes[0].name);
    EXPECT_EQ(7u, processes[0].pid);
    EXPECT_EQ('R', processes[0].state);
    EXPECT_EQ(3u, processes[0].threads);
    EXPECT_DOUBLE_EQ(50, processes[0].userPercent.value_or(-1));
    EXPECT_DOUBLE_EQ(10, processes[0].systemPercent.value_or(-1));
    EXPECT_EQ(40960u, processes[0].residentBytes);
    EXPECT_EQ(81920u, processes[0].sizeBytes);
}

TEST(LiveModel, ProcessWithOneReadingHasNoRateAndStandsBehindThoseThatHave) {
    LiveBench bench;
    bench.Give("data/5-CpuUsage.data", Record(2 * SECOND_NS, 0, ProcessStat(5, "new", 900, 0)));
    bench.Give("data/6-CpuUsage.data", Record(SECOND_NS, 0, ProcessStat(6, "idle", 1, 0)) +
                                           Record(2 * SECOND_NS, 1, ProcessStat(6, "idle", 1, 0)));

    const auto processes = bench.Snapshot().processes;
    ASSERT_EQ(2u, processes.size());
    EXPECT_EQ("idle", processes[0].name);
    EXPECT_EQ(0, processes[0].userPercent);
    EXPECT_FALSE(processes[1].userPercent.has_value());
    EXPECT_FALSE(processes[1].residentBytes.has_value());
}

TEST(LiveModel, ProcessIdThatIsTakenAgainInheritsNothing) {
    LiveBench bench;
    bench.Give("data/7-CpuUsage.data", Record(SECOND_NS, 0, ProcessStat(7, "old", 100, 0)) +
                                           Record(2 * SECOND_NS, 1, ProcessStat(7, "old", 190, 0)));
    bench.Give("data/7-CpuUsage.data", Record(3 * SECOND_NS, 0, ProcessStat(7, "new", 1, 0, 300)));

    const auto processes = bench.Snapshot().processes;
    ASSERT_EQ(1u, processes.size());
    EXPECT_EQ("new", processes[0].name);
    EXPECT_FALSE(processes[0].userPercent.has_value());
}

TEST(LiveModel, ProcessesCanBeOrderedByCpuMemoryAndId) {
    LiveBench bench;
    for (const uint32_t pid : {1u, 2u, 3u}) {
        const uint64_t busy = pid == 2 ? 50 : pid;
        bench.Give(fmt::format("data/{}-CpuUsage.data", pid),
                   Record(SECOND_NS, 0, ProcessStat(pid, "p", 0, 0)) +
                       Record(2 * SECOND_NS, 1, ProcessStat(pid, "p", busy, 0)));
        bench.Give(fmt::format("data/{}-Memory.data", pid),
                   Record(SECOND_NS, 0, ProcessPages(9, 10 - pid, "p")));
    }

    EXPECT_EQ(2u, bench.Snapshot(ProcessOrder::CPU).processes[0].pid);
    EXPECT_EQ(1u, bench.Snapshot(ProcessOrder::MEMORY).processes[0].pid);
    EXPECT_EQ(1u, bench.Snapshot(ProcessOrder::PID).processes[0].pid);
    EXPECT_EQ(3u, bench.Snapshot(ProcessOrder::PID).processes[2].pid);
}

TEST(LiveModel, ProcessesBeyondTheMostThatAreKeptAreLeftOut) {
    constexpr uint32_t MOST = 65536;
    LiveBench bench;
    for (uint32_t pid = 1; pid <= MOST + 1; ++pid) {
        bench.Give(fmt::format("data/{}-CpuUsage.data", pid),
                   Record(SECOND_NS, 0, ProcessStat(pid, "p", 1, 0)));
    }

    bench.Give(fmt::format("data/{}-Memory.data", MOST + 2),
               Record(SECOND_NS, 0, ProcessPages(9, 9, "p")));

    EXPECT_EQ(MOST, bench.model.Processes());
}

TEST(LiveModel, CoresBeyondTheMostThatAreKeptAreLeftOut) {
    constexpr int32_t MOST = 4096;
    LiveBench bench;
    for (int32_t core = 0; core <= MOST; ++core) {
        bench.model.OnSystemCpu({0, SECOND_NS, core, {}, {}});
    }
    host::SystemCpuUse use{SECOND_NS, {}};
    use.percent[host::USER] = 30;
    bench.model.OnSystemCpu({0, 2 * SECOND_NS, 0, {}, use});

    const auto cores = bench.Snapshot().cores;

    EXPECT_EQ(static_cast<size_t>(MOST), cores.size());
    EXPECT_DOUBLE_EQ(30, (*cores[0].percent)[host::USER]) << "a known core is read on";
}

TEST(LiveModel, NameIsKeptUntilThereIsAnotherOne) {
    LiveBench bench;
    bench.Give("data/7-Memory.data", Record(SECOND_NS, 0, ProcessPages(20, 10, "worker")));

    bench.model.SetProcessName(7, "");
    bench.model.SetProcessName(8, "nobody");

    ASSERT_EQ(1u, bench.model.Processes());
    EXPECT_EQ("worker", bench.Snapshot().processes[0].name);
}

TEST(LiveReader, FilesBeyondTheMostThatAreReadAreLeftOut) {
    constexpr size_t MOST = 131072;
    LiveBench bench;
    bench.Give("data/5-CpuUsage.data", Record(SECOND_NS, 0, ProcessStat(5, "known", 0, 0)));
    for (size_t i = 1; i < MOST; ++i) {
        bench.Give(fmt::format("data/{}", i), "");
    }

    bench.Give("data/6-CpuUsage.data", Record(SECOND_NS, 0, ProcessStat(6, "late", 0, 0)));
    bench.Give("data/5-CpuUsage.data", Record(2 * SECOND_NS, 1, ProcessStat(5, "known", 50, 0)));

    ASSERT_EQ(1u, bench.model.Processes());
    EXPECT_EQ(50, bench.Snapshot().processes[0].userPercent);
}

TEST(LiveModel, ProcessThatIsNoLongerSeenGoes) {
    LiveBench bench;
    bench.Give("data/5-CpuUsage.data", Record(SECOND_NS, 0, ProcessStat(5, "gone", 1, 0)));
    bench.Give("data/6-CpuUsage.data", Record(2 * SECOND_NS, 0, ProcessStat(6, "stays", 1, 0)));
    bench.model.Prune();
    EXPECT_EQ(2u, bench.model.Processes());

    bench.Give("data/6-CpuUsage.data", Record(5 * SECOND_NS, 1, ProcessStat(6, "stays", 1, 0)));
    bench.model.Prune();

    ASSERT_EQ(1u, bench.model.Processes());
    EXPECT_EQ("stays", bench.Snapshot().processes[0].name);
}

TEST(LiveModel, FilesOfProcessesThatWentAreDropped) {
    LiveBench bench;
    const std::string record = Record(SECOND_NS, 0, ProcessStat(5, "back", 1, 0));
    bench.Give("data/5-CpuUsage.data", record.substr(0, 20));
    bench.reader.Prune(bench.arrivalNs + 1);

    bench.Give("data/5-CpuUsage.data", record);

    EXPECT_EQ(0u, bench.reader.Unreadable());
    EXPECT_EQ("back", bench.Snapshot().processes.at(0).name);
}

TEST(LiveModel, AgeOfAReadingIsCountedFromTheFastestChunk) {
    LiveBench bench;
    bench.Give(CPU, Cpu(100, 1, 1));
    EXPECT_DOUBLE_EQ(0, bench.Snapshot().cpuBehindSeconds.value_or(-1));
    bench.arrivalNs += 3 * SECOND_NS;
    bench.Give(MEMORY, Record(101 * SECOND_NS, 0, "MemTotal: 1000 kB\n"));

    EXPECT_DOUBLE_EQ(3, bench.Snapshot().cpuBehindSeconds.value_or(-1));
    EXPECT_DOUBLE_EQ(2, bench.Snapshot().memoryBehindSeconds.value_or(-1));
    EXPECT_FALSE(bench.Snapshot().processesBehindSeconds.has_value());
}

TEST(LiveModel, DamageIsCountedAndTheNextRecordRead) {
    LiveBench bench;
    bench.Give(CPU, "rubbish" + Cpu(1, 100, 100) + "rubbish" + Cpu(2, 130, 170));

    EXPECT_EQ(2u, bench.reader.Unreadable());
    EXPECT_DOUBLE_EQ(30, (*bench.Snapshot().cores.at(1).percent)[host::USER]);
}

TEST(RateWindow, CoversTheNewestSecondAndStaysSmall) {
    host::RateWindow<1> window;
    EXPECT_FALSE(window.PerSecond().has_value());
    for (uint64_t ms = 1; ms <= 5000; ++ms) {
        window.Add(ms * 1000000, 1000000, {ms <= 3500 ? 1.0 : 3.0});
    }

    EXPECT_NEAR(3000, window.PerSecond()->front(), 1e-6);
    window.Clear();
    EXPECT_FALSE(window.PerSecond().has_value());
}

TEST(RateWindow, LongIntervalCountsWhole) {
    host::RateWindow<1> window;
    window.Add(4 * SECOND_NS, 4 * SECOND_NS, {8});

    EXPECT_DOUBLE_EQ(2, window.PerSecond()->front());
}

TEST(RateWindow, ClockThatWentBackBeginsAnew) {
    host::RateWindow<1> window;
    window.Add(9 * SECOND_NS, SECOND_NS, {8});
    window.Add(5 * SECOND_NS, SECOND_NS, {2});

    EXPECT_DOUBLE_EQ(2, window.PerSecond()->front());
}

TEST(RateWindow, ManyIntervalsOfOneMomentStayBounded) {
    host::RateWindow<1> window;
    for (int i = 0; i < 1000; ++i) {
        window.Add(SECOND_NS, SECOND_NS, {i < 900 ? 1.0 : 3.0});
    }

    EXPECT_DOUBLE_EQ(3, window.PerSecond()->front());
}

TEST(RateWindow, ThirtyTwoIntervalsOfOneMomentAreKept) {
    host::RateWindow<1> window;
    window.Add(SECOND_NS, SECOND_NS, {64});
    for (int i = 1; i < 32; ++i) {
        window.Add(SECOND_NS, SECOND_NS, {0});
    }
    EXPECT_DOUBLE_EQ(2, window.PerSecond()->front());

    window.Add(SECOND_NS, SECOND_NS, {0});

    EXPECT_DOUBLE_EQ(0, window.PerSecond()->front());
}

TEST(SecondHistory, ValueThatHeldForNoTimeIsNone) {
    host::SecondHistory history;
    history.Add(SECOND_NS, 0, 7);
    history.Add(2 * SECOND_NS, 1, 8);

    EXPECT_EQ((host::History{std::nullopt, 8}), history.Values());
}

TEST(SecondHistory, ForgetsWhatIsTooLongAgo) {
    host::SecondHistory history;
    for (uint64_t second = 0; second < 500; ++second) {
        history.Add(second * SECOND_NS, 1, static_cast<double>(second));
    }

    EXPECT_EQ(host::SecondHistory::SECONDS, history.Values().size());
    EXPECT_EQ(499, history.Values().back());
    history.Add(UINT64_MAX, 1, 1);
    EXPECT_EQ(1u, history.Values().size());
}

}  // namespace
}  // namespace tiv::test
