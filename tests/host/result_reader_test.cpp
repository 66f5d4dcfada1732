// Whole results as rows.
#include "host/result/result_reader.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <random>

#include "host/result_parse.h"
#include "support/temp_dir.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

constexpr const char* MANIFEST = R"({"state":"complete","complete":true,
    "units":{"pageBytes":4096,"ticksPerSecond":100},
    "devices":[{"device":0,"directory":"device_0","complete":true,"finishArrived":true},
               {"device":1,"directory":"device_1","complete":true,"finishArrived":true}]})";

std::string Stat(int pid, int start) {
    return fmt::format(
        "{} (sh) S 1 2 2 0 -1 0 0 0 0 0 1 2 0 0 20 0 1 0 {} 5 2\nProcessName:sh\ncpu 1 2\n", pid,
        start);
}

class ResultReaderTest : public testing::Test {
 protected:
    ResultReaderTest() {
        directory_.Write("manifest.json", MANIFEST);
        for (const char* device : {"device_0/", "device_1/"}) {
            (void)directory_.MakeDir(std::string(device) + "data");
            WriteFiles(std::string(device) + "data/");
        }
    }
    void WriteFiles(const std::string& at) {
        directory_.Write(at + "SystemCpuUsage.data", Record(50, 0, "cpu 1 2 3 4 5 6 7 8\n"));
        directory_.Write(at + "Memory.data", Record(60, 0, "MemFree: 9 kB\n"));
        directory_.Write(at + "7-CpuUsage.data", Record(70, 0, Stat(7, 3)));
        directory_.Write(at + "7-Memory.data", Record(20, 0, "1 1 1 1 0 1 0\nProcessName:sh\n"));
        directory_.Write(at + "8-Memory.data", Record(80, 0, "1 1 1 1 0 1 0\nProcessName:x\n"));
        directory_.Write(at + "ai_ctrl_cpu.data", "a 1 [0] 0.000000090: 1 e: \n\n");
    }
    const TableLog& Read(const OnReadProgress& onProgress = {}) {
        std::string error;
        const auto result = OpenResult(directory_.Path(), error);
        log_ = std::make_unique<TableLog>();
        if (result.has_value()) {
            ResultReader reader(*result, *log_);
            returned_ = reader.Read(onProgress);
        }
        return *log_;
    }

    TempDir directory_;
    std::unique_ptr<TableLog> log_;
    ReadOutcome returned_;
};

// A visitor that cannot take it.
class ThrowingVisitor : public TableVisitor {
    void OnMemory(const MemoryRow& /*row*/) override { throw std::runtime_error("disk full"); }
};

}  // namespace

TEST_F(ResultReaderTest, EveryFileOfEveryDeviceBecomesRows) {
    const TableLog& log = Read();

    ASSERT_EQ(30u, log.lines.size());
    EXPECT_EQ((std::vector<std::string>{
                  "cpu 0 50 -1 1,2,3,4,5,6,7,8 -",
                  "file 0 data/SystemCpuUsage.data system_cpu 53 bytes, 1 read, 0 in 0 unreadable",
                  "key 0 0 MemFree bytes", "memory 0 60 0 9216",
                  "file 0 data/Memory.data memory 47 bytes, 1 read, 0 in 0 unreadable",
                  "process_cpu 1 70 1+2 1 S -"}),
              std::vector<std::string>(log.lines.begin(), log.lines.begin() + 6));
    EXPECT_EQ("process 0 1 pid=7 start=3 parent=1 [20..70] sh", log.lines[9]);
    EXPECT_EQ("process 1 3 pid=7 start=3 parent=1 [20..70] sh", log.lines[24]);
    EXPECT_TRUE(log.outcome.problems.empty());
    EXPECT_EQ(20u, log.outcome.firstNs);
    EXPECT_EQ(90u, log.outcome.lastNs);
    EXPECT_EQ(log.outcome.lastNs, returned_.lastNs);
}

TEST_F(ResultReaderTest, UnreadablePlacesBecomeProblems) {
    directory_.Write("device_1/data/Memory.data", "nonsense");

    const TableLog& log = Read();

    EXPECT_EQ((std::vector<std::string>{
                  "device_1/data/Memory.data: 8 of 8 bytes are unreadable, in 1 places"}),
              log.outcome.problems);
}

TEST_F(ResultReaderTest, FileOfNoKnownKindIsListedAndNotRead) {
    directory_.Write("device_0/data/notes.txt", "whatever");
    ReadProgress last;

    const TableLog& log = Read([&](const ReadProgress& progress) {
        last = progress;
        return true;
    });

    EXPECT_EQ(1, std::count(log.lines.begin(), log.lines.end(),
                            "file 0 data/notes.txt other 8 bytes, 0 read, 0 in 0 unreadable"));
    EXPECT_TRUE(log.outcome.problems.empty());
    EXPECT_EQ(last.total, last.bytes) << "it is no part of the work";
}

TEST_F(ResultReaderTest, VisitorTakesOnlyTheRowsThatItWants) {
    class Files : public TableVisitor {
     public:
        int files = 0;

     private:
        void OnFile(const FileRow& /*row*/) override { ++files; }
    } visitor;
    directory_.Write("device_0.chunks.csv", "received_ns,bytes,file\n1,2,data/a\n");
    std::string error;
    const auto result = OpenResult(directory_.Path(), error);

    EXPECT_TRUE(ResultReader(*result, visitor).Read().problems.empty());

    EXPECT_EQ(13, visitor.files);
}

TEST_F(ResultReaderTest, FileThatGoesAfterTheLookIsAProblem) {
    std::string error;
    const auto result = OpenResult(directory_.Path(), error);
    unlink(directory_.Path("device_0/data/Memory.data").c_str());
    const int input = fcntl(STDIN_FILENO, F_GETFD);
    TableLog log;
    ResultReader reader(*result, log);

    const ReadOutcome outcome = reader.Read();

    EXPECT_EQ((std::vector<std::string>{
                  "device_0/data/Memory.data cannot be opened: No such file or directory"}),
              outcome.problems);
    EXPECT_EQ(29u, log.lines.size() + 1);
    EXPECT_EQ(input, fcntl(STDIN_FILENO, F_GETFD)) << "nothing else was read in its place";
}

TEST_F(ResultReaderTest, PipeThatTakesAFilesPlaceAfterTheLookIsAProblem) {
    std::string error;
    const auto result = OpenResult(directory_.Path(), error);
    const std::string path = directory_.Path("device_0/data/Memory.data");
    unlink(path.c_str());
    ASSERT_EQ(0, mkfifo(path.c_str(), 0600));
    TableLog log;
    ResultReader reader(*result, log);

    EXPECT_EQ((std::vector<std::string>{"device_0/data/Memory.data is no regular file"}),
              reader.Read().problems);
}

TEST_F(ResultReaderTest, ProgressCountsUpToTheWhole) {
    uint64_t last = 0;
    uint64_t total = 0;
    (void)Read([&](const ReadProgress& progress) {
        EXPECT_GT(progress.bytes, last);
        last = progress.bytes;
        total = progress.total;
        EXPECT_GE(total, last);
        return true;
    });

    EXPECT_GT(total, 0u);
    EXPECT_EQ(total, last);
}

TEST_F(ResultReaderTest, ReadingThatIsEndedEarlySaysSo) {
    const TableLog& log = Read([](const ReadProgress&) { return false; });

    EXPECT_TRUE(log.outcome.cancelled);
    EXPECT_EQ("the reading was ended early", log.outcome.problems.back());
    EXPECT_EQ(2u, log.lines.size());
}

TEST_F(ResultReaderTest, ExceptionOfTheVisitorPassesThrough) {
    std::string error;
    const auto result = OpenResult(directory_.Path(), error);
    ThrowingVisitor visitor;
    ResultReader reader(*result, visitor);

    EXPECT_THROW((void)reader.Read(), std::runtime_error);
}

TEST_F(ResultReaderTest, ProblemsAreBounded) {
    for (int i = 0; i < 1200; ++i) {
        directory_.Write(fmt::format("device_0/data/{}-Memory.data", 100 + i), "x");
    }

    const TableLog& log = Read();

    EXPECT_EQ(1001u, log.outcome.problems.size());
    EXPECT_EQ("and 200 more of the kind", log.outcome.problems.back());
}

TEST_F(ResultReaderTest, RandomDamageIsReadToTheEnd) {
    std::mt19937 random(20261121);
    const std::string names[] = {"SystemCpuUsage.data", "Memory.data",   "7-CpuUsage.data",
                                 "7-Memory.data",       "8-Memory.data", "ai_ctrl_cpu.data"};
    for (int round = 0; round < 40; ++round) {
        WriteFiles("device_0/data/");
        for (const std::string& name : names) {
            std::string bytes = directory_.Read("device_0/data/" + name);
            bytes[random() % bytes.size()] = static_cast<char>(random());
            bytes.erase(random() % bytes.size(), random() % 4);
            directory_.Write("device_0/data/" + name, bytes);
        }
        const TableLog& log = Read();
        EXPECT_EQ("cpu 1 50 -1 1,2,3,4,5,6,7,8 -",
                  *std::find_if(log.lines.begin(), log.lines.end(),
                                [](const auto& line) { return line.rfind("cpu 1", 0) == 0; }));
    }
}
