// The reader of the JSON dialect: what it accepts, what it refuses, what it leaves.
#include "common/json_parser.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "platform/log.h"
#include "support/failing_new.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::json {
namespace {

// A value that was read from a text, with what is left of the text.
struct Reading {
    explicit Reading(const std::string& source) : text(source), parser(text) {
        accepted = parser.Parse(value);
        rest = parser.Rest();
    }
    ~Reading() { value.Free(); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

    const std::string text;
    JsonParser parser;
    JsonValue value;
    bool accepted = false;
    std::string rest;
};

bool Accepts(const std::string& text) { return Reading(text).accepted; }
JsonKind KindOf(const std::string& text) { return Reading(text).value.Kind(); }

template <class Exception>
std::string TextOf(const std::string& text) {
    try {
        JsonValue value;
        (void)JsonParser(text).Parse(value);
    } catch (const Exception& error) {
        return error.what();
    }
    return "nothing thrown";
}

TEST(JsonParser, ColonIsOptional) {
    Reading reading(R"({"a" 1})");

    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value["a"].GetUint(), 1U);
}

TEST(JsonParser, ColonMayBeRepeated) {
    Reading reading(R"({"a": : :1})");

    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value["a"].GetUint(), 1U);
}

TEST(JsonParser, CommaBehindKeyDropsTheKey) {
    EXPECT_FALSE(Accepts(R"({"a",1})"));

    Reading reading(R"({"a", ,"b":2})");
    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value.GetObject().size(), 1U);
    EXPECT_EQ(reading.value["b"].GetUint(), 2U);
}

TEST(JsonParser, ObjectOfDroppedKeysIsEmpty) {
    Reading reading(R"({"a",})");

    EXPECT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value.Kind(), JsonKind::OBJECT);
    EXPECT_TRUE(reading.value.GetObject().empty());
}

TEST(JsonParser, CommasOfArraysAreOptionalAndMayBeRepeated) {
    Reading reading("[1 2,,3]");

    ASSERT_TRUE(reading.accepted);
    ASSERT_EQ(reading.value.GetArray().size(), 3U);
    EXPECT_EQ(reading.value[size_t{0}].GetUint(), 1U);
    EXPECT_EQ(reading.value[1].GetUint(), 2U);
    EXPECT_EQ(reading.value[2].GetUint(), 3U);
}

TEST(JsonParser, CommaIsNoValue) {
    EXPECT_FALSE(Accepts("[,1]"));
    EXPECT_FALSE(Accepts(R"({,"a":1})"));
}

TEST(JsonParser, StringCannotBeginWithWhiteSpace) {
    Reading reading("\"  x\"");

    EXPECT_EQ(reading.value.GetString(), "x");
}

TEST(JsonParser, StringKeepsInnerAndTrailingWhiteSpace) {
    Reading reading("\"a b \"");

    EXPECT_EQ(reading.value.GetString(), "a b ");
}

TEST(JsonParser, BackslashDoesNotProtectAQuote) {
    Reading reading(R"("a\"b)");

    EXPECT_EQ(reading.value.GetString(), "a\\");
    EXPECT_EQ(reading.rest, "b");
}

TEST(JsonParser, StringWithoutClosingQuoteFails) {
    EXPECT_FALSE(Accepts("\"abc"));
    EXPECT_FALSE(Accepts(R"({"abc)"));
}

TEST(JsonParser, KeyLosesLeadingWhiteSpace) {
    Reading reading(R"({" a b":1})");

    EXPECT_TRUE(reading.value.Contains("a b"));
}

TEST(JsonParser, NullDropsFourCharactersUnexamined) {
    Reading reading("nonsense");

    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value.Kind(), JsonKind::JSON_NULL);
    EXPECT_EQ(reading.rest, "ense");
}

TEST(JsonParser, NullStandsInArraysAndObjects) {
    Reading array("[null]");
    Reading object(R"({"a":null})");

    EXPECT_EQ(array.value[size_t{0}].Kind(), JsonKind::JSON_NULL);
    EXPECT_EQ(object.value["a"].Kind(), JsonKind::JSON_NULL);
}

TEST(JsonParser, NullWithFewerThanFourCharactersLeavesNothing) {
    Reading reading("nu");

    EXPECT_TRUE(reading.accepted);
    EXPECT_EQ(reading.rest, "");
    EXPECT_FALSE(Accepts("[nu"));
    EXPECT_FALSE(Accepts(R"({"a":n)"));
}

TEST(JsonParser, BoolIsTrueOrFalse) {
    EXPECT_TRUE(Reading("true").value.GetBool());
    EXPECT_EQ(KindOf("true"), JsonKind::BOOL);
    EXPECT_FALSE(Reading("false").value.GetBool());
    EXPECT_EQ(KindOf("false"), JsonKind::BOOL);
}

TEST(JsonParser, MisspeltBoolFails) {
    EXPECT_FALSE(Accepts(R"({"a":tru})"));
    EXPECT_FALSE(Accepts("[fals]"));
    EXPECT_FALSE(Accepts("flase"));
}

TEST(JsonParser, BoolWithATailFailsAtTheTail) {
    Reading reading(R"({"a":trueb})");

    EXPECT_FALSE(reading.accepted);
    EXPECT_EQ(reading.rest, "b}");
}

TEST(JsonParser, IntegersAreUnsignedUnlessTheyHaveASign) {
    EXPECT_EQ(KindOf("7"), JsonKind::UINT);
    EXPECT_EQ(KindOf("-7"), JsonKind::INT);
    EXPECT_EQ(Reading("-7").value.GetInt(), -7);
    EXPECT_EQ(KindOf("0"), JsonKind::UINT);
}

TEST(JsonParser, TwoLeadingZerosFail) {
    EXPECT_FALSE(Accepts("007"));
    EXPECT_FALSE(Accepts("00"));
}

TEST(JsonParser, LeadingZerosBehindASignPass) {
    Reading reading("-007");

    EXPECT_EQ(reading.value.Kind(), JsonKind::INT);
    EXPECT_EQ(reading.value.GetInt(), -7);
}

TEST(JsonParser, PointMakesADouble) {
    EXPECT_EQ(KindOf("0.5"), JsonKind::DOUBLE);
    EXPECT_EQ(Reading("0.5").value.GetDouble(), 0.5);
    EXPECT_EQ(KindOf("-0.5"), JsonKind::DOUBLE);
    EXPECT_EQ(Reading("-0.5").value.GetDouble(), -0.5);
    EXPECT_EQ(KindOf("2147483648.0"), JsonKind::DOUBLE);
}

TEST(JsonParser, PointAtEitherEndFails) {
    EXPECT_FALSE(Accepts("-.5"));
    EXPECT_FALSE(Accepts("1."));
    EXPECT_FALSE(Accepts(".5"));
}

TEST(JsonParser, ExponentIsConsumedButNotCounted) {
    Reading reading("1e3");

    EXPECT_EQ(reading.value.Kind(), JsonKind::UINT);
    EXPECT_EQ(reading.value.GetUint(), 1U);
    EXPECT_EQ(reading.rest, "");
}

TEST(JsonParser, HexadecimalIntegerIsZero) {
    Reading reading("0x10");

    EXPECT_EQ(reading.value.Kind(), JsonKind::UINT);
    EXPECT_EQ(reading.value.GetUint(), 0U);
    EXPECT_EQ(reading.rest, "");
}

TEST(JsonParser, HexadecimalDoubleIsConverted) {
    Reading reading("0x.8p1");

    EXPECT_EQ(reading.value.Kind(), JsonKind::DOUBLE);
    EXPECT_EQ(reading.value.GetDouble(), 1.0);
}

TEST(JsonParser, LargestIntegerIs2147483647) {
    EXPECT_EQ(Reading("2147483647").value.GetUint(), 2147483647U);
    EXPECT_EQ(Reading("-2147483648").value.GetInt(), -2147483648LL);
}

TEST(JsonParser, IntegerBeyond32BitsIsOutOfRange) {
    EXPECT_EQ(TextOf<std::out_of_range>("2147483648"), "stoi");
    EXPECT_EQ(TextOf<std::out_of_range>("-2147483649"), "stoi");
    EXPECT_EQ(TextOf<std::out_of_range>("99999999999999999999999"), "stoi");
}

TEST(JsonParser, DoubleOutOfRangeThrows) {
    EXPECT_EQ(TextOf<std::out_of_range>("1e-400"), "stod");
    EXPECT_EQ(TextOf<std::out_of_range>("1e999"), "stod");
}

TEST(JsonParser, SignWithoutNumberIsInvalid) {
    EXPECT_EQ(TextOf<std::invalid_argument>("-"), "stod");
    EXPECT_EQ(TextOf<std::invalid_argument>("- 5"), "stod");
}

TEST(JsonParser, WordsThatConvertToDoublesAreNoIntegers) {
    EXPECT_EQ(TextOf<std::invalid_argument>("-inf"), "stoi");
    EXPECT_EQ(TextOf<std::invalid_argument>("-nan"), "stoi");
}

TEST(JsonParser, ZeroByteEndsANumber) {
    Reading reading(
        std::string("12\0"
                    "34",
                    5));

    EXPECT_EQ(reading.value.GetUint(), 12U);
    EXPECT_EQ(reading.rest, std::string("\0"
                                        "34",
                                        3));
}

TEST(JsonParser, AllSixWhiteSpacesAreSkipped) {
    Reading reading(" \r\n\t\v\f{ \v\f\"a\" \f:\v 1 \r\n\t\v\f}");

    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value["a"].GetUint(), 1U);
}

TEST(JsonParser, OtherFirstCharactersFail) {
    EXPECT_FALSE(Accepts("x"));
    EXPECT_FALSE(Accepts("+1"));
    EXPECT_FALSE(Accepts("}"));
    EXPECT_FALSE(Accepts("'a'"));
}

TEST(JsonParser, TextThatEndsWhereAValueShouldBeginIsEmpty) {
    EXPECT_EQ(TextOf<std::runtime_error>(""), "Input string is empty");
    EXPECT_EQ(TextOf<std::runtime_error>(" \t\r\n\v\f"), "Input string is empty");
    EXPECT_EQ(TextOf<std::runtime_error>("[ "), "Input string is empty");
    EXPECT_EQ(TextOf<std::runtime_error>(R"({"a": )"), "Input string is empty");
}

TEST(JsonParser, TextThatEndsInsideAContainerFails) {
    EXPECT_FALSE(Accepts("{"));
    EXPECT_FALSE(Accepts("[1"));
    EXPECT_FALSE(Accepts("[1,"));
    EXPECT_FALSE(Accepts(R"({"a":1)"));
}

// Blocks that are left of a text that is refused.
long LeftOf(const std::string& text) {
    const long before = tiv::test::LiveNewBlocks();
    try {
        EXPECT_FALSE(Accepts(text));
    } catch (const std::exception&) {
    }
    return tiv::test::LiveNewBlocks() - before;
}

TEST(JsonParser, RefusedTextLeavesNoMemoryBehind) {
    EXPECT_EQ(LeftOf(R"([["a"],{"b":["c",})"), 0);
    EXPECT_EQ(LeftOf(R"(["a")"), 0);
    EXPECT_EQ(LeftOf(R"({"a":{"b":1},x)"), 0);
    EXPECT_EQ(LeftOf(R"([["a"],99999999999])"), 0);
}

// The same when an allocation fails behind `skip` others; -1 when none failed. The log's own memory
// does not count.
long LeftOfFailedAllocation(const std::string& text, size_t skip) {
    tiv::test::RecordedLog::Instance().Clear();
    const long before = tiv::test::LiveNewBlocks();
    size_t failed = 0;
    {
        const tiv::test::FailingNew noMemory(skip);
        try {
            (void)Accepts(text);
        } catch (const std::bad_alloc&) {
        }
        failed = noMemory.Failed();
    }
    tiv::test::RecordedLog::Instance().Clear();
    return failed == 0 ? -1 : tiv::test::LiveNewBlocks() - before;
}

TEST(JsonParser, LackOfMemoryLeavesNothingBehind) {
    const std::string text = R"({"a":[["b"],{"c":"a text beyond the room in the string itself"}]})";
    TIV_LOGE("the log makes room for its lines");

    for (size_t skip = 0; skip < 20; ++skip) {
        EXPECT_EQ(LeftOfFailedAllocation(text, skip), 0) << skip;
    }
}

TEST(JsonParser, KeyMustBeQuoted) {
    EXPECT_FALSE(Accepts("{a:1}"));
    EXPECT_FALSE(Accepts(R"({"a":1 2})"));
}

TEST(JsonParser, RepeatedKeyKeepsTheLast) {
    Reading reading(R"({"a":"x","a":[1],"a":2})");

    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value.GetObject().size(), 1U);
    EXPECT_EQ(reading.value["a"].GetUint(), 2U);
}

TEST(JsonParser, NestedContainersKeepTheirPlaces) {
    Reading reading(R"({"a":{"b":[[1],{"c":"x"}]},"d":2})");

    ASSERT_TRUE(reading.accepted);
    EXPECT_EQ(reading.value["a"]["b"][size_t{0}][size_t{0}].GetUint(), 1U);
    EXPECT_EQ(reading.value["a"]["b"][1]["c"].GetString(), "x");
    EXPECT_EQ(reading.value["d"].GetUint(), 2U);
}

TEST(JsonParser, CommasBehindTheValueAreConsumed) {
    Reading reading("[1] ,, x");

    EXPECT_TRUE(reading.accepted);
    EXPECT_EQ(reading.rest, "x");
}

TEST(JsonParser, LongestTextHasOneMebibyte) {
    const std::string longest = "1" + std::string(1048575, ' ');

    EXPECT_TRUE(Accepts(longest));
    EXPECT_EQ(TextOf<std::runtime_error>(longest + " "),
              "The length of input string is out of range(1M)");
}

TEST(JsonParser, LengthCountsBeforeWhiteSpaceIsRemoved) {
    EXPECT_EQ(TextOf<std::runtime_error>(std::string(1048577, ' ')),
              "The length of input string is out of range(1M)");
}

TEST(JsonParser, RefusedTextLeavesTheValueAlone) {
    JsonValue value;
    value = 5;
    const std::string text = R"({"a":["x","y"}])";

    EXPECT_FALSE(JsonParser(text).Parse(value));

    EXPECT_EQ(value.GetInt(), 5);
}

}  // namespace
}  // namespace analysis::rokt::common::json
