// Connections of the host, against the driver double.
#include "host/device_link.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "support/fake_driver.h"

namespace tiv::host {

namespace {

using test::FakeDriver;
using namespace std::chrono_literals;

// Makes every connection fail with `reason`.
void Refuse(int reason) {
    FakeDriver::Instance().drvHdcSessionConnect = [reason](int32_t, int32_t, HDC_CLIENT,
                                                           HDC_SESSION*) {
        errno = reason;
        return -1;
    };
}

std::string ErrorOf(int reason) {
    Refuse(reason);
    DeviceLink link;
    std::string error;
    EXPECT_EQ(link.Connect(4, error), nullptr);
    return error;
}

}  // namespace

TEST(DeviceLink, FullClientIsFollowedByASecondOne) {
    const auto connect = FakeDriver::Instance().drvHdcSessionConnect;
    HDC_CLIENT first = nullptr;
    FakeDriver::Instance().drvHdcSessionConnect = [&](int32_t node, int32_t device,
                                                      HDC_CLIENT client, HDC_SESSION* session) {
        first = first == nullptr ? client : first;
        if (client == first) {
            errno = EUSERS;
            return -1;
        }
        return connect(node, device, client, session);
    };
    DeviceLink link;
    std::string error;

    EXPECT_NE(link.Connect(0, error), nullptr) << error;

    EXPECT_EQ(FakeDriver::Instance().OpenClients(), 2u);
}

TEST(DeviceLink, FirstClientThatCannotBeMadeHasAReasonOfItsOwn) {
    FakeDriver::Instance().calls.Return("drvHdcClientCreate", -1);
    DeviceLink link(1h, [](std::chrono::milliseconds) {
        ADD_FAILURE() << "waited";
        return false;
    });
    std::string error;
    errno = ENOENT;  // of something before

    EXPECT_EQ(link.Connect(4, error), nullptr);

    EXPECT_EQ(
        error,
        "cannot reach device 4: the driver gave no reason; check that `tiv` runs and that the "
        "link to it is up");
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcSessionConnect"), 0u);
    EXPECT_NE(link.Connect(0, error), nullptr) << "the next try makes one";
}

TEST(DeviceLink, SecondClientThatCannotBeMadeLeavesTheReasonForIt) {
    FakeDriver::Instance().calls.Fail("drvHdcSessionConnect", -1, EUSERS);
    FakeDriver::Instance().calls.Return("drvHdcClientCreate", -1, 1, 1);
    DeviceLink link;
    std::string error;

    EXPECT_EQ(link.Connect(4, error), nullptr);

    EXPECT_EQ(error.find("cannot reach device 4: Too many users; "), 0u) << error;
    EXPECT_EQ(FakeDriver::Instance().calls.Count("drvHdcSessionConnect"), 1u);
    EXPECT_EQ(FakeDriver::Instance().OpenClients(), 1u);
}

TEST(DeviceLink, ClientsGoWithTheLink) {
    {
        DeviceLink link;
        std::string error;
        EXPECT_NE(link.Connect(0, error), nullptr);
        EXPECT_EQ(FakeDriver::Instance().OpenClients(), 1u);
    }
    EXPECT_EQ(FakeDriver::Instance().OpenClients(), 0u);
    EXPECT_EQ(FakeDriver::Instance().OpenSessions(), 0u);
}

TEST(DeviceLink, FailureSaysWhatToDo) {
    EXPECT_NE(ErrorOf(ENOENT).find("cannot reach device 4: No such file or directory; no daemon"),
              std::string::npos);
    EXPECT_NE(ErrorOf(EACCES).find("join the group of the runtime directory"), std::string::npos);
    EXPECT_NE(ErrorOf(EMFILE).find("raise `ulimit -n`"), std::string::npos);
    EXPECT_NE(ErrorOf(EINVAL).find("TIV_DRIVER_CONFIG"), std::string::npos);
    EXPECT_NE(ErrorOf(EAGAIN).find("accepts no connection"), std::string::npos);
    EXPECT_NE(ErrorOf(EIO).find("check that `tiv` runs"), std::string::npos);
    EXPECT_NE(ErrorOf(0).find("device 4: the driver gave no reason; "), std::string::npos);
}

TEST(DeviceLink, WaitsForADaemonThatIsNotThereYet) {
    const auto connect = FakeDriver::Instance().drvHdcSessionConnect;
    Refuse(ECONNREFUSED);
    int pauses = 0;
    DeviceLink link(1h, [&](std::chrono::milliseconds) {
        if (++pauses == 3) {
            FakeDriver::Instance().drvHdcSessionConnect = connect;
        }
        return true;
    });
    std::string error;

    EXPECT_NE(link.Connect(0, error), nullptr);

    EXPECT_EQ(pauses, 3);
}

TEST(DeviceLink, PauseThatIsGivenUpEndsTheWait) {
    Refuse(ENOENT);
    DeviceLink link(1h, [](std::chrono::milliseconds) { return false; });
    std::string error;

    EXPECT_EQ(link.Connect(2, error), nullptr);

    EXPECT_EQ(error, "device 2: given up while no daemon was there");
}

TEST(DeviceLink, RefusedUserIsNotWaitedFor) {
    Refuse(EACCES);
    DeviceLink link(1h, [](std::chrono::milliseconds) {
        ADD_FAILURE() << "waited";
        return false;
    });
    std::string error;

    EXPECT_EQ(link.Connect(0, error), nullptr);
}

}  // namespace tiv::host
