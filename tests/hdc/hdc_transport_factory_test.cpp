// Making of transports out of sessions, servers and clients.
#include "hdc/hdc_transport_factory.h"

#include <gmock/gmock.h>

#include "common/perf_count.h"
#include "hdc/hdc_fixture.h"

namespace tiv::test {

using analysis::rokt::transport::HDCTransportFactory;
using analysis::rokt::transport::ITransport;
using testing::ElementsAre;

class TransportFactory : public HdcFixture {
 protected:
    // The name and frequency with which the transport counts, as its log tells after `sends`.
    static void SendSlowly(const std::shared_ptr<ITransport>& transport, int sends) {
        FakeMm::Instance().UseFakeClock();
        FakeDriver::Instance().halHdcSend = [](HDC_SESSION, HDC_MSG, uint64_t, uint32_t) {
            FakeMm::Instance().AdvanceClock(1000000);
            return 0;
        };
        for (int i = 0; i < sends; ++i) {
            EXPECT_EQ(transport->SendBuffer("a", 1), 1);
        }
    }
};

TEST_F(TransportFactory, WrapsAnAcceptedSession) {
    const HDC_SESSION accepted = driver.NewSession(5);

    const auto transport = HDCTransportFactory().CreateHdcTransport(accepted);

    ASSERT_NE(transport, nullptr);
    EXPECT_NE(transport->perfCount, nullptr);
    EXPECT_TRUE(log.Has('I', "IdeGetDevIdBySession success, devid:5"));
    EXPECT_FALSE(driver.IsClosed(accepted));
}

TEST_F(TransportFactory, CounterIsNamedAfterTheDeviceAndPrintsEvery128Sends) {
    const auto transport = HDCTransportFactory().CreateHdcTransport(driver.NewSession(5));
    ASSERT_NE(transport, nullptr);

    SendSlowly(transport, 127);
    EXPECT_FALSE(log.Contains('I', "moduleName: HdcTransport_5,"));
    SendSlowly(transport, 1);

    EXPECT_TRUE(log.Contains('I', "moduleName: HdcTransport_5, overhead Min"));
    EXPECT_TRUE(log.Contains('I', "package nums: 128, package size: 128,"));
}

TEST_F(TransportFactory, NullSessionIsRefused) {
    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(nullptr), nullptr);
    EXPECT_THAT(log.Texts('E'), ElementsAre("HDC session is invalid"));
}

TEST_F(TransportFactory, SessionWithoutADeviceIdIsClosed) {
    driver.calls.Return("halHdcGetSessionAttr", 4);

    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(session), nullptr);

    EXPECT_TRUE(log.Has('E', "IdeGetDevIdBySession failed, err: -1"));
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(TransportFactory, Device63IsTheLast) {
    EXPECT_NE(HDCTransportFactory().CreateHdcTransport(driver.NewSession(63)), nullptr);
}

TEST_F(TransportFactory, Device64IsRefusedAndItsSessionClosed) {
    const HDC_SESSION accepted = driver.NewSession(64);

    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(accepted), nullptr);

    EXPECT_TRUE(log.Has('E', "[CreateHdcTransport]devId: 64 is not valid!"));
    EXPECT_TRUE(driver.IsClosed(accepted));
}

TEST_F(TransportFactory, NegativeDeviceIsRefused) {
    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(driver.NewSession(-1)), nullptr);
    EXPECT_TRUE(log.Has('E', "[CreateHdcTransport]devId: -1 is not valid!"));
}

TEST_F(TransportFactory, SecondCloseOfARefusedSessionIsOneErrorAndNothingWorse) {
    driver.SetSessionAttr(session, 0, 64);
    ASSERT_EQ(HDCTransportFactory().CreateHdcTransport(session), nullptr);

    EXPECT_EQ(HdcSessionClose(session), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Session Close Failed, error: -1"));
}

TEST_F(TransportFactory, ServerFormAcceptsASession) {
    const HDC_SESSION waiting = driver.QueueAccept();

    const auto transport = HDCTransportFactory().CreateHdcServerTransport(2, HdcServerCreate(2, 4));

    ASSERT_NE(transport, nullptr);
    EXPECT_NE(transport->perfCount, nullptr);
    EXPECT_TRUE(log.Has('I', "CreateHdcServerTransport begin, logicDevId:2"));
    EXPECT_TRUE(log.Has('I', "CreateHdcServerTransport success, logicDevId:2"));
    EXPECT_FALSE(driver.IsClosed(waiting));
}

TEST_F(TransportFactory, ServerFormRefusesNullServerAndFailedAccept) {
    driver.calls.Return("drvHdcSessionAccept", -1);
    const HDC_SERVER server = HdcServerCreate(2, 4);

    EXPECT_EQ(HDCTransportFactory().CreateHdcServerTransport(2, nullptr), nullptr);
    EXPECT_EQ(HDCTransportFactory().CreateHdcServerTransport(2, server), nullptr);

    EXPECT_THAT(log.Texts('W'),
                ElementsAre("HDC server is invalid", "[HdcServerAccept]hdc accept error",
                            "HDC session is invalid"));
    EXPECT_FALSE(log.Contains('I', "success"));
}

TEST_F(TransportFactory, ConnectFormLeavesTheClientToItsOwner) {
    const HDC_CLIENT client = HdcClientInit(4);
    auto transport = HDCTransportFactory().CreateHdcTransport(client, 3);
    ASSERT_NE(transport, nullptr);
    const HDC_SESSION connected = driver.LastConnected();
    const Call call = driver.calls.Calls("drvHdcSessionConnect").at(0);
    EXPECT_EQ(call.Value("node"), 0);
    EXPECT_EQ(call.Value("device"), 3);

    transport.reset();

    EXPECT_TRUE(driver.IsClosed(connected));
    EXPECT_EQ(driver.OpenClients(), 1U);
}

TEST_F(TransportFactory, ConnectFormRefusesNullClientAndFailedConnect) {
    driver.calls.Return("drvHdcSessionConnect", 6);
    const HDC_CLIENT client = HdcClientInit(4);

    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(nullptr, 3), nullptr);
    EXPECT_EQ(HDCTransportFactory().CreateHdcTransport(client, 3), nullptr);

    EXPECT_TRUE(log.Has('E', "HDC client is invalid"));
    EXPECT_THAT(log.Texts('W'), ElementsAre("CreateHdcTransport failed, ret is -1"));
}

TEST_F(TransportFactory, ClientFormOwnsItsClient) {
    const HDC_CLIENT client = HdcClientInit(4);
    auto transport = HDCTransportFactory().CreateHdcClientTransport(77, 3, client);
    ASSERT_NE(transport, nullptr);
    EXPECT_TRUE(log.Has('I', "CreateHdcClientTransport, hostPid:77, devId:3"));
    EXPECT_EQ(driver.calls.Calls("halHdcSessionConnectEx").at(0).Value("pid"), 77);

    transport.reset();

    EXPECT_EQ(driver.OpenClients(), 0U);
}

TEST_F(TransportFactory, ClientFormReportsAFailedConnect) {
    EXPECT_EQ(HDCTransportFactory().CreateHdcClientTransport(-1, 3, session), nullptr);
    EXPECT_THAT(log.Texts('W'), ElementsAre("CreateHdcTransport failed, ret is -1"));
}

}  // namespace tiv::test
