// Values: kinds, assignments, members, elements, getters and their messages.
#include "common/json_value.h"

#include <gtest/gtest.h>

#include <new>
#include <string>

#include "support/failing_new.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::json {
namespace {

using tiv::test::RecordedLog;

bool Logged(const std::string& text) { return RecordedLog::Instance().Has('E', text); }

// A value that is freed at the end of its test.
struct OwnedValue : JsonValue {
    using JsonValue::operator=;
    ~OwnedValue() { Free(); }
};

class JsonValueTest : public testing::Test {
 protected:
    JsonValueTest() { RecordedLog::Instance().Clear(); }

    OwnedValue value;
};

TEST_F(JsonValueTest, KindsHaveTheirNumbers) {
    EXPECT_EQ(static_cast<int>(JsonKind::STRING), 0);
    EXPECT_EQ(static_cast<int>(JsonKind::ARRAY), 1);
    EXPECT_EQ(static_cast<int>(JsonKind::OBJECT), 2);
    EXPECT_EQ(static_cast<int>(JsonKind::DOUBLE), 3);
    EXPECT_EQ(static_cast<int>(JsonKind::INT), 4);
    EXPECT_EQ(static_cast<int>(JsonKind::UINT), 5);
    EXPECT_EQ(static_cast<int>(JsonKind::BOOL), 6);
    EXPECT_EQ(static_cast<int>(JsonKind::JSON_NULL), 7);
    EXPECT_EQ(static_cast<int>(JsonKind::INVALID), 8);
}

TEST_F(JsonValueTest, FreshValueIsInvalidAndAnswersWithoutMessage) {
    EXPECT_EQ(value.Kind(), JsonKind::INVALID);
    EXPECT_FALSE(value.GetBool());
    EXPECT_EQ(value.GetInt(), 0);
    EXPECT_EQ(value.GetUint(), 0U);
    EXPECT_EQ(value.GetDouble(), 0.0);
    EXPECT_EQ(value.GetString(), "");
    EXPECT_EQ(value.GetNull(), nullptr);
    EXPECT_TRUE(value.GetArray().empty());
    EXPECT_TRUE(value.GetObject().empty());
    EXPECT_FALSE(value.Contains("a"));
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST_F(JsonValueTest, AssignmentSetsTheKind) {
    value = int64_t{-1};
    EXPECT_EQ(value.Kind(), JsonKind::INT);
    value = int32_t{-1};
    EXPECT_EQ(value.Kind(), JsonKind::INT);
    value = uint64_t{1};
    EXPECT_EQ(value.Kind(), JsonKind::UINT);
    value = uint32_t{1};
    EXPECT_EQ(value.Kind(), JsonKind::UINT);
    value = 0.5;
    EXPECT_EQ(value.Kind(), JsonKind::DOUBLE);
    value = true;
    EXPECT_EQ(value.Kind(), JsonKind::BOOL);
    value = "text";
    EXPECT_EQ(value.Kind(), JsonKind::STRING);
}

TEST_F(JsonValueTest, NumbersKeepAll64Bits) {
    value = INT64_MIN;
    EXPECT_EQ(value.GetInt(), INT64_MIN);

    value = UINT64_MAX;
    EXPECT_EQ(value.GetUint(), UINT64_MAX);
}

TEST_F(JsonValueTest, BoolIntAndUintReadEachOther) {
    value = int32_t{-1};
    EXPECT_EQ(value.GetUint(), UINT64_MAX);
    EXPECT_TRUE(value.GetBool());

    value = true;
    EXPECT_EQ(value.GetInt(), 1);
    EXPECT_EQ(value.GetUint(), 1U);
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST_F(JsonValueTest, BoolIsTheLowByte) {
    value = uint32_t{256};
    EXPECT_FALSE(value.GetBool());

    value = uint32_t{2};
    EXPECT_TRUE(value.GetBool());
}

TEST_F(JsonValueTest, WrongKindsOfNumbersHaveTheirMessages) {
    value = 0.5;

    EXPECT_FALSE(value.GetBool());
    EXPECT_TRUE(Logged("Invalid data type for boolean variable"));
    EXPECT_EQ(value.GetInt(), 0);
    EXPECT_TRUE(Logged("Invalid data type for int variable"));
    EXPECT_EQ(value.GetUint(), 0U);
    EXPECT_TRUE(Logged("Invalid data type for uint variable"));
}

TEST_F(JsonValueTest, DoubleAcceptsOnlyDouble) {
    value = int32_t{1};

    EXPECT_EQ(value.GetDouble(), 0.0);
    EXPECT_TRUE(Logged("Invalid data type for double variable"));
}

TEST_F(JsonValueTest, StringAcceptsOnlyString) {
    value = int32_t{1};

    EXPECT_EQ(value.GetString(), "");
    EXPECT_TRUE(Logged("Invalid data type for string variable"));
}

TEST_F(JsonValueTest, NullAcceptsOnlyNull) {
    value.SetNull();
    EXPECT_EQ(value.GetNull(), nullptr);
    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);

    value = int32_t{1};
    EXPECT_EQ(value.GetNull(), nullptr);
    EXPECT_TRUE(Logged("Invalid data type for null variable"));
}

TEST_F(JsonValueTest, NullIsNoInteger) {
    value.SetNull();

    EXPECT_EQ(value.GetInt(), 0);
    EXPECT_TRUE(Logged("Invalid data type for int variable"));
}

TEST_F(JsonValueTest, ContainersOfAWrongKindSayStringVariable) {
    value = int32_t{1};

    EXPECT_TRUE(value.GetArray().empty());
    EXPECT_TRUE(value.GetObject().empty());
    EXPECT_EQ(RecordedLog::Instance().Count('E', "Invalid data type for string variable"), 2U);
}

TEST_F(JsonValueTest, StringReusesItsStorage) {
    value = std::string("first");
    const JsonValue shared = value;

    value = std::string("second");

    EXPECT_EQ(shared.GetString(), "second");
}

TEST_F(JsonValueTest, CopySharesItsStorage) {
    value["a"] = int32_t{1};
    JsonValue copy = value;

    copy["b"] = int32_t{2};

    EXPECT_TRUE(value.Contains("b"));
}

TEST_F(JsonValueTest, DeepCopyHasStorageOfItsOwn) {
    value["a"]["b"] = "x";
    value["c"].SetArraySize(1);
    JsonValue copy = value.DeepCopy();

    copy["a"]["b"] = "y";
    copy["c"][size_t{0}] = int32_t{1};

    EXPECT_EQ(value["a"]["b"].GetString(), "x");
    EXPECT_EQ(value["c"][size_t{0}].Kind(), JsonKind::INVALID);
    copy.Free();
}

// Blocks that a deep copy leaves behind when its n-th allocation throws; none when it doesn't.
long BlocksLeft(const JsonValue& source, size_t allocation, int& thrown) {
    const long before = tiv::test::LiveNewBlocks();
    JsonValue copy;
    try {
        const tiv::test::FailingNew failing(allocation);
        copy = source.DeepCopy();
    } catch (const std::bad_alloc&) {
        ++thrown;
        return tiv::test::LiveNewBlocks() - before;
    }
    copy.Free();
    return 0;
}

TEST_F(JsonValueTest, DeepCopyThatThrowsLeavesNothingOfTheCopy) {
    value["a"]["b"] = "a text that lies outside of its string";
    value["a"]["c"].SetArraySize(3);
    value["d"] = "another text that lies outside of its string";
    int thrown = 0;
    long left = 0;

    for (size_t allocation = 0; allocation < 30; ++allocation) {
        left += BlocksLeft(value, allocation, thrown);
    }

    EXPECT_GT(thrown, 1);
    EXPECT_EQ(left, 0);
}

TEST_F(JsonValueTest, FailedAllocationOfATextMarksTheValueInvalid) {
    const std::string text = "short";
    value = int32_t{1};
    {
        tiv::test::FailingNew failing;
        value = text;
    }

    EXPECT_EQ(value.Kind(), JsonKind::INVALID);
    EXPECT_TRUE(Logged("Fail allocating stack memory"));
}

TEST_F(JsonValueTest, FailedAllocationOfMembersGivesTheValueItself) {
    JsonValue* member = nullptr;
    const std::string key = "a";
    {
        tiv::test::FailingNew failing;
        member = &value[key];
    }

    EXPECT_EQ(member, &value);
    EXPECT_EQ(value.Kind(), JsonKind::INVALID);
    EXPECT_TRUE(Logged("Fail allocating stack memory"));
}

TEST_F(JsonValueTest, ValueWithoutPayloadBecomesAnObject) {
    value = int32_t{0};

    value["a"] = int32_t{1};

    EXPECT_EQ(value.Kind(), JsonKind::OBJECT);
    EXPECT_EQ(value["a"].GetInt(), 1);
}

TEST_F(JsonValueTest, LookUpCreatesTheMember) {
    EXPECT_EQ(value["a"].Kind(), JsonKind::INVALID);

    EXPECT_TRUE(value.Contains("a"));
}

TEST_F(JsonValueTest, MemberOfAnotherKindIsTheValueItself) {
    value = int32_t{1};

    EXPECT_EQ(&value["a"], &value);

    EXPECT_TRUE(Logged("Invalid visit for object variable"));
}

TEST_F(JsonValueTest, ElementOfAnotherKindIsTheValueItself) {
    value = int32_t{1};

    EXPECT_EQ(&value[size_t{0}], &value);

    EXPECT_TRUE(Logged("Invalid visit for array variable"));
}

TEST_F(JsonValueTest, ElementOutOfRangeIsTheValueItself) {
    value.SetArraySize(2);

    EXPECT_NE(&value[1], &value);
    EXPECT_FALSE(Logged("Invalid visit for array variable"));
    EXPECT_EQ(&value[2], &value);
    EXPECT_TRUE(Logged("Invalid visit for array variable"));
}

TEST_F(JsonValueTest, ContainsNeedsAnObject) {
    value = int32_t{1};

    EXPECT_FALSE(value.Contains("a"));

    EXPECT_TRUE(Logged("Invalid data type"));
}

TEST_F(JsonValueTest, ContainsIsSilentWithoutPayload) {
    value = int32_t{0};

    EXPECT_FALSE(value.Contains("a"));

    EXPECT_EQ(RecordedLog::Instance().Lines().size(), 0U);
}

TEST_F(JsonValueTest, FindAddsNothing) {
    value["a"] = int32_t{1};

    EXPECT_EQ(value.Find("a"), &value["a"]);
    EXPECT_EQ(value.Find("b"), nullptr);
    EXPECT_EQ(value.GetObject().size(), 1U);
}

TEST_F(JsonValueTest, SetArraySizeMakesFreshElements) {
    value.SetArraySize(3);

    ASSERT_EQ(value.GetArray().size(), 3U);
    EXPECT_EQ(value[2].Kind(), JsonKind::INVALID);
}

TEST_F(JsonValueTest, SetArraySizeNeedsAValueWithoutPayload) {
    value = int32_t{1};

    value.SetArraySize(3);

    EXPECT_EQ(value.GetInt(), 1);
    EXPECT_TRUE(Logged("SetArraySize is only valid for JsonValue without allocating memory"));
}

TEST_F(JsonValueTest, PushBackAppendsToAnArray) {
    JsonValue element;
    element = int32_t{5};
    value.SetArraySize(1);

    value.PushBack(element);

    ASSERT_EQ(value.GetArray().size(), 2U);
    EXPECT_EQ(value[1].GetInt(), 5);
}

TEST_F(JsonValueTest, PushBackNeedsAnArray) {
    value.PushBack(JsonValue());

    EXPECT_EQ(value.Kind(), JsonKind::INVALID);
    EXPECT_TRUE(Logged("PushBack() is only valid for ARRAY type"));
}

TEST_F(JsonValueTest, FreeMakesAFreshValue) {
    value["a"]["b"] = "x";
    value["c"].SetArraySize(2);

    value.Free();

    EXPECT_EQ(value.Kind(), JsonKind::INVALID);
    EXPECT_FALSE(value.Contains("a"));
}

}  // namespace
}  // namespace analysis::rokt::common::json
