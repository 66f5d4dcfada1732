// Device lists of the driver.
#include "daemon/kbx_dsmi.h"

#include <gtest/gtest.h>

#include <numeric>
#include <vector>

#include "support/fake_driver.h"
#include "support/recorded_log.h"

namespace {

using tiv::test::FakeDriver;
using tiv::test::RecordedLog;

constexpr uint32_t UNTOUCHED = 0xABCD;

std::vector<uint32_t> List(size_t length = 1124) {
    return std::vector<uint32_t>(length, UNTOUCHED);
}

}  // namespace

TEST(GetDevList, OtherLengthsAreInvalid) {
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1123), -1);
    EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1125), -1);

    EXPECT_EQ(RecordedLog::Instance().Count('E', "len is invalid"), 2u);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvGetDevNum"), 0u);
}

TEST(GetDevList, NullCountIsRefusedBehindTheLength) {
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(nullptr, ids.data(), 1124), -1);

    EXPECT_EQ(RecordedLog::Instance().Texts('E'), (std::vector<std::string>{"devNum is nullptr"}));
}

TEST(GetDevList, LengthIsCheckedBeforeTheCount) {
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(nullptr, ids.data(), 1123), -1);
    EXPECT_EQ(IdeGetPhyDevList(nullptr, ids.data(), 1123), -1);

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"len is invalid", "len is invalid"}));
}

TEST(GetDevList, FailedCountIsLoggedWithItsCode) {
    FakeDriver::Instance().calls.Return("drvGetDevNum", 65534);
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1124), -1);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Get physical device number failed, err: 65534"));
}

TEST(GetDevList, AsksFor64IdsWhateverTheCount) {
    FakeDriver::Instance().SetDevices({3, 5});
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1124), 0);

    EXPECT_EQ(count, 2u);
    EXPECT_EQ(ids[0], 3u);
    EXPECT_EQ(ids[1], 5u);
    const auto calls = FakeDriver::Instance().calls.Calls("drvGetDeviceLocalIDs");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].Value("len"), 64);
}

TEST(GetDevList, CountOf0Or1125AsksForNoIds) {
    uint32_t count = 0;
    auto ids = List();
    for (const uint32_t number : {0u, 1125u}) {
        FakeDriver::Instance().drvGetDevNum = [number](uint32_t* out) {
            *out = number;
            return 0;
        };
        EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1124), 0);
        EXPECT_EQ(count, number);
    }
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvGetDeviceLocalIDs"), 0u);
    EXPECT_EQ(ids[0], UNTOUCHED);
}

TEST(GetDevList, CountOf1124StillAsks) {
    FakeDriver::Instance().drvGetDevNum = [](uint32_t* out) {
        *out = 1124;
        return 0;
    };
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1124), 0);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvGetDeviceLocalIDs"), 1u);
}

TEST(GetDevList, FailedIdsAreLogged) {
    FakeDriver::Instance().calls.Return("drvGetDeviceLocalIDs", 9);
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetDevList(&count, ids.data(), 1124), -1);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "get device IDs failed, err: 9"));
}

TEST(GetPhyDevList, MapsEachLogicalId) {
    FakeDriver::Instance().SetDevices({0, 1});
    FakeDriver::Instance().SetPhyId(0, 10);
    FakeDriver::Instance().SetPhyId(1, 11);
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetPhyDevList(&count, ids.data(), 1124), 0);

    EXPECT_EQ(count, 2u);
    EXPECT_EQ(ids[0], 10u);
    EXPECT_EQ(ids[1], 11u);
    EXPECT_EQ(ids[2], UNTOUCHED);
}

TEST(GetPhyDevList, StoresAtMost1124IdsWhateverTheCount) {
    FakeDriver::Instance().drvGetDevNum = [](uint32_t* out) {
        *out = 2000;
        return 0;
    };
    uint32_t count = 0;
    auto ids = List(1126);

    EXPECT_EQ(IdeGetPhyDevList(&count, ids.data(), 1124), 0);

    EXPECT_EQ(count, 2000u);
    EXPECT_EQ(ids[1123], 0u);
    EXPECT_EQ(ids[1124], UNTOUCHED);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvDeviceGetPhyIdByIndex"), 1124u);
}

TEST(GetPhyDevList, ChecksItsArgumentsAsTheOtherListDoes) {
    uint32_t count = 0;
    auto ids = List();

    EXPECT_EQ(IdeGetPhyDevList(&count, ids.data(), 64), -1);
    EXPECT_EQ(IdeGetPhyDevList(nullptr, ids.data(), 1124), -1);

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"len is invalid", "devNum is nullptr"}));
}

TEST(GetPhyDevList, FailuresBelowAreLogged) {
    uint32_t count = 0;
    auto ids = List();
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1);
    EXPECT_EQ(IdeGetPhyDevList(&count, ids.data(), 1124), -1);
    FakeDriver::Instance().calls.Return("drvDeviceGetPhyIdByIndex", 6);
    EXPECT_EQ(IdeGetPhyDevList(&count, ids.data(), 1124), -1);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "IdeGetDevList failed, ret: -1"));
    EXPECT_TRUE(
        RecordedLog::Instance().Has('E', "drvDeviceGetPhyIdByIndex devIds: 0 failed, err: 6"));
}

TEST(GetLogIdByPhyId, FindsTheFirstMatch) {
    FakeDriver::Instance().SetDevices({4, 5, 6});
    FakeDriver::Instance().SetPhyId(4, 40);
    FakeDriver::Instance().SetPhyId(5, 50);
    FakeDriver::Instance().SetPhyId(6, 50);
    uint32_t logId = 0;

    EXPECT_EQ(IdeGetLogIdByPhyId(50, &logId), 0);

    EXPECT_EQ(logId, 5u);
    EXPECT_TRUE(
        RecordedLog::Instance().Has('I', "the logical ID(5) is a corresponding physical ID(50)"));
}

TEST(GetLogIdByPhyId, UnknownPhysicalIdIsAFailureWithoutAMessage) {
    uint32_t logId = UNTOUCHED;

    EXPECT_EQ(IdeGetLogIdByPhyId(7, &logId), -1);

    EXPECT_EQ(logId, UNTOUCHED);
    EXPECT_TRUE(RecordedLog::Instance().Texts('E').empty());
}

TEST(GetLogIdByPhyId, RefusalsAndFailures) {
    uint32_t logId = 0;
    EXPECT_EQ(IdeGetLogIdByPhyId(0, nullptr), -1);
    FakeDriver::Instance().calls.Return("drvGetDevNum", 1);
    EXPECT_EQ(IdeGetLogIdByPhyId(0, &logId), -1);
    FakeDriver::Instance().calls.Return("drvDeviceGetPhyIdByIndex", 2);
    EXPECT_EQ(IdeGetLogIdByPhyId(0, &logId), -1);
    FakeDriver::Instance().SetDevices({});
    EXPECT_EQ(IdeGetLogIdByPhyId(0, &logId), -1);

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{
                  "logId is nullptr", "Get physical device number failed, err: 1",
                  "IdeGetDevList failed", "drvDeviceGetPhyIdByIndex devIds: 0 failed, err: 2"}));
}

TEST(GetLogIdByPhyId, FailedQuestionEndsTheWalkAtOnce) {
    FakeDriver::Instance().SetDevices({4, 5});
    FakeDriver::Instance().calls.Return("drvDeviceGetPhyIdByIndex", 2);
    uint32_t logId = UNTOUCHED;

    EXPECT_EQ(IdeGetLogIdByPhyId(5, &logId), -1);

    EXPECT_EQ(logId, UNTOUCHED);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvDeviceGetPhyIdByIndex"), 1u);
}

TEST(GetLogIdByPhyId, MoreThan1124DevicesIsAFailure) {
    FakeDriver::Instance().drvGetDevNum = [](uint32_t* out) {
        *out = 1125;
        return 0;
    };
    uint32_t logId = 0;

    EXPECT_EQ(IdeGetLogIdByPhyId(0, &logId), -1);

    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvDeviceGetPhyIdByIndex"), 0u);
}

TEST(GetIndexByPhyId, AcceptsIdsBelow1125) {
    uint32_t index = 0;

    EXPECT_EQ(IdeGetIndexByPhyId(0, &index), 0);
    (void)IdeGetIndexByPhyId(1124, &index);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvDeviceGetIndexByPhyId"), 2u);
    EXPECT_EQ(IdeGetIndexByPhyId(1125, &index), -1);
    EXPECT_EQ(IdeGetIndexByPhyId(0, nullptr), -1);
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvDeviceGetIndexByPhyId"), 2u);
}

TEST(GetIndexByPhyId, FailureIsLogged) {
    FakeDriver::Instance().calls.Return("drvDeviceGetIndexByPhyId", 3);
    uint32_t index = 0;

    EXPECT_EQ(IdeGetIndexByPhyId(8, &index), -1);

    EXPECT_TRUE(
        RecordedLog::Instance().Has('E', "drvDeviceGetIndexByPhyId devIds: 8 failed, err: 3"));
}
