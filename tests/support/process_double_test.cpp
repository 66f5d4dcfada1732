// Tests of the double of a whole process and of a test's side of its socket.
#include "support/process_double.h"

#include <gtest/gtest.h>

#include "platform/log_api.h"
#include "platform/resource_manager.h"
#include "support/fault_control.h"
#include "support/temp_dir.h"

namespace {

using tiv::test::FaultControl;
using tiv::test::ProcessDouble;
using tiv::test::TempDir;

class ProcessDoubleTest : public testing::Test {
 protected:
    ProcessDoubleTest() {
        EXPECT_EQ("", ProcessDouble::Instance().Listen(dir_.Path("control")));
        ProcessDouble::Instance().ReplacePlan("");
        ProcessDouble::Instance().ClearCalls();
    }

    TempDir dir_;
    FaultControl control_{dir_.Path("control")};
};

TEST_F(ProcessDoubleTest, ForwardsToTheDriverLibrary) {
    HdcCapacity capacity = {2, 0};

    EXPECT_EQ(0, drvHdcGetCapacity(&capacity));

    EXPECT_GT(capacity.maxSegment, 0U);
}

TEST_F(ProcessDoubleTest, ForwardsToThePlatform) {
    EXPECT_EQ(0, mmIsDir("/"));
    EXPECT_EQ(0, IAMResMgrReady());
    EXPECT_EQ(0, DlogSetAttr({1, 0, 0, {}}));
}

TEST_F(ProcessDoubleTest, ReadsThePlanOfAFile) {
    const std::string plan = dir_.Write("plan", "IAMResMgrReady result=5\nmmIsDir result=6\n");

    ASSERT_EQ("", ProcessDouble::Instance().LoadPlan(plan));

    EXPECT_EQ(5, IAMResMgrReady());
    EXPECT_EQ(6, mmIsDir("/"));
    EXPECT_NE("", ProcessDouble::Instance().LoadPlan(dir_.Path("none")));
}

TEST_F(ProcessDoubleTest, TakesANewPlanThroughItsSocket) {
    uint32_t count = 0;
    ASSERT_EQ("", control_.ReplacePlan("drvGetDevNum result=65534 count=-1\n"));
    EXPECT_EQ(DRV_NOT_SUPPORTED, drvGetDevNum(&count));

    ASSERT_EQ("", control_.ReplacePlan("drvGetDevNum out=7\n"));

    EXPECT_EQ(0, drvGetDevNum(&count));
    EXPECT_EQ(7U, count);
}

TEST_F(ProcessDoubleTest, KeepsItsPlanWhenTheNewOneIsWrong) {
    ASSERT_EQ("", control_.ReplacePlan("mmIsDir result=6\n"));

    EXPECT_EQ("error line 1: no such function: nonsense", control_.ReplacePlan("nonsense\n"));

    EXPECT_EQ(6, mmIsDir("/"));
}

TEST_F(ProcessDoubleTest, TellsTheCallsInTheirOrder) {
    HdcCapacity capacity = {2, 0};
    mmIsDir("/a b");
    drvHdcGetCapacity(&capacity);
    IAMResMgrReady();

    const auto calls = control_.Calls();

    ASSERT_EQ(3U, calls.size());
    EXPECT_EQ("mmIsDir", calls[0].function);
    EXPECT_EQ("/a b", calls[0].Text("path"));
    EXPECT_EQ("drvHdcGetCapacity", calls[1].function);
    EXPECT_EQ(2, calls[1].Value("type"));
    EXPECT_EQ("IAMResMgrReady", calls[2].function);
    EXPECT_EQ(1U, control_.Calls("mmIsDir").size());
}

TEST_F(ProcessDoubleTest, ForgetsTheCallsWhenAsked) {
    mmIsDir("/");

    EXPECT_EQ("", control_.ClearCalls());

    EXPECT_TRUE(control_.Calls().empty());
    EXPECT_FALSE(control_.WaitForCalls("mmIsDir", 1, std::chrono::milliseconds(0)));
}

TEST(FaultControl, SaysThatNobodyAnswers) {
    EXPECT_EQ("error nobody answers at /nowhere/control",
              FaultControl("/nowhere/control").ReplacePlan(""));
}

}  // namespace
