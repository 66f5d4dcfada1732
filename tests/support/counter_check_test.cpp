// The check of counter streams finds what is wrong with them.
#include "support/counter_check.h"

#include <gtest/gtest.h>

namespace tiv::test {

namespace {

void AppendWord(std::string& bytes, uint64_t word) {
    bytes.append(reinterpret_cast<const char*>(&word), sizeof(word));
}

// A header of 72 bytes and the numbers from 0.
std::string Stream(uint64_t numbers) {
    std::string bytes;
    AppendWord(bytes, 0x0000000143564954);
    AppendWord(bytes, 2ULL << 32 | 72);
    bytes.resize(72, 'h');
    for (uint64_t number = 0; number < numbers; ++number) {
        AppendWord(bytes, number);
    }
    return bytes;
}

}  // namespace

TEST(CounterCheck, CountsEachStart) {
    CounterCheck check;

    check.Feed(Stream(2000) + Stream(0) + Stream(7));

    EXPECT_EQ(check.Error(), "");
    ASSERT_EQ(check.Runs().size(), 3u);
    EXPECT_EQ(check.Runs()[0].Bytes(), 72u + 2000 * 8);
    EXPECT_EQ(check.Runs()[1].Bytes(), 72u);
    EXPECT_EQ(check.Runs()[2].Bytes(), 72u + 7 * 8);
    EXPECT_TRUE(check.EndsWhole());
}

TEST(CounterCheck, StreamMayBeCutAnywhere) {
    const std::string bytes = Stream(1500) + Stream(3);
    CounterCheck check;

    for (const char byte : bytes) {
        check.Feed(std::string_view(&byte, 1));
    }

    EXPECT_EQ(check.Error(), "");
    ASSERT_EQ(check.Runs().size(), 2u);
    EXPECT_EQ(check.Runs()[0].numbers, 1500u);
    EXPECT_EQ(check.Runs()[1].numbers, 3u);
}

TEST(CounterCheck, MissingNumberIsFoundWhereverItIs) {
    for (const size_t missing : {0u, 511u, 512u, 1000u, 1535u}) {
        std::string bytes = Stream(1537);
        bytes.erase(72 + missing * 8, 8);
        CounterCheck check;

        check.Feed(bytes);

        EXPECT_NE(check.Error().find("expected " + std::to_string(missing) + ","),
                  std::string::npos)
            << check.Error();
    }
}

TEST(CounterCheck, SwappedBlocksAreFound) {
    std::string bytes = Stream(2048);
    const std::string block = bytes.substr(72, 4096);
    bytes.erase(72, 4096).insert(72 + 4096, block);
    CounterCheck check;

    check.Feed(bytes);

    EXPECT_NE(check.Error(), "");
}

TEST(CounterCheck, NumbersWithoutAHeaderAreWrong) {
    CounterCheck check;

    check.Feed(Stream(10).substr(72));

    EXPECT_NE(check.Error(), "");
}

TEST(CounterCheck, HeaderOfAnotherSourceIsWrong) {
    std::string bytes = Stream(10);
    bytes[12] = 1;
    CounterCheck check;

    check.Feed(bytes);

    EXPECT_NE(check.Error().find("no header of a counter"), std::string::npos);
}

TEST(CounterCheck, EndWithinANumberOrAHeaderIsNotWhole) {
    CounterCheck number;
    number.Feed(Stream(10).substr(0, 72 + 9));
    EXPECT_FALSE(number.EndsWhole());

    CounterCheck header;
    header.Feed(Stream(10).substr(0, 64));
    EXPECT_FALSE(header.EndsWhole());
}

}  // namespace tiv::test
