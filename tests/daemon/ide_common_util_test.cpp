// The component table: registration, passes and look-ups.
#include "daemon/ide_common_util.h"

#include <gtest/gtest.h>

#include <csignal>
#include <string>
#include <vector>

#include "support/recorded_log.h"

namespace {

using tiv::test::RecordedLog;

std::vector<std::string> calls;

template <char name, int32_t result>
int32_t Init() {
    calls.push_back(std::string("init ") + name);
    return result;
}

template <char name, int32_t result>
int32_t Destroy() {
    calls.push_back(std::string("destroy ") + name);
    return result;
}

int32_t Process(HDC_SESSION, const IdeTlvReq*) { return 0; }

int32_t NoSubInit() { return 0; }

IdeTlvReq RequestOfType(uint32_t type) {
    IdeTlvReq request;
    request.type = type;
    request.dev_id = 0;
    request.len = 0;
    return request;
}

}  // namespace

TEST(ComponentTable, StartsEmpty) {
    for (uint32_t slot = 0; slot < 18; ++slot) {
        EXPECT_EQ(IdeComponentHdcProcess(slot), nullptr);
    }
}

TEST(ComponentTable, SlotOf18ChangesNothingAndLogsNothing) {
    RegisterComponent(18, {Init<'a', 0>, Destroy<'a', 0>, nullptr, Process});

    EXPECT_EQ(IdeComponentHdcProcess(18), nullptr);
    EXPECT_TRUE(RecordedLog::Instance().Lines().empty());
    for (uint32_t slot = 0; slot < 18; ++slot) {
        EXPECT_EQ(IdeComponentHdcProcess(slot), nullptr);
    }
    EXPECT_EQ(IdeDaemonInit(NoSubInit), 0);
    IdeDaemonDestroy();
    EXPECT_TRUE(calls.empty());
}

TEST(ComponentTable, InitRunsInRisingOrderWhateverTheOrderOfRegistration) {
    RegisterComponent(17, {Init<'c', 0>, nullptr, nullptr, nullptr});
    RegisterComponent(2, {Init<'a', 0>, nullptr, nullptr, nullptr});
    RegisterComponent(10, {Init<'b', 0>, nullptr, nullptr, nullptr});

    EXPECT_EQ(IdeDaemonInit(NoSubInit), 0);

    EXPECT_EQ(calls, (std::vector<std::string>{"init a", "init b", "init c"}));
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              (std::vector<std::string>{"call [hdc] init function succ",
                                        "call [profiling] init function succ",
                                        "call [default] init function succ", "Daemon Init done"}));
}

TEST(ComponentTable, InitOfTheLastSlotEndsThePass) {
    for (uint32_t slot = 0; slot < 18; ++slot) {
        RegisterComponent(slot, {Init<'i', 0>, Destroy<'d', 0>, nullptr, Process});
    }

    EXPECT_EQ(IdeDaemonInit(NoSubInit), 0);

    EXPECT_EQ(calls, std::vector<std::string>(18, "init i"));
}

TEST(ComponentTable, FailedSubInitEndsThePassWithItsResult) {
    RegisterComponent(2, {Init<'a', 0>, nullptr, nullptr, nullptr});

    EXPECT_EQ(IdeDaemonInit([] { return 7; }), 7);

    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "ide_Daemon_sub_init failed, err: 7"));
}

TEST(ComponentTable, FailedHdcInitEndsThePass) {
    RegisterComponent(1, {Init<'z', 5>, nullptr, nullptr, nullptr});
    RegisterComponent(2, {Init<'a', 3>, nullptr, nullptr, nullptr});
    RegisterComponent(3, {Init<'b', 0>, nullptr, nullptr, nullptr});
    RegisterComponent(17, {Init<'c', 0>, nullptr, nullptr, nullptr});
    testing::internal::CaptureStdout();

    EXPECT_EQ(IdeDaemonInit(NoSubInit), -1);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "init [default] failed\ninit [hdc] failed\n");
    EXPECT_EQ(calls, (std::vector<std::string>{"init z", "init a"}));
    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"call [default] init function failed",
                                        "call [hdc] init function failed"}));
    EXPECT_FALSE(RecordedLog::Instance().Has('I', "Daemon Init done"));
}

TEST(ComponentTable, FailedProfilingInitIsPrintedAndPassedOver) {
    RegisterComponent(10, {Init<'b', -1>, nullptr, nullptr, Process});
    RegisterComponent(17, {Init<'c', 0>, nullptr, nullptr, nullptr});
    testing::internal::CaptureStdout();

    EXPECT_EQ(IdeDaemonInit(NoSubInit), 0);

    EXPECT_EQ(testing::internal::GetCapturedStdout(), "init [profiling] failed\n");
    EXPECT_EQ(calls, (std::vector<std::string>{"init b", "init c"}));
    EXPECT_EQ(IdeComponentHdcProcess(10), Process);
}

TEST(ComponentTable, DestroyRunsInFallingOrderAndNeverStopsEarly) {
    RegisterComponent(17, {nullptr, Destroy<'c', 0>, nullptr, nullptr});
    RegisterComponent(2, {nullptr, Destroy<'a', 0>, nullptr, nullptr});
    RegisterComponent(10, {nullptr, Destroy<'b', 4>, nullptr, nullptr});

    IdeDaemonDestroy();

    EXPECT_EQ(calls, (std::vector<std::string>{"destroy c", "destroy b", "destroy a"}));
    EXPECT_EQ(RecordedLog::Instance().OwnTexts('I'),
              (std::vector<std::string>{"call ideComponents Funcs destroy[default] success",
                                        "call ideComponents Funcs destroy[hdc] success"}));
    EXPECT_EQ(RecordedLog::Instance().Texts('E'),
              (std::vector<std::string>{"call ideComponents Funcs destroy[profiling] failed"}));
}

TEST(ComponentTable, DestroyClearsSlotsWithAndWithoutADestroy) {
    RegisterComponent(10, {Init<'b', 0>, Destroy<'b', 0>, nullptr, Process});
    RegisterComponent(11, {Init<'d', 0>, nullptr, nullptr, Process});

    IdeDaemonDestroy();
    calls.clear();
    IdeDaemonDestroy();

    EXPECT_EQ(IdeComponentHdcProcess(10), nullptr);
    EXPECT_EQ(IdeComponentHdcProcess(11), nullptr);
    EXPECT_EQ(IdeDaemonInit(NoSubInit), 0);
    EXPECT_TRUE(calls.empty());
}

TEST(ComponentNames, ByComponentNumber) {
    EXPECT_STREQ(IdeComponentName(0), "hook_reg");
    EXPECT_STREQ(IdeComponentName(2), "hdc");
    EXPECT_STREQ(IdeComponentName(10), "profiling");
    EXPECT_STREQ(IdeComponentName(17), "default");
    EXPECT_STREQ(IdeComponentName(18), "default");
    EXPECT_STREQ(IdeComponentName(1), "default");
}

TEST(ComponentNames, ByRequestTypeTheFirstRowWins) {
    EXPECT_STREQ(IdeRequestName(5), "profiling");
    EXPECT_STREQ(IdeRequestName(17), "hook_reg");
    EXPECT_STREQ(IdeRequestName(18), "default");
    EXPECT_STREQ(IdeRequestName(99), "default");
}

TEST(ComponentByRequest, TypesOfTheRows) {
    const IdeTlvReq profiling = RequestOfType(5);
    const IdeTlvReq hook = RequestOfType(17);
    const IdeTlvReq none = RequestOfType(18);
    const IdeTlvReq unknown = RequestOfType(6);

    EXPECT_EQ(IdeComponentByRequest(&profiling), 10u);
    EXPECT_EQ(IdeComponentByRequest(&hook), 0u);
    EXPECT_EQ(IdeComponentByRequest(&none), 18u);
    EXPECT_EQ(IdeComponentByRequest(&unknown), 18u);
}

TEST(ComponentByRequest, NullRequestIsNoComponent) {
    EXPECT_EQ(IdeComponentByRequest(nullptr), 18u);
    EXPECT_TRUE(RecordedLog::Instance().Has('E', "input req is nullptr"));
}

TEST(DaemonSubInit, IgnoresSigpipe) {
    EXPECT_EQ(ide_Daemon_sub_init(), 0);

    struct sigaction action {};
    ASSERT_EQ(sigaction(SIGPIPE, nullptr, &action), 0);
    EXPECT_EQ(action.sa_handler, SIG_IGN);
}
