// The text of a CPU profile as rows.
#include <gtest/gtest.h>

#include "host/result/perf_script_text.h"
#include "host/result/profile_parser.h"
#include "host/result_parse.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

ParsedFile Parse(const std::string& stream, size_t piece = 1 << 20) {
    return ParseInPieces<ProfileParser>(stream, piece);
}

// A sample of a thread 12 that runs `command`.
std::string Sample(const std::string& command) {
    return command +
           "    12 [001]   939.547359:   100000 cpu-clock: \n\t  ffff8 run+0x3e (/bin/x)\n\n";
}

std::string CommandOf(const std::string& line) {
    return line.substr(line.find("cpu-clock ") + std::string("cpu-clock ").size());
}

const std::string TWO =
    "cc1plus 12836 [000]   939.547359:  100000000 cpu-clock: \n"
    "\t         172641e _cpp_lex_token+0x3e (/usr/lib/cc1plus)\n"
    "\t    7f0966e0dc58 [unknown] ([unknown])\n"
    "\n"
    "kworker/u8:0-wr    12/14 [011] 1.5:   7 cycles:u: \n"
    "\tffffffff815e2df5 do_wp_page+0x65 ([kernel.kallsyms])\n"
    "\n";

}  // namespace

TEST(Profile, SamplesHaveTheirStacksInnermostFirst) {
    const ParsedFile parsed = Parse(TWO);

    EXPECT_EQ((std::vector<std::string>{
                  "sample 0 939547359000 core=0 pid=- thread=12836 100000000 cpu-clock cc1plus",
                  "  172641e _cpp_lex_token+3e /usr/lib/cc1plus", "  7f0966e0dc58 +0 ",
                  "sample 0 1500000000 core=11 pid=12 thread=14 7 cycles:u kworker/u8:0-wr",
                  "  ffffffff815e2df5 do_wp_page+65 [kernel.kallsyms]"}),
              parsed.lines);
    EXPECT_EQ(2u, parsed.records);
    EXPECT_EQ(0u, parsed.unreadableBytes);
}

TEST(Profile, CommandMayHoldAnything) {
    for (const std::string command : {"a b", "1 [0] 1.1: 1 e:", "x [000]", "a\nb", "a\n\nb", "\n",
                                      "\t1 a (b)\n", "99", "<b>\"'", "end\n", "a: ", "-1"}) {
        const ParsedFile parsed = Parse(Sample(command) + Sample("z"));
        ASSERT_EQ(2u, parsed.records) << command;
        EXPECT_EQ(command == "a: " ? "a:" : command, CommandOf(parsed.lines.front()));
        EXPECT_EQ(0u, parsed.unreadableBytes) << command;
    }
}

TEST(Profile, CommandOfAnotherEncodingBecomesText) {
    EXPECT_EQ("caf\\xe9", CommandOf(Parse(Sample("caf\xe9")).lines.front()));
}

TEST(Profile, ThreadThatTheRecorderDidNotKnowIsAbsent) {
    const ParsedFile parsed = Parse(":-1    -1 [000] 1.000001: 5 cycles: \n\n");

    EXPECT_EQ("sample 0 1000001000 core=0 pid=- thread=- 5 cycles :-1", parsed.lines.front());
}

TEST(Profile, SampleWithoutACallChainHasItsFrameOnTheHeadLine) {
    const ParsedFile parsed =
        Parse("swapper     0 [000] 1.000001: 5 cycles:  ff81 pv_halt+0xb ([kernel.kallsyms])\n\n");

    EXPECT_EQ(
        (std::vector<std::string>{"sample 0 1000001000 core=0 pid=- thread=0 5 cycles swapper",
                                  "  ff81 pv_halt+b [kernel.kallsyms]"}),
        parsed.lines);
}

TEST(Profile, SymbolsAndModulesMayHoldBlanksAndParentheses) {
    StackFrame frame;

    ASSERT_TRUE(
        ParseStackFrame("\t 1f a(int) const::(x)+0x1a (/opt/My (old) App (deleted))", frame));
    EXPECT_EQ("a(int) const::(x)", frame.symbol);
    EXPECT_EQ(0x1au, frame.offset);
    EXPECT_EQ("/opt/My (old) App (deleted)", frame.module);
    ASSERT_TRUE(ParseStackFrame("  2 f+0x+0xg+0x2 (m)", frame));
    EXPECT_EQ("f+0x+0xg", frame.symbol);
    EXPECT_EQ(2u, frame.offset);
    ASSERT_TRUE(ParseStackFrame("  2 [unknown] (/tmp/a (b))", frame));
    EXPECT_EQ("", frame.symbol);
    EXPECT_EQ("/tmp/a (b)", frame.module);
    ASSERT_TRUE(ParseStackFrame("\tffffffffffffffff f(x) (/bin/a)", frame));
    EXPECT_EQ("f(x)", frame.symbol);
    EXPECT_EQ(UINT64_MAX, frame.address);
}

TEST(Profile, LineThatIsNoFrameIsNone) {
    StackFrame frame;
    for (const char* line : {"", "\t", "\tx y (z)", "\t1", "\t1 ", "\t1 f+0x2 (z", "\t1 f",
                             "\t11112222333344445 f+0x1 (m)"}) {
        EXPECT_FALSE(ParseStackFrame(line, frame)) << line;
    }
}

TEST(Profile, LineThatIsNoHeadIsNone) {
    ProfileHead head;
    for (const char* line :
         {"", "a", "\ta 1 [0] 1.1: 1 e:", "a 1 [0] 1.1: 1 e", "a 1 [0] 1.1: 1 :",
          "a 1 [x] 1.1: 1 e:", "a 1 [0] 1: 1 e:", "a 1 [0] 1.1 1 e:", "a [0] 1.1: 1 e:",
          "1 [0] 1.1: 1 e:", "a x [0] 1.1: 1 e:", "a 1/ [0] 1.1: 1 e:", "a 1 [0] 1.1: e:",
          "a 1 [0] 1.1: 1 e: x", "a 4294967296 [0] 1.1: 1 e:", "a 1 [4294967295] 1.1: 1 e:"}) {
        EXPECT_FALSE(ParseProfileHead(line, head)) << line;
    }
}

TEST(Profile, SampleThatWasCutIsCounted) {
    for (size_t bytes = 1; bytes < Sample("a").size(); ++bytes) {
        const std::string cut = Sample("a").substr(0, bytes);
        const ParsedFile parsed = Parse(TWO + cut);
        EXPECT_EQ(2u, parsed.records) << cut;
        EXPECT_EQ(cut.size(), parsed.unreadableBytes) << cut;
    }
}

TEST(Profile, SampleBehindACutOneIsRead) {
    const std::string whole = Sample("a");
    const std::string cut = whole.substr(0, whole.size() - 1);

    const ParsedFile parsed = Parse(cut + Sample("b"));

    EXPECT_EQ(1u, parsed.records);
    EXPECT_EQ("b", CommandOf(parsed.lines.front()));
    EXPECT_EQ(cut.size(), parsed.unreadableBytes);
    EXPECT_EQ(1u, parsed.unreadableRecords);
}

TEST(Profile, TextBetweenSamplesThatIsNoCommandIsCounted) {
    const std::string noise = "this is much longer than a command can be\n";

    const ParsedFile parsed = Parse(Sample("a") + noise + Sample("b"));

    EXPECT_EQ(2u, parsed.records);
    EXPECT_EQ("b", CommandOf(parsed.lines[2]));
    EXPECT_EQ(noise.size(), parsed.unreadableBytes);
}

TEST(Profile, StackWithABadLineMakesTheSampleUnreadable) {
    const std::string bad = "a 1 [0] 1.1: 1 e: \n\tff good+0x1 (m)\n\tnonsense\n\n";

    const ParsedFile parsed = Parse(bad + Sample("b"));

    EXPECT_EQ(1u, parsed.records);
    EXPECT_EQ(bad.size(), parsed.unreadableBytes);
}

TEST(Profile, EndlessLinesAndStacksAreCountedNotKept) {
    const std::string line = std::string(1 << 20, 'x') + "\n";
    std::string deep = "a 1 [0] 1.1: 1 e: \n";
    for (int i = 0; i < 5000; ++i) {
        deep += "\tff f+0x1 (m)\n";
    }
    deep += "\n";

    const ParsedFile parsed = Parse(line + deep + Sample("b"), 4096);

    EXPECT_EQ(1u, parsed.records);
    EXPECT_EQ(line.size() + deep.size(), parsed.unreadableBytes);
}

TEST(Profile, EndlessLineInAStackMakesTheSampleUnreadable) {
    const std::string bad =
        "a 1 [0] 1.1: 1 e: \n\tff f+0x1 (m)\n\tff " + std::string(70000, 'x') + " (m)\n\n";

    const ParsedFile parsed = Parse(bad + Sample("b"), 4096);

    EXPECT_EQ(1u, parsed.records);
    EXPECT_EQ(bad.size(), parsed.unreadableBytes);
    EXPECT_EQ(1u, parsed.unreadableRecords);
}

TEST(Profile, TextThatIsTooLongTogetherWithTheCommandIsNoPartOfIt) {
    const ParsedFile parsed = Parse("0123456789\n" + Sample("commands"));

    EXPECT_EQ(1u, parsed.records);
    EXPECT_EQ("commands", CommandOf(parsed.lines.front()));
    EXPECT_EQ(11u, parsed.unreadableBytes);
}

TEST(Profile, AnyCutGivesTheSameRows) {
    const std::string stream = TWO + Sample("a\nb") + "noise longer than a command is\n" +
                               "a 1 [0] 1.1: 1 e: \n\tbad\n\n" + TWO + "cut 1 [0] 1.1: 1 e: \n\tf";
    const ParsedFile whole = Parse(stream);

    for (size_t piece = 1; piece < stream.size(); ++piece) {
        EXPECT_EQ(whole, Parse(stream, piece)) << piece;
    }
    EXPECT_EQ(5u, whole.records);
    EXPECT_EQ(3u, whole.unreadableRecords);
}
