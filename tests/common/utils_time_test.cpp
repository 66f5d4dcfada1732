// Time helpers and the names that are made from it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>

#include "common/utils.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace analysis::rokt::common::utils {
namespace {

using tiv::test::FakeMm;
using tiv::test::RecordedLog;

class UtilsTime : public testing::Test {
 protected:
    UtilsTime() {
        FakeMm::Instance().Reset();
        RecordedLog::Instance().Clear();
        setenv("TZ", "UTC", 1);
        tzset();
    }

    std::string PaddedPid() const { return Utils::LeftPad(std::to_string(getpid()), 8); }
};

TEST_F(UtilsTime, MonotonicClockIsSecondsAndNanoseconds) {
    FakeMm::Instance().mmGetTickCount = [] { return mmTimespec{5, 42}; };

    EXPECT_EQ(Utils::GetClockMonotonicRaw(), 5000000042U);
}

TEST_F(UtilsTime, SleepIsWholeMilliseconds) {
    FakeMm::Instance().SkipSleeps();

    Utils::SleepUs(999);
    Utils::SleepUs(1999);
    Utils::SleepUs(1000000);

    EXPECT_EQ(FakeMm::Instance().Sleeps(), (std::vector<uint32_t>{0, 1, 1000}));
}

TEST_F(UtilsTime, TimestampIsLocalTimeAndSixDigits) {
    EXPECT_EQ(Utils::TimestampToText("1500", 1000), "1970-01-01 00:00:01.000500");
    EXPECT_EQ(Utils::TimestampToText("1700000000123456", 1000000), "2023-11-14 22:13:20.123456");
}

TEST_F(UtilsTime, TimestampFollowsTheTimeZone) {
    setenv("TZ", "XYZ-2", 1);
    tzset();

    EXPECT_EQ(Utils::TimestampToText("1500", 1000), "1970-01-01 02:00:01.000500");
}

TEST_F(UtilsTime, TimestampRestIsCutTo32Bits) {
    EXPECT_EQ(Utils::TimestampToText("8589934599", 10000000000), "1970-01-01 00:00:00.000007");
}

TEST_F(UtilsTime, TextThatIsNoNumberHasNoTime) {
    EXPECT_EQ(Utils::TimestampToText("", 1000), "0-0-0 0:0:0.0");
    EXPECT_EQ(Utils::TimestampToText("12a", 1000), "0-0-0 0:0:0.0");
    EXPECT_EQ(Utils::TimestampToText("-1", 1000), "0-0-0 0:0:0.0");
    EXPECT_EQ(Utils::TimestampToText("1500", 0), "0-0-0 0:0:0.0");
}

TEST_F(UtilsTime, TimeBeyondTheCalendarIsNone) {
    EXPECT_EQ(Utils::TimestampToText("9223372036854775807", 1), "0-0-0 0:0:0.0");
    EXPECT_EQ(Utils::TimestampToText("99999999999999999999999", 1), "0-0-0 0:0:0.0");
}

TEST_F(UtilsTime, ResultPathHasIdTimeAndProcesses) {
    FakeMm::Instance().SetLocalTime({2024, 3, 5, 7, 8, 9, 12});

    const std::string name = Utils::CreateResultPath(41, "00000007");

    EXPECT_EQ(name, "PROF_000042_20240305070809012_" + PaddedPid() + "00000007");
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Created output dir name " + name));
}

TEST_F(UtilsTime, ResultIdRunsFromOneTo999999) {
    EXPECT_EQ(Utils::CreateResultPath(0, "").substr(0, 12), "PROF_000001_");
    EXPECT_EQ(Utils::CreateResultPath(999998, "").substr(0, 12), "PROF_999999_");
    EXPECT_EQ(Utils::CreateResultPath(999999, "").substr(0, 12), "PROF_000001_");
}

TEST_F(UtilsTime, UnknownTimeIsZeros) {
    FakeMm::Instance().calls.Return("mmGetLocalTime", -1);

    EXPECT_EQ(Utils::CreateResultPath(0, ""), "PROF_000001_00000000000000000_" + PaddedPid());
    EXPECT_TRUE(RecordedLog::Instance().Has('W', "Get time failed"));
}

TEST_F(UtilsTime, TimeThatCannotBeFormattedIsLeftOut) {
    FakeMm::Instance().SetLocalTime(
        {2000000000, 2000000000, 2000000000, 2000000000, 2000000000, 2000000000, 2000000000});

    EXPECT_EQ(Utils::CreateResultPath(0, ""), "PROF_000001__" + PaddedPid());
    EXPECT_TRUE(RecordedLog::Instance().Has('W', "Format time failed"));
}

TEST_F(UtilsTime, TaskIdOfDevice64IsTheHost) {
    EXPECT_EQ(Utils::CreateTaskId("64"), "host");
    EXPECT_TRUE(
        RecordedLog::Instance().Has('I', "[ZELNAR][ProfStart] created task id host of device 64"));
}

TEST_F(UtilsTime, TaskIdNamesTheDevice) {
    EXPECT_EQ(Utils::CreateTaskId("3"), "device_3");
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'I', "[ZELNAR][ProfStart] created task id device_3 of device 3"));
}

}  // namespace
}  // namespace analysis::rokt::common::utils
