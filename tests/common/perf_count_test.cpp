// Timing statistics, the singleton template and the error manager.
#include "common/perf_count.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "common/error_manager.h"
#include "common/singleton.h"
#include "support/recorded_log.h"

namespace Analysis::Rokt::Common::Statistics {
namespace {

using tiv::test::RecordedLog;
using Texts = std::vector<std::string>;

Texts Printed() { return RecordedLog::Instance().OwnTexts('I'); }

TEST(PerfCount, PrintsSpansBytesAndExcess) {
    PerfCount count("reader");
    count.UpdatePerfInfo(1000, 2001000, 3000);
    count.UpdatePerfInfo(5000000, 9000000, 4001);

    count.OutPerfInfo("");

    EXPECT_EQ(Printed(),
              (Texts{"moduleName: reader, overhead Min: 2000000 ns, overhead Max: 4000000 ns, "
                     "overhead Avg: 3000000 ns, overhead Sum_: 6000000 ns, package nums: 2, "
                     "package size: 7001, throughput: 1166.5 B/ms",
                     "moduleName: reader, overHeadWaiterLine: 0, exceedWaterLineCounter: 2"}));
}

TEST(PerfCount, GivenNameReplacesTheModuleName) {
    PerfCount count("reader");
    count.UpdatePerfInfo(0, 1000000, 1);

    count.OutPerfInfo("other");

    ASSERT_EQ(Printed().size(), 2U);
    EXPECT_EQ(Printed()[1], "moduleName: other, overHeadWaiterLine: 0, exceedWaterLineCounter: 1");
}

TEST(PerfCount, PrintingDoesNotReset) {
    PerfCount count("reader");
    count.UpdatePerfInfo(0, 1000000, 1);

    count.OutPerfInfo("");
    count.OutPerfInfo("");

    ASSERT_EQ(Printed().size(), 4U);
    EXPECT_EQ(Printed()[0], Printed()[2]);
}

TEST(PerfCount, NothingIsPrintedWithoutUpdates) {
    PerfCount count("reader");

    count.OutPerfInfo("");

    EXPECT_EQ(Printed(), Texts());
}

TEST(PerfCount, SpansOfZeroAreNeverPrinted) {
    PerfCount count("reader", 1);

    count.UpdatePerfInfo(5, 5, 100);
    count.OutPerfInfo("");

    EXPECT_EQ(Printed(), Texts());
}

TEST(PerfCount, LessThanAMillisecondInAllIsNotPrinted) {
    PerfCount count("reader");
    count.UpdatePerfInfo(0, 999999, 100);

    count.OutPerfInfo("");

    EXPECT_EQ(Printed(), Texts());
}

TEST(PerfCount, SpanOfZeroIsTheMinimumAndNoExcess) {
    PerfCount count("reader");
    count.UpdatePerfInfo(5, 5, 0);
    count.UpdatePerfInfo(5, 2000005, 0);

    count.OutPerfInfo("");

    EXPECT_EQ(Printed(),
              (Texts{"moduleName: reader, overhead Min: 0 ns, overhead Max: 2000000 ns, overhead "
                     "Avg: 1000000 ns, overhead Sum_: 2000000 ns, package nums: 2, package size: "
                     "0, throughput: 0.0 B/ms",
                     "moduleName: reader, overHeadWaiterLine: 0, exceedWaterLineCounter: 1"}));
}

TEST(PerfCount, StartAfterEndIsAnErrorAndChangesNothing) {
    PerfCount count("reader");
    count.UpdatePerfInfo(0, 1000000, 1);
    count.OutPerfInfo("");

    count.UpdatePerfInfo(10, 9, 50);
    count.OutPerfInfo("");

    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E', "[UpdatePerfInfo] startTime:10ns is larger than endTime:9ns"));
    ASSERT_EQ(Printed().size(), 4U);
    EXPECT_EQ(Printed()[0], Printed()[2]);
}

TEST(PerfCount, FrequencyPrintsAndResets) {
    PerfCount count("transport", 3);
    count.UpdatePerfInfo(0, 1000000, 1);
    count.UpdatePerfInfo(0, 1000000, 1);
    EXPECT_EQ(Printed(), Texts());

    count.UpdatePerfInfo(0, 1000000, 1);

    ASSERT_EQ(Printed().size(), 2U);
    EXPECT_NE(Printed()[0].find("package nums: 3,"), std::string::npos);
    count.OutPerfInfo("");
    EXPECT_EQ(Printed().size(), 2U);
}

TEST(PerfCount, ResetStartsTheSpansAnew) {
    PerfCount count("reader", 2);
    count.UpdatePerfInfo(0, 9000000, 77);

    count.ResetPerfInfo();
    count.UpdatePerfInfo(0, 2000000, 1);
    count.UpdatePerfInfo(0, 4000000, 1);

    EXPECT_EQ(Printed(),
              (Texts{"moduleName: reader, overhead Min: 2000000 ns, overhead Max: 4000000 ns, "
                     "overhead Avg: 3000000 ns, overhead Sum_: 6000000 ns, package nums: 2, "
                     "package size: 2, throughput: 0.2 B/ms",
                     "moduleName: reader, overHeadWaiterLine: 0, exceedWaterLineCounter: 2"}));
}

TEST(PerfCount, ManyUpdatersLoseNothing) {
    PerfCount count("reader");
    std::vector<std::thread> updaters;
    for (int i = 0; i < 4; ++i) {
        updaters.emplace_back([&count] {
            for (int k = 0; k < 1000; ++k) {
                count.UpdatePerfInfo(0, 1000, 1);
            }
        });
    }
    for (auto& updater : updaters) {
        updater.join();
    }

    count.OutPerfInfo("");

    ASSERT_EQ(Printed().size(), 2U);
    EXPECT_NE(Printed()[0].find("package nums: 4000, package size: 4000,"), std::string::npos);
}

TEST(PerfCount, ModuleNamesAreThoseOfTheSystem) {
    EXPECT_STREQ(CHANNEL_READER_SPEED_NAME, "ChannelReaderSpeed");
    EXPECT_STREQ(CHANNEL_READER_SPEED_ALL_NAME, "ChannelReaderSpeedAll");
    EXPECT_STREQ(HDC_TRANSPORT_NAME, "HdcTransport");
    EXPECT_STREQ(PROF_TASK_STREAM_BUFFER_NAME, "ProfTaskStreamBuffer");
}

std::atomic<int> constructed{0};

class Counted : public analysis::rokt::common::singleton::Singleton<Counted> {
    friend class analysis::rokt::common::singleton::Singleton<Counted>;
    Counted() { ++constructed; }
};

TEST(Singleton, ConcurrentFirstUseBuildsOneObject) {
    std::vector<Counted*> seen(8, nullptr);
    std::vector<std::thread> users;
    for (auto& place : seen) {
        users.emplace_back([&place] { place = &Counted::Instance(); });
    }
    for (auto& user : users) {
        user.join();
    }

    EXPECT_EQ(constructed.load(), 1);
    EXPECT_EQ(std::set<Counted*>(seen.begin(), seen.end()).size(), 1U);
}

TEST(ZelnarErrorManager, ContextIsEmptyAndStaysSo) {
    auto& manager = ZelnarErrMgr::ZelnarErrorManager::Instance();
    ZelnarErrMgr::ErrorContext context;
    context.id = 5;
    context.origin = "x";

    manager.SetErrorContext(context);

    EXPECT_EQ(manager.GetErrorContext().id, 0U);
    EXPECT_EQ(manager.GetErrorContext().origin, "");
    EXPECT_EQ(manager.GetErrorContext().scope, "");
    EXPECT_EQ(manager.GetErrorContext().detail, "");
}

}  // namespace
}  // namespace Analysis::Rokt::Common::Statistics
