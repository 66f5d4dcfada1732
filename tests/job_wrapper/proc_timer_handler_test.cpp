// Tests of the period, the record format, the buffer and the chunks of a sampling handler.
#include "job_wrapper/proc_timer_handler.h"

#include <new>

#include "job_wrapper/proc_tree.h"
#include "job_wrapper/sample_job.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::ChunkCollector;
using tiv::test::FailingMalloc;
using tiv::test::FailingNew;
using tiv::test::MakeJobContext;
using tiv::test::PERIOD_NS;
using tiv::test::ProcTree;
using tiv::test::START_NS;
using Chunk = tiv::test::ChunkCollector::Chunk;

// Gives a reading that the test chose.
class TextHandler : public ProcTimerHandler {
 public:
    using ProcTimerHandler::ProcTimerHandler;

    int ParseProcFile(std::ifstream& source, std::string& out) override {
        sourceWasOpen = source.is_open();
        sourceWasGood = source.good();
        ++readings;
        if (throws) {
            throw std::bad_alloc();
        }
        out += reading;
        return result;
    }

    uint64_t UsedSize() const { return buf.GetUsedSize(); }
    uint64_t PreviousTime() const { return prevTimeStamp; }
    uint64_t Interval() const { return sampleIntervalNs; }
    uint32_t Index() const { return index; }
    const std::string& ResultFile() const { return retFileName; }
    bool HoldsUploader() const { return upLoader_ != nullptr; }

    std::string reading = "text";
    int result = 0;
    int readings = 0;
    bool sourceWasOpen = false;
    bool sourceWasGood = false;
    bool throws = false;
};

class ProcTimerHandlerTest : public tiv::test::SampleTest {
 protected:
    ProcTimerHandlerTest() { tree.Write("load", "1\n"); }

    std::shared_ptr<TextHandler> Make(uint32_t bufSize, const std::string& procFile,
                                      uint32_t tag = 0) {
        auto handler = std::make_shared<TextHandler>(tag, 2, bufSize, PERIOD_NS, procFile,
                                                     "Load.data", params, jobCtx, collector.Get());
        EXPECT_EQ(handler->Init(), 0);
        return handler;
    }
    // A handler without a file: its readings go out without a record header.
    std::shared_ptr<TextHandler> MakePlain(uint32_t bufSize, uint32_t tag = 0) {
        return Make(bufSize, "", tag);
    }
    void NextPeriod() { mm.AdvanceClock(PERIOD_NS); }

    ProcTree tree;
};

using ProcTimerHandlerInit = ProcTimerHandlerTest;
using ProcTimerHandlerExecute = ProcTimerHandlerTest;
using ProcTimerHandlerStore = ProcTimerHandlerTest;
using ProcTimerHandlerSend = ProcTimerHandlerTest;
using ProcTimerHandlerUninit = ProcTimerHandlerTest;

TEST_F(ProcTimerHandlerInit, SecondInitIsRefused) {
    const auto handler = MakePlain(64);

    EXPECT_EQ(handler->Init(), -1);

    EXPECT_TRUE(log.Has('E', "The Handler is inited"));
}

TEST_F(ProcTimerHandlerInit, BufferThatCannotBeHadFailsIt) {
    TextHandler handler(0, 2, 70001, PERIOD_NS, "", "Load.data", params, jobCtx, collector.Get());
    {
        const FailingMalloc noBuffer(70001);
        EXPECT_EQ(handler.Init(), -1);
    }

    EXPECT_TRUE(log.Has('E', "Buf init failed"));
    EXPECT_EQ(handler.Init(), 0);
}

TEST_F(ProcTimerHandlerInit, ResultFileLiesBelowData) {
    EXPECT_EQ(MakePlain(64)->ResultFile(), "data/Load.data");
}

TEST_F(ProcTimerHandlerInit, PeriodArrivesWithItsLow32BitsOnly) {
    const uint64_t fiveSeconds = 5000000000;
    const TextHandler handler(0, 2, 64, static_cast<uint32_t>(fiveSeconds), "", "Load.data", params,
                              jobCtx, collector.Get());

    EXPECT_EQ(handler.Interval(), 705032704U);
}

TEST_F(ProcTimerHandlerExecute, WithoutInitOnlyLogs) {
    TextHandler handler(0, 2, 64, PERIOD_NS, "", "Load.data", params, jobCtx, collector.Get());

    EXPECT_EQ(handler.Execute(), 0);

    EXPECT_TRUE(log.Has('E', "ProcTimerHandler is not inited: data/Load.data"));
    EXPECT_EQ(handler.readings, 0);
}

TEST_F(ProcTimerHandlerExecute, FirstTickAlwaysSamples) {
    mm.SetClock(1);
    const auto handler = MakePlain(64);

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_EQ(handler->readings, 1);
    EXPECT_EQ(handler->PreviousTime(), 1U);
}

TEST_F(ProcTimerHandlerExecute, TickWithinThePeriodDoesNotSample) {
    const auto handler = MakePlain(64);
    (void)handler->Execute();
    mm.AdvanceClock(PERIOD_NS - 1);

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_EQ(handler->readings, 1);
    EXPECT_EQ(handler->PreviousTime(), START_NS);
}

TEST_F(ProcTimerHandlerExecute, TickAtTheEndOfThePeriodSamples) {
    const auto handler = MakePlain(64);
    (void)handler->Execute();
    NextPeriod();

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_EQ(handler->readings, 2);
    EXPECT_EQ(handler->PreviousTime(), START_NS + PERIOD_NS);
}

TEST_F(ProcTimerHandlerExecute, ReadingOfAFileIsOneRecord) {
    const auto handler = Make(4096, tree.Path("load"));
    handler->reading = "one\ntwo\n";

    (void)handler->Execute();
    NextPeriod();
    (void)handler->Execute();
    (void)handler->Uninit();

    EXPECT_TRUE(handler->sourceWasOpen);
    EXPECT_EQ(collector.Payloads(),
              (std::vector<std::string>{"TimeStamp:5000000000\nIndex:0\nDataLen:8\none\ntwo\n\n"
                                        "TimeStamp:5100000000\nIndex:1\nDataLen:8\none\ntwo\n\n"}));
}

TEST_F(ProcTimerHandlerExecute, ReadingWithoutAFileGoesOutAsItIs) {
    const auto handler = MakePlain(4096);

    (void)handler->Execute();
    (void)handler->Uninit();

    EXPECT_FALSE(handler->sourceWasOpen);
    EXPECT_EQ(collector.Payloads(), std::vector<std::string>{"text"});
}

TEST_F(ProcTimerHandlerExecute, EmptyReadingStoresNothingAndStillCounts) {
    const auto handler = Make(4096, tree.Path("load"));
    handler->reading = "";

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_TRUE(log.Has('W', "data is empty, fileName:" + tree.Path("load")));
    EXPECT_EQ(handler->UsedSize(), 0U);
    EXPECT_EQ(handler->Index(), 1U);
}

TEST_F(ProcTimerHandlerExecute, ResultOfTheReadingIsNotLookedAt) {
    const auto handler = MakePlain(64);
    handler->result = -1;

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_EQ(handler->UsedSize(), 4U);
    EXPECT_EQ(handler->Index(), 1U);
}

TEST_F(ProcTimerHandlerExecute, FileThatIsGoneIsSkippedAndDoesNotCount) {
    const auto handler = Make(4096, tree.Path("gone"));

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_EQ(log.OwnTexts('W'),
              std::vector<std::string>{"Open file " + tree.Path("gone") + " failed"});
    EXPECT_EQ(handler->Index(), 0U);
    EXPECT_EQ(handler->UsedSize(), 0U);
    EXPECT_EQ(handler->readings, 0);
    EXPECT_EQ(handler->PreviousTime(), START_NS);
}

TEST_F(ProcTimerHandlerExecute, FileThatComesBackIsReadAgain) {
    const auto handler = Make(4096, tree.Path("late"));
    (void)handler->Execute();
    tree.Write("late", "1\n");
    NextPeriod();

    (void)handler->Execute();

    EXPECT_EQ(handler->readings, 1);
    EXPECT_EQ(handler->Index(), 1U);
}

TEST_F(ProcTimerHandlerExecute, ReadingThatRanOutOfMemoryDoesNotSpoilTheNext) {
    const auto handler = Make(4096, tree.Path("load"));
    handler->throws = true;
    EXPECT_THROW((void)handler->Execute(), std::bad_alloc);
    handler->throws = false;
    NextPeriod();

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_TRUE(handler->sourceWasGood);
    EXPECT_EQ(handler->Index(), 1U);
}

TEST_F(ProcTimerHandlerExecute, FileOf512MebibytesIsRead) {
    const auto handler = Make(4096, tree.Path("load"));
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 536870912, false});

    (void)handler->Execute();

    EXPECT_EQ(handler->readings, 1);
}

TEST_F(ProcTimerHandlerExecute, FileOfNoSizeIsReadAsThoseOfProcAre) {
    const auto handler = Make(4096, tree.Path("load"));
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 0, false});

    (void)handler->Execute();

    EXPECT_EQ(handler->readings, 1);
}

TEST_F(ProcTimerHandlerExecute, FileAbove512MebibytesIsSkipped) {
    const auto handler = Make(4096, tree.Path("load"));
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, 536870913, false});

    (void)handler->Execute();

    EXPECT_TRUE(
        log.Has('W', "[ProcTimerHandler] Proc file(" + tree.Path("load") + ") size(536870913)"));
    EXPECT_EQ(handler->readings, 0);
    EXPECT_EQ(handler->Index(), 0U);
}

TEST_F(ProcTimerHandlerExecute, NegativeSizeIsSkipped) {
    const auto handler = Make(4096, tree.Path("load"));
    mm.calls.Add({"mmGetFileSize", {}, 0, 1, std::nullopt, std::nullopt, 0, -1, false});

    (void)handler->Execute();

    EXPECT_TRUE(log.Has('W', "[ProcTimerHandler] Proc file(" + tree.Path("load") + ") size(-1)"));
    EXPECT_EQ(handler->readings, 0);
}

TEST_F(ProcTimerHandlerStore, BufferFilledToThreeQuartersIsSentAtOnce) {
    const auto handler = MakePlain(4096);

    handler->StoreData(std::string(3072, 'a'));

    EXPECT_EQ(handler->UsedSize(), 0U);
    EXPECT_EQ(collector.Payloads(), std::vector<std::string>{std::string(3072, 'a')});
}

TEST_F(ProcTimerHandlerStore, BufferBelowThreeQuartersIsKept) {
    const auto handler = MakePlain(4096);

    handler->StoreData(std::string(3071, 'a'));

    EXPECT_EQ(handler->UsedSize(), 3071U);
    EXPECT_TRUE(collector.Payloads().empty());
}

TEST_F(ProcTimerHandlerStore, QuarterOfTheBufferIsAnIntegerDivision) {
    const auto handler = MakePlain(7);

    handler->StoreData("12345");
    EXPECT_EQ(handler->UsedSize(), 5U);
    handler->StoreData("6");

    EXPECT_EQ(handler->UsedSize(), 0U);
}

TEST_F(ProcTimerHandlerStore, DataWithoutRoomSendsWhatWasBufferedFirst) {
    const auto handler = MakePlain(100);
    handler->StoreData(std::string(60, 'a'));

    handler->StoreData(std::string(50, 'b'));

    EXPECT_TRUE(log.Has('D', "StoreData 60"));
    EXPECT_EQ(handler->UsedSize(), 50U);
    EXPECT_EQ(collector.Payloads(), std::vector<std::string>{std::string(60, 'a')});
}

TEST_F(ProcTimerHandlerStore, RecordLargerThanTheBufferGoesAloneBehindWhatWasBuffered) {
    const auto handler = MakePlain(100);
    handler->StoreData(std::string(10, 'a'));

    handler->StoreData(std::string(101, 'b'));

    EXPECT_EQ(handler->UsedSize(), 0U);
    EXPECT_EQ(collector.Payloads(),
              (std::vector<std::string>{std::string(10, 'a'), std::string(101, 'b')}));
}

TEST_F(ProcTimerHandlerStore, DataAsLargeAsTheBufferGoesThroughIt) {
    const auto handler = MakePlain(100);

    handler->StoreData(std::string(100, 'a'));

    EXPECT_EQ(log.CountOf('D'), 0U);
    EXPECT_EQ(handler->UsedSize(), 0U);
    EXPECT_EQ(collector.Payloads(), std::vector<std::string>{std::string(100, 'a')});
}

TEST_F(ProcTimerHandlerStore, EmptyDataDoesNothing) {
    const auto handler = MakePlain(0);

    handler->StoreData("");

    EXPECT_TRUE(collector.Payloads().empty());
    EXPECT_EQ(log.CountOf('E'), 0U);
}

TEST_F(ProcTimerHandlerStore, HandlerWithoutABufferSendsEachRecord) {
    const auto handler = MakePlain(0);

    handler->StoreData("a");
    handler->StoreData("b");

    EXPECT_EQ(collector.Payloads(), (std::vector<std::string>{"a", "b"}));
}

TEST_F(ProcTimerHandlerStore, HandlerThatWasNeverInitedKeepsNothing) {
    TextHandler handler(0, 2, 100, PERIOD_NS, "", "Load.data", params, jobCtx, collector.Get());

    handler.StoreData(std::string(80, 'x'));

    EXPECT_EQ(handler.UsedSize(), 0U);
    EXPECT_TRUE(collector.Payloads().empty());
    EXPECT_EQ(log.CountOf('E'), 0U);
}

TEST_F(ProcTimerHandlerSend, ChunkNamesFileJobAndDevice) {
    const auto handler = MakePlain(64);

    handler->SendData("abcdef", 4);

    const std::vector<Chunk> chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/Load.data.null");
    EXPECT_EQ(chunks[0].extraInfo, "job7.2");
    EXPECT_EQ(chunks[0].chunk, "abcd");
    EXPECT_EQ(chunks[0].chunkSize, 4U);
    EXPECT_EQ(chunks[0].offset, -1);
    EXPECT_FALSE(chunks[0].isLastChunk);
    EXPECT_EQ(chunks[0].chunkModule, 3U);
}

TEST_F(ProcTimerHandlerSend, TagsThreeToFiveHaveAModuleOfTheirOwn) {
    for (const uint32_t tag : {2U, 3U, 4U, 5U, 6U}) {
        MakePlain(64, tag)->SendData("x", 1);
    }

    std::vector<uint32_t> modules;
    for (const Chunk& chunk : collector.Finish()) {
        modules.push_back(chunk.chunkModule);
    }
    EXPECT_EQ(modules, (std::vector<uint32_t>{3, 5, 5, 5, 3}));
}

TEST_F(ProcTimerHandlerSend, NullDataIsRefused) {
    MakePlain(64)->SendData(nullptr, 1);

    EXPECT_TRUE(log.Has('E', "buf to be sent is nullptr"));
    EXPECT_TRUE(collector.Finish().empty());
}

TEST_F(ProcTimerHandlerSend, DataWithoutAnUploaderIsDropped) {
    TextHandler handler(0, 2, 64, PERIOD_NS, "", "Load.data", params, jobCtx, nullptr);

    handler.SendData("x", 1);

    EXPECT_TRUE(log.Has('E', "[ProcTimerHandler::SendData] upLoader_ is null"));
}

TEST_F(ProcTimerHandlerSend, DataThatTheUploaderRefusesIsDroppedAndLeavesTheBuffer) {
    const auto handler = MakePlain(64);
    ASSERT_TRUE(collector.Finish().empty());

    handler->StoreData(std::string(60, 'a'));

    EXPECT_TRUE(log.Has('E', "[ProcTimerHandler::SendData] Upload Data Failed"));
    EXPECT_EQ(handler->UsedSize(), 0U);
    EXPECT_TRUE(collector.Finish().empty());
}

TEST_F(ProcTimerHandlerSend, ChunkThatCannotBeMadeIsDropped) {
    const auto handler = MakePlain(64);
    {
        const FailingNew noMemory;
        handler->SendData("x", 1);
    }

    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(collector.Finish().empty());
}

TEST_F(ProcTimerHandlerSend, ChunkThatCannotBeFilledIsDropped) {
    const auto handler = MakePlain(64);
    const std::string data(100, 'a');
    jobCtx->tag = "a tag too long for a short string";
    jobCtx->job_id = "a job id too long for a short string";
    for (size_t allocation = 0; allocation < 4; ++allocation) {
        const FailingNew noMemory(allocation);
        EXPECT_NO_THROW(handler->SendData(data.data(), 100));
        EXPECT_EQ(noMemory.Failed(), 1U);
    }

    EXPECT_EQ(log.Count('E', "make shared failed, message: std::bad_alloc"), 4U);
    EXPECT_TRUE(collector.Finish().empty());
}

TEST_F(ProcTimerHandlerUninit, SendsWhatIsBufferedAndLogsIt) {
    const auto handler = MakePlain(4096);
    (void)handler->Execute();

    EXPECT_EQ(handler->Uninit(), 0);

    EXPECT_EQ(
        log.OwnTexts('I'),
        (std::vector<std::string>{"FlushBuf data/Load.data, the total index :1",
                                  "FlushBuf, isInited_:1, bufUsedSize:4", "FlushBuf running 4"}));
    EXPECT_FALSE(handler->HoldsUploader());
    EXPECT_EQ(collector.Payloads(), std::vector<std::string>{"text"});
}

TEST_F(ProcTimerHandlerUninit, SecondUninitDoesNothing) {
    const auto handler = MakePlain(4096);
    (void)handler->Execute();
    (void)handler->Uninit();
    log.Clear();

    EXPECT_EQ(handler->Uninit(), 0);

    EXPECT_TRUE(log.Lines().empty());
    EXPECT_EQ(collector.Payloads().size(), 1U);
}

TEST_F(ProcTimerHandlerUninit, ExecuteAfterUninitOnlyLogs) {
    const auto handler = MakePlain(4096);
    (void)handler->Uninit();

    EXPECT_EQ(handler->Execute(), 0);

    EXPECT_TRUE(log.Has('E', "ProcTimerHandler is not inited: data/Load.data"));
}

TEST_F(ProcTimerHandlerUninit, FlushOfAnEmptyBufferSendsNothing) {
    const auto handler = MakePlain(4096);

    handler->FlushBuf();

    EXPECT_TRUE(log.Has('I', "FlushBuf, isInited_:1, bufUsedSize:0"));
    EXPECT_FALSE(log.Contains('I', "FlushBuf running"));
    EXPECT_TRUE(collector.Finish().empty());
}

TEST_F(ProcTimerHandlerUninit, DestructorSendsNothing) {
    auto handler = MakePlain(4096);
    (void)handler->Execute();

    handler.reset();

    EXPECT_TRUE(collector.Finish().empty());
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
