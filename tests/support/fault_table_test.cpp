// Tests of the fault table, the fault plan's text and the failing allocations.
#include "support/fault_table.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <new>
#include <thread>

#include "platform/resource_manager.h"
#include "support/failing_new.h"
#include "support/fake_resource_manager.h"
#include "support/fault_plan.h"

namespace {

using tiv::test::Fault;
using tiv::test::FaultTable;
using tiv::test::Intercept;
using tiv::test::InterceptOut;
using tiv::test::ParseFaultPlan;

int32_t CallWith(FaultTable& table, int64_t device) {
    return Intercept(table, "f", {{"device", device}}, [] { return 0; });
}

TEST(FaultTable, PassesCallsThroughWithoutAFault) {
    FaultTable table;

    EXPECT_EQ(0, CallWith(table, 1));
}

TEST(FaultTable, GivesItsResultToTheNextCallsOnly) {
    FaultTable table;
    table.Return("f", 7, 2);

    EXPECT_EQ(7, CallWith(table, 1));
    EXPECT_EQ(7, CallWith(table, 1));
    EXPECT_EQ(0, CallWith(table, 1));
}

TEST(FaultTable, SkipsCallsBeforeTheFault) {
    FaultTable table;
    table.Return("f", 7, 1, 1);

    EXPECT_EQ(0, CallWith(table, 1));
    EXPECT_EQ(7, CallWith(table, 1));
    EXPECT_EQ(0, CallWith(table, 1));
}

TEST(FaultTable, MinusOneMeansAlways) {
    FaultTable table;
    table.Return("f", 7, -1);

    EXPECT_EQ(7, CallWith(table, 1));
    EXPECT_EQ(7, CallWith(table, 1));
    EXPECT_EQ(7, CallWith(table, 1));
}

TEST(FaultTable, MatchesArguments) {
    FaultTable table;
    Fault fault;
    fault.function = "f";
    fault.match["device"] = "3";
    fault.result = 7;
    table.Add(fault);

    EXPECT_EQ(0, CallWith(table, 1));
    EXPECT_EQ(7, CallWith(table, 3));
}

TEST(FaultTable, SetsTheErrorNumber) {
    FaultTable table;
    table.Fail("f", -1, EINTR);
    errno = 0;

    EXPECT_EQ(-1, CallWith(table, 1));
    EXPECT_EQ(EINTR, errno);
}

TEST(FaultTable, WritesTheOutParameterWithSuccess) {
    FaultTable table;
    Fault fault;
    fault.function = "f";
    fault.out = 5;
    table.Add(fault);
    int32_t value = 0;

    EXPECT_EQ(0, InterceptOut(table, "f", {}, &value, [] { return 9; }));
    EXPECT_EQ(5, value);
}

TEST(FaultTable, GivesANullHandleWithSuccess) {
    FaultTable table;
    Fault fault;
    fault.function = "f";
    fault.null = true;
    table.Add(fault);
    void* handle = &table;

    EXPECT_EQ(0, InterceptOut(table, "f", {}, &handle, [] { return 9; }));
    EXPECT_EQ(nullptr, handle);
}

TEST(FaultTable, RecordsArgumentsThreadAndOrder) {
    FaultTable table;
    std::thread([&] {
        pthread_setname_np(pthread_self(), "caller");
        table.Enter("f", {{"device", 3}, {"path", "/a"}});
        table.Enter("g", {});
    }).join();

    const auto calls = table.Calls();

    ASSERT_EQ(2U, calls.size());
    EXPECT_EQ("f", calls[0].function);
    EXPECT_EQ(3, calls[0].Value("device"));
    EXPECT_EQ("/a", calls[0].Text("path"));
    EXPECT_EQ("caller", calls[0].thread);
    EXPECT_LT(calls[0].order, calls[1].order);
    EXPECT_EQ(1U, table.Count("g"));
}

TEST(FaultTable, ReplacesFaultsAndKeepsTheRecord) {
    FaultTable table;
    table.Return("f", 7, -1);
    CallWith(table, 1);

    table.Replace({});

    EXPECT_EQ(0, CallWith(table, 1));
    EXPECT_EQ(2U, table.Count("f"));
}

TEST(FaultPlan, ReadsEveryKey) {
    std::vector<Fault> faults;

    ASSERT_EQ("", ParseFaultPlan("\n# text\nhalHdcGetSessionAttr attr=3 skip=1 count=2 result=-5 "
                                 "errno=4 delay=7 out=9 null=1\n",
                                 faults));

    ASSERT_EQ(1U, faults.size());
    EXPECT_EQ("halHdcGetSessionAttr", faults[0].function);
    EXPECT_EQ("3", faults[0].match.at("attr"));
    EXPECT_EQ(1, faults[0].skip);
    EXPECT_EQ(2, faults[0].count);
    EXPECT_EQ(-5, faults[0].result);
    EXPECT_EQ(4, faults[0].error);
    EXPECT_EQ(7U, faults[0].delayMs);
    EXPECT_EQ(9, faults[0].out);
    EXPECT_TRUE(faults[0].null);
}

TEST(FaultPlan, TakesTheCallByItsNumber) {
    std::vector<Fault> faults;

    ASSERT_EQ("", ParseFaultPlan("mmCreateTaskWithThreadAttr call=3 result=-1", faults));

    EXPECT_EQ(2, faults[0].skip);
    EXPECT_EQ(1, faults[0].count);
}

TEST(FaultPlan, AppliesToOneCallUnlessToldOtherwise) {
    std::vector<Fault> faults;

    ASSERT_EQ("", ParseFaultPlan("mmSemWait result=-1 errno=22", faults));

    EXPECT_EQ(0, faults[0].skip);
    EXPECT_EQ(1, faults[0].count);
    EXPECT_FALSE(faults[0].null);
}

TEST(FaultPlan, RefusesWhatWouldSilentlyDoNothing) {
    std::vector<Fault> faults(1);

    EXPECT_EQ("line 1: no such function: mmSemWiat", ParseFaultPlan("mmSemWiat result=1", faults));
    EXPECT_EQ("line 2: a fault that does nothing: mmSemWait",
              ParseFaultPlan("\nmmSemWait", faults));
    EXPECT_EQ("line 1: not a key and its value: result=",
              ParseFaultPlan("mmSemWait result=", faults));
    EXPECT_EQ("line 1: not a key and its value: result=1x",
              ParseFaultPlan("mmSemWait result=1x", faults));
    EXPECT_EQ("line 1: not a key and its value: call=0",
              ParseFaultPlan("mmSemWait call=0 result=1", faults));
    EXPECT_EQ("line 1: not a key and its value: word", ParseFaultPlan("mmSemWait word", faults));
    EXPECT_EQ(1U, faults.size());
}

// Kept from the optimiser, which may drop an allocation that nobody looks at.
void Allocate(size_t bytes) {
    void* volatile memory = ::operator new(bytes);
    ::operator delete(memory);
}

TEST(FailingNew, FailsTheChosenAllocationOfTheThread) {
    tiv::test::FailingNew failing(1);

    EXPECT_NO_THROW(Allocate(1));
    EXPECT_THROW(Allocate(1), std::bad_alloc);
    EXPECT_NO_THROW(Allocate(1));
    EXPECT_EQ(1U, failing.Failed());
}

TEST(FailingNew, EndsWithTheObject) {
    { tiv::test::FailingNew failing(0, 5); }

    EXPECT_NO_THROW(Allocate(1));
}

TEST(FailingNew, LeavesOtherThreadsAlone) {
    std::atomic<bool> armed{false};
    bool thrown = false;
    std::thread other([&] {
        while (!armed) {
            std::this_thread::yield();
        }
        try {
            Allocate(1);
        } catch (const std::bad_alloc&) {
            thrown = true;
        }
    });

    {
        tiv::test::FailingNew failing(0, 1000);
        armed = true;
        other.join();
    }

    EXPECT_FALSE(thrown);
}

TEST(FailingNew, FailsByTheSizeOnAnyThread) {
    tiv::test::FailNextNewOfAtLeast(100000);

    EXPECT_NO_THROW(Allocate(10000));
    EXPECT_THROW(Allocate(100000), std::bad_alloc);
    EXPECT_NO_THROW(Allocate(100000));
    tiv::test::FailNextNewOfAtLeast(0);
}

TEST(FakeResourceManager, GivesItsResultAndCounts) {
    auto& manager = tiv::test::FakeResourceManager::Instance();
    manager.result = 3;

    EXPECT_EQ(3, IAMResMgrReady());
    EXPECT_EQ(1, manager.calls);
}

}  // namespace
