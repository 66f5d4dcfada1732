// Documents: what they take, what they write, and trees of any depth on a small stack.
#include "common/json.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <functional>
#include <new>
#include <set>
#include <stdexcept>

#include "common/json_parser.h"
#include "support/failing_new.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::json {
namespace {

using tiv::test::RecordedLog;

constexpr size_t SMALL_STACK = 131072;
constexpr size_t LONGEST_TEXT = 1048576;

std::string Repeat(const std::string& part, size_t count) {
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += part;
    }
    return text;
}

void* CallBody(void* body) {
    (*static_cast<std::function<void()>*>(body))();
    return nullptr;
}

// Runs the body on a thread with the smallest stack that a thread of the daemon has.
void OnSmallStack(std::function<void()> body) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, SMALL_STACK), 0);
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, CallBody, &body), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

// The text of the exception that reading a document throws.
std::string Refusal(const std::string& text) {
    try {
        const Json document(text);
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "accepted";
}

TEST(Json, NewDocumentIsAnEmptyObject) {
    const Json document;

    EXPECT_EQ(document.Kind(), JsonKind::OBJECT);
    EXPECT_EQ(document.ToString(), "{}");
}

TEST(Json, OtherValuesAreNoDocuments) {
    EXPECT_EQ(Refusal("[1]"), "Input json string error");
    EXPECT_EQ(Refusal("nonsense"), "Input json string error");
    EXPECT_EQ(Refusal("1"), "Input json string error");
    EXPECT_EQ(Refusal("{"), "Input json string error");
    EXPECT_EQ(Refusal(R"({"a",1})"), "Input json string error");
}

TEST(Json, RuntimeErrorsKeepTheirTexts) {
    EXPECT_EQ(Refusal("  "), "Input string is empty");
    EXPECT_EQ(Refusal(std::string(LONGEST_TEXT + 1, ' ')),
              "The length of input string is out of range(1M)");
}

TEST(Json, NumberErrorsPassUnchanged) {
    EXPECT_THROW(Json(R"({"a":[2147483648]})"), std::out_of_range);
    EXPECT_THROW(Json(R"({"a":["x",-]})"), std::invalid_argument);
}

TEST(Json, TextBehindTheDocumentIsIgnored) {
    Json document(R"({"a":1} trailing ]})");

    EXPECT_EQ(document["a"].GetUint(), 1U);
}

TEST(Json, WrittenTextIsReadBack) {
    Json document;
    document["text"] = "x y";
    document["number"] = int32_t{-5};
    document["flag"] = true;
    document["none"].SetNull();

    Json read(document.ToString());

    EXPECT_EQ(read["text"].GetString(), "x y");
    EXPECT_EQ(read["number"].GetInt(), -5);
    EXPECT_TRUE(read["flag"].GetBool());
    EXPECT_EQ(read["none"].Kind(), JsonKind::JSON_NULL);
}

TEST(Json, DocumentFromAnObjectIsACopy) {
    JsonValue value;
    value["a"] = "x";
    Json document(value);
    value["a"] = "y";
    value.Free();

    EXPECT_EQ(document.ToString(), R"({"a":"x"})");
}

TEST(Json, DocumentFromAnotherValueThrows) {
    JsonValue value;
    value = int32_t{1};

    try {
        const Json document(value);
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Cannot assign a JsonValue without Object type to Json");
    }
}

TEST(Json, AssignmentOfAnotherValueChangesNothing) {
    Json document(R"({"a":1})");
    JsonValue value;
    value = int32_t{5};

    document = value;

    EXPECT_EQ(document.ToString(), R"({"a":1})");
    EXPECT_TRUE(
        RecordedLog::Instance().Has('E', "Cannot assign a JsonValue without Object type to Json"));
}

TEST(Json, DocumentMayBecomeItsOwnMember) {
    Json document(R"({"a":{"b":{"c":1}}})");

    document = document["a"];

    EXPECT_EQ(document.ToString(), R"({"b":{"c":1}})");
}

TEST(Json, CopiesOfDocumentsAreIndependent) {
    Json document(R"({"a":"x"})");
    Json copy(document);
    copy["a"] = "y";
    const Json& itself = document;
    document = itself;

    EXPECT_EQ(document["a"].GetString(), "x");
    EXPECT_EQ(copy["a"].GetString(), "y");
}

TEST(Json, MergeAddsAndOverwrites) {
    Json document(R"({"a":"old","b":2})");
    const Json other(R"({"a":[1],"c":"new"})");

    document.Merge(other);

    EXPECT_EQ(document.GetObject().size(), 3U);
    EXPECT_EQ(document["a"].ToString(), "[1]");
    EXPECT_EQ(document["b"].GetUint(), 2U);
    EXPECT_EQ(document["c"].GetString(), "new");
}

TEST(Json, MergeOfAnotherValueChangesNothing) {
    Json document(R"({"a":1})");
    JsonValue value;
    value = int32_t{5};
    RecordedLog::Instance().Clear();

    document.Merge(value);

    EXPECT_EQ(document.ToString(), R"({"a":1})");
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('E'),
              std::vector<std::string>{"Cannot assign a JsonValue without Object type to Json"});
}

TEST(Json, MergeOfTheDocumentWithItselfChangesNothing) {
    Json document(R"({"a":{"b":"x"}})");

    document.Merge(document);

    EXPECT_EQ(document.ToString(), R"({"a":{"b":"x"}})");
}

TEST(Json, FreedDocumentStaysAnObject) {
    Json document(R"({"a":1})");

    document.Free();

    EXPECT_EQ(document.ToString(), "{}");
    document["b"] = int32_t{1};
    EXPECT_EQ(document.ToString(), R"({"b":1})");
}

TEST(JsonWriter, ScalarsHaveTheirForms) {
    JsonValue value;
    EXPECT_EQ(value.ToString(), "");
    value.SetNull();
    EXPECT_EQ(value.ToString(), "null");
    value = false;
    EXPECT_EQ(value.ToString(), "false");
    value = INT64_MIN;
    EXPECT_EQ(value.ToString(), "-9223372036854775808");
    value = UINT64_MAX;
    EXPECT_EQ(value.ToString(), "18446744073709551615");
    value = 0.1;
    EXPECT_EQ(value.ToString(), "0.100000");
}

TEST(JsonWriter, LongestDoubleIsWrittenWhole) {
    JsonValue value;
    value = -1.7976931348623157e308;

    const std::string text = value.ToString();

    EXPECT_EQ(text.size(), 317U);
    EXPECT_EQ(text.substr(0, 6), "-17976");
    EXPECT_EQ(text.substr(310), ".000000");
}

TEST(JsonWriter, TextIsNotEscaped) {
    Json document;
    document["k"] = "a\"b\\c\n";

    EXPECT_EQ(document.ToString(), "{\"k\":\"a\"b\\c\n\"}");
}

TEST(JsonWriter, EmptyContainersAreTwoCharacters) {
    const Json document(R"({"a":[{},[]]})");

    EXPECT_EQ(document.ToString(), R"({"a":[{},[]]})");
}

TEST(JsonWriter, ElementsAreSeparatedByCommasWithoutWhiteSpace) {
    const Json document(R"({ "a" : [ 1 , "x" , true , { "b" : 0.5 } ] })");

    EXPECT_EQ(document.ToString(), R"({"a":[1,"x",true,{"b":0.500000}]})");
}

TEST(JsonWriter, InvalidMemberHasNoText) {
    Json document;
    (void)document["k"];

    EXPECT_EQ(document.ToString(), R"({"k":})");
}

TEST(JsonWriter, AllMembersAreWritten) {
    Json document(R"({"a":1,"b":2})");

    const std::string text = document.ToString();

    EXPECT_TRUE(text == R"({"a":1,"b":2})" || text == R"({"b":2,"a":1})") << text;
}

TEST(JsonDepth, MebibyteOfOpenBracketsIsRefusedOnASmallStack) {
    std::string refusal;

    OnSmallStack([&refusal] { refusal = Refusal(std::string(LONGEST_TEXT, '[')); });

    EXPECT_EQ(refusal, "Input string is empty");
}

TEST(JsonDepth, MebibyteOfOpenObjectsIsRefusedOnASmallStack) {
    std::string refusal;

    OnSmallStack([&refusal] { refusal = Refusal(Repeat(R"({"":)", LONGEST_TEXT / 4)); });

    EXPECT_EQ(refusal, "Input string is empty");
}

TEST(JsonDepth, HalfAMillionArraysAreReadWrittenAndFreedOnASmallStack) {
    const std::string inner = std::string(500000, '[') + std::string(500000, ']');
    const std::string text = "{\"a\":" + inner + "}";
    std::string written;

    OnSmallStack([&] { written = Json(text).ToString(); });

    EXPECT_EQ(written, text);
}

TEST(JsonDepth, DeepObjectsAreCopiedOnASmallStack) {
    const std::string text = Repeat(R"({"a":)", 150000) + "1" + std::string(150000, '}');
    std::string written;

    OnSmallStack([&] {
        const Json document(text);
        written = Json(document).ToString();
    });

    EXPECT_EQ(written, text);
}

TEST(JsonDepth, BrokenDeepTextIsFreedOnASmallStack) {
    const std::string text = Repeat(R"({"a":["x",)", 90000) + "?";
    std::string refusal;

    OnSmallStack([&] { refusal = Refusal(text); });

    EXPECT_EQ(refusal, "Input json string error");
}

TEST(JsonDepth, MebibyteOfShortMembersIsReadWhole) {
    const std::string text = "{" + Repeat(R"("k":1,)", 170000) + R"("last":2})";

    Json document(text);

    EXPECT_EQ(document["last"].GetUint(), 2U);
}

TEST(JsonMemory, ExceptionInsideATreeLeavesNothingBehind) {
    const long before = tiv::test::LiveNewBlocks();

    EXPECT_THROW(Json(R"({"a":["x",{"b":["y",1e999]}]})"), std::out_of_range);

    EXPECT_EQ(tiv::test::LiveNewBlocks(), before);
}

TEST(JsonMemory, ValueThatIsNoDocumentLeavesNothingBehind) {
    const std::string text = R"([1,{"a":["x"]}])";
    const long before = tiv::test::LiveNewBlocks();

    EXPECT_THROW(Json{text}, std::runtime_error);

    EXPECT_EQ(tiv::test::LiveNewBlocks(), before);
}

TEST(JsonMemory, DocumentsGiveTheirTreesBack) {
    const long before = tiv::test::LiveNewBlocks();
    {
        Json document(R"({"a":[{"b":"x"}],"c":[1]})");
        Json copy(document);
        copy = Json(R"({"d":[2,"y"]})");
        document.Merge(copy);
        copy.Free();
        copy = document;
    }

    EXPECT_EQ(tiv::test::LiveNewBlocks(), before);
}

TEST(JsonMemory, ArrayThatCannotBeAllocatedIsRefused) {
    const std::string text = "[1]";
    JsonParser parser(text);
    JsonValue value;
    bool accepted = true;
    {
        tiv::test::FailingNew failing(1);
        accepted = parser.Parse(value);
    }

    EXPECT_FALSE(accepted);
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Fail allocating stack memory"));
}

// What reading the text gives when its n-th allocation fails: "refused", or the text of the tree.
std::string ReadWithFailure(const std::string& text, size_t allocation) {
    JsonParser parser(text);
    JsonValue value;
    bool accepted = false;
    {
        const tiv::test::FailingNew failing(allocation);
        try {
            accepted = parser.Parse(value);
        } catch (const std::bad_alloc&) {
            accepted = false;
        }
    }
    const std::string written = accepted ? value.ToString() : "refused";
    value.Free();
    return written;
}

TEST(JsonMemory, TreeWithoutItsOuterObjectIsRefused) {
    const std::string text = R"({"a":{"b":1}})";
    std::set<std::string> readings;
    for (size_t allocation = 0; allocation < 40; ++allocation) {
        readings.insert(ReadWithFailure(text, allocation));
    }

    EXPECT_EQ(readings, (std::set<std::string>{"refused", text}));
}

}  // namespace
}  // namespace analysis::rokt::common::json
