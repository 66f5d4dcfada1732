// When chunks came: written, read, and in which tables.
#include "host/chunk_times.h"

#include <gtest/gtest.h>

#include <fstream>
#include <random>

#include "host/host_clock.h"
#include "host/result/chunk_times_parser.h"
#include "host/result_files.h"
#include "host/result_table_log.h"
#include "support/temp_dir.h"

using namespace tiv::host;
using tiv::test::TableLog;
using tiv::test::TempDir;

namespace {

constexpr const char* HEAD = "received_ns,bytes,file\n";

struct Parsed {
    std::vector<std::string> lines;
    uint64_t records = 0;
    uint64_t unreadable = 0;
    uint64_t unreadableBytes = 0;
    bool hasSpan = false;
};

// Feeds `text` in pieces of `piece` bytes.
Parsed Parse(std::string_view text, size_t piece = 1000) {
    TableLog log;
    TimeSpan span;
    ChunkTimesParser parser({3, log, span});
    for (; !text.empty(); text.remove_prefix(std::min(piece, text.size()))) {
        parser.Feed(text.substr(0, piece));
    }
    parser.Finish();
    return {log.lines, parser.Records(), parser.UnreadableRecords(), parser.UnreadableBytes(),
            span.firstNs.has_value()};
}

std::vector<std::string> LinesOf(const std::string& path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    return lines;
}

}  // namespace

TEST(ChunkTimesParser, GivesARowForEachLineBehindTheHead) {
    const Parsed parsed = Parse(std::string(HEAD) + "17,4096,data/llc.data\n18,0,data/a,b\n");

    EXPECT_EQ((std::vector<std::string>{"chunk 3 17 4096 data/llc.data", "chunk 3 18 0 data/a,b"}),
              parsed.lines);
    EXPECT_EQ(2u, parsed.records);
    EXPECT_EQ(0u, parsed.unreadable);
    EXPECT_FALSE(parsed.hasSpan);  // these are no times of the device
}

TEST(ChunkTimesParser, AnyCutGivesTheSameRows) {
    const std::string text = std::string(HEAD) + "17,4096,data/llc.data\n18,0,data/a\n";
    const Parsed whole = Parse(text);

    for (size_t piece = 1; piece < text.size(); ++piece) {
        EXPECT_EQ(whole.lines, Parse(text, piece).lines) << piece;
    }
}

TEST(ChunkTimesParser, WhatIsNoLineIsCountedAndSkipped) {
    const Parsed parsed = Parse(std::string(HEAD) + "x,1,a\n1;1,a\n1,,a\n1,1,\n\n5,6,good\n7,8,cu");

    EXPECT_EQ(std::vector<std::string>{"chunk 3 5 6 good"}, parsed.lines);
    EXPECT_EQ(6u, parsed.unreadable);
    EXPECT_EQ(29u, parsed.unreadableBytes);
}

TEST(ChunkTimesParser, HeadCountsOnlyAtTheFront) {
    EXPECT_EQ(1u, Parse(std::string(HEAD) + HEAD).unreadable);
}

TEST(ChunkTimesParser, LineBeyondItsBoundIsSkippedInBoundedMemory) {
    const std::string limit(ChunkTimesParser::MAX_LINE_BYTES - 4, 'n');

    EXPECT_EQ(1u, Parse("1,2," + limit + "\n").records);
    const Parsed longer = Parse("1,2," + limit + "n\n3,4,next\n");
    EXPECT_EQ(std::vector<std::string>{"chunk 3 3 4 next"}, longer.lines);
    EXPECT_EQ(1u, longer.unreadable);
    EXPECT_EQ(ChunkTimesParser::MAX_LINE_BYTES + 2, longer.unreadableBytes);
}

TEST(ChunkTimes, EachChunkThatIsKeptHasALineBesideTheDirectory) {
    const TempDir directory;
    const std::string device = directory.MakeDir("device_5");
    const uint64_t before = RawClockNs();
    ResultFiles files(device);
    EXPECT_TRUE(files.OnChunk({"data/a", 3, "12345"}));
    EXPECT_TRUE(files.OnChunk({"../refused", 3, "x"}));
    EXPECT_TRUE(files.OnChunk({"data/b\nc", 3, ""}));
    EXPECT_TRUE(files.OnFinish());

    const Parsed parsed = Parse(directory.Read("device_5.chunks.csv"));

    ASSERT_EQ(2u, parsed.lines.size());
    EXPECT_EQ(0u, parsed.unreadable);
    EXPECT_NE(std::string::npos, parsed.lines[0].find(" 5 data/a"));
    EXPECT_NE(std::string::npos, parsed.lines[1].find(" 0 data/b\\x0ac"));
    const uint64_t first = std::stoull(LinesOf(directory.Path("device_5.chunks.csv"))[1]);
    EXPECT_LE(before, first);
    EXPECT_LE(first, RawClockNs());
}

TEST(ChunkTimes, OnesThatCannotBeWrittenAreAFailure) {
    const TempDir directory;
    const std::string device = directory.MakeDir("device_5");
    (void)directory.MakeDir("device_5.chunks.csv");
    ResultFiles files(device);
    EXPECT_TRUE(files.OnChunk({"data/a", 3, "12345"}));

    EXPECT_FALSE(files.OnFinish());
    EXPECT_NE(std::string::npos, files.Error().find("times of the chunks: Is a directory"));
}

TEST(ChunkTimes, FullDiskIsAFailure) {
    ChunkTimes times("/dev/full");
    times.Note("data/a", 5);

    EXPECT_EQ(ENOSPC, times.Close());
}

TEST(HostClock, NoProcessAndOneOfAnotherNameAreNoDaemonHere) {
    EXPECT_FALSE(IsDaemonHere(0));
    EXPECT_FALSE(IsDaemonHere(-1));
    EXPECT_FALSE(IsDaemonHere(getpid()));
}

TEST(HostClock, ReadingsAreThoseOfTheKernel) {
    timespec wall{};
    clock_gettime(CLOCK_REALTIME, &wall);
    const uint64_t raw = RawClockNs();

    const HostInstant instant = ReadHostClocks();

    EXPECT_LE(static_cast<uint64_t>(wall.tv_sec) * 1000000000, instant.wallNs);
    EXPECT_LE(raw, instant.rawNs);
    EXPECT_LE(instant.rawNs, RawClockNs());
}
