// Tests of the handler that follows every process, on a tree in which processes come and go.
#include "job_wrapper/proc_all_pids_handler.h"

#include "job_wrapper/proc_tree.h"
#include "job_wrapper/sample_job.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::FailingMalloc;
using tiv::test::FailNextNewOfAtLeast;
using tiv::test::PERIOD_NS;
using tiv::test::ProcTree;
using tiv::test::START_NS;

class OpenAllPids : public ProcAllPidsFileHandler {
 public:
    using ProcAllPidsFileHandler::ProcAllPidsFileHandler;

    std::vector<uint32_t> Pids() const { return prevPids; }
    std::vector<uint32_t> Followed() const {
        std::vector<uint32_t> pids;
        for (const auto& entry : pidsMap) {
            pids.push_back(entry.first);
        }
        return pids;
    }
    uint64_t Interval() const { return sampleIntervalNs; }
    bool HoldsUploader() const { return upLoader_ != nullptr; }
};

class ProcAllPids : public tiv::test::SampleTest {
 protected:
    ProcAllPids() {
        tree.Write("stat", "cpu 1 2 3\n");
        tree.MakeDirectory("net");
        tree.Write("uptime", "1.0 2.0\n");
    }

    void Add(std::initializer_list<const char*> pids) {
        for (const char* pid : pids) {
            tree.AddProcess(pid, std::string("p") + pid);
        }
    }
    std::unique_ptr<OpenAllPids> Make() {
        auto handler = std::make_unique<OpenAllPids>(2, 2, PERIOD_NS, params, jobCtx,
                                                     collector.Get(), tree.Root());
        EXPECT_EQ(handler->Init(), 0);
        return handler;
    }
    // The first buffer of the first process cannot be had.
    std::unique_ptr<OpenAllPids> MakeWithoutMemory() {
        const FailingMalloc noBuffer(4096);
        return Make();
    }
    void NextPass(OpenAllPids& handler) {
        mm.AdvanceClock(PERIOD_NS);
        EXPECT_EQ(handler.Execute(), 0);
    }
    std::vector<std::string> TextsOf(const std::string& fileName) {
        std::vector<std::string> texts;
        for (const auto& chunk : collector.Finish()) {
            if (chunk.fileName == fileName) {
                texts.push_back(chunk.chunk);
            }
        }
        return texts;
    }

    ProcTree tree;
};

using Pids = std::vector<uint32_t>;

TEST_F(ProcAllPids, InitFollowsTheProcessesThereAre) {
    Add({"30", "4"});

    const auto handler = Make();

    EXPECT_EQ(handler->Pids(), (Pids{4, 30}));
    EXPECT_EQ(handler->Followed(), (Pids{4, 30}));
    EXPECT_TRUE(log.Has('I', "ProcAllPidsFileHandler Init"));
}

TEST_F(ProcAllPids, DirectoriesThatAreNoNumberAndFilesAreNoProcesses) {
    Add({"4"});
    tree.MakeDirectory("0");
    tree.MakeDirectory("self");
    tree.Write("77", "a file\n");

    EXPECT_EQ(Make()->Pids(), Pids{4});
}

TEST_F(ProcAllPids, NamesAreNumbersOfAnyBase) {
    tree.MakeDirectory("010");
    tree.MakeDirectory("0x10");
    tree.MakeDirectory("12ab");

    EXPECT_EQ(Make()->Pids(), (Pids{8, 12, 16}));
}

TEST_F(ProcAllPids, PeriodArrivesWithItsLow32BitsOnly) {
    const uint64_t fiveSeconds = 5000000000;
    const OpenAllPids handler(2, 2, static_cast<uint32_t>(fiveSeconds), params, jobCtx,
                              collector.Get(), tree.Root());

    EXPECT_EQ(handler.Interval(), 705032704U);
}

TEST_F(ProcAllPids, PassTellsWhoWentAndWhoCame) {
    Add({"1", "2", "4"});
    const auto handler = Make();
    tree.Remove("1");
    Add({"3", "5"});
    log.Clear();

    NextPass(*handler);

    EXPECT_EQ(handler->Followed(), (Pids{2, 3, 4, 5}));
    EXPECT_EQ(handler->Pids(), (Pids{2, 3, 4, 5}));
    EXPECT_TRUE(log.Has('I', "exit Pid 1"));
    EXPECT_TRUE(log.Has('I', "New Pid 3"));
    EXPECT_FALSE(log.Has('I', "New Pid 5"));
}

TEST_F(ProcAllPids, ProcessesThatWentFromTheEndOfTheListAreFinishedWithoutALine) {
    Add({"2", "8", "9"});
    const auto handler = Make();
    NextPass(*handler);
    tree.Remove("8");
    tree.Remove("9");
    log.Clear();

    NextPass(*handler);

    EXPECT_EQ(handler->Followed(), Pids{2});
    EXPECT_FALSE(log.Contains('I', "exit Pid"));
    EXPECT_TRUE(log.Has('I', "FlushBuf data/9-Memory.data, the total index :1"));
}

TEST_F(ProcAllPids, EveryProcessHasAMemoryAndACpuFile) {
    Add({"2", "8"});
    const auto handler = Make();

    NextPass(*handler);
    (void)handler->Uninit();

    std::vector<std::string> names;
    for (const auto& chunk : collector.Finish()) {
        names.push_back(chunk.fileName);
    }
    EXPECT_EQ(names,
              (std::vector<std::string>{"data/2-Memory.data.null", "data/2-CpuUsage.data.null",
                                        "data/8-Memory.data.null", "data/8-CpuUsage.data.null"}));
}

TEST_F(ProcAllPids, RecordsHoldTheReadingsOfTheProcess) {
    Add({"8"});
    const auto handler = Make();

    NextPass(*handler);
    (void)handler->Uninit();

    EXPECT_EQ(TextsOf("data/8-Memory.data.null"),
              std::vector<std::string>{"TimeStamp:5100000000\nIndex:0\nDataLen:22\n"
                                       "10 5 3\nProcessName:p8\n\n"});
    EXPECT_EQ(TextsOf("data/8-CpuUsage.data.null"),
              std::vector<std::string>{"TimeStamp:5100000000\nIndex:0\nDataLen:34\n"
                                       "8 (p8) S\nProcessName:p8\ncpu 1 2 3\n\n"});
}

TEST_F(ProcAllPids, HandlersOfAProcessCarryTheParentsTag) {
    Add({"8"});
    OpenAllPids handler(3, 2, PERIOD_NS, params, jobCtx, collector.Get(), tree.Root());
    ASSERT_EQ(handler.Init(), 0);

    NextPass(handler);
    (void)handler.Uninit();

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 2U);
    EXPECT_EQ(chunks[0].chunkModule, 5U);
    EXPECT_EQ(chunks[1].chunkModule, 5U);
}

TEST_F(ProcAllPids, ProcessThatWasReadLateLeavesOutTheNextPass) {
    Add({"8"});
    const auto handler = Make();
    const auto clock = mm.mmGetTickCount;
    // Every look at the clock takes a nanosecond, so that the processes are read behind the parent.
    mm.mmGetTickCount = [this, clock] {
        mm.AdvanceClock(1);
        return clock();
    };
    NextPass(*handler);
    mm.mmGetTickCount = clock;
    mm.SetClock(START_NS + 2 * PERIOD_NS + 1);

    EXPECT_EQ(handler->Execute(), 0);
    (void)handler->Uninit();

    EXPECT_TRUE(log.Has('I', "FlushBuf data/8-Memory.data, the total index :1"));
    EXPECT_TRUE(log.Has('I', "FlushBuf data/8-CpuUsage.data, the total index :1"));
}

TEST_F(ProcAllPids, TickWithinThePeriodDoesNothing) {
    const auto handler = Make();
    NextPass(*handler);
    Add({"5"});
    mm.AdvanceClock(PERIOD_NS - 1);

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_TRUE(handler->Followed().empty());
}

TEST_F(ProcAllPids, FirstTickIsAPass) {
    mm.SetClock(1);
    const auto handler = Make();
    Add({"5"});

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_EQ(handler->Followed(), Pids{5});
}

TEST_F(ProcAllPids, ProcessThatGoesBeforeItIsReadIsDroppedAtTheNextPass) {
    Add({"5"});
    const auto handler = Make();
    tree.Remove("5/statm");
    tree.Remove("5/stat");

    NextPass(*handler);
    EXPECT_EQ(log.OwnTexts('W'),
              (std::vector<std::string>{"Open file " + tree.Path("5/statm") + " failed",
                                        "Open file " + tree.Path("5/stat") + " failed"}));
    EXPECT_EQ(handler->Followed(), Pids{5});
    tree.Remove("5");
    NextPass(*handler);

    EXPECT_TRUE(handler->Followed().empty());
    EXPECT_TRUE(collector.Finish().empty());
}

TEST_F(ProcAllPids, PidThatComesBackStartsFromTheBeginning) {
    Add({"5"});
    const auto handler = Make();
    NextPass(*handler);
    NextPass(*handler);
    tree.Remove("5");
    NextPass(*handler);
    Add({"5"});

    NextPass(*handler);
    (void)handler->Uninit();

    const std::vector<std::string> texts = TextsOf("data/5-Memory.data.null");
    ASSERT_EQ(texts.size(), 2U);
    EXPECT_EQ(texts[1].substr(0, 29), "TimeStamp:5400000000\nIndex:0\n");
}

TEST_F(ProcAllPids, ProcessWithoutABufferIsNotTriedAgainUntilItIsNew) {
    Add({"5"});
    const auto handler = MakeWithoutMemory();
    EXPECT_TRUE(log.Has('E', "Buf init failed"));

    NextPass(*handler);
    NextPass(*handler);
    EXPECT_TRUE(handler->Followed().empty());
    tree.Remove("5");
    NextPass(*handler);
    Add({"5"});
    NextPass(*handler);

    EXPECT_EQ(handler->Followed(), Pids{5});
}

TEST_F(ProcAllPids, SecondBufferMissingLeavesTheProcessOutToo) {
    Add({"5"});
    auto handler = Make();
    tree.Remove("5");
    NextPass(*handler);
    Add({"6"});

    {
        const FailingMalloc noBuffer(4096, 1);
        NextPass(*handler);
    }

    EXPECT_EQ(log.Count('E', "Buf init failed"), 1U);
    EXPECT_EQ(handler->Pids(), Pids{6});
    EXPECT_TRUE(handler->Followed().empty());
}

TEST_F(ProcAllPids, BuffersOfAProcessHave4096Bytes) {
    Add({"5"});
    const FailingMalloc noMore(4097);

    EXPECT_EQ(Make()->Followed(), Pids{5});
}

TEST_F(ProcAllPids, ProcessWhoseHandlerCannotBeMadeIsLeftOut) {
    Add({"5", "6"});
    mm.mmScandirFree = [real = mm.mmScandirFree](mmDirent** list, int32_t count) {
        real(list, count);
        FailNextNewOfAtLeast(sizeof(ProcPidMemFileHandler));
    };

    const auto handler = Make();

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_EQ(handler->Pids(), (Pids{5, 6}));
    EXPECT_EQ(handler->Followed(), Pids{6});
}

TEST_F(ProcAllPids, UninitFinishesEveryProcess) {
    Add({"5", "6"});
    const auto handler = Make();
    NextPass(*handler);

    EXPECT_EQ(handler->Uninit(), 0);

    EXPECT_TRUE(handler->Followed().empty());
    EXPECT_TRUE(handler->Pids().empty());
    EXPECT_FALSE(handler->HoldsUploader());
    EXPECT_EQ(collector.Finish().size(), 4U);
}

TEST_F(ProcAllPids, SecondUninitDoesNothing) {
    Add({"5"});
    const auto handler = Make();
    (void)handler->Uninit();
    log.Clear();

    EXPECT_EQ(handler->Uninit(), 0);

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(ProcAllPids, ProcessesThatExitWithNobodyFollowingThemAreForgotten) {
    Add({"5"});
    const auto handler = MakeWithoutMemory();
    Add({"7"});
    tree.Remove("5");

    NextPass(*handler);

    EXPECT_EQ(handler->Pids(), Pids{7});
    EXPECT_EQ(handler->Followed(), Pids{7});
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
