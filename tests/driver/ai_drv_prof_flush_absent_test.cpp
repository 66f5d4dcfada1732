// Tests of a flush against a driver library that has no such function.
#include <gtest/gtest.h>

#include "driver/ai_drv_prof_api.h"
#include "support/recorded_log.h"

namespace analysis::rokt::driver {
namespace {

TEST(DrvProfFlushAbsent, FailsWithAWarningAndNoError) {
    uint32_t size = 77;

    EXPECT_EQ(DrvProfFlush(1, 44, &size), -1);

    auto& log = tiv::test::RecordedLog::Instance();
    EXPECT_TRUE(log.Has('W', "Function halProfDataFlush not supported, deviceId=1, channelId=44"));
    EXPECT_EQ(log.CountOf('E'), 0U);
    EXPECT_EQ(size, 77U);
}

}  // namespace
}  // namespace analysis::rokt::driver
