// Clients, servers, connections, attributes and argument checks.
#include "hdc/hdc_api.h"

#include <gmock/gmock.h>

#include "hdc/hdc_fixture.h"
#include "hdc/hdc_session_write.h"

namespace tiv::test {

using testing::ElementsAre;

class HdcApi : public HdcFixture {
 protected:
    HDC_CLIENT NewClient() {
        HDC_CLIENT client = nullptr;
        EXPECT_EQ(HdcClientCreate(&client), 0);
        return client;
    }
    HDC_SERVER NewServer() { return HdcServerCreate(0, 4); }
};

TEST_F(HdcApi, ClientCreateAsksForServiceTwoAndNinetySixSessions) {
    HDC_CLIENT client = nullptr;

    EXPECT_EQ(HdcClientCreate(&client), 0);

    const Call call = driver.calls.Calls("drvHdcClientCreate").at(0);
    EXPECT_NE(client, nullptr);
    EXPECT_EQ(call.Value("max"), 96);
    EXPECT_EQ(call.Value("service"), 2);
    EXPECT_EQ(call.Value("flag"), 0);
}

TEST_F(HdcApi, ClientCreateRefusesNullOut) {
    EXPECT_EQ(HdcClientCreate(nullptr), -1);
    EXPECT_TRUE(log.Has('E', "client is nullptr"));
    EXPECT_EQ(driver.calls.Count("drvHdcClientCreate"), 0U);
}

TEST_F(HdcApi, ClientCreateReportsTheDriversCode) {
    HDC_CLIENT client = nullptr;
    driver.calls.Return("drvHdcClientCreate", 7);

    EXPECT_EQ(HdcClientCreate(&client), -1);
    EXPECT_TRUE(log.Has('E', "Hdc Client Create Failed, error: 7"));
}

TEST_F(HdcApi, NullClientWithResultZeroIsAFailure) {
    driver.calls.Add({"drvHdcClientCreate", {}, 0, 2, {}, {}, 0, {}, true});
    HDC_CLIENT client = nullptr;

    EXPECT_EQ(HdcClientCreate(&client), -1);
    EXPECT_EQ(HdcClientInit(4), nullptr);
    EXPECT_EQ(log.Count('E', "Hdc Client Create Failed, error: 0"), 2U);
}

TEST_F(HdcApi, ClientInitTakesTheServiceType) {
    EXPECT_NE(HdcClientInit(4), nullptr);
    EXPECT_EQ(driver.calls.Calls("drvHdcClientCreate").at(0).Value("service"), 4);
    EXPECT_EQ(driver.calls.Calls("drvHdcClientCreate").at(0).Value("max"), 96);
}

TEST_F(HdcApi, ClientInitFailureGivesNull) {
    driver.calls.Return("drvHdcClientCreate", 9);

    EXPECT_EQ(HdcClientInit(4), nullptr);
    EXPECT_TRUE(log.Has('E', "Hdc Client Create Failed, error: 9"));
}

TEST_F(HdcApi, DestroyOfNullClientIsASuccessWithoutACall) {
    EXPECT_EQ(HdcClientDestroy(nullptr), 0);
    EXPECT_EQ(driver.calls.Count("drvHdcClientDestroy"), 0U);
}

TEST_F(HdcApi, ClientDestroyReportsFailure) {
    const HDC_CLIENT client = NewClient();
    driver.calls.Return("drvHdcClientDestroy", 6);

    EXPECT_EQ(HdcClientDestroy(client), -1);
    EXPECT_TRUE(log.Has('E', "Hdc Client Destroy error: 6"));
    EXPECT_EQ(HdcClientDestroy(client), 0);
}

TEST_F(HdcApi, ServerCreateLogsAnEvent) {
    EXPECT_NE(HdcServerCreate(3, 4), nullptr);
    EXPECT_TRUE(log.Has('V', "logDevId 3 create HDC server successfully"));
    EXPECT_EQ(driver.calls.Calls("drvHdcServerCreate").at(0).Value("device"), 3);
    EXPECT_EQ(driver.calls.Calls("drvHdcServerCreate").at(0).Value("service"), 4);
}

TEST_F(HdcApi, ServerThatIsNotReadyIsAWarningOnly) {
    driver.calls.Return("drvHdcServerCreate", 34);

    EXPECT_EQ(HdcServerCreate(3, 4), nullptr);
    EXPECT_TRUE(log.Has('W', "[HdcServerCreate]logDevId 3 HDC not ready"));
    EXPECT_EQ(log.CountOf('E'), 0U);
}

TEST_F(HdcApi, ServerCreateReportsOtherFailures) {
    driver.calls.Return("drvHdcServerCreate", 5);
    driver.calls.Add({"drvHdcServerCreate", {}, 0, 1, {}, {}, 0, {}, true});

    EXPECT_EQ(HdcServerCreate(3, 4), nullptr);
    EXPECT_TRUE(log.Has('E', "logDevId 3 create HDC failed, error: 5"));
    EXPECT_EQ(HdcServerCreate(3, 4), nullptr);
    EXPECT_TRUE(log.Has('E', "logDevId 3 create HDC failed, error: 0"));
}

TEST_F(HdcApi, DestroyOfNullServerDoesNothing) {
    HdcServerDestroy(nullptr);
    EXPECT_EQ(driver.calls.Count("drvHdcServerDestroy"), 0U);
}

TEST_F(HdcApi, BusyServerIsDestroyedThirtyTimesAtMost) {
    const HDC_SERVER server = NewServer();
    driver.calls.Return("drvHdcServerDestroy", 23, -1);

    HdcServerDestroy(server);

    EXPECT_EQ(driver.calls.Count("drvHdcServerDestroy"), 30U);
    EXPECT_TRUE(log.Has('E', "[HdcServerDestroy]hdc server destroy error : 23, times 0"));
    EXPECT_TRUE(log.Has('E', "[HdcServerDestroy]hdc server destroy error : 23, times 29"));
    EXPECT_EQ(FakeMm::Instance().Sleeps(), std::vector<uint32_t>(30, 100));
}

TEST_F(HdcApi, BusyServerIsTriedUntilItGoes) {
    const HDC_SERVER server = NewServer();
    driver.calls.Return("drvHdcServerDestroy", 23, 29);

    HdcServerDestroy(server);

    EXPECT_EQ(driver.calls.Count("drvHdcServerDestroy"), 30U);
    EXPECT_EQ(log.CountOf('E'), 29U);
    EXPECT_EQ(driver.OpenServers(), 0U);
}

TEST_F(HdcApi, OtherDestroyFailureIsNotRetried) {
    const HDC_SERVER server = NewServer();
    driver.calls.Return("drvHdcServerDestroy", 5, -1);

    HdcServerDestroy(server);

    EXPECT_EQ(driver.calls.Count("drvHdcServerDestroy"), 1U);
    EXPECT_TRUE(log.Has('E', "[HdcServerDestroy]hdc server destroy error : 5, times 0"));
    EXPECT_EQ(FakeMm::Instance().Sleeps(), std::vector<uint32_t>{100});
}

TEST_F(HdcApi, AcceptTakesAReference) {
    const HDC_SESSION waiting = driver.QueueAccept();

    EXPECT_EQ(HdcServerAccept(NewServer()), waiting);
    EXPECT_EQ(driver.calls.Count("drvHdcSetSessionReference"), 1U);
}

TEST_F(HdcApi, FailedAcceptIsAWarning) {
    driver.calls.Return("drvHdcSessionAccept", -1);
    driver.calls.Add({"drvHdcSessionAccept", {}, 0, 1, {}, {}, 0, {}, true});
    const HDC_SERVER server = NewServer();

    EXPECT_EQ(HdcServerAccept(server), nullptr);
    EXPECT_EQ(HdcServerAccept(server), nullptr);
    EXPECT_EQ(log.Count('W', "[HdcServerAccept]hdc accept error"), 2U);
}

TEST_F(HdcApi, AcceptWithoutAReferenceClosesTheSession) {
    const HDC_SESSION waiting = driver.QueueAccept();
    driver.calls.Return("drvHdcSetSessionReference", 1);

    EXPECT_EQ(HdcServerAccept(NewServer()), nullptr);
    EXPECT_TRUE(log.Has('E', "[HdcServerAccept]set reference error"));
    EXPECT_TRUE(driver.IsClosed(waiting));
}

TEST_F(HdcApi, ConnectGivesTheSession) {
    HDC_SESSION connected = nullptr;

    EXPECT_EQ(HdcSessionConnect(0, 3, NewClient(), &connected), 0);
    EXPECT_EQ(connected, driver.LastConnected());
    EXPECT_TRUE(log.Has('I', "connect succ, peer_node: 0, peer_devid: 3"));
}

TEST_F(HdcApi, ConnectWithHostPidGivesTheSession) {
    HDC_SESSION connected = nullptr;

    EXPECT_EQ(HalHdcSessionConnect(0, 3, 77, NewClient(), &connected), 0);
    EXPECT_EQ(connected, driver.LastConnected());
    EXPECT_EQ(driver.calls.Calls("halHdcSessionConnectEx").at(0).Value("pid"), 77);
    EXPECT_TRUE(log.Has('I', "connect succ, peer_node: 0, peer_devid: 3, host_pid: 77"));
}

TEST_F(HdcApi, FailedConnectIsAnInfoLineOnly) {
    HDC_SESSION connected = nullptr;
    driver.calls.Return("drvHdcSessionConnect", 8);
    driver.calls.Return("halHdcSessionConnectEx", 9);
    const HDC_CLIENT client = NewClient();

    EXPECT_EQ(HdcSessionConnect(0, 3, client, &connected), -1);
    EXPECT_EQ(HalHdcSessionConnect(0, 3, 77, client, &connected), -1);
    EXPECT_TRUE(log.Has('I', "Hdc Session Connect, ret: 8"));
    EXPECT_TRUE(log.Has('I', "Hdc Session Connect, ret: 9"));
    EXPECT_EQ(log.CountOf('E'), 0U);
}

TEST_F(HdcApi, RefusedReferenceLeavesTheConnectedSessionOpen) {
    HDC_SESSION connected = nullptr;
    driver.calls.Return("drvHdcSetSessionReference", 1);

    EXPECT_EQ(HdcSessionConnect(0, 3, NewClient(), &connected), -1);
    EXPECT_TRUE(log.Has('E', "session reference set failed"));
    EXPECT_NE(connected, nullptr);
    EXPECT_FALSE(driver.IsClosed(connected));
}

TEST_F(HdcApi, RefusedReferenceLeavesTheSessionWithHostPidOpenToo) {
    HDC_SESSION connected = nullptr;
    driver.calls.Return("drvHdcSetSessionReference", 1);

    EXPECT_EQ(HalHdcSessionConnect(0, 3, 77, NewClient(), &connected), -1);
    EXPECT_EQ(log.Count('E', "session reference set failed"), 1U);
    EXPECT_FALSE(log.Contains('I', "connect succ"));
    EXPECT_NE(connected, nullptr);
    EXPECT_FALSE(driver.IsClosed(connected));
}

TEST_F(HdcApi, ConnectChecksItsArgumentsInOrder) {
    EXPECT_EQ(HdcSessionConnect(-1, -1, nullptr, nullptr), -1);
    EXPECT_EQ(HdcSessionConnect(0, -1, nullptr, nullptr), -1);
    EXPECT_EQ(HdcSessionConnect(0, 0, nullptr, nullptr), -1);
    EXPECT_EQ(HdcSessionConnect(0, 0, session, nullptr), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("peer_node is invalid", "peer_devid is invalid",
                                            "client is nullptr", "session is nullptr"));
    EXPECT_EQ(driver.calls.Count("drvHdcSessionConnect"), 0U);
}

TEST_F(HdcApi, ConnectWithHostPidChecksItsArgumentsInOrder) {
    EXPECT_EQ(HalHdcSessionConnect(-1, -1, -1, nullptr, nullptr), -1);
    EXPECT_EQ(HalHdcSessionConnect(0, -1, -1, nullptr, nullptr), -1);
    EXPECT_EQ(HalHdcSessionConnect(0, 0, -1, nullptr, nullptr), -1);
    EXPECT_EQ(HalHdcSessionConnect(0, 0, 0, nullptr, nullptr), -1);
    EXPECT_EQ(HalHdcSessionConnect(0, 0, 0, session, nullptr), -1);

    EXPECT_THAT(log.Texts('E'),
                ElementsAre("peer_node is invalid", "peer_devid is invalid", "host_pid is invalid",
                            "client is nullptr", "session is nullptr"));
}

TEST_F(HdcApi, ReadsCheckTheirArgumentsInOrder) {
    void* buf = nullptr;
    EXPECT_EQ(HdcRead(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(HdcRead(session, nullptr, nullptr), -1);
    EXPECT_EQ(HdcRead(session, &buf, nullptr), -1);
    EXPECT_EQ(HdcReadNb(nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(HdcReadNb(session, nullptr, nullptr), -1);
    EXPECT_EQ(HdcReadNb(session, &buf, nullptr), -1);

    EXPECT_THAT(log.Texts('E'),
                ElementsAre("session is nullptr", "recv_buf is nullptr", "recv_len is nullptr",
                            "session is nullptr", "recv_buf is nullptr", "recv_len is nullptr"));
}

TEST_F(HdcApi, WriteChecksSessionThenLengthThenBuffer) {
    EXPECT_EQ(HdcWrite(nullptr, nullptr, 0), -1);
    EXPECT_EQ(HdcWrite(session, nullptr, 0), -1);
    EXPECT_EQ(HdcWrite(session, "a", -1), -1);
    EXPECT_EQ(HdcWrite(session, nullptr, 1), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("session is nullptr", "len is invalid",
                                            "len is invalid", "buf is nullptr"));
}

TEST_F(HdcApi, NonBlockingWriteChecksSessionThenBufferThenLength) {
    EXPECT_EQ(HdcWriteNb(nullptr, nullptr, 0), -1);
    EXPECT_EQ(HdcWriteNb(session, nullptr, 0), -1);
    EXPECT_EQ(HdcWriteNb(session, "a", 0), -1);

    EXPECT_THAT(log.Texts('E'),
                ElementsAre("session is nullptr", "buf is nullptr", "len is invalid"));
}

TEST_F(HdcApi, BlockingFormsPassFlagZeroAndOthersFlagOne) {
    driver.PushMessage(session, Fragment("a", true));
    driver.PushMessage(session, Fragment("a", true));

    EXPECT_EQ(HdcWrite(session, "a", 1), 0);
    EXPECT_EQ(HdcWriteNb(session, "a", 1), 0);
    EXPECT_EQ(Read(true), 0);
    EXPECT_EQ(Read(false), 0);

    EXPECT_EQ(driver.calls.Calls("halHdcSend").at(0).Value("flag"), 0);
    EXPECT_EQ(driver.calls.Calls("halHdcSend").at(1).Value("flag"), 1);
    EXPECT_EQ(driver.calls.Calls("halHdcRecv").at(0).Value("flag"), 0);
    EXPECT_EQ(driver.calls.Calls("halHdcRecv").at(1).Value("flag"), 1);
}

TEST_F(HdcApi, CloseAndDestroyRefuseNull) {
    EXPECT_EQ(HdcSessionClose(nullptr), -1);
    EXPECT_EQ(HdcSessionDestroy(nullptr), -1);
    EXPECT_EQ(log.Count('E', "session is nullptr"), 2U);
}

TEST_F(HdcApi, CloseReportsTheDriversCode) {
    driver.calls.Return("drvHdcSessionClose", 4);

    EXPECT_EQ(HdcSessionClose(session), -1);
    EXPECT_TRUE(log.Has('E', "Hdc Session Close Failed, error: 4"));
    EXPECT_EQ(HdcSessionDestroy(session), 0);
    EXPECT_TRUE(driver.IsClosed(session));
}

TEST_F(HdcApi, CapacityIsAskedForChannelTypeTwo) {
    driver.SetMaxSegment(1024);
    uint32_t segment = 0;

    EXPECT_EQ(HdcCapacity(&segment), 0);
    EXPECT_EQ(segment, 1024U);
    EXPECT_EQ(driver.calls.Calls("drvHdcGetCapacity").at(0).Value("type"), 2);
    EXPECT_EQ(HdcCapacity(nullptr), -1);
}

TEST_F(HdcApi, CapacityStartsFromZeroWhenTheDriverFillsNothing) {
    driver.drvHdcGetCapacity = [](struct HdcCapacity*) { return 0; };
    uint32_t segment = 5;

    EXPECT_EQ(HdcCapacity(&segment), -1);
    EXPECT_TRUE(log.Has('E', "Get Hdc Capacity Segment Invaild: 0"));
    EXPECT_EQ(segment, 5U);
}

TEST_F(HdcApi, CapacityFailureIsReported) {
    driver.calls.Return("drvHdcGetCapacity", 3);
    uint32_t segment = 0;

    EXPECT_EQ(HdcCapacity(&segment), -1);
    EXPECT_TRUE(log.Has('E', "Get Hdc Capacity Failed,error: 3"));
}

TEST_F(HdcApi, AttributeZeroIsTheDeviceAndThreeTheVirtualFunction) {
    const HDC_SESSION container = driver.NewSession(7, 1);
    int32_t devId = -1;
    int32_t vfId = -1;

    EXPECT_EQ(IdeGetDevIdBySession(container, &devId), 0);
    EXPECT_EQ(IdeGetVfIdBySession(container, &vfId), 0);

    EXPECT_EQ(devId, 7);
    EXPECT_EQ(vfId, 1);
    EXPECT_EQ(driver.calls.Calls("halHdcGetSessionAttr").at(0).Value("attr"), 0);
    EXPECT_EQ(driver.calls.Calls("halHdcGetSessionAttr").at(1).Value("attr"), 3);
}

TEST_F(HdcApi, AttributeFailuresAreReported) {
    int32_t value = 0;
    driver.calls.Return("halHdcGetSessionAttr", 11, 2);

    EXPECT_EQ(IdeGetDevIdBySession(session, &value), -1);
    EXPECT_EQ(IdeGetVfIdBySession(session, &value), -1);

    EXPECT_TRUE(log.Has('E', "Hdc Get Session DevId Failed, err: 11"));
    EXPECT_TRUE(log.Has('E', "Hdc get session vfid failed, err: 11"));
}

TEST_F(HdcApi, AttributeFormsRefuseNull) {
    int32_t value = 0;
    EXPECT_EQ(IdeGetDevIdBySession(nullptr, &value), -1);
    EXPECT_EQ(IdeGetDevIdBySession(session, nullptr), -1);
    EXPECT_EQ(IdeGetVfIdBySession(nullptr, &value), -1);
    EXPECT_EQ(IdeGetVfIdBySession(session, nullptr), -1);

    EXPECT_THAT(log.Texts('E'), ElementsAre("session is nullptr", "devId is nullptr",
                                            "session is nullptr", "vfId is nullptr"));
}

}  // namespace tiv::test
