// Text helpers: checks, splitting, trimming, padding, the checksum.
#include <gtest/gtest.h>

#include "common/utils.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::utils {
namespace {

using tiv::test::RecordedLog;
using Parts = std::vector<std::string>;

TEST(CheckStringIsNonNegativeIntNum, AcceptsUpToTheLargestInt) {
    EXPECT_TRUE(Utils::CheckStringIsNonNegativeIntNum("0"));
    EXPECT_TRUE(Utils::CheckStringIsNonNegativeIntNum("63"));
    EXPECT_TRUE(Utils::CheckStringIsNonNegativeIntNum("1999999999"));
    EXPECT_TRUE(Utils::CheckStringIsNonNegativeIntNum("2147483647"));
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(CheckStringIsNonNegativeIntNum, EmptyTextIsSilentlyFalse) {
    EXPECT_FALSE(Utils::CheckStringIsNonNegativeIntNum(""));
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(CheckStringIsNonNegativeIntNum, LargerNumberIsOver) {
    EXPECT_FALSE(Utils::CheckStringIsNonNegativeIntNum("2147483648"));
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E',
        "[Utils::CheckStringIsNonNegativeIntNum]numberStr(2147483648) is over than 2147483647"));
    EXPECT_FALSE(Utils::CheckStringIsNonNegativeIntNum("3000000000"));
}

TEST(CheckStringIsNonNegativeIntNum, ElevenDigitsAreTooLong) {
    EXPECT_FALSE(Utils::CheckStringIsNonNegativeIntNum("02147483648"));
    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              Parts({"[Utils::CheckStringIsNonNegativeIntNum]numberStr(02147483648) is too long"}));
}

TEST(CheckStringIsNonNegativeIntNum, OtherCharactersAreNoNumber) {
    EXPECT_FALSE(Utils::CheckStringIsNonNegativeIntNum("-1"));
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E', "[Utils::CheckStringIsNonNegativeIntNum]numberStr(-1) is not a number"));
    EXPECT_FALSE(Utils::CheckStringIsNonNegativeIntNum("999999999x"));
}

TEST(CheckPathChars, AcceptsLettersDigitsAndItsSigns) {
    EXPECT_TRUE(Utils::CheckPathChars("azAZ09-=[];\\,./!@#$%^&*()_+{}:?"));
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(CheckPathChars, EmptyPathIsAnInvalidParameter) {
    EXPECT_FALSE(Utils::CheckPathChars(""));
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "invalid parameter"));
}

TEST(CheckPathChars, FirstBadCharacterIsTold) {
    EXPECT_FALSE(Utils::CheckPathChars("a b"));
    EXPECT_TRUE(RecordedLog::Instance().Has('W', "invalid path a b in char :  "));
    EXPECT_FALSE(Utils::CheckPathChars("x\"~"));
    EXPECT_TRUE(RecordedLog::Instance().Has('W', "invalid path x\"~ in char : \""));
    EXPECT_FALSE(Utils::CheckPathChars("~"));
    EXPECT_FALSE(Utils::CheckPathChars("'"));
    EXPECT_FALSE(Utils::CheckPathChars("|"));
}

TEST(CheckPathChars, MessageShowsTheBaseNameOnly) {
    EXPECT_FALSE(Utils::CheckPathChars("/secret/a b"));
    EXPECT_TRUE(RecordedLog::Instance().Has('W', "invalid path a b in char :  "));
}

TEST(Split, EmptyTextHasNoPart) { EXPECT_EQ(Utils::Split("", ','), Parts()); }

TEST(Split, EmptyPartsInTheMiddleAreKept) {
    EXPECT_EQ(Utils::Split("a,,b", ','), Parts({"a", "", "b"}));
    EXPECT_EQ(Utils::Split(",a", ','), Parts({"", "a"}));
}

TEST(Split, SeparatorAtTheEndAddsNoPart) {
    EXPECT_EQ(Utils::Split("a b ", ' '), Parts({"a", "b"}));
    EXPECT_EQ(Utils::Split(",", ','), Parts({""}));
    EXPECT_EQ(Utils::Split("a,,", ','), Parts({"a", ""}));
}

TEST(Split, TextWithoutSeparatorIsOnePart) { EXPECT_EQ(Utils::Split("abc", ','), Parts({"abc"})); }

TEST(Join, PutsTheSeparatorBetweenTheParts) {
    EXPECT_EQ(Utils::Join({"a", "", "b"}, ","), "a,,b");
    EXPECT_EQ(Utils::Join({"a"}, ", "), "a");
    EXPECT_EQ(Utils::Join({}, ","), "");
}

TEST(Trim, DropsTheCharactersFromEitherEnd) {
    EXPECT_EQ(Utils::TrimLeft("/\\a/", "/\\"), "a/");
    EXPECT_EQ(Utils::TrimRight("/a/\\", "/\\"), "/a");
    EXPECT_EQ(Utils::Trim(" a b ", " "), "a b");
}

TEST(Trim, TextOfNothingElseBecomesEmpty) {
    EXPECT_EQ(Utils::TrimLeft("  ", " "), "");
    EXPECT_EQ(Utils::TrimRight("  ", " "), "");
    EXPECT_EQ(Utils::Trim("", " "), "");
}

TEST(LetterCase, ChangesLettersOnly) {
    EXPECT_EQ(Utils::ToUpper("aZ-9"), "AZ-9");
    EXPECT_EQ(Utils::ToLower("aZ-9"), "az-9");
}

TEST(RemoveEndCharacter, DropsOneFromTheEnd) {
    EXPECT_EQ(Utils::RemoveEndCharacter("a//", '/'), "a/");
    EXPECT_EQ(Utils::RemoveEndCharacter("/a", '/'), "/a");
    EXPECT_EQ(Utils::RemoveEndCharacter("", '/'), "");
}

TEST(LeftPad, FillsWithZeros) {
    EXPECT_EQ(Utils::LeftPad("42", 8), "00000042");
    EXPECT_EQ(Utils::LeftPad("12345678", 8), "12345678");
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST(LeftPad, LongerTextIsAnErrorAndStays) {
    EXPECT_EQ(Utils::LeftPad("123456789", 8), "123456789");
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "The length of input pid str is bigger than 8."));
}

TEST(Hash32, IsCastagnoliWithoutFinalInversion) {
    EXPECT_EQ(Utils::Hash32("123456789", 9), 0x1CF96D7CU);
    EXPECT_EQ(Utils::Hash32("", 0), 0xFFFFFFFFU);
}

TEST(Hash32, NullIsAllOnes) { EXPECT_EQ(Utils::Hash32(nullptr, 9), 0xFFFFFFFFU); }

}  // namespace
}  // namespace analysis::rokt::common::utils
