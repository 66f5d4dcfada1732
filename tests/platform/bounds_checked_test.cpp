// Tests of the bounds-checked copies and formatting.
#include "platform/bounds_checked.h"

#include <gtest/gtest.h>

#include <string>

namespace {

TEST(MemcpyS, CopiesWhatFits) {
    char to[4] = {'x', 'x', 'x', 'x'};

    EXPECT_EQ(0, memcpy_s(to, sizeof(to), "ab", 2));

    EXPECT_EQ("abxx", std::string(to, 4));
}

TEST(MemcpyS, FillsTheRoomToItsEnd) {
    char to[3] = {};

    EXPECT_EQ(0, memcpy_s(to, sizeof(to), "abc", 3));

    EXPECT_EQ("abc", std::string(to, 3));
}

TEST(MemcpyS, RefusesMoreThanTheRoomAndLeavesItAlone) {
    char to[3] = {'x', 'x', 'x'};

    EXPECT_NE(0, memcpy_s(to, sizeof(to), "abcd", 4));

    EXPECT_EQ("xxx", std::string(to, 3));
}

TEST(MemcpyS, RefusesNullPointersAndNoRoom) {
    char to[1] = {};

    EXPECT_NE(0, memcpy_s(nullptr, 1, "a", 1));
    EXPECT_NE(0, memcpy_s(to, 1, nullptr, 1));
    EXPECT_NE(0, memcpy_s(to, 0, "a", 0));
}

TEST(MemcpyS, CopiesNothingWithSuccess) {
    char to[1] = {'x'};

    EXPECT_EQ(0, memcpy_s(to, 1, "a", 0));

    EXPECT_EQ('x', to[0]);
}

TEST(MemcpyS, RefusesOverlapInBothDirections) {
    char bytes[] = "abcdef";

    EXPECT_NE(0, memcpy_s(bytes + 1, 5, bytes, 3));
    EXPECT_NE(0, memcpy_s(bytes, 6, bytes + 2, 3));
    EXPECT_NE(0, memcpy_s(bytes, 6, bytes, 1));
    EXPECT_STREQ("abcdef", bytes);
}

TEST(MemcpyS, TakesNeighboursThatTouch) {
    char bytes[] = "abcdef";

    EXPECT_EQ(0, memcpy_s(bytes + 3, 3, bytes, 3));

    EXPECT_STREQ("abcabc", bytes);
}

TEST(MemcpyS, HasNoUpperLimitOfItsOwn) {
    constexpr size_t BYTES = 64 * 1024 * 1024;
    std::string from(BYTES, 'a');
    std::string to(BYTES, 'b');

    EXPECT_EQ(0, memcpy_s(to.data(), BYTES, from.data(), BYTES));

    EXPECT_EQ('a', to.back());
}

TEST(MemsetS, FillsWhatIsAsked) {
    char to[4] = {'x', 'x', 'x', 'x'};

    EXPECT_EQ(0, memset_s(to, sizeof(to), 'a', 3));

    EXPECT_EQ("aaax", std::string(to, 4));
}

TEST(MemsetS, RefusesNullNoRoomAndTooMuch) {
    char to[2] = {'x', 'x'};

    EXPECT_NE(0, memset_s(nullptr, 2, 0, 1));
    EXPECT_NE(0, memset_s(to, 0, 0, 0));
    EXPECT_NE(0, memset_s(to, 2, 0, 3));
    EXPECT_EQ("xx", std::string(to, 2));
}

TEST(MemsetS, FillsNothingWithSuccess) {
    char to[1] = {'x'};

    EXPECT_EQ(0, memset_s(to, 1, 'a', 0));

    EXPECT_EQ('x', to[0]);
}

TEST(SnprintfS, GivesTheCharactersWritten) {
    char to[8] = {};

    EXPECT_EQ(3, snprintf_s(to, sizeof(to), 7, "%d", 123));

    EXPECT_STREQ("123", to);
}

TEST(SnprintfS, WritesExactlyTheCountAndTheZero) {
    char to[4] = {};

    EXPECT_EQ(3, snprintf_s(to, sizeof(to), 3, "%s", "abc"));

    EXPECT_STREQ("abc", to);
}

TEST(SnprintfS, GivesMinusOneOnTruncation) {
    char to[4] = {};

    EXPECT_EQ(-1, snprintf_s(to, sizeof(to), 3, "%s", "abcd"));
    EXPECT_EQ(-1, snprintf_s(to, sizeof(to), 1, "%s", "ab"));
}

TEST(SnprintfS, RefusesBadArguments) {
    char to[4] = {};

    EXPECT_EQ(-1, snprintf_s(nullptr, 4, 3, "a"));
    EXPECT_EQ(-1, snprintf_s(to, 0, 0, "a"));
    EXPECT_EQ(-1, snprintf_s(to, 4, 4, "a"));
}

TEST(SprintfS, TakesTheRoomLessTheZero) {
    char to[4] = {};

    EXPECT_EQ(3, sprintf_s(to, sizeof(to), "%s", "abc"));
    EXPECT_EQ(-1, sprintf_s(to, sizeof(to), "%s", "abcd"));
}

TEST(SprintfS, RefusesNullAndNoRoom) {
    char to[1] = {};

    EXPECT_EQ(-1, sprintf_s(nullptr, 4, "a"));
    EXPECT_EQ(-1, sprintf_s(to, 0, "a"));
}

}  // namespace
