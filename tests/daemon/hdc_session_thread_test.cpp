// Request reading and routing on the session threads.
#include "daemon/hdc_session_thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/memory_utils.h"
#include "daemon/fake_system.h"
#include "daemon/ide_common_util.h"
#include "daemon/ide_daemon_hdc.h"
#include "support/failing_malloc.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace {

using tiv::test::FakeDriver;
using tiv::test::FakeMm;
using tiv::test::RecordedLog;

uint32_t processedDevice = 0;
std::string processedValue;
int32_t processResult = 0;

int32_t Process(HDC_SESSION, const IdeTlvReq* request) {
    processedDevice = request->dev_id;
    processedValue.assign(request->value, request->len);
    return processResult;
}

std::atomic<bool> slowHandlerEnded{false};

// Ends only when the teardown has come as far as the client.
int32_t EndWithTheClient(HDC_SESSION, const IdeTlvReq*) {
    slowHandlerEnded = FakeDriver::Instance().calls.WaitForCalls("drvHdcClientDestroy", 1);
    return 0;
}

int32_t Throw(HDC_SESSION, const IdeTlvReq*) { throw std::runtime_error("broken handler"); }

// One driver message that holds one whole request.
std::string RequestFragment(uint32_t type, uint32_t devId, const std::string& value) {
    const uint32_t header[] = {type, devId, static_cast<uint32_t>(value.size())};
    std::string packet(reinterpret_cast<const char*>(header), sizeof(header));
    packet += value;
    const uint32_t fragment[] = {static_cast<uint32_t>(packet.size()), 0xB0};
    return std::string(reinterpret_cast<const char*>(fragment), sizeof(fragment)) + '\1' + packet +
           std::string(3, '\0');
}

IdeTlvReq* NewRequest(uint32_t type) {
    auto* request = static_cast<IdeTlvReq*>(IdeXmalloc(sizeof(IdeTlvReq) + 1));
    request->type = type;
    return request;
}

class SessionThread : public testing::Test {
 protected:
    void SetUp() override {
        RegisterComponent(10, {nullptr, nullptr, nullptr, Process});
        session_ = FakeDriver::Instance().NewSession();
    }
    bool Closed() { return FakeDriver::Instance().IsClosed(session_); }

    HDC_SESSION session_ = nullptr;
};

}  // namespace

TEST_F(SessionThread, ProfilingRequestReachesItsHandlerWithTheServersDeviceId) {
    FakeDriver::Instance().PushMessage(session_, RequestFragment(5, 77, "hello"));

    EXPECT_EQ(IdeDaemonHdcProcessEvent({3, 1, session_}), 0);

    EXPECT_EQ(processedDevice, 3u);
    EXPECT_EQ(processedValue, "hello");
    EXPECT_FALSE(Closed());
    EXPECT_TRUE(RecordedLog::Instance().Has(
        'I', "received profiling request, type 5, req->dev_id=77, phyDevId=3."));
    EXPECT_EQ(RecordedLog::Instance().CountOf('E'), 0u);
}

TEST_F(SessionThread, ProfilingRequestRenamesTheThread) {
    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(5)), 0);

    const auto calls = FakeMm::Instance().calls.Calls("mmSetCurrentThreadName");
    ASSERT_EQ(calls.size(), 1u);
    EXPECT_EQ(calls[0].Text("name"), "ide_hdc_process_profiling");
}

TEST_F(SessionThread, FailedHandlerIsLoggedAndKeepsTheSession) {
    processResult = -1;

    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(5)), -1);

    EXPECT_FALSE(Closed());
    EXPECT_EQ(
        RecordedLog::Instance().Texts('E'),
        (std::vector<std::string>{"req->type: 5, call profiling process func failed, err: -1"}));
}

TEST_F(SessionThread, Type17FindsNoHandlerAndClosesTheSession) {
    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(17)), -1);

    EXPECT_TRUE(Closed());
    EXPECT_EQ(
        RecordedLog::Instance().Texts('E'),
        (std::vector<std::string>{"req->type: 17, Invalid request or no hdc process func register",
                                  "req->type: 17, call hook_reg process func failed, err: -1"}));
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmSetCurrentThreadName"), 0u);
}

TEST_F(SessionThread, UnknownTypeIsRefusedUnderTheNameDefault) {
    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(99)), -1);

    EXPECT_TRUE(Closed());
    EXPECT_EQ(
        RecordedLog::Instance().Texts('E'),
        (std::vector<std::string>{"req->type: 99, Invalid request or no hdc process func register",
                                  "req->type: 99, call default process func failed, err: -1"}));
}

TEST_F(SessionThread, ProfilingWithoutAHandlerLeavesTheSessionAlone) {
    RegisterComponent(10, {nullptr, nullptr, nullptr, nullptr});

    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(5)), -1);

    EXPECT_FALSE(Closed());
}

TEST_F(SessionThread, RequestThatCannotBeReadClosesTheSession) {
    FakeDriver::Instance().ClosePeer(session_);

    EXPECT_EQ(IdeDaemonHdcProcessEvent({0, 0, session_}), -1);

    EXPECT_TRUE(Closed());
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Ide Hdc Read Request failed, err: 1"));
}

TEST_F(SessionThread, NullArgumentEndsTheThread) {
    EXPECT_EQ(IdeDaemonHdcSessionThread(nullptr), nullptr);

    EXPECT_TRUE(RecordedLog::Instance().Has('E', "invalid parameter"));
}

TEST_F(SessionThread, StartedThreadIsDetachedNamedAndCounted) {
    FakeDriver::Instance().PushMessage(session_, RequestFragment(99, 0, ""));

    ASSERT_EQ(IdeStartSessionThread(0, 0, session_), 0);
    IdeWaitForSessionThreads();

    EXPECT_EQ(IdeSessionThreadCount(), 0u);
    const auto creates = FakeMm::Instance().calls.Calls("mmCreateTaskWithThreadAttr");
    ASSERT_EQ(creates.size(), 1u);
    EXPECT_EQ(creates[0].Value("detach"), 1);
    EXPECT_EQ(creates[0].Value("stack"), 131072);
    EXPECT_EQ(FakeMm::Instance().calls.Calls("mmSetCurrentThreadName")[0].Text("name"),
              "ide_hdc_process");
    EXPECT_TRUE(
        RecordedLog::Instance().Has('E', "Daemon Hdc Process Event Process Failed, err: -1"));
}

TEST_F(SessionThread, ThatCannotReadItsRequestReportsBothFailures) {
    FakeDriver::Instance().ClosePeer(session_);

    ASSERT_EQ(IdeStartSessionThread(7, 3, session_), 0);
    IdeWaitForSessionThreads();

    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"Ide Hdc Read Request failed, err: 1",
                                        "Daemon Hdc Process Event Process Failed, err: -1"}));
    EXPECT_TRUE(Closed());
}

TEST_F(SessionThread, ExceptionOfAHandlerEndsOnlyItsSession) {
    RegisterComponent(10, {nullptr, nullptr, nullptr, Throw});
    FakeDriver::Instance().PushMessage(session_, RequestFragment(5, 0, "x"));

    ASSERT_EQ(IdeStartSessionThread(0, 0, session_), 0);
    IdeWaitForSessionThreads();

    EXPECT_TRUE(RecordedLog::Instance().Has(
        'E', "Session thread ended by an exception, message: broken handler"));
}

TEST_F(SessionThread, ExceptionOfAHandlerFreesItsRequest) {
    RegisterComponent(10, {nullptr, nullptr, nullptr, Throw});
    const long blocks = tiv::test::LiveMallocBlocks();

    EXPECT_THROW((void)IdeDaemonHdcRoute(session_, NewRequest(5)), std::runtime_error);

    EXPECT_EQ(tiv::test::LiveMallocBlocks(), blocks);
}

TEST_F(SessionThread, RoutedRequestIsFreed) {
    const long blocks = tiv::test::LiveMallocBlocks();

    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(5)), 0);
    EXPECT_EQ(IdeDaemonHdcRoute(session_, NewRequest(17)), -1);

    EXPECT_EQ(tiv::test::LiveMallocBlocks(), blocks);
}

TEST_F(SessionThread, WithoutMemoryItsEventFailsTheStart) {
    tiv::test::FailingMalloc failing(sizeof(SessionEvent));
    int32_t result = 0;
    RecordedLog::Instance().SetLevel(DLOG_ERROR);

    result = IdeStartSessionThread(0, 0, session_);

    EXPECT_EQ(result, -1);
    EXPECT_EQ(RecordedLog::Instance().Texts('E').back(), "Ide Xmalloc failed");
    EXPECT_EQ(FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr"), 0u);
    EXPECT_FALSE(Closed());
}

TEST_F(SessionThread, RefusedThreadLeavesNothingBehind) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);
    const long blocks = tiv::test::LiveMallocBlocks();

    EXPECT_EQ(IdeStartSessionThread(0, 0, session_), -1);

    EXPECT_EQ(tiv::test::LiveMallocBlocks(), blocks);
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "Thread Create Error: 11"));
    EXPECT_EQ(IdeSessionThreadCount(), 0u);
    EXPECT_FALSE(Closed());
}

TEST_F(SessionThread, TeardownWaitsForARunningHandler) {
    ASSERT_EQ(IdeDaemonHdcInit(), 0);
    RegisterComponent(10, {nullptr, nullptr, nullptr, EndWithTheClient});
    FakeDriver::Instance().PushMessage(session_, RequestFragment(5, 0, "x"));
    ASSERT_EQ(IdeStartSessionThread(0, 0, session_), 0);

    EXPECT_EQ(IdeDaemonHdcDestroy(), 0);

    EXPECT_TRUE(slowHandlerEnded);
    EXPECT_EQ(IdeSessionThreadCount(), 0u);
    EXPECT_EQ(RecordedLog::Instance().Texts('I').back(), "Hdc Destroy Exit");
}

TEST_F(SessionThread, TeardownWaitsFifteenSecondsAtMost) {
    using std::chrono::steady_clock;
    std::atomic<bool> waited{false};
    FakeMm::Instance().mmSleep = [&waited](uint32_t) {
        while (!waited) {
            std::this_thread::yield();
        }
        return 0;
    };
    ASSERT_EQ(IdeStartSessionThread(0, 0, session_), 0);
    ASSERT_TRUE(FakeMm::Instance().calls.WaitForCalls("mmSleep", 1));
    tiv::test::EndTimedWaits(true);
    const auto before = steady_clock::now();

    IdeWaitForSessionThreads();

    tiv::test::EndTimedWaits(false);
    EXPECT_EQ(IdeSessionThreadCount(), 1u);
    EXPECT_GE(tiv::test::LastDeadline(), before + std::chrono::seconds(15));
    EXPECT_LE(tiv::test::LastDeadline(), steady_clock::now() + std::chrono::seconds(15));
    FakeDriver::Instance().ClosePeer(session_);
    waited = true;
    IdeWaitForSessionThreads();
    EXPECT_EQ(IdeSessionThreadCount(), 0u);
}
