// Durations and sizes as people write and read them.
#include "host/duration.h"

#include <gtest/gtest.h>

using namespace tiv::host;
using std::chrono::milliseconds;

TEST(ParseDuration, UnitsAndPlainSeconds) {
    EXPECT_EQ(ParseDuration("250ms"), milliseconds(250));
    EXPECT_EQ(ParseDuration("10s"), milliseconds(10000));
    EXPECT_EQ(ParseDuration("10"), milliseconds(10000));
    EXPECT_EQ(ParseDuration("0.5"), milliseconds(500));
    EXPECT_EQ(ParseDuration("5m"), milliseconds(300000));
    EXPECT_EQ(ParseDuration("2min"), milliseconds(120000));
    EXPECT_EQ(ParseDuration("1h"), milliseconds(3600000));
    EXPECT_EQ(ParseDuration("0s"), milliseconds(0));
}

TEST(ParseDuration, OtherTextsAreNone) {
    for (const char* text : {"", "s", "-1s", "1d", "10 s", "1s ", " 1s", "1e3", "nan", "inf",
                             "9000h", "1s2", "0x10"}) {
        EXPECT_FALSE(ParseDuration(text).has_value()) << text;
    }
}

TEST(FormatDuration, OneFormPerSize) {
    EXPECT_EQ(FormatDuration(milliseconds(850)), "850ms");
    EXPECT_EQ(FormatDuration(milliseconds(1000)), "1.0s");
    EXPECT_EQ(FormatDuration(milliseconds(12345)), "12.3s");
    EXPECT_EQ(FormatDuration(milliseconds(245000)), "4m05s");
    EXPECT_EQ(FormatDuration(milliseconds(7380000)), "2h03m");
}

TEST(FormatBytes, PowersOf1000) {
    EXPECT_EQ(FormatBytes(0), "0 B");
    EXPECT_EQ(FormatBytes(999), "999 B");
    EXPECT_EQ(FormatBytes(1500), "1.5 kB");
    EXPECT_EQ(FormatBytes(24800000), "24.8 MB");
    EXPECT_EQ(FormatBytes(999960), "1.0 MB");
    EXPECT_EQ(FormatBytes(3e15), "3000.0 TB");
}
