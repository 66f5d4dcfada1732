// Sample records out of a byte stream.
#include "host/result/record_reader.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

using namespace tiv::host;

namespace {

using Record = std::tuple<uint64_t, uint32_t, std::string>;

std::string Encoded(uint64_t time, uint32_t index, const std::string& data) {
    return "TimeStamp:" + std::to_string(time) + "\nIndex:" + std::to_string(index) +
           "\nDataLen:" + std::to_string(data.size()) + "\n" + data + "\n";
}

struct Reading {
    std::vector<Record> records;
    uint64_t unreadable = 0;
    uint64_t gaps = 0;
};

// Feeds `stream` in pieces of `piece` bytes.
Reading Read(const std::string& stream, size_t piece) {
    Reading reading;
    RecordReader reader([&](const SampleRecord& record) {
        reading.records.emplace_back(record.timeNs, record.index, std::string(record.data));
    });
    for (size_t i = 0; i < stream.size(); i += piece) {
        reader.Feed(std::string_view(stream).substr(i, piece));
    }
    reader.Finish();
    reading.unreadable = reader.UnreadableBytes();
    reading.gaps = reader.Gaps();
    return reading;
}

const std::string TWO =
    Encoded(18446744073709551615u, 0, "cpu 1 2\ncpu0 1 2\n") + Encoded(7, 4294967295u, "x");

}  // namespace

TEST(RecordReader, ReadsTimeIndexAndData) {
    const Reading reading = Read(TWO, TWO.size());

    EXPECT_EQ(reading.records,
              (std::vector<Record>{{18446744073709551615u, 0, "cpu 1 2\ncpu0 1 2\n"},
                                   {7, 4294967295u, "x"}}));
    EXPECT_EQ(reading.unreadable, 0u);
    EXPECT_EQ(reading.gaps, 0u);
}

TEST(RecordReader, AnyCutOfTheStreamGivesTheSameRecords) {
    const Reading whole = Read(TWO, TWO.size());
    for (size_t piece = 1; piece < TWO.size(); ++piece) {
        EXPECT_EQ(Read(TWO, piece).records, whole.records) << piece;
    }
}

TEST(RecordReader, DataMayLookLikeARecord) {
    const std::string inner = Encoded(1, 2, "in");

    const Reading reading = Read(Encoded(5, 6, inner), 1);

    EXPECT_EQ(reading.records, (std::vector<Record>{{5, 6, inner}}));
}

TEST(RecordReader, LastRecordThatWasCutIsCounted) {
    const std::string cut = TWO.substr(0, TWO.size() - 1);

    const Reading reading = Read(cut, 3);

    EXPECT_EQ(reading.records.size(), 1u);
    EXPECT_EQ(reading.unreadable, Encoded(7, 4294967295u, "x").size() - 1);
    EXPECT_EQ(reading.gaps, 1u);
}

TEST(RecordReader, GarbageBetweenRecordsIsSkippedAndCounted) {
    const std::string stream = Encoded(1, 0, "a") + "garbage TimeSta" + Encoded(2, 1, "b");

    const Reading reading = Read(stream, 1);

    EXPECT_EQ(reading.records, (std::vector<Record>{{1, 0, "a"}, {2, 1, "b"}}));
    EXPECT_EQ(reading.unreadable, std::string("garbage TimeSta").size());
    EXPECT_EQ(reading.gaps, 1u);
}

TEST(RecordReader, DamagedNumbersAreAGap) {
    for (const std::string bad :
         {"TimeStamp:-1\nIndex:0\nDataLen:1\na\n", "TimeStamp:1\nIndex:x\nDataLen:1\na\n",
          "TimeStamp:1\nIndex:0\nDataLen:\na\n", "TimeStamp:1\nIndex:4294967296\nDataLen:1\na\n",
          "TimeStamp:1\nIndex:0\nDataLen:99999999999999999999\na\n",
          "TimeStamp:1\nIndex:0\nDataLen:16777217\na\n", "TimeStamp:1\nIndex:0\nDataLen:2\na\n!"}) {
        const Reading reading = Read(bad + Encoded(9, 9, "good"), 4);
        EXPECT_EQ(reading.records, (std::vector<Record>{{9, 9, "good"}})) << bad;
        EXPECT_EQ(reading.gaps, 1u) << bad;
    }
}

TEST(RecordReader, EmptyStreamHoldsNothing) {
    const Reading reading = Read("", 1);

    EXPECT_TRUE(reading.records.empty());
    EXPECT_EQ(reading.gaps, 0u);
}
