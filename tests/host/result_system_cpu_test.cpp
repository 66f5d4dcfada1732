// CPU times of the system as rows.
#include <gtest/gtest.h>

#include "host/result/system_cpu_parser.h"
#include "host/result_parse.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

ParsedFile Parse(const std::string& stream, size_t piece = 1 << 20) {
    return ParseInPieces<SystemCpuParser>(stream, piece);
}

std::vector<std::string> Lines(std::initializer_list<const char*> lines) {
    return {lines.begin(), lines.end()};
}

}  // namespace

TEST(SystemCpu, SharesAreMadeFromTwoReadingsOfTheSameCore) {
    const std::string stream =
        Record(1000, 0, "cpu  10 0 5 85 0 0 0 0 7 0\ncpu1 10 0 5 85 0 0 0 0 7 0\n") +
        Record(3000, 1, "cpu  20 0 10 145 0 0 0 25 9 0\ncpu1 10 0 5 86 0 0 0 0 7 0\n");

    const ParsedFile parsed = Parse(stream);

    EXPECT_EQ(Lines({"cpu 0 1000 -1 10,0,5,85,0,0,0,0 -", "cpu 0 1000 1 10,0,5,85,0,0,0,0 -",
                     "cpu 0 3000 -1 20,0,10,145,0,0,0,25 2000:10,0,5,60,0,0,0,25",
                     "cpu 0 3000 1 10,0,5,86,0,0,0,0 2000:0,0,0,100,0,0,0,0"}),
              parsed.lines);
    EXPECT_EQ(2u, parsed.records);
    EXPECT_EQ(0u, parsed.unreadableBytes);
}

TEST(SystemCpu, CounterThatWentBackwardsIsAGapAndTheNextIntervalIsNone) {
    const std::string stream = Record(1, 0, "cpu 10 0 0 90 5 0 0 0\n") +
                               Record(2, 1, "cpu 20 0 0 91 4 0 0 0\n") +
                               Record(3, 2, "cpu 21 0 0 92 4 0 0 0\n");

    EXPECT_EQ(Lines({"cpu 0 1 -1 10,0,0,90,5,0,0,0 -", "cpu 0 2 -1 20,0,0,91,4,0,0,0 -",
                     "cpu 0 3 -1 21,0,0,92,4,0,0,0 1:50,0,0,50,0,0,0,0"}),
              Parse(stream).lines);
}

TEST(SystemCpu, IntervalWithoutTicksOrWithoutTimeHasNoShares) {
    const std::string stream = Record(5, 0, "cpu 1 1 1 1 1 1 1 1\n") +
                               Record(6, 1, "cpu 1 1 1 1 1 1 1 1\n") +
                               Record(6, 2, "cpu 2 1 1 1 1 1 1 1\n");

    EXPECT_EQ(Lines({"cpu 0 5 -1 1,1,1,1,1,1,1,1 -", "cpu 0 6 -1 1,1,1,1,1,1,1,1 -",
                     "cpu 0 6 -1 2,1,1,1,1,1,1,1 -"}),
              Parse(stream).lines);
}

TEST(SystemCpu, CoreThatWasOfflineIsMeasuredOverTheWholeGap) {
    const std::string stream = Record(1, 0, "cpu0 0 0 0 0 0 0 0 0\ncpu1 0 0 0 0 0 0 0 0\n") +
                               Record(2, 1, "cpu0 1 0 0 0 0 0 0 0\n") +
                               Record(3, 2, "cpu1 0 0 0 4 0 0 0 0\n");

    EXPECT_EQ("cpu 0 3 1 0,0,0,4,0,0,0,0 2:0,0,0,100,0,0,0,0", Parse(stream).lines.back());
}

TEST(SystemCpu, ReadingThatIsNoneIsCountedAndBreaksNothing) {
    const std::string good = Record(1, 0, "cpu 1 0 0 0 0 0 0 0\n");
    for (const char* bad : {"", "\n", "cpu\n", "cpu 1 2 3\n", "cpux 1 2 3 4 5 6 7 8\n",
                            "cpu65536 1 2 3 4 5 6 7 8\n", "cpu 1 2 3 4 5 6 7 -8\n",
                            "cpu 1 2 3 4 5 6 7 9223372036854775808\n", "cpu 1 2 3 4 5 6 7 8 x\n",
                            "intr 1 2 3 4 5 6 7 8\n", "cpu 1 2 3 4 5 6 7 8\nTimeStamp:1\n"}) {
        const ParsedFile parsed = Parse(Record(0, 0, bad) + good);
        EXPECT_EQ(Lines({"cpu 0 1 -1 1,0,0,0,0,0,0,0 -"}), parsed.lines) << bad;
        EXPECT_EQ(1u, parsed.unreadableRecords) << bad;
        EXPECT_EQ(std::string(bad).size(), parsed.unreadableBytes) << bad;
    }
}

TEST(SystemCpu, TimeThatFitsNoTableMakesTheRecordUnreadable) {
    const ParsedFile parsed =
        Parse(Record(static_cast<uint64_t>(INT64_MAX) + 1, 0, "cpu 1 0 0 0 0 0 0 0\n"));

    EXPECT_TRUE(parsed.lines.empty());
    EXPECT_EQ(1u, parsed.unreadableRecords);
}

TEST(SystemCpu, AnyCutGivesTheSameRows) {
    const std::string stream = Record(1000, 0, "cpu  10 0 5 85 0 0 0 0 7 0\n") + "damage" +
                               Record(3000, 1, "cpu  20 0 10 145 0 0 0 25 9 0\n") + "TimeSt";
    const ParsedFile whole = Parse(stream);

    for (size_t piece = 1; piece < stream.size(); ++piece) {
        EXPECT_EQ(whole, Parse(stream, piece)) << piece;
    }
    EXPECT_EQ(12u, whole.unreadableBytes);
}
