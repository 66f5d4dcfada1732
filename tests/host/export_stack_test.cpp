// Numbers of stacks.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/export/stack_table.h"

using namespace tiv::host;

namespace {

using Stack = std::vector<StackFrame>;

struct Told {
    explicit Told(size_t maxBytes = 1 << 20)
        : table([this](const NamedFrame& frame) { frames.push_back(frame.frame); },
                [this](const StackStep& step) { steps.push_back(step); }, maxBytes) {}
    std::vector<uint64_t> frames;
    std::vector<StackStep> steps;
    StackTable table;
};

const StackFrame MAIN{1, "main", 0, "/bin/a"};
const StackFrame RUN{2, "run", 0, "/bin/a"};
const StackFrame OTHER{3, "main", 0, "/bin/b"};

}  // namespace

TEST(StackTable, EqualStacksHaveEqualNumbersWhateverTheAddress) {
    Told told;
    const StackFrame elsewhere{99, "run", 7, "/bin/a"};

    EXPECT_EQ(told.table.NumberOf(Stack{RUN, MAIN}), told.table.NumberOf(Stack{elsewhere, MAIN}));
    EXPECT_NE(told.table.NumberOf(Stack{RUN, MAIN}), told.table.NumberOf(Stack{RUN, OTHER}));
    EXPECT_NE(told.table.NumberOf(Stack{RUN, MAIN}), told.table.NumberOf(Stack{MAIN, RUN}));
    EXPECT_EQ(0u, told.table.NumberOf(Stack{}));
    EXPECT_EQ(3u, told.frames.size());
}

TEST(StackTable, StepsLeadFromTheOutermostFrameInwards) {
    Told told;

    const uint64_t number = told.table.NumberOf(Stack{RUN, MAIN});

    ASSERT_EQ(2u, told.steps.size());
    EXPECT_EQ(0u, told.steps[0].parent);
    EXPECT_EQ(1u, told.steps[0].depth);
    EXPECT_EQ(told.steps[0].stack, told.steps[1].parent);
    EXPECT_EQ(2u, told.steps[1].depth);
    EXPECT_EQ(number, told.steps[1].stack);
    EXPECT_EQ((std::vector<uint64_t>{told.steps[0].frame, told.steps[1].frame}),
              told.table.Frames());
}

TEST(StackTable, BeyondItsMemoryItForgetsAndUsesNewNumbers) {
    Told told(200);
    const uint64_t first = told.table.NumberOf(Stack{RUN, MAIN});
    (void)told.table.NumberOf(Stack{OTHER});

    const uint64_t second = told.table.NumberOf(Stack{RUN, MAIN});

    EXPECT_GT(told.table.Forgotten(), 0u);
    EXPECT_NE(first, second);
    std::vector<uint64_t> numbers;
    for (const StackStep& step : told.steps) {
        numbers.push_back(step.stack);
    }
    std::sort(numbers.begin(), numbers.end());
    EXPECT_EQ(numbers.end(), std::adjacent_find(numbers.begin(), numbers.end()));
}

TEST(FoldedFrame, NamesAFrameByWhatIsKnown) {
    const auto name = [](const StackFrame& frame) {
        std::string out;
        AppendFoldedFrame(frame, out);
        return out;
    };

    EXPECT_EQ("main", name(MAIN));
    EXPECT_EQ("[b.so]", name({1, "", 0, "/usr/lib/b.so"}));
    EXPECT_EQ("[kernel.kallsyms]", name({1, "", 0, "[kernel.kallsyms]"}));
    EXPECT_EQ("[unknown]", name({1, "", 0, ""}));
    EXPECT_EQ("a:b c", name({1, "a;b\nc", 0, ""}));
    EXPECT_EQ("a b", name({1,
                           "a\x7f"
                           "b",
                           0, ""}));
}
