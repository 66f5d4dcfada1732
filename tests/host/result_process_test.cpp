// CPU and memory of processes as rows.
#include <gtest/gtest.h>

#include "host/result/process_parsers.h"
#include "host/result_parse.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

constexpr uint32_t PID = 42;

// What the sampler writes for a process called `name`.
std::string CpuReading(const std::string& name, int user, int system, int start,
                       const std::string& total = "cpu  1 2 3 4 5 6 7 8 0 0\n") {
    const std::string firstLine = name.substr(0, name.find('\n'));
    return fmt::format(
        "{} ({}) S 7 42 42 0 -1 4194560 48349 445040 0 202 {} {} 1805 490 20 0 13 0 {} 53841920 "
        "5229 18446744073709551615 1 1 0 0 0\nProcessName:{}\n{}",
        PID, name, user, system, start, firstLine, total);
}

std::string MemoryReading(const std::string& name) {
    return fmt::format("3 2 1 1 0 2 0\nProcessName:{}\n", name);
}

// Reads both files of the process and gives the rows.
struct Reading {
    explicit Reading(const std::string& cpu, const std::string& memory = "",
                     size_t piece = 1 << 20) {
        TimeSpan span;
        const ParseContext context{0, log, span};
        ProcessLives lives(context, PID, lastProcess);
        ProcessCpuParser cpuParser(context, lives, 100);
        Feed(cpuParser, cpu, piece);
        ProcessMemoryParser memoryParser(context, lives, 4096);
        Feed(memoryParser, memory, piece);
        lives.Finish();
    }
    void Feed(FileParser& parser, std::string_view stream, size_t piece) {
        for (size_t i = 0; i < stream.size(); i += piece) {
            parser.Feed(stream.substr(i, piece));
        }
        parser.Finish();
        unreadable += parser.UnreadableRecords();
    }

    TableLog log;
    uint64_t lastProcess = 0;
    uint64_t unreadable = 0;
};

std::string Name(const Reading& reading) {
    const std::string& line = reading.log.lines.back();
    return line.substr(line.find("] ") + 2);
}

}  // namespace

TEST(Process, UseIsMadeFromTwoReadingsAndTheTickRate) {
    const Reading reading(Record(1000, 0, CpuReading("sh", 10, 20, 5)) +
                          Record(501000, 1, CpuReading("sh", 13, 21, 5)));

    EXPECT_EQ((std::vector<std::string>{"process_cpu 1 1000 10+20 13 S -",
                                        "process_cpu 1 501000 13+21 13 S 500000:30000000+10000000",
                                        "process 0 1 pid=42 start=5 parent=7 [1000..501000] sh"}),
              reading.log.lines);
}

TEST(Process, CounterThatWentBackwardsIsAGap) {
    const Reading reading(Record(1, 0, CpuReading("sh", 10, 20, 5)) +
                          Record(2, 1, CpuReading("sh", 9, 30, 5)) +
                          Record(3, 2, CpuReading("sh", 9, 31, 5)));

    EXPECT_EQ("process_cpu 1 2 9+30 13 S -", reading.log.lines[1]);
    EXPECT_EQ("process_cpu 1 3 9+31 13 S 1:0+10000000", reading.log.lines[2]);
}

TEST(Process, MemoryIsPagesOfTheManifestsSize) {
    const Reading reading("", Record(8, 0, MemoryReading("sh")));

    EXPECT_EQ((std::vector<std::string>{"process_memory 1 8 12288 8192 4096 4096 8192",
                                        "process 0 1 pid=42 start=- parent=- [8..8] sh"}),
              reading.log.lines);
}

TEST(Process, NameMayHoldAnything) {
    for (const std::string name :
         {"a) S 1 2 (b", "x\ny", "\nProcessName:", "\ncpu 1 2", "\"><script>", ") R 1 1 1 1", "",
          "it's", "a,b;c", "()", "100%s", "Index:9\n"}) {
        const Reading reading(Record(1, 0, CpuReading(name, 1, 1, 1)));
        EXPECT_EQ(0u, reading.unreadable) << name;
        EXPECT_EQ(name, Name(reading));
    }
}

TEST(Process, NameOfAnotherEncodingBecomesText) {
    EXPECT_EQ("caf\\xe9", Name(Reading(Record(1, 0, CpuReading("caf\xe9", 1, 1, 1)))));
}

TEST(Process, LastNameCountsBecauseProgramsReplaceEachOther) {
    EXPECT_EQ("cc1", Name(Reading(Record(1, 0, CpuReading("sh", 1, 1, 1)) +
                                  Record(2, 1, CpuReading("cc1", 1, 1, 1)))));
}

TEST(Process, ReadingWithoutTheSystemsLineIsGood) {
    const Reading reading(Record(1, 0, CpuReading("sh", 1, 2, 3, "")));

    EXPECT_EQ("process_cpu 1 1 1+2 13 S -", reading.log.lines.front());
}

TEST(Process, ProcessIdThatCameRoundIsAnotherProcess) {
    const Reading reading(Record(10, 0, CpuReading("old", 50, 50, 5)) +
                              Record(20, 1, CpuReading("old", 51, 50, 5)) +
                              Record(90, 0, CpuReading("new", 60, 60, 9)),
                          Record(9, 0, MemoryReading("old")) + Record(24, 1, MemoryReading("old")) +
                              Record(89, 0, MemoryReading("new")));

    EXPECT_EQ((std::vector<std::string>{
                  "process_cpu 1 10 50+50 13 S -", "process_cpu 1 20 51+50 13 S 10:10000000+0",
                  "process_cpu 2 90 60+60 13 S -", "process_memory 1 9 12288 8192 4096 4096 8192",
                  "process_memory 1 24 12288 8192 4096 4096 8192",
                  "process_memory 2 89 12288 8192 4096 4096 8192",
                  "process 0 1 pid=42 start=5 parent=7 [9..24] old",
                  "process 0 2 pid=42 start=9 parent=7 [89..90] new"}),
              reading.log.lines);
}

TEST(Process, WithoutCpuReadingsACountThatBeginsAnewIsAnotherProcess) {
    const Reading reading("", Record(1, 0, MemoryReading("a")) + Record(2, 1, MemoryReading("a")) +
                                  Record(9, 0, MemoryReading("b")));

    EXPECT_EQ("process 0 1 pid=42 start=- parent=- [1..2] a", reading.log.lines[3]);
    EXPECT_EQ("process 0 2 pid=42 start=- parent=- [9..9] b", reading.log.lines[4]);
}

TEST(Process, NameThatCouldNotBeReadIsAbsent) {
    EXPECT_EQ("", Name(Reading("", Record(1, 0, MemoryReading("self")))));
    EXPECT_EQ("sh", Name(Reading("", Record(1, 0, MemoryReading("sh")) +
                                         Record(2, 1, MemoryReading("self")))));
}

TEST(Process, ReadingThatIsNoneIsCounted) {
    const std::string good = CpuReading("sh", 1, 2, 3);
    const std::string otherPid = "43" + good.substr(2);
    for (const std::string& bad :
         {std::string(), std::string("\n"), std::string("cpu  1 2 3 4 5 6 7 8 0 0\n"),
          good.substr(1), otherPid, good.substr(0, 60), good.substr(0, good.size() - 1),
          good.substr(0, good.find("Process")), CpuReading("sh", -1, 2, 3),
          CpuReading(std::string(300, 'x'), 1, 2, 3)}) {
        const Reading reading(Record(1, 0, bad) + Record(2, 1, good));
        EXPECT_EQ(1u, reading.unreadable) << bad;
        EXPECT_EQ("process_cpu 1 2 1+2 13 S -", reading.log.lines.front()) << bad;
    }
}

TEST(Process, MemoryReadingThatIsNoneIsCounted) {
    for (const char* bad :
         {"", "1 2 3\nProcessName:a\n", "1 2 3 4 5 6 7 8\nProcessName:a\n", "1 2 3 4 5 6 7\n",
          "1 2 3 4 5 6 7\nName:a\n", "1 2 3 4 5 6 x\nProcessName:a\n",
          "1 2 3 4 5 6 7\nProcessName:a\nmore\n",
          "2251799813685248 2 3 4 5 6 7\nProcessName:a\n"}) {
        EXPECT_EQ(1u, Reading("", Record(1, 0, bad)).unreadable) << bad;
    }
}

TEST(Process, NameOf255BytesIsTheLongest) {
    const std::string longest(255, 'x');

    EXPECT_EQ(longest, Name(Reading(Record(1, 0, CpuReading(longest, 1, 2, 3)))));
    EXPECT_EQ(longest, Name(Reading("", Record(1, 0, MemoryReading(longest)))));
    EXPECT_EQ(1u, Reading(Record(1, 0, CpuReading(longest + "x", 1, 2, 3))).unreadable);
    EXPECT_EQ(1u, Reading("", Record(1, 0, MemoryReading(longest + "x"))).unreadable);
}

TEST(Process, LivesOfOneProcessIdAreBounded) {
    std::string stream;
    for (uint32_t i = 0; i < 4100; ++i) {
        stream += Record(i, i, CpuReading("sh", 1, 1, static_cast<int>(i)));
    }

    EXPECT_EQ(4u, Reading(stream).unreadable);
}

TEST(Process, LivesThatOnlyMemoryTellsOfAreBoundedToo) {
    std::string stream;
    for (uint32_t i = 0; i < 4100; ++i) {
        stream += Record(i, 0, MemoryReading("sh"));
    }

    EXPECT_EQ(4u, Reading("", stream).unreadable);
}

TEST(Process, UseBeyondWhatATableHoldsIsAbsent) {
    std::string huge = CpuReading("sh", 1, 1, 1);
    huge.replace(huge.find(" 1 1 1805"), 4, " 9223372036854775807 1");
    const Reading reading(Record(1, 0, CpuReading("sh", 1, 1, 1)) + Record(2, 1, huge));

    EXPECT_EQ("process_cpu 1 2 9223372036854775807+1 13 S -", reading.log.lines[1]);
}

TEST(Process, AnyCutGivesTheSameRows) {
    const std::string cpu = Record(1, 0, CpuReading("x\ny", 10, 20, 5)) + "damage" +
                            Record(5, 1, CpuReading("x\ny", 13, 21, 5));
    const std::string memory = Record(2, 0, MemoryReading("x")) + "TimeStamp:7\nIn";
    const Reading whole(cpu, memory);

    for (size_t piece = 1; piece < cpu.size(); ++piece) {
        const Reading cut(cpu, memory, piece);
        EXPECT_EQ(whole.log.lines, cut.log.lines) << piece;
        EXPECT_EQ(2u, cut.unreadable);
    }
}
