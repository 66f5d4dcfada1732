// Tests of the readings of a host process, on a recorded tree.
#include "job_wrapper/proc_host_handlers.h"

#include <algorithm>

#include "job_wrapper/proc_tree.h"
#include "job_wrapper/sample_job.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::PERIOD_NS;
using tiv::test::ProcTree;
using tiv::test::RecordedProc;
using Chunk = tiv::test::ChunkCollector::Chunk;

class ProcHost : public tiv::test::SampleTest {
 protected:
    ProcHost() { params->host_sys_pid = 4711; }

    template <class Handler>
    std::string ReadingOf(const std::string& root) {
        Handler handler(0, 4096, PERIOD_NS, "host.data", params, jobCtx, collector.Get(), root);
        std::ifstream source;
        std::string out;
        EXPECT_EQ(handler.ParseProcFile(source, out), 0);
        EXPECT_FALSE(source.is_open());
        return out;
    }
    // The one chunk of two samples.
    template <class Handler>
    Chunk TwoSamplesOf(const std::string& resultFile, const std::string& root) {
        Handler handler(4, 4096, PERIOD_NS, resultFile, params, jobCtx, collector.Get(), root);
        EXPECT_EQ(handler.Init(), 0);
        (void)handler.Execute();
        mm.AdvanceClock(PERIOD_NS);
        (void)handler.Execute();
        (void)handler.Uninit();
        const auto chunks = collector.Finish();
        EXPECT_EQ(chunks.size(), 1U);
        return chunks.empty() ? Chunk() : chunks[0];
    }

    ProcTree tree;
};

using ProcHostCpu = ProcHost;
using ProcHostMem = ProcHost;
using ProcHostNetwork = ProcHost;

TEST_F(ProcHostCpu, ClockUptimeAndTheStatOfEachThread) {
    const std::string head = "time 5000000000\n1234.56 2301.99\n";
    const std::string first =
        "4711 (weaver) S 1 4711 4711 0 -1 4194560 911 0 3 0 61 12 0 0 20 0 2 0 5120 22900736 "
        "1874\n";
    const std::string second =
        "4712 (weaver-io) S 1 4711 4711 0 -1 4194368 20 0 0 0 7 3 0 0 20 0 2 0 5133 22900736 "
        "1874\n";

    const std::string reading = ReadingOf<ProcHostCpuHandler>(RecordedProc());

    EXPECT_TRUE(reading == head + first + second || reading == head + second + first) << reading;
}

TEST_F(ProcHostCpu, WithoutThreadsTheReadingIsEmpty) {
    tree.Write("uptime", "1.0 2.0\n");

    EXPECT_EQ(ReadingOf<ProcHostCpuHandler>(tree.Root()), "");
}

TEST_F(ProcHostCpu, MissingUptimeLeavesItsLineOut) {
    tree.Write("4711/task/4711/stat", "4711 (loom)\n");

    EXPECT_EQ(ReadingOf<ProcHostCpuHandler>(tree.Root()), "time 5000000000\n4711 (loom)\n");

    EXPECT_TRUE(log.Has('W', "Open file " + tree.Path("uptime") + " failed."));
}

TEST_F(ProcHostCpu, ThreadThatIsGoneIsLeftOut) {
    tree.Write("uptime", "1.0 2.0\n");
    tree.Write("4711/task/4711/stat", "4711 (loom)\n");
    tree.MakeDirectory("4711/task/4712");

    EXPECT_EQ(ReadingOf<ProcHostCpuHandler>(tree.Root()),
              "time 5000000000\n1.0 2.0\n4711 (loom)\n");

    EXPECT_TRUE(log.Has('W', "Open file " + tree.Path("4711/task/4712/stat") + " failed."));
}

TEST_F(ProcHostCpu, StatFileTooLargeIsLeftOut) {
    tree.Write("4711/task/4711/stat", "4711 (loom)\n");
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 536870913, false});

    EXPECT_EQ(ReadingOf<ProcHostCpuHandler>(tree.Root()), "");

    EXPECT_TRUE(log.Has('W', "[ProcTimerHandler] Proc file(" + tree.Path("4711/task/4711/stat") +
                                 ") size(536870913)"));
}

TEST_F(ProcHostCpu, UptimeTooLargeLeavesItsLineOut) {
    tree.Write("uptime", "1.0 2.0\n");
    tree.Write("4711/task/4711/stat", "4711 (loom)\n");
    mm.calls.Add({"mmGetFileSize",
                  {{"path", tree.Path("uptime")}},
                  0,
                  1,
                  std::nullopt,
                  std::nullopt,
                  0,
                  536870913,
                  false});

    EXPECT_EQ(ReadingOf<ProcHostCpuHandler>(tree.Root()), "time 5000000000\n4711 (loom)\n");

    EXPECT_TRUE(
        log.Has('W', "[ProcTimerHandler] Proc file(" + tree.Path("uptime") + ") size(536870913)"));
}

TEST_F(ProcHostCpu, EachThreadGivesAllItsLines) {
    tree.Write("uptime", "1.0 2.0\n");
    tree.Write("4711/task/4711/stat", "one\ntwo\n");

    EXPECT_EQ(ReadingOf<ProcHostCpuHandler>(tree.Root()), "time 5000000000\n1.0 2.0\none\ntwo\n");
}

TEST_F(ProcHostMem, OnlyTheFirstLineCounts) {
    tree.Write("4711/statm", "1 2 3\n4 5 6\n");

    EXPECT_EQ(ReadingOf<ProcHostMemHandler>(tree.Root()), "5000000000 1 2 3\n");
}

TEST_F(ProcHostMem, ClockAndTheFirstLine) {
    EXPECT_EQ(ReadingOf<ProcHostMemHandler>(RecordedProc()),
              "5000000000 5591 1874 1210 41 0 660 0\n");
}

TEST_F(ProcHostMem, EmptyOrMissingFileGivesNothing) {
    EXPECT_EQ(ReadingOf<ProcHostMemHandler>(tree.Root()), "");
    tree.Write("4711/statm", "");

    EXPECT_EQ(ReadingOf<ProcHostMemHandler>(tree.Root()), "");
}

TEST_F(ProcHostMem, FileTooLargeGivesNothing) {
    tree.Write("4711/statm", "1 2 3\n");
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 536870913, false});

    EXPECT_EQ(ReadingOf<ProcHostMemHandler>(tree.Root()), "");

    EXPECT_TRUE(log.Has(
        'W', "[ProcTimerHandler] Proc file(" + tree.Path("4711/statm") + ") size(536870913)"));
}

TEST_F(ProcHostNetwork, ClockAndTheLinesOfInterfaces) {
    EXPECT_EQ(ReadingOf<ProcHostNetworkHandler>(RecordedProc()),
              "time 5000000000\n"
              "    lo:  104200     812    0    0    0     0          0         0   104200     812  "
              "  0    0    0     0       0          0\n"
              "  eth0: 9120044    7011    0    0    0     0          0         0   311002    2960  "
              "  0    0    0     0       0          0\n");
}

TEST_F(ProcHostNetwork, MissingFileLeavesTheFirstLine) {
    EXPECT_EQ(ReadingOf<ProcHostNetworkHandler>(tree.Root()), "time 5000000000\n");

    EXPECT_TRUE(log.Has('W', "Open file " + tree.Path("net/dev") + " failed"));
}

TEST_F(ProcHostNetwork, FileTooLargeLeavesTheFirstLine) {
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 536870913, false});

    EXPECT_EQ(ReadingOf<ProcHostNetworkHandler>(RecordedProc()), "time 5000000000\n");
}

TEST_F(ProcHostCpu, SamplesGoOutWithoutARecordHeader) {
    tree.Write("4711/task/4711/stat", "4711 (loom)\n");
    tree.Write("uptime", "1.0 2.0\n");

    const Chunk chunk = TwoSamplesOf<ProcHostCpuHandler>("host_cpu.data", tree.Root());

    EXPECT_EQ(chunk.fileName, "data/host_cpu.data.null");
    EXPECT_EQ(chunk.chunkModule, 5U);
    EXPECT_EQ(chunk.chunk,
              "time 5000000000\n1.0 2.0\n4711 (loom)\ntime 5100000000\n1.0 2.0\n4711 (loom)\n");
}

TEST_F(ProcHostMem, SamplesGoOutWithoutARecordHeader) {
    const Chunk chunk = TwoSamplesOf<ProcHostMemHandler>("host_mem.data", RecordedProc());

    EXPECT_EQ(chunk.fileName, "data/host_mem.data.null");
    EXPECT_EQ(chunk.chunkModule, 5U);
    EXPECT_EQ(chunk.chunk,
              "5000000000 5591 1874 1210 41 0 660 0\n5100000000 5591 1874 1210 41 0 660 0\n");
}

TEST_F(ProcHostNetwork, SamplesGoOutWithoutARecordHeader) {
    tree.Write("net/dev", "Inter-|\nlo: 1\n");

    const Chunk chunk = TwoSamplesOf<ProcHostNetworkHandler>("host_network.data", tree.Root());

    EXPECT_EQ(chunk.fileName, "data/host_network.data.null");
    EXPECT_EQ(chunk.chunkModule, 5U);
    EXPECT_EQ(chunk.chunk, "time 5000000000\nlo: 1\ntime 5100000000\nlo: 1\n");
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
