// Driver channels and the cache statistic as rows.
#include <gtest/gtest.h>

#include "host/channel_bytes.h"
#include "host/result/channel_header_view.h"
#include "host/result/channel_parser.h"
#include "host/result_parse.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

ParsedFile Parse(const std::string& stream, size_t piece = 1 << 20) {
    uint32_t lastChannel = 0;
    return ParseInPieces<ChannelParser>(stream, piece,
                                        ChannelContext{"data/llc.data", lastChannel});
}

const std::string PERF_LINE =
    "channel 0 1 id=8 data/llc.data software events perf raw_monotonic 20ms page-faults,switches";
const std::string PERF_FILE = PerfHeader() + Count(100, 0, UINT32_MAX, 5) + Count(100, 1, 0, 7) +
                              Count(120, 0, UINT32_MAX, 6) + Count(130, 1, 0, 8);

}  // namespace

TEST(Channel, CountsCarryTheTimeSinceTheRecordBefore) {
    const ParsedFile parsed = Parse(PERF_FILE);

    EXPECT_EQ((std::vector<std::string>{PERF_LINE, "count 1 100 0 -1 5 -", "count 1 100 1 0 7 -",
                                        "count 1 120 0 -1 6 20", "count 1 130 1 0 8 30"}),
              parsed.lines);
    EXPECT_EQ(4u, parsed.records);
    EXPECT_EQ(0u, parsed.unreadableBytes);
}

TEST(Channel, BehindALossNoIntervalIsKnown) {
    const ParsedFile parsed = Parse(PerfHeader() + Count(1, 0, 0, 5) +
                                    Count(9, UINT32_MAX, UINT32_MAX, 44) + Count(9, 0, 0, 6));

    EXPECT_EQ((std::vector<std::string>{PERF_LINE, "count 1 1 0 0 5 -", "loss 1 9 44",
                                        "count 1 9 0 0 6 -"}),
              parsed.lines);
}

TEST(Channel, SecondStartBehindARecordThatWasCutIsFound) {
    const ParsedFile parsed =
        Parse(PERF_FILE + Count(140, 0, 0, 1).substr(0, 21) + PerfHeader() + Count(7, 0, 0, 1));

    ASSERT_EQ(7u, parsed.lines.size());
    EXPECT_EQ("count 2 7 0 0 1 -", parsed.lines.back());
    EXPECT_EQ(21u, parsed.unreadableBytes);
    EXPECT_EQ(1u, parsed.unreadableRecords);
}

TEST(Channel, RecordsThatCannotBeAreCounted) {
    for (const std::string& bad :
         {Count(99, 0, 0, 1), Count(130, 2, 0, 1), Count(130, UINT32_MAX, 0, 1),
          Count(130, 0, 1u << 31, 1), Count(130, 0, 0, 1ULL << 63), Count(1ULL << 63, 0, 0, 1),
          Count(130 + 90000ULL * 1000000000, 0, 0, 1)}) {
        const ParsedFile parsed = Parse(PERF_FILE + bad + Count(140, 0, UINT32_MAX, 1));
        EXPECT_EQ("count 1 140 0 -1 1 20", parsed.lines.back());
        EXPECT_EQ(24u, parsed.unreadableBytes);
    }
}

TEST(Channel, NumbersOfACounterAreRuns) {
    const ParsedFile parsed =
        Parse(Header(2, {}, 8) + Numbers(0, 1000) + Numbers(1001, 2) + Numbers(5, 1) + "cut");

    EXPECT_EQ((std::vector<std::string>{
                  "channel 0 1 id=8 data/llc.data software events counter none 20ms ",
                  "run 1 0 1000", "run 1 1001 2", "run 1 5 1"}),
              parsed.lines);
    EXPECT_EQ(1003u, parsed.records);
    EXPECT_EQ(3u, parsed.unreadableBytes);
}

TEST(Channel, NumberBeyondWhatATableHoldsIsCounted) {
    const ParsedFile parsed = Parse(Header(2, {}, 8) + Little(1ULL << 63) + Numbers(5, 2));

    ASSERT_EQ(2u, parsed.lines.size());
    EXPECT_EQ("run 1 5 2", parsed.lines.back());
    EXPECT_EQ(8u, parsed.unreadableBytes);
    EXPECT_EQ(1u, parsed.unreadableRecords);
}

TEST(Channel, ReplayedBytesAreTheirOwn) {
    const ParsedFile parsed = Parse(Header(3, {}, 0) + "anything TIVC at all");

    ASSERT_EQ(1u, parsed.lines.size());
    EXPECT_EQ(0u, parsed.unreadableBytes);
}

TEST(Channel, FileThatIsNeitherIsUnreadable) {
    EXPECT_EQ(20u, Parse("binary of some card.").unreadableBytes);
    EXPECT_EQ(3u, Parse("bin").unreadableBytes);
    EXPECT_EQ(0u, Parse("").unreadableBytes);
    EXPECT_EQ(PERF_FILE.size() - 8,
              Parse("TIVC" + Little(1u) + PERF_FILE.substr(16)).unreadableBytes);
}

TEST(Channel, NameEndsWithItsField) {
    std::string bytes = PerfHeader();
    bytes.replace(32, 32, std::string(32, 'n'));  // the number of events follows at once
    ChannelHeaderView header;

    ASSERT_EQ(HeaderParse::READ, ParseChannelHeader(bytes, header));

    EXPECT_EQ(std::string(32, 'n'), header.name);
    EXPECT_EQ(2u, header.events.size());
}

TEST(Channel, TextWithoutTheMarkIsNoHeader) {
    ChannelHeaderView header;

    EXPECT_EQ(HeaderParse::NO_HEADER, ParseChannelHeader("TIVX", header));
    EXPECT_EQ(HeaderParse::NO_HEADER, ParseChannelHeader("X", header));
    EXPECT_EQ(HeaderParse::NEED_MORE, ParseChannelHeader("TI", header));
}

TEST(Channel, DamagedHeaderIsNone) {
    for (const size_t offset : {size_t{4}, size_t{8}, size_t{10}, size_t{12}, size_t{64}}) {
        std::string damaged = PERF_FILE;
        damaged[offset] = '\x7f';
        const ParsedFile parsed = Parse(damaged);
        EXPECT_TRUE(parsed.lines.empty()) << offset;
        EXPECT_EQ(damaged.size(), parsed.unreadableBytes) << offset;
    }
}

TEST(Channel, EveryCutOfTheFileGivesItsFrontAndCountsTheRest) {
    const ParsedFile whole = Parse(PERF_FILE);
    for (size_t bytes = 0; bytes < PERF_FILE.size(); ++bytes) {
        const ParsedFile cut = Parse(PERF_FILE.substr(0, bytes));
        ASSERT_LE(cut.lines.size(), whole.lines.size());
        EXPECT_TRUE(std::equal(cut.lines.begin(), cut.lines.end(), whole.lines.begin())) << bytes;
        const size_t header = PerfHeader().size();
        EXPECT_EQ(bytes < header ? bytes : (bytes - header) % 24, cut.unreadableBytes) << bytes;
    }
}

TEST(Channel, AnyCutIntoPiecesGivesTheSameRows) {
    const std::string stream = PERF_FILE + "TIVC" + PerfHeader() + Count(7, 0, 0, 1) +
                               Header(2, {}, 8) + Numbers(3, 9) + Numbers(0, 2) + Header(3, {}, 0) +
                               "bytes";
    const ParsedFile whole = Parse(stream);

    for (size_t piece = 1; piece < stream.size(); ++piece) {
        EXPECT_EQ(whole, Parse(stream, piece)) << piece;
    }
    EXPECT_EQ(4u, whole.unreadableBytes);
}

TEST(Channel, HeaderBehindACutRecordIsNeverTakenForItsRest) {
    for (size_t left = 0; left < 24; ++left) {
        const std::string stream =
            PERF_FILE + Count(140, 0, 0, 1).substr(0, left) + PerfHeader() + Count(7, 0, 0, 1);
        const ParsedFile whole = Parse(stream);
        EXPECT_EQ(left, whole.unreadableBytes);
        for (size_t piece = 1; piece < stream.size(); ++piece) {
            ASSERT_EQ(whole, Parse(stream, piece)) << left << " " << piece;
        }
    }
}

TEST(Statistic, CountsAndWhatWasNotCounted) {
    const ParsedFile parsed = Parse(
        "# <not supported> LLC-stores\n"
        "#           time             counts unit events\n"
        "     0.100160000             12345      LLC-loads\n"
        "     0.100160000     <not counted>      LLC-stores\n"
        "     0.200260000                 7      LLC-loads     # 1.0 per sec  (25.00%)\n");

    EXPECT_EQ((std::vector<std::string>{
                  "channel 0 1 id=- data/llc.data LLC-loads statistic since_start 0ms LLC-loads",
                  "count 1 100160000 0 -1 12345 100160000", "count 1 200260000 0 -1 7 100100000"}),
              parsed.lines);
    EXPECT_EQ(0u, parsed.unreadableBytes);
}

TEST(Statistic, LinesThatAreNoneAreCounted) {
    for (const std::string bad : {"0.1 x LLC-loads\n", "0.1 5\n", "0.1 1.5 msec cpu-clock\n", "x\n",
                                  "0.1 <nonsense> e\n", "0.1 99999999999999999999 e\n"}) {
        const ParsedFile parsed = Parse("# begin\n" + bad + "0.200000000 7 e\n");
        EXPECT_EQ(1u, parsed.records) << bad;
        EXPECT_EQ(bad.size(), parsed.unreadableBytes) << bad;
    }
}

TEST(Statistic, FileShorterThanAMarkIsReadAtItsEnd) {
    EXPECT_EQ(0u, Parse("#a\n").unreadableBytes);
    EXPECT_EQ(3u, Parse("1a\n").unreadableBytes);
}

TEST(Statistic, EventsAreBounded) {
    std::string stream = "# begin\n";
    for (int i = 0; i < 65; ++i) {
        stream += fmt::format("0.1 {} e{}\n", i, i);
    }

    const ParsedFile parsed = Parse(stream + "0.2 7 e0\n");

    EXPECT_EQ(65u, parsed.records);
    EXPECT_EQ(std::string("0.1 64 e64\n").size(), parsed.unreadableBytes);
}

TEST(Statistic, AnyCutGivesTheSameRows) {
    const std::string stream =
        "# begin\n0.1 5 a\n0.1 6 b\nbad\n" + std::string(2000, 'x') + "\n0.2 7 a\n0.2 8 b\n0.3 9";
    const ParsedFile whole = Parse(stream);

    for (size_t piece = 1; piece < stream.size(); ++piece) {
        EXPECT_EQ(whole, Parse(stream, piece)) << piece;
    }
    EXPECT_EQ(4u, whole.records);
}
