// Tests of the data's form in a page.
#include <gtest/gtest.h>
#include <zlib.h>

#include <cmath>
#include <new>

#include "host/report/page_block.h"
#include "host/report_decode.h"
#include "support/failing_new.h"

// The linker sends the calls of compress2 to __wrap_compress2, below.
extern "C" int __real_compress2(Bytef* packed, uLongf* length, const Bytef* bytes, uLong size,
                                int level);

namespace tiv::host {
namespace {

bool hasNoMemory = false;

using nlohmann::ordered_json;

TEST(PageBlock, Base64PadsAsTheStandardTells) {
    EXPECT_EQ(Base64(""), "");
    EXPECT_EQ(Base64("f"), "Zg==");
    EXPECT_EQ(Base64("fo"), "Zm8=");
    EXPECT_EQ(Base64("foo"), "Zm9v");
    EXPECT_EQ(Base64(std::string("\0\xff\x10\x80", 4)), "AP8QgA==");
}

TEST(PageBlock, ColumnsComeBackFromTheEncodedBlock) {
    PageBlock block;
    ordered_json model;
    model["bytes"] = block.AddBytes({1, 2, 3});
    model["floats"] = block.AddFloats({0.5f, -3.0f, 1024.0f});
    model["numbers"] = block.AddNumbers({7, 4000000000u});

    const DecodedPage page(block.Encode(model));

    EXPECT_EQ(page.Magic(), "TIVPAGE1");
    EXPECT_EQ(page.Column<uint8_t>(page.model["bytes"]), (std::vector<uint8_t>{1, 2, 3}));
    EXPECT_EQ(page.Column<float>(page.model["floats"]), (std::vector<float>{0.5f, -3.0f, 1024.0f}));
    EXPECT_EQ(page.Column<uint32_t>(page.model["numbers"]),
              (std::vector<uint32_t>{7, 4000000000u}));
}

TEST(PageBlock, EveryColumnNamesTheTypeThatThePageReads) {
    PageBlock block;

    EXPECT_EQ(block.AddBytes({1})["t"], "u1");
    EXPECT_EQ(block.AddFloats({1.0f})["t"], "f4");
    EXPECT_EQ(block.AddNumbers({1})["t"], "u4");
}

TEST(PageBlock, EveryColumnBeginsAtAMultipleOfEight) {
    PageBlock block;
    (void)block.AddBytes({1, 2, 3});

    EXPECT_EQ(block.AddFloats({1.0f})["o"], 8);
    EXPECT_EQ(block.AddNumbers({1, 2, 3})["o"], 16);
    EXPECT_EQ(block.AddBytes({})["o"], 32);
}

TEST(PageBlock, RoundingTakesNoMoreRoomThanTheColumn) {
    const std::vector<float> values((1 << 16) + 2, 0.5f);  // a doubled room would be twice as large
    PageBlock block;
    test::FailNextNewOfAtLeast(2 * (1 << 16) * sizeof(float));

    EXPECT_EQ(block.AddFloats(values)["n"], values.size());

    test::FailNextNewOfAtLeast(0);
}

TEST(PageBlock, FloatsAreRoundedToTheNearestOfFiveDigits) {
    PageBlock block;
    ordered_json model;
    model["values"] = block.AddFloats({99.99999f, 12.345678f, 1e-20f});

    const DecodedPage page(block.Encode(model));
    const auto values = page.Column<float>(page.model["values"]);

    EXPECT_EQ(values[0], 100.0f);
    EXPECT_NEAR(values[1], 12.345678f, 12.345678f * 1e-5f);
    EXPECT_NEAR(values[2], 1e-20f, 1e-25f);
}

TEST(PageBlock, WhatWasNotMeasuredStaysNoNumber) {
    PageBlock block;
    ordered_json model;
    model["values"] = block.AddFloats({NAN, INFINITY, 3.4028235e38f, 0.0f});

    const DecodedPage page(block.Encode(model));
    const auto values = page.Column<float>(page.model["values"]);

    EXPECT_TRUE(std::isnan(values[0]));
    EXPECT_TRUE(std::isnan(values[1]));
    EXPECT_TRUE(std::isnan(values[2]));
    EXPECT_EQ(values[3], 0.0f);
}

TEST(PageBlock, TextThatIsNoUtf8IsReplacedRatherThanRefused) {
    PageBlock block;

    const DecodedPage page(block.Encode({{"name", "a\xff\xfe"}}));

    EXPECT_EQ(page.model["name"], "a\xef\xbf\xbd\xef\xbf\xbd");
}

TEST(PageBlock, CompressionWithoutMemoryFailsAsAnyAllocationDoes) {
    PageBlock block;
    hasNoMemory = true;

    EXPECT_THROW((void)block.Encode({{"name", "a"}}), std::bad_alloc);

    hasNoMemory = false;
    EXPECT_NE("", block.Encode({{"name", "a"}}));
}

}  // namespace
}  // namespace tiv::host

extern "C" int __wrap_compress2(Bytef* packed, uLongf* length, const Bytef* bytes, uLong size,
                                int level) {
    return tiv::host::hasNoMemory ? Z_MEM_ERROR
                                  : __real_compress2(packed, length, bytes, size, level);
}
