// The C functions of the driver interface in front of a set of replaceable ones.
#include <utility>

#include "support/driver_functions.h"

namespace {

using tiv::test::Argument;
using tiv::test::DriverBehindTheInterface;
using tiv::test::Intercept;
using tiv::test::InterceptOut;

int64_t Number(const void* handle) {
    return static_cast<int64_t>(reinterpret_cast<intptr_t>(handle));
}

}  // namespace

extern "C" {

int32_t drvHdcClientCreate(HDC_CLIENT* client, int32_t maxSessions, int32_t serviceType,
                           int32_t flag) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(
        driver.calls, __func__, {{"max", maxSessions}, {"service", serviceType}, {"flag", flag}},
        client, [&] { return driver.drvHdcClientCreate(client, maxSessions, serviceType, flag); });
}

int32_t drvHdcClientDestroy(HDC_CLIENT client) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"client", Number(client)}},
                     [&] { return driver.drvHdcClientDestroy(client); });
}

int32_t drvHdcServerCreate(int32_t logicalDevId, int32_t serviceType, HDC_SERVER* server) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(
        driver.calls, __func__, {{"device", logicalDevId}, {"service", serviceType}}, server,
        [&] { return driver.drvHdcServerCreate(logicalDevId, serviceType, server); });
}

int32_t drvHdcServerDestroy(HDC_SERVER server) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"server", Number(server)}},
                     [&] { return driver.drvHdcServerDestroy(server); });
}

int32_t drvHdcSessionAccept(HDC_SERVER server, HDC_SESSION* session) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"server", Number(server)}}, session,
                        [&] { return driver.drvHdcSessionAccept(server, session); });
}

int32_t drvHdcSessionConnect(int32_t peerNode, int32_t peerDevId, HDC_CLIENT client,
                             HDC_SESSION* session) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(
        driver.calls, __func__,
        {{"node", peerNode}, {"device", peerDevId}, {"client", Number(client)}}, session,
        [&] { return driver.drvHdcSessionConnect(peerNode, peerDevId, client, session); });
}

int32_t halHdcSessionConnectEx(int32_t peerNode, int32_t peerDevId, int32_t hostPid,
                               HDC_CLIENT client, HDC_SESSION* session) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(
        driver.calls, __func__,
        {{"node", peerNode}, {"device", peerDevId}, {"pid", hostPid}, {"client", Number(client)}},
        session, [&] {
            return driver.halHdcSessionConnectEx(peerNode, peerDevId, hostPid, client, session);
        });
}

int32_t drvHdcSetSessionReference(HDC_SESSION session) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"session", Number(session)}},
                     [&] { return driver.drvHdcSetSessionReference(session); });
}

int32_t drvHdcSessionClose(HDC_SESSION session) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"session", Number(session)}},
                     [&] { return driver.drvHdcSessionClose(session); });
}

int32_t drvHdcAllocMsg(HDC_SESSION session, HDC_MSG* msg, int32_t count) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"session", Number(session)}, {"count", count}},
                        msg, [&] { return driver.drvHdcAllocMsg(session, msg, count); });
}

int32_t drvHdcFreeMsg(HDC_MSG msg) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"msg", Number(msg)}},
                     [&] { return driver.drvHdcFreeMsg(msg); });
}

int32_t drvHdcReuseMsg(HDC_MSG msg) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"msg", Number(msg)}},
                     [&] { return driver.drvHdcReuseMsg(msg); });
}

// A null in place of the buffer comes with result 0; an `out` is the length.
int32_t drvHdcGetMsgBuffer(HDC_MSG msg, int32_t index, char** buf, int32_t* len) {
    auto& driver = DriverBehindTheInterface();
    const auto fault = driver.calls.Enter(__func__, {{"msg", Number(msg)}, {"index", index}});
    if (fault.result.has_value()) {
        SetErrorOf(fault);
        return static_cast<int32_t>(*fault.result);
    }
    const int32_t result = driver.drvHdcGetMsgBuffer(msg, index, buf, len);
    tiv::test::WriteOut(buf, fault);
    tiv::test::WriteOut(len, fault);
    return result;
}

int32_t drvHdcAddMsgBuffer(HDC_MSG msg, char* buf, int32_t len) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"msg", Number(msg)}, {"len", len}},
                     [&] { return driver.drvHdcAddMsgBuffer(msg, buf, len); });
}

int32_t halHdcRecv(HDC_SESSION session, HDC_MSG msg, int32_t bufLen, uint64_t flag, int32_t* count,
                   uint32_t timeout) {
    auto& driver = DriverBehindTheInterface();
    const int64_t flags = static_cast<int64_t>(flag);
    return InterceptOut(
        driver.calls, __func__,
        {{"session", Number(session)}, {"len", bufLen}, {"flag", flags}, {"timeout", timeout}},
        count, [&] { return driver.halHdcRecv(session, msg, bufLen, flag, count, timeout); });
}

int32_t halHdcSend(HDC_SESSION session, HDC_MSG msg, uint64_t flag, uint32_t timeout) {
    auto& driver = DriverBehindTheInterface();
    const int64_t flags = static_cast<int64_t>(flag);
    return Intercept(driver.calls, __func__,
                     {{"session", Number(session)}, {"flag", flags}, {"timeout", timeout}},
                     [&] { return driver.halHdcSend(session, msg, flag, timeout); });
}

int32_t drvHdcGetCapacity(struct HdcCapacity* capacity) {
    auto& driver = DriverBehindTheInterface();
    const int64_t type = capacity == nullptr ? -1 : static_cast<int64_t>(capacity->chanType);
    uint32_t* segment = capacity == nullptr ? nullptr : &capacity->maxSegment;
    return InterceptOut(driver.calls, __func__, {{"type", type}}, segment,
                        [&] { return driver.drvHdcGetCapacity(capacity); });
}

int32_t halHdcGetSessionAttr(HDC_SESSION session, int32_t attr, int32_t* value) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"session", Number(session)}, {"attr", attr}},
                        value, [&] { return driver.halHdcGetSessionAttr(session, attr, value); });
}

int32_t drvGetDevNum(uint32_t* count) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {}, count,
                        [&] { return driver.drvGetDevNum(count); });
}

int32_t drvGetDeviceLocalIDs(uint32_t* ids, uint32_t len) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"len", len}}, ids,
                        [&] { return driver.drvGetDeviceLocalIDs(ids, len); });
}

int32_t drvDeviceGetPhyIdByIndex(uint32_t logicalId, uint32_t* phyId) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"device", logicalId}}, phyId,
                        [&] { return driver.drvDeviceGetPhyIdByIndex(logicalId, phyId); });
}

int32_t drvDeviceGetIndexByPhyId(uint32_t phyId, uint32_t* index) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"phy", phyId}}, index,
                        [&] { return driver.drvDeviceGetIndexByPhyId(phyId, index); });
}

int32_t halGetDeviceInfo(uint32_t devId, int32_t moduleType, int32_t infoType, int64_t* value) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(
        driver.calls, __func__, {{"device", devId}, {"module", moduleType}, {"info", infoType}},
        value, [&] { return driver.halGetDeviceInfo(devId, moduleType, infoType, value); });
}

int32_t halGetAPIVersion(int32_t* version) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {}, version,
                        [&] { return driver.halGetAPIVersion(version); });
}

int32_t drvGetDevIDs(uint32_t* ids, uint32_t len) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"len", len}}, ids,
                        [&] { return driver.drvGetDevIDs(ids, len); });
}

int32_t drvGetPlatformInfo(uint32_t* info) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {}, info,
                        [&] { return driver.drvGetPlatformInfo(info); });
}

int32_t prof_drv_get_channels(uint32_t devId, struct ProfDrvChannelList* list) {
    auto& driver = DriverBehindTheInterface();
    uint32_t* number = list == nullptr ? nullptr : &list->channelNum;
    return InterceptOut(driver.calls, __func__, {{"device", devId}}, number,
                        [&] { return driver.prof_drv_get_channels(devId, list); });
}

int32_t prof_drv_start(uint32_t devId, uint32_t channelId, struct ProfStartPara* para) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"device", devId}, {"channel", channelId}},
                     [&] { return driver.prof_drv_start(devId, channelId, para); });
}

int32_t prof_stop(uint32_t devId, uint32_t channelId) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"device", devId}, {"channel", channelId}},
                     [&] { return driver.prof_stop(devId, channelId); });
}

int32_t prof_channel_read(uint32_t devId, uint32_t channelId, char* buf, uint32_t len) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__,
                     {{"device", devId}, {"channel", channelId}, {"len", len}},
                     [&] { return driver.prof_channel_read(devId, channelId, buf, len); });
}

int32_t prof_channel_poll(struct ProfPollPair* out, int32_t num, int32_t timeoutSec) {
    auto& driver = DriverBehindTheInterface();
    return Intercept(driver.calls, __func__, {{"num", num}, {"timeout", timeoutSec}},
                     [&] { return driver.prof_channel_poll(out, num, timeoutSec); });
}

#ifndef TIV_TEST_WITHOUT_FLUSH
int32_t halProfDataFlush(uint32_t devId, uint32_t channelId, uint32_t* size) {
    auto& driver = DriverBehindTheInterface();
    return InterceptOut(driver.calls, __func__, {{"device", devId}, {"channel", channelId}}, size,
                        [&] { return driver.halProfDataFlush(devId, channelId, size); });
}
#endif

}  // extern "C"
