// Tests of the thread that converts and uploads the recorder's files.
#include "job_wrapper/perf_extra_task.h"

#include <new>

#include "job_wrapper/script_double.h"
#include "support/failing_malloc.h"
#include "support/failing_new.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using analysis::rokt::transport::UploaderMgr;
using tiv::test::Child;
using tiv::test::FailingMalloc;
using tiv::test::FakeMm;
using tiv::test::PauseGate;
using tiv::test::RecordedLog;
using Texts = std::vector<std::string>;

constexpr uint32_t BUFFER = 262145;

// A directory of record files, a script that turns each into the text "text of <file>", and a task
// whose passes are counted out.
class PerfTask : public ::testing::Test {
 protected:
    PerfTask() {
        params->job_id = "job7";
        UploaderMgr::Instance().AddUploader("job7", collector.Get());
        ConvertTo([](const Child& child) { return "text of " + child.arguments.back(); });
        log.Clear();
    }
    ~PerfTask() override {
        gate.Open();
        UploaderMgr::Instance().DelUploader("job7");
    }

    void ConvertTo(const std::function<std::string(const Child&)>& text) {
        script.onChild = [text](const Child& child) {
            std::ofstream(child.stdoutFile, std::ios::binary) << text(child);
        };
    }
    std::shared_ptr<PerfExtraTask> MakeTask(const std::string& directory) {
        return std::make_shared<PerfExtraTask>(BUFFER, directory, tiv::test::MakeJobContext(),
                                               params);
    }
    std::string Record(const std::string& sequence) {
        return dir.Write("ai_ctrl_cpu.data.5." + sequence, "binary");
    }
    // The whole life of a task that is told to stop in its first pause.
    void RunToTheEnd() { RunToTheEnd(dir.Path()); }
    void RunToTheEnd(const std::string& directory) {
        const auto task = MakeTask(directory);
        ASSERT_EQ(task->Init(), 0);
        ASSERT_EQ(task->Start(), 0);
        gate.WaitForPause(1);
        task->SetQuit();
        gate.Open();
        ASSERT_EQ(task->Stop(), 0);
    }
    bool Exists(const std::string& path) const { return access(path.c_str(), F_OK) == 0; }
    Texts FilesInTheDirectory() const {
        Texts names;
        for (const auto& entry : std::filesystem::directory_iterator(dir.Path())) {
            names.push_back(entry.path().filename());
        }
        return names;
    }

    RecordedLog& log = RecordedLog::Instance();
    tiv::test::TempDir dir;
    tiv::test::ScriptDouble script;
    PauseGate gate;
    tiv::test::ChunkCollector collector;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params =
        std::make_shared<analysis::rokt::message::ProfileParams>();
};

TEST_F(PerfTask, InitSucceedsOnce) {
    const auto task = MakeTask(dir.Path());

    EXPECT_EQ(task->Init(), 0);
    EXPECT_TRUE(log.Has('I', "PerfExtraTask init succ"));
    EXPECT_EQ(task->Init(), -1);
    EXPECT_TRUE(log.Has('E', "The PerfExtraTask is inited"));
}

TEST_F(PerfTask, HostSideRunIsRefusedWithoutALine) {
    params->hostProfiling = true;

    EXPECT_EQ(MakeTask(dir.Path())->Init(), -1);

    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(PerfTask, TaskWithoutParametersIsRefused) {
    params = nullptr;

    EXPECT_EQ(MakeTask(dir.Path())->Init(), -1);
}

TEST_F(PerfTask, BufferOf262145BytesThatCannotBeHadFailsInit) {
    const auto task = MakeTask(dir.Path());
    const FailingMalloc noBuffer(BUFFER);

    EXPECT_EQ(task->Init(), -1);

    EXPECT_TRUE(log.Has('E', "Buf init failed"));
}

TEST_F(PerfTask, BufferIsNotLargerThan262145Bytes) {
    const auto task = MakeTask(dir.Path());
    const FailingMalloc noMore(BUFFER + 1);

    EXPECT_EQ(task->Init(), 0);
}

TEST_F(PerfTask, UninitWithoutInitSaysSo) {
    const auto task = MakeTask(dir.Path());

    EXPECT_EQ(task->Uninit(), 0);

    EXPECT_TRUE(log.Has('I', "PerfExtraTask is uninited"));
}

TEST_F(PerfTask, BufferIsGoneForGoodAfterUninit) {
    Record("1");
    gate.Open();
    const auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    EXPECT_EQ(task->Uninit(), 0);

    EXPECT_EQ(task->Init(), 0);
    ASSERT_EQ(task->Start(), 0);
    EXPECT_EQ(task->Stop(), 0);

    EXPECT_TRUE(collector.Payloads().empty());
    EXPECT_TRUE(FilesInTheDirectory().empty());
    EXPECT_EQ(log.CountOf('E') + log.CountOf('W'), 0U);
}

TEST_F(PerfTask, PausesForASecondBeforeEachPass) {
    const auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    ASSERT_EQ(task->Start(), 0);
    gate.WaitForPause(1);
    gate.EndPause();
    gate.WaitForPause(2);

    EXPECT_EQ(FakeMm::Instance().Sleeps(), (std::vector<uint32_t>{1000, 1000}));
    EXPECT_EQ(log.Count('I', "PerfExtraTask running"), 2U);
    gate.Open();
    EXPECT_EQ(task->Stop(), 0);
}

TEST_F(PerfTask, SingleFileWaitsWhileTheRecorderRuns) {
    const std::string only = Record("000001");
    const auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    ASSERT_EQ(task->Start(), 0);
    gate.WaitForPause(1);
    gate.EndPause();
    gate.WaitForPause(2);

    EXPECT_TRUE(script.Lines().empty());
    EXPECT_TRUE(Exists(only));
    gate.Open();
    EXPECT_EQ(task->Stop(), 0);
}

TEST_F(PerfTask, OfTwoFilesOnlyTheOlderGoes) {
    const std::string older = Record("000001");
    const std::string newest = Record("000002");
    const auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    ASSERT_EQ(task->Start(), 0);
    gate.WaitForPause(1);
    gate.EndPause();
    gate.WaitForPause(2);

    EXPECT_EQ(script.Lines(), Texts{"sudo /var/prof_collect.sh --script " + older});
    EXPECT_EQ(FilesInTheDirectory(), Texts{"ai_ctrl_cpu.data.5.000002"});
    EXPECT_TRUE(log.Has('I', "PerfExtraTask file: " + older));
    gate.Open();
    EXPECT_EQ(task->Stop(), 0);
    EXPECT_FALSE(Exists(newest));
}

TEST_F(PerfTask, StopTakesAllFilesInTheOrderOfTheirNames) {
    const std::string third = Record("c");
    const std::string first = Record("a");
    const std::string second = Record("b");

    RunToTheEnd();

    const std::string convert = "sudo /var/prof_collect.sh --script ";
    EXPECT_EQ(script.Lines(), (Texts{convert + first, convert + second, convert + third}));
    EXPECT_EQ(collector.Payloads(),
              (Texts{"text of " + first, "text of " + second, "text of " + third}));
    EXPECT_TRUE(FilesInTheDirectory().empty());
}

TEST_F(PerfTask, NamesSortAsText) {
    const std::string nine = Record("9");
    const std::string ten = Record("10");

    RunToTheEnd();

    EXPECT_EQ(collector.Payloads(), (Texts{"text of " + ten, "text of " + nine}));
}

TEST_F(PerfTask, FileThatComesDuringTheStopIsTakenToo) {
    Record("1");
    script.onChild = [this](const Child& child) {
        std::ofstream(child.stdoutFile) << "text";
        if (child.arguments.back() == dir.Path("ai_ctrl_cpu.data.5.1")) {
            Record("2");
        }
    };

    RunToTheEnd();

    EXPECT_EQ(script.Lines().size(), 2U);
    EXPECT_TRUE(FilesInTheDirectory().empty());
}

TEST_F(PerfTask, OtherFilesOfTheDirectoryStay) {
    const Texts others = {"ai_ctrl_cpu.data.5", "ai_ctrl_cpu.data.5.1.new",
                          "ai_ctrl_cpu_data.5.1.2", "perf.log"};
    for (const std::string& name : others) {
        dir.Write(name, "x");
    }

    RunToTheEnd();

    EXPECT_TRUE(script.Lines().empty());
    EXPECT_EQ(FilesInTheDirectory().size(), others.size());
}

TEST_F(PerfTask, DotInTheDirectoryHidesAllFiles) {
    const std::string dotted = dir.MakeDir("with.dot");
    dir.Write("with.dot/ai_ctrl_cpu.data.5.1", "binary");

    RunToTheEnd(dotted);

    EXPECT_TRUE(script.Lines().empty());
}

TEST_F(PerfTask, ConversionWritesBesideTheFileWithOnePathEntry) {
    const std::string file = Record("1");
    script.exitCode = 3;

    RunToTheEnd();

    ASSERT_EQ(script.Children().size(), 1U);
    const Child child = script.Children().front();
    EXPECT_EQ(child.arguments, (Texts{"/var/prof_collect.sh", "--script", file}));
    EXPECT_EQ(child.environment, Texts{"PATH=/usr/bin:/usr/sbin:/var"});
    EXPECT_EQ(child.stdoutFile, file + ".txt");
    EXPECT_TRUE(log.Has('I', "resolve ctrlcpu data:" + file + ", ret=0, exit_code=3"));
}

TEST_F(PerfTask, FailedConversionRemovesTheRecordAllTheSame) {
    const std::string file = Record("1");
    FakeMm::Instance().calls.Fail("mmCreateProcess", -1, ENOENT);

    RunToTheEnd();

    EXPECT_TRUE(log.Has('I', "resolve ctrlcpu data:" + file + ", ret=-1, exit_code=0"));
    EXPECT_TRUE(log.Has('W', "file:" + file + ".txt is not exist"));
    EXPECT_TRUE(FilesInTheDirectory().empty());
    EXPECT_TRUE(collector.Payloads().empty());
}

TEST_F(PerfTask, EmptyTextIsAnErrorAndBothFilesGo) {
    Record("1");
    ConvertTo([](const Child&) { return std::string(); });

    RunToTheEnd();

    EXPECT_TRUE(log.Has('E', "data file size is invalid"));
    EXPECT_TRUE(FilesInTheDirectory().empty());
    EXPECT_TRUE(collector.Payloads().empty());
}

TEST_F(PerfTask, TextOf536870912BytesIsTakenAndOneByteMoreIsNot) {
    Record("1");
    Record("2");
    uint64_t size = 536870912;
    FakeMm::Instance().mmGetFileSize = [&size](const char*, uint64_t* bytes) {
        *bytes = size++;
        return 0;
    };

    RunToTheEnd();

    EXPECT_EQ(log.Count('E', "data file size is invalid"), 1U);
    EXPECT_EQ(collector.Payloads(), Texts{"text of " + dir.Path("ai_ctrl_cpu.data.5.1")});
}

TEST_F(PerfTask, TextOf262144BytesMakesAFullChunkAndAnEmptyOne) {
    Record("1");
    const std::string text(BUFFER - 1, 'x');
    ConvertTo([&text](const Child&) { return text; });

    RunToTheEnd();

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 2U);
    EXPECT_EQ(chunks[0].chunk, text);
    EXPECT_EQ(chunks[0].chunkSize, 262144U);
    EXPECT_EQ(chunks[1].chunk, "");
    EXPECT_EQ(chunks[1].chunkSize, 0U);
}

TEST_F(PerfTask, LongTextGoesInSlicesOf262144Bytes) {
    Record("1");
    const std::string text = std::string(BUFFER - 1, 'a') + std::string(10, '\0');
    ConvertTo([&text](const Child&) { return text; });

    RunToTheEnd();

    EXPECT_EQ(collector.Payloads(), (Texts{std::string(BUFFER - 1, 'a'), std::string(10, '\0')}));
    EXPECT_TRUE(log.Has('I', "PerfExtraTask data size: 262154"));
}

TEST_F(PerfTask, ChunkCarriesTheNamesOfTheJob) {
    Record("1");

    RunToTheEnd();

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].fileName, "data/ai_ctrl_cpu.data.null");
    EXPECT_EQ(chunks[0].extraInfo, "job7.2");
    EXPECT_EQ(chunks[0].offset, -1);
    EXPECT_EQ(chunks[0].chunkModule, 3U);
    EXPECT_FALSE(chunks[0].isLastChunk);
}

TEST_F(PerfTask, BytesOfAllFilesAreCounted) {
    Record("1");
    Record("2");
    ConvertTo([](const Child&) { return std::string(100, 'x'); });

    RunToTheEnd();

    EXPECT_TRUE(log.Has('I', "PerfExtraTask data size: 100"));
    EXPECT_TRUE(log.Has('I', "PerfExtraTask data size: 200"));
    EXPECT_TRUE(log.Has('I', "PerfExtraTask the total data size: 200"));
}

TEST_F(PerfTask, RefusedSlicesAreCountedAndTheNextOneFollows) {
    Record("1");
    ConvertTo([](const Child&) { return std::string(BUFFER, 'x'); });
    UploaderMgr::Instance().DelUploader("job7");

    RunToTheEnd();

    EXPECT_EQ(log.Count('E', "Upload cpu data failed , jobId: job7"), 2U);
    EXPECT_TRUE(log.Has('I', "PerfExtraTask the total data size: 262145"));
    EXPECT_TRUE(FilesInTheDirectory().empty());
}

TEST_F(PerfTask, SliceThatDoesNotFitInMemoryEndsItsFile) {
    Record("1");
    log.SetLevel(DLOG_ERROR);
    script.onChild = [](const Child& child) {
        std::ofstream(child.stdoutFile) << std::string(BUFFER, 'x');
        tiv::test::FailNextNewOfAtLeast(BUFFER - 1);
    };

    RunToTheEnd();

    tiv::test::FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    EXPECT_TRUE(collector.Payloads().empty());
    EXPECT_TRUE(FilesInTheDirectory().empty());
}

TEST_F(PerfTask, ExceptionEndsThePassAndNotTheThread) {
    FakeMm::Instance().mmScandir = [](const char*, mmDirent***, mmFilter, mmSort) -> int32_t {
        throw std::bad_alloc();
    };

    RunToTheEnd();

    EXPECT_EQ(log.Count('E', "PerfExtraTask pass failed, exception: std::bad_alloc"), 2U);
    EXPECT_TRUE(log.Has('I', "PerfExtraTask the total data size: 0"));
}

TEST_F(PerfTask, NullContextIsIgnored) {
    Record("1");
    const auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    task->SetJobCtx(nullptr);
    gate.Open();
    ASSERT_EQ(task->Start(), 0);

    EXPECT_EQ(task->Stop(), 0);

    EXPECT_EQ(collector.Payloads().size(), 1U);
}

TEST_F(PerfTask, LaterContextCounts) {
    Record("1");
    const auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    const auto later = tiv::test::MakeJobContext();
    later->dev_id = "3";
    task->SetJobCtx(later);
    gate.Open();
    ASSERT_EQ(task->Start(), 0);

    EXPECT_EQ(task->Stop(), 0);

    const auto chunks = collector.Finish();
    ASSERT_EQ(chunks.size(), 1U);
    EXPECT_EQ(chunks[0].extraInfo, "job7.3");
}

TEST_F(PerfTask, TaskWithoutAContextUploadsNothing) {
    Record("1");
    gate.Open();
    PerfExtraTask task(BUFFER, dir.Path(), nullptr, params);
    ASSERT_EQ(task.Init(), 0);
    ASSERT_EQ(task.Start(), 0);

    EXPECT_EQ(task.Stop(), 0);

    EXPECT_TRUE(collector.Payloads().empty());
    EXPECT_TRUE(FilesInTheDirectory().empty());
}

TEST_F(PerfTask, DestructorMakesTheLastPass) {
    const std::string file = Record("1");
    auto task = MakeTask(dir.Path());
    ASSERT_EQ(task->Init(), 0);
    ASSERT_EQ(task->Start(), 0);
    gate.WaitForPause(1);
    gate.Open();

    task.reset();

    EXPECT_FALSE(Exists(file));
    EXPECT_TRUE(log.Contains('I', "PerfExtraTask the total data size: "));
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
