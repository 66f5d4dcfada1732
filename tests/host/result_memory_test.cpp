// The system's memory as rows.
#include <gtest/gtest.h>

#include "host/result/memory_parser.h"
#include "host/result_parse.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

ParsedFile Parse(const std::string& stream, size_t piece = 1 << 20) {
    MemoryKeys keys;
    return ParseInPieces<MemoryParser>(stream, piece, keys);
}

const std::string TWO =
    Record(1, 0, "MemTotal:  24684096 kB\nActive(anon): 7 kB\nHuge_Total: 3\n") +
    Record(2, 1, "MemTotal:  24684096 kB\nNew: 0 kB\n");

}  // namespace

TEST(Memory, ValuesWithAUnitAreBytesAndKeysComeOnce) {
    const ParsedFile parsed = Parse(TWO);

    EXPECT_EQ((std::vector<std::string>{"key 0 0 MemTotal bytes", "key 0 1 Active(anon) bytes",
                                        "key 0 2 Huge_Total number", "memory 0 1 0 25276514304",
                                        "memory 0 1 1 7168", "memory 0 1 2 3", "key 0 3 New bytes",
                                        "memory 0 2 0 25276514304", "memory 0 2 3 0"}),
              parsed.lines);
    EXPECT_EQ(2u, parsed.records);
}

TEST(Memory, ReadingThatIsNoneIsCounted) {
    for (const char* bad :
         {"", "MemTotal 1 kB\n", ": 1 kB\n", "A: kB\n", "A: 1 MB\n", "A: 1 kB x\n", "A: -1 kB\n",
          "A: 9007199254740992 kB\n", "A: 1kB\n", "\n"}) {
        const ParsedFile parsed = Parse(Record(1, 0, bad));
        EXPECT_EQ(1u, parsed.unreadableRecords) << bad;
        EXPECT_EQ(0u, parsed.records) << bad;
    }
}

TEST(Memory, ReadingWithOneBadLineGivesNoValue) {
    const ParsedFile parsed = Parse(Record(1, 0, "A: 1 kB\nbad\n"));

    EXPECT_EQ((std::vector<std::string>{"key 0 0 A bytes"}), parsed.lines);
}

TEST(Memory, KeysAreBounded) {
    std::string stream;
    for (uint32_t i = 0; i < 1100; ++i) {
        stream += Record(i, i, fmt::format("key{}: 1\n", i));
    }

    const ParsedFile parsed = Parse(stream);

    EXPECT_EQ(1024u, parsed.records);
    EXPECT_EQ(76u, parsed.unreadableRecords);
}

TEST(Memory, AnyCutGivesTheSameRows) {
    const ParsedFile whole = Parse(TWO);

    for (size_t piece = 1; piece < TWO.size(); ++piece) {
        EXPECT_EQ(whole, Parse(TWO, piece)) << piece;
    }
}
