// Tests of the readings of the system's and of a process's files, on a recorded tree.
#include "job_wrapper/proc_file_handlers.h"

#include "job_wrapper/proc_tree.h"
#include "job_wrapper/sample_job.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::PERIOD_NS;
using tiv::test::ProcTree;
using tiv::test::RecordedProc;

constexpr const char* WEAVER_STAT =
    "4711 (weaver) S 1 4711 4711 0 -1 4194560 911 0 3 0 61 12 0 0 20 0 2 0 5120 22900736 1874\n";
constexpr const char* TOTAL_CPU_LINE = "cpu  3357 12 1911 96012 230 0 48 0 0 0\n";

class ProcFileTest : public tiv::test::SampleTest {
 protected:
    template <class Handler>
    std::string ReadingOf(Handler& handler, const std::string& path) {
        std::ifstream source(path);
        std::string out;
        EXPECT_EQ(handler.ParseProcFile(source, out), 0);
        return out;
    }
    template <class Handler>
    Handler MakeSystem() {
        return Handler(0, 2, 4096, PERIOD_NS, "", "Out.data", params, jobCtx, collector.Get());
    }
    std::string PidStat(const std::string& root, uint32_t pid) {
        const std::string path = root + "/" + std::to_string(pid) + "/stat";
        ProcPidStatFileHandler handler(2, 2, 4096, PERIOD_NS, path, "CpuUsage.data", params, jobCtx,
                                       collector.Get(), pid, root);
        return ReadingOf(handler, path);
    }
    std::string PidMem(const std::string& root, uint32_t pid) {
        const std::string path = root + "/" + std::to_string(pid) + "/statm";
        ProcPidMemFileHandler handler(2, 2, 4096, PERIOD_NS, path, "Memory.data", params, jobCtx,
                                      collector.Get(), pid, root);
        return ReadingOf(handler, path);
    }

    ProcTree tree;
};

using ProcStatFile = ProcFileTest;
using ProcMemFile = ProcFileTest;
using ProcPidStatFile = ProcFileTest;
using ProcPidMemFile = ProcFileTest;

TEST_F(ProcStatFile, LinesAreLowerCasedAndKeptUpToTheFirstWithoutCpu) {
    auto handler = MakeSystem<ProcStatFileHandler>();

    EXPECT_EQ(ReadingOf(handler, RecordedProc() + "/stat"),
              "cpu  3357 12 1911 96012 230 0 48 0 0 0\n"
              "cpu0 1702 6 980 48010 110 0 31 0 0 0\n");
}

TEST_F(ProcStatFile, FileWithoutCpuInItsFirstLineGivesNothing) {
    tree.Write("stat", "intr 1\ncpu 2\n");
    auto handler = MakeSystem<ProcStatFileHandler>();

    EXPECT_EQ(ReadingOf(handler, tree.Path("stat")), "");
}

TEST_F(ProcStatFile, ReadingIsAppended) {
    auto handler = MakeSystem<ProcStatFileHandler>();
    tree.Write("stat", "cpu 1\n");
    std::ifstream source(tree.Path("stat"));
    std::string out = "before ";

    (void)handler.ParseProcFile(source, out);

    EXPECT_EQ(out, "before cpu 1\n");
}

TEST_F(ProcMemFile, LinesStayAsTheyAre) {
    auto handler = MakeSystem<ProcMemFileHandler>();

    EXPECT_EQ(ReadingOf(handler, RecordedProc() + "/meminfo"),
              "MemTotal:        8131524 kB\n"
              "MemFree:         2210408 kB\n"
              "MemAvailable:    5906312 kB\n"
              "HugePages_Total:       0\n");
}

TEST_F(ProcMemFile, LastLineWithoutANewlineGetsOne) {
    tree.Write("meminfo", "A: 1\nB: 2");
    auto handler = MakeSystem<ProcMemFileHandler>();

    EXPECT_EQ(ReadingOf(handler, tree.Path("meminfo")), "A: 1\nB: 2\n");
}

TEST_F(ProcMemFile, RoomForAReadingIsReservedAhead) {
    auto stat = MakeSystem<ProcStatFileHandler>();
    auto mem = MakeSystem<ProcMemFileHandler>();

    EXPECT_EQ(ReadingOf(stat, "").capacity(), 512U);
    EXPECT_EQ(ReadingOf(mem, "").capacity(), 1536U);
    EXPECT_EQ(PidStat(tree.Root(), 7).capacity(), 512U);
    EXPECT_EQ(PidMem(tree.Root(), 7).capacity(), 32U);
}

TEST_F(ProcPidStatFile, LineNameAndTheLineOfAllCpus) {
    EXPECT_EQ(PidStat(RecordedProc(), 4711),
              std::string(WEAVER_STAT) + "ProcessName:weaver\n" + TOTAL_CPU_LINE);
}

TEST_F(ProcPidStatFile, EmptyStatFileGivesNothing) { EXPECT_EQ(PidStat(RecordedProc(), 4712), ""); }

TEST_F(ProcPidStatFile, TotalIsTheFirstLineWithCpuWhereverItStands) {
    tree.AddProcess("7", "loom");
    tree.Write("stat", "intr 4\nCPU 1 2\ncpu0 3 4\n");

    EXPECT_EQ(PidStat(tree.Root(), 7), "7 (loom) S\nProcessName:loom\ncpu 1 2\n");
}

TEST_F(ProcPidStatFile, MissingSystemStatKeepsWhatWasGathered) {
    tree.AddProcess("7", "loom");

    EXPECT_EQ(PidStat(tree.Root(), 7), "7 (loom) S\nProcessName:loom\n");

    EXPECT_TRUE(log.Has('W', "Open file " + tree.Path("stat") + " failed"));
}

TEST_F(ProcPidStatFile, SystemStatIsReadAfreshEachTime) {
    tree.AddProcess("7", "loom");
    tree.Write("stat", "cpu 1\n");
    ProcPidStatFileHandler handler(2, 2, 4096, PERIOD_NS, "", "CpuUsage.data", params, jobCtx,
                                   collector.Get(), 7, tree.Root());
    (void)ReadingOf(handler, tree.Path("7/stat"));
    tree.Write("stat", "cpu 2\n");

    EXPECT_EQ(ReadingOf(handler, tree.Path("7/stat")), "7 (loom) S\nProcessName:loom\ncpu 2\n");
}

TEST_F(ProcPidMemFile, LinesAndTheName) {
    EXPECT_EQ(PidMem(RecordedProc(), 4711), "5591 1874 1210 41 0 660 0\nProcessName:weaver\n");
}

TEST_F(ProcPidMemFile, EmptyFileGivesNothing) { EXPECT_EQ(PidMem(RecordedProc(), 4712), ""); }

TEST_F(ProcPidMemFile, NameIsSelfWhenTheNameFileIsGone) {
    tree.AddProcess("7", "loom");
    tree.Remove("7/comm");

    EXPECT_EQ(PidMem(tree.Root(), 7), "10 5 3\nProcessName:self\n");

    EXPECT_TRUE(log.Has('W', "Open file " + tree.Path("7/comm") + " failed"));
}

TEST_F(ProcPidMemFile, NameIsSelfWhenTheNameFileIsTooLarge) {
    tree.AddProcess("7", "loom");
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 2097153, false});

    EXPECT_EQ(PidMem(tree.Root(), 7), "10 5 3\nProcessName:self\n");

    EXPECT_TRUE(log.Has('E', "proc comm file size is invalid"));
}

TEST_F(ProcPidMemFile, NameFileOf2MebibytesIsRead) {
    tree.AddProcess("7", "loom");
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 2097152, false});

    EXPECT_EQ(PidMem(tree.Root(), 7), "10 5 3\nProcessName:loom\n");
}

TEST_F(ProcPidMemFile, NameFileOfNoSizeIsRead) {
    tree.AddProcess("7", "loom");
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 0, false});

    EXPECT_EQ(PidMem(tree.Root(), 7), "10 5 3\nProcessName:loom\n");
}

TEST_F(ProcPidMemFile, NameIsTheFirstLineOnly) {
    tree.AddProcess("7", "loom");
    tree.Write("7/comm", "first\nsecond\n");

    EXPECT_EQ(PidMem(tree.Root(), 7), "10 5 3\nProcessName:first\n");
}

TEST_F(ProcPidMemFile, ResultFileStartsWithThePid) {
    const std::string path = RecordedProc() + "/4711/statm";
    ProcPidMemFileHandler handler(2, 2, 4096, PERIOD_NS, path, "Memory.data", params, jobCtx,
                                  collector.Get(), 4711, RecordedProc());
    ASSERT_EQ(handler.Init(), 0);
    (void)handler.Execute();
    (void)handler.Uninit();

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/4711-Memory.data.null");
    EXPECT_EQ(chunks[0].chunk,
              "TimeStamp:5000000000\nIndex:0\nDataLen:45\n"
              "5591 1874 1210 41 0 660 0\nProcessName:weaver\n\n");
}

TEST_F(ProcPidStatFile, ResultFileStartsWithThePid) {
    ProcPidStatFileHandler handler(2, 2, 4096, PERIOD_NS, RecordedProc() + "/4711/stat",
                                   "CpuUsage.data", params, jobCtx, collector.Get(), 4711,
                                   RecordedProc());
    ASSERT_EQ(handler.Init(), 0);
    (void)handler.Execute();
    (void)handler.Uninit();

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/4711-CpuUsage.data.null");
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
