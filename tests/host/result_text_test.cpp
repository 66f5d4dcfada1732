// Text and numbers that nobody vouches for.
#include <gtest/gtest.h>

#include <string>

#include "host/result/number_text.h"
#include "host/result/utf8_text.h"

using namespace tiv::host;

namespace {

std::string Fit(std::string_view bytes) {
    std::string room;
    return std::string(Utf8Text(bytes, room));
}

}  // namespace

TEST(Utf8Text, TextOfEveryLengthOfCharacterStays) {
    const std::string text =
        "a\x7f \xc2\x80 \xe2\x82\xac \xed\x9f\xbf \xee\x80\x80 \xf0\x9f\x98\x80 "
        "\xf4\x8f\xbf\xbf\n\"<b>";

    EXPECT_EQ(text, Fit(text));
}

TEST(Utf8Text, BytesOfAnotherEncodingStandOneByOne) {
    EXPECT_EQ("caf\\xe9 bar", Fit("caf\xe9 bar"));
    EXPECT_EQ("\\x80", Fit("\x80"));
    EXPECT_EQ("\\xff\\xfe", Fit("\xff\xfe"));
}

TEST(Utf8Text, OverlongFormsSurrogatesAndCutCharactersAreNoText) {
    EXPECT_EQ("\\xc0\\xaf", Fit("\xc0\xaf"));
    EXPECT_EQ("\\xe0\\x80\\xaf", Fit("\xe0\x80\xaf"));
    EXPECT_EQ("\\xed\\xa0\\x80", Fit("\xed\xa0\x80"));
    EXPECT_EQ("\\xed\\xbf\\xbf", Fit("\xed\xbf\xbf"));
    EXPECT_EQ("\\xf4\\x90\\x80\\x80", Fit("\xf4\x90\x80\x80"));
    EXPECT_EQ("x\\xe2\\x82", Fit("x\xe2\x82"));
    EXPECT_EQ("\\xf0\\x80\\x80\\x80", Fit("\xf0\x80\x80\x80"));
}

TEST(Utf8Text, ZeroBytesAreToldApartFromTheEnd) {
    EXPECT_EQ("a\\x00b", Fit(std::string_view("a\0b", 3)));
}

TEST(Utf8Text, FrontCutsNoCharacter) {
    EXPECT_EQ("a", Utf8Front("a\xe2\x82\xac", 3));
    EXPECT_EQ("a\xe2\x82\xac", Utf8Front("a\xe2\x82\xac", 4));
    EXPECT_EQ("abc", Utf8Front("abc", 100));
    EXPECT_EQ("", Utf8Front("\xe2\x82\xac", 2));
}

TEST(NumberText, NumberBeyond63BitsIsNone) {
    uint64_t number = 0;

    EXPECT_TRUE(IsNumber("9223372036854775807", number));
    EXPECT_EQ(LARGEST_NUMBER, number);
    EXPECT_FALSE(IsNumber("9223372036854775808", number));
    EXPECT_FALSE(IsNumber("18446744073709551616", number));
}

TEST(NumberText, NumberHasNoSignNoBlankAndNoTail) {
    uint64_t number = 0;

    for (const char* text : {"", "-1", "+1", " 1", "1 ", "1x", "0x1"}) {
        EXPECT_FALSE(IsNumber(text, number)) << text;
    }
}

TEST(NumberText, FieldEndsAtABlankOrWithTheText) {
    std::string_view rest = "  12 34";
    uint64_t number = 0;

    EXPECT_TRUE(TakeField(rest, number));
    EXPECT_EQ(12u, number);
    EXPECT_TRUE(TakeField(rest, number));
    EXPECT_EQ(34u, number);
    EXPECT_FALSE(TakeField(rest, number));
    rest = "12kB";
    EXPECT_FALSE(TakeField(rest, number));
}

TEST(NumberText, SecondsHaveOneToNineDigitsBehindThePoint) {
    const auto read = [](std::string_view text) -> std::string {
        uint64_t timeNs = 0;
        return TakeSeconds(text, timeNs) ? std::to_string(timeNs) : "none";
    };

    EXPECT_EQ("939547359000", read("939.547359:"));
    EXPECT_EQ("1500000000", read("1.5"));
    EXPECT_EQ("1000000001", read("1.000000001"));
    EXPECT_EQ("none", read("1.0000000001"));
    EXPECT_EQ("none", read("1."));
    EXPECT_EQ("none", read("1"));
    EXPECT_EQ("none", read("9223372037.0"));
    EXPECT_EQ("none", read("18446744074.0"));
    EXPECT_EQ("none", read("a.0"));
    EXPECT_EQ("none", read("00000000000000000001.0")) << "twenty digits";
    EXPECT_EQ("1000000000", read("0000000000000000001.0"));
}

TEST(NumberText, ScalingStopsAt63Bits) {
    uint64_t number = LARGEST_NUMBER / 1024;
    EXPECT_TRUE(Scale(number, 1024));

    number = LARGEST_NUMBER / 1024 + 1;
    EXPECT_FALSE(Scale(number, 1024));
}
