// Text of anybody's making in a cell of a screen.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "host/live/cell_text.h"
#include "host/live/screen_line.h"

namespace tiv::test {
namespace {

using host::CellText;
using host::Charset;
using host::FitCells;
using host::ScreenLine;
using host::Style;

std::string Text(const std::string& bytes, size_t columns = 80) {
    return FitCells(bytes, columns, Charset::UTF8).text;
}

TEST(LiveCellText, ControlCharactersAndEscapesAreShownAndNotObeyed) {
    EXPECT_EQ("a\\x1b[2Jb", Text("a\x1b[2Jb"));
    EXPECT_EQ("\\x0a\\x0d\\x08\\x7f", Text("\n\r\b\x7f"));
    EXPECT_EQ("\\u{9b}31m", Text("\xc2\x9b"
                                 "31m"));
    EXPECT_EQ("\\x00", Text(std::string(1, '\0')));
}

TEST(LiveCellText, BytesThatAreNoUtf8AreShownAsNumbers) {
    EXPECT_EQ("\\xff\\xfe", Text("\xff\xfe"));
    EXPECT_EQ("\\xe4\\xbd", Text("\xe4\xbd"));
    EXPECT_EQ("\\xed\\xa0\\x80", Text("\xed\xa0\x80"));
}

TEST(LiveCellText, CharactersThatTakeNoRoomOrTurnTheLineAreShownAsNumbers) {
    EXPECT_EQ("a\\u{301}", Text("a\xcc\x81"));
    EXPECT_EQ("\\u{202e}x", Text("\xe2\x80\xaex"));
    EXPECT_EQ("\\u{200d}", Text("\xe2\x80\x8d"));
    EXPECT_EQ("\\u{1f600}", Text("\xf0\x9f\x98\x80"));
    EXPECT_EQ("\\u{ad}", Text("\xc2\xad"));
}

TEST(LiveCellText, LettersOfManyScriptsComeThrough) {
    EXPECT_EQ("größe", Text("größe"));
    EXPECT_EQ("процесс", Text("процесс"));
    EXPECT_EQ(7u, FitCells("процесс", 80, Charset::UTF8).columns);
}

TEST(LiveCellText, LettersEndWhereTheirScriptEnds) {
    for (const char* letter :
         {"\u0370", "\u0377", "\u0384", "\u0482", "\u048a", "\u052f", "\u0531", "\u0556", "\u0561",
          "\u0587", "\u10a0", "\u10ff", "\u1e00", "\u1fff"}) {
        EXPECT_EQ(letter, Text(letter));
    }
    EXPECT_EQ("\\u{378}\\u{383}\\u{483}\\u{489}", Text("\u0378\u0383\u0483\u0489"));
    EXPECT_EQ("\\u{530}\\u{557}\\u{560}\\u{588}", Text("\u0530\u0557\u0560\u0588"));
    EXPECT_EQ("\\u{109f}\\u{1dff}\\u{2000}", Text("\u109f\u1dff\u2000"));
}

TEST(LiveCellText, WideCharactersCountTwice) {
    const CellText whole = FitCells("进程", 4, Charset::UTF8);
    EXPECT_EQ("进程", whole.text);
    EXPECT_EQ(4u, whole.columns);

    const CellText cut = FitCells("进程", 3, Charset::UTF8);
    EXPECT_EQ("进…", cut.text);
    EXPECT_EQ(3u, cut.columns);

    EXPECT_EQ(1u, FitCells("进程", 2, Charset::UTF8).columns) << "no half of a character";
    EXPECT_EQ(2u, FitCells("\xef\xab\xbf", 80, Charset::UTF8).columns) << "the last ideograph";
    EXPECT_EQ("\\u{fb00}", Text("\xef\xac\x80"));
}

TEST(LiveCellText, CutTextIsMarkedAndNeverWider) {
    EXPECT_EQ("abc", Text("abc", 3));
    EXPECT_EQ("ab…", Text("abcd", 3));
    EXPECT_EQ("…", Text("\x1b", 3)) << "no half of a number";
    EXPECT_EQ("", Text("abc", 0));
    for (size_t columns = 0; columns < 12; ++columns) {
        EXPECT_GE(columns, FitCells("a进\x1b\xff程\xcc\x81z", columns, Charset::UTF8).columns);
    }
}

TEST(LiveCellText, TerminalWithoutUtf8GetsAsciiOnly) {
    EXPECT_EQ("gr\\u{f6}\\u{df}e", FitCells("größe", 80, Charset::ASCII).text);
    EXPECT_EQ("ab~", FitCells("abcd", 3, Charset::ASCII).text);
}

TEST(LiveCellText, CharsetIsTheOneOfTheLocaleThatCounts) {
    setenv("LANG", "de_DE.UTF-8", 1);
    setenv("LC_CTYPE", "", 1);
    unsetenv("LC_ALL");
    EXPECT_EQ(Charset::UTF8, host::LocaleCharset());
    setenv("LC_ALL", "C", 1);
    EXPECT_EQ(Charset::ASCII, host::LocaleCharset());
    setenv("LC_ALL", "C.utf8", 1);
    EXPECT_EQ(Charset::UTF8, host::LocaleCharset());
}

TEST(LiveCellText, CharsetOfLettersCountsMoreThanTheLanguageAndNoneIsAscii) {
    unsetenv("LC_ALL");
    setenv("LC_CTYPE", "C", 1);
    setenv("LANG", "de_DE.UTF-8", 1);
    EXPECT_EQ(Charset::ASCII, host::LocaleCharset());
    unsetenv("LANG");
    unsetenv("LC_CTYPE");
    EXPECT_EQ(Charset::ASCII, host::LocaleCharset());
}

TEST(LiveScreenLine, NumbersStandRightAndTheLineEndsAtItsWidth) {
    ScreenLine line(12, Charset::ASCII);
    line.Put("ab").PutRight("7", 6).PutRight("123456789", 20);

    EXPECT_EQ("ab   7     ~", line.Plain());
    EXPECT_EQ(12u, line.Columns());
}

TEST(LiveScreenLine, StylesEndWithTheirTextAndColoursCanBeLeftOut) {
    ScreenLine line(20, Charset::ASCII);
    line.Put("a", Style::ALARM).Put("b").Put("c", Style::DIM);

    EXPECT_EQ("\033[1;31ma\033[mb\033[2mc\033[m", line.Painted(true));
    EXPECT_EQ("\033[1ma\033[mb\033[2mc\033[m", line.Painted(false));
    EXPECT_EQ("abc", line.Plain());
}

TEST(LiveScreenLine, EachStyleHasASequenceAndColoursHaveNoneWithoutThem) {
    ScreenLine line(20, Charset::ASCII);
    line.Put("p", Style::PLAIN).Put("d", Style::DIM).Put("b", Style::BOLD);
    line.Put("r", Style::REVERSE).Put("g", Style::GOOD).Put("w", Style::WARNING);
    line.Put("a", Style::ALARM);

    const std::string start = "p\033[2md\033[m\033[1mb\033[m\033[7mr\033[m";
    EXPECT_EQ(start + "\033[32mg\033[m\033[33mw\033[m\033[1;31ma\033[m", line.Painted(true));
    EXPECT_EQ(start + "gw\033[1ma\033[m", line.Painted(false));
}

TEST(LiveScreenLine, SparklineShowsTheNewestValuesAndBlanksForNone) {
    const std::vector<std::optional<double>> values = {100, 0, std::nullopt, 50, 100};

    EXPECT_EQ("#_ =#", host::Sparkline(values, 100, 9, Charset::ASCII));
    EXPECT_EQ("=#", host::Sparkline(values, 100, 2, Charset::ASCII));
    EXPECT_EQ("█▁ ▅█", host::Sparkline(values, 100, 9, Charset::UTF8));
    EXPECT_EQ("", host::Sparkline({}, 100, 9, Charset::UTF8));
}

TEST(LiveScreenLine, BarIsFilledByItsShare) {
    EXPECT_EQ("##..", host::Bar(0.5, 4, Charset::ASCII));
    EXPECT_EQ("####", host::Bar(7, 4, Charset::ASCII));
    EXPECT_EQ("....", host::Bar(-1, 4, Charset::ASCII));
}

}  // namespace
}  // namespace tiv::test
