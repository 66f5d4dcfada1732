// Tests of names made fit for a page.
#include <gtest/gtest.h>

#include "host/report/page_text.h"

namespace tiv::host {
namespace {

TEST(PageText, OrdinaryTextStaysAsItIs) {
    EXPECT_EQ(PageText("kworker/0:1-events <b>&amp;\"'"), "kworker/0:1-events <b>&amp;\"'");
    EXPECT_EQ(PageText("grüße 日本"), "grüße 日本");
    EXPECT_EQ(PageText(""), "");
}

TEST(PageText, ControlCharactersCanBeSeen) {
    EXPECT_EQ(PageText("a\nb\tc\x7f\x1b[31m"), "a\\x0ab\\x09c\\x7f\\x1b[31m");
}

TEST(PageText, CharactersThatTurnTheWritingAroundCanBeSeen) {
    EXPECT_EQ(PageText("exe.\xe2\x80\xaetxt"), "exe.\\u202etxt");
    EXPECT_EQ(PageText("a\xe2\x80\xa8z"), "a\\u2028z");
    EXPECT_EQ(PageText("a\xe2\x80\x8bz"), "a\\u200bz");
    EXPECT_EQ(PageText("\xe2\x81\xa6x\xe2\x81\xa9"), "\\u2066x\\u2069");
}

TEST(PageText, FirstAndLastOfThoseCharactersCanBeSeenAndTheirNeighboursStay) {
    EXPECT_EQ(PageText("\u200b\u200f\u2028\u202e\u2060\u2069"),
              "\\u200b\\u200f\\u2028\\u202e\\u2060\\u2069");
    for (const char* text : {"\u200a", "\u2010", "\u2027", "\u202f", "\u205f", "\u206a"}) {
        EXPECT_EQ(PageText(text), text);
    }
}

TEST(PageText, NeighboursOfThoseCharactersStay) {
    EXPECT_EQ(PageText("a\xe2\x80\x93z"), "a–z");
    EXPECT_EQ(PageText("\xe2\x82\xac"), "€");
}

TEST(PageText, LongTextIsCutBetweenCharacters) {
    EXPECT_EQ(PageText("abcdef", 4), "abcd…");
    EXPECT_EQ(PageText("abü", 3), "ab…");
    EXPECT_EQ(PageText("abcd", 4), "abcd");
}

TEST(PageText, ClockHasAllItsNanoseconds) {
    EXPECT_EQ(ClockText(12345000000678), "12345.000000678 s");
    EXPECT_EQ(ClockText(5), "0.000000005 s");
}

}  // namespace
}  // namespace tiv::host
