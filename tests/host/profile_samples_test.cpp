// Counting of the samples in the text of a CPU profile.
#include "host/result/profile_samples.h"

#include <gtest/gtest.h>

#include <string>

using namespace tiv::host;

namespace {

constexpr const char* FRAMES =
    "\tffffffff813a2313 finish_task_switch.isra.0+0x93 ([kernel.kallsyms])\n"
    "\t     48a6e38 [unknown] (/usr/lib/tool)\n"
    "\n";

std::string Head(const std::string& command) {
    return command + " 16810 [001]  1206.841004:   20000000 cpu-clock: \n";
}

uint64_t Count(const std::string& text, size_t piece) {
    ProfileSampleCounter counter;
    for (size_t i = 0; i < text.size(); i += piece) {
        counter.Feed(std::string_view(text).substr(i, piece));
    }
    counter.Finish();
    return counter.Samples();
}

uint64_t Count(const std::string& text) { return Count(text, text.size() + 1); }

}  // namespace

TEST(ProfileSamples, EachHeadLineIsASample) {
    EXPECT_EQ(Count(Head("cc1plus") + FRAMES + Head("swapper") + FRAMES), 2u);
}

TEST(ProfileSamples, CutsInTheTextChangeNothing) {
    const std::string text = Head("a") + FRAMES + Head("b c") + FRAMES + Head("d") + FRAMES;

    for (size_t piece = 1; piece <= text.size(); ++piece) {
        EXPECT_EQ(Count(text, piece), 3u) << piece;
    }
}

TEST(ProfileSamples, NothingIsNoSample) {
    EXPECT_EQ(Count(""), 0u);
    EXPECT_EQ(Count("\n\n\n"), 0u);
    EXPECT_EQ(Count(FRAMES), 0u);
}

TEST(ProfileSamples, HeadOfASampleWithoutAStackIsPadded) {
    EXPECT_EQ(Count("         swapper     0 [000]  1206.8: 1 r11:  0 [unknown] (tool)\n"), 1u);
}

TEST(ProfileSamples, LastLineMayLackItsEnd) {
    EXPECT_EQ(Count(Head("a") + FRAMES + "b 1 [000] 1.5: 1 r11:"), 2u);
}

TEST(ProfileSamples, CommandNameMayLookLikeAnything) {
    EXPECT_EQ(Count(Head("x [0] y")), 1u);
    EXPECT_EQ(Count(Head("x [0] 1.2: y")), 1u);
    EXPECT_EQ(Count(Head("")), 1u);
    EXPECT_EQ(Count(Head("two\nlines")), 1u);
}

TEST(ProfileSamples, FrameThatLooksLikeAHeadIsNone) {
    EXPECT_EQ(Count(Head("a") + "\t1234 b 1 [000] 1.5: (tool)\n\n"), 1u);
}

TEST(ProfileSamples, LineWithoutCpuAndTimeIsNoSample) {
    EXPECT_EQ(Count("a 1 [000]\na 1 [x] 1.5:\na 1 [000] 15:\na 1 [000] 1.5\na 1 [000]1.5:\n"), 0u);
}

TEST(ProfileSamples, OnlyTheBeginOfALineCounts) {
    const std::string far(300, 'x');

    EXPECT_EQ(Count(far + " 1 [000] 1.5: 1 r11:\n" + Head("a")), 1u);
}
