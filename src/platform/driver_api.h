// The C interface of the card's driver library. Headers only: whoever links a program decides which
// library stands behind it, the card's own or the software driver.
//
// Unless told otherwise a function returns 0 for success and any other value for failure.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Opaque handles; null means none. A stale handle gives an error from every function.
typedef void* HDC_CLIENT;
typedef void* HDC_SERVER;
typedef void* HDC_SESSION;
typedef void* HDC_MSG;

enum {
    HDC_ERR_BUSY = 23,       // drvHdcServerDestroy: destroy again
    HDC_ERR_CLOSED = 25,     // halHdcRecv: the far end closed the session
    HDC_ERR_NOT_READY = 34,  // drvHdcServerCreate: the service is not up yet
    HDC_ERR_NO_DATA = 36,    // halHdcRecv: nothing to read at the moment
};

enum { HDC_FLAG_WAIT = 0, HDC_FLAG_NO_WAIT = 1 };
// Beside those of the card's library: the process at the other end of the software driver's link, 0
// when it lies outside this PID namespace. Other libraries refuse it as they refuse any they lack.
enum { HDC_ATTR_DEVICE_ID = 0, HDC_ATTR_VF_ID = 3, HDC_ATTR_PEER_PID = 0x7469 };
enum { PROF_STOPPED_ALREADY = -4, DRV_NOT_SUPPORTED = 65534 };

// Both fields are preset by the caller (2 and 0); the driver fills maxSegment, in bytes.
struct HdcCapacity {
    uint32_t chanType;
    uint32_t maxSegment;
};

int32_t drvHdcClientCreate(HDC_CLIENT* client, int32_t maxSessions, int32_t serviceType,
                           int32_t flag);
int32_t drvHdcClientDestroy(HDC_CLIENT client);
int32_t drvHdcServerCreate(int32_t logicalDevId, int32_t serviceType, HDC_SERVER* server);
// Wakes a blocked accept.
int32_t drvHdcServerDestroy(HDC_SERVER server);
// Blocks; on failure errno tells why.
int32_t drvHdcSessionAccept(HDC_SERVER server, HDC_SESSION* session);
int32_t drvHdcSessionConnect(int32_t peerNode, int32_t peerDevId, HDC_CLIENT client,
                             HDC_SESSION* session);
int32_t halHdcSessionConnectEx(int32_t peerNode, int32_t peerDevId, int32_t hostPid,
                               HDC_CLIENT client, HDC_SESSION* session);
int32_t drvHdcSetSessionReference(HDC_SESSION session);
// Wakes blocked receives (25) and sends (an error).
int32_t drvHdcSessionClose(HDC_SESSION session);

int32_t drvHdcAllocMsg(HDC_SESSION session, HDC_MSG* msg, int32_t count);
int32_t drvHdcFreeMsg(HDC_MSG msg);
// Empties the message for the next fragment.
int32_t drvHdcReuseMsg(HDC_MSG msg);
// The memory belongs to the message until it is reused or freed.
int32_t drvHdcGetMsgBuffer(HDC_MSG msg, int32_t index, char** buf, int32_t* len);
// The caller keeps the buffer and may refill it after halHdcSend and drvHdcReuseMsg.
int32_t drvHdcAddMsgBuffer(HDC_MSG msg, char* buf, int32_t len);
int32_t halHdcRecv(HDC_SESSION session, HDC_MSG msg, int32_t bufLen, uint64_t flag, int32_t* count,
                   uint32_t timeout);
int32_t halHdcSend(HDC_SESSION session, HDC_MSG msg, uint64_t flag, uint32_t timeout);
int32_t drvHdcGetCapacity(struct HdcCapacity* capacity);
int32_t halHdcGetSessionAttr(HDC_SESSION session, int32_t attr, int32_t* value);

// 65534 as the result: no driver behind this library.
int32_t drvGetDevNum(uint32_t* count);
// Fills at most `len` logical ids.
int32_t drvGetDeviceLocalIDs(uint32_t* ids, uint32_t len);
int32_t drvDeviceGetPhyIdByIndex(uint32_t logicalId, uint32_t* phyId);
int32_t drvDeviceGetIndexByPhyId(uint32_t phyId, uint32_t* index);
// 65534: this device does not support the query; `value` is left alone.
int32_t halGetDeviceInfo(uint32_t devId, int32_t moduleType, int32_t infoType, int64_t* value);
int32_t halGetAPIVersion(int32_t* version);
int32_t drvGetDevIDs(uint32_t* ids, uint32_t len);
// 0: device side, 1: host side. 65534 as the result: not supported, `info` is left alone.
int32_t drvGetPlatformInfo(uint32_t* info);

// Handed to prof_drv_start; the record behind userData is valid during the call only.
struct ProfStartPara {
    uint32_t channelType;
    uint32_t samplePeriod;  // ms
    uint32_t realTime;
    uint32_t padding0;
    void* userData;
    uint32_t userDataSize;  // bytes
    uint32_t padding1;
};

enum { PROF_CHANNEL_NUM_MAX = 160, PROF_CHANNEL_NAME_LEN = 32 };

struct ProfDrvChannelEntry {
    char channelName[PROF_CHANNEL_NAME_LEN];
    uint32_t channelType;
    uint32_t channelId;
};

struct ProfDrvChannelList {
    uint32_t chipType;
    uint32_t channelNum;
    struct ProfDrvChannelEntry channels[PROF_CHANNEL_NUM_MAX];
};

struct ProfPollPair {
    uint32_t devId;
    uint32_t channelId;
};

int32_t prof_drv_get_channels(uint32_t devId, struct ProfDrvChannelList* list);
int32_t prof_drv_start(uint32_t devId, uint32_t channelId, struct ProfStartPara* para);
int32_t prof_stop(uint32_t devId, uint32_t channelId);
// Bytes read; 0: none; -4: stopped already; another negative value: failure. Does not block.
int32_t prof_channel_read(uint32_t devId, uint32_t channelId, char* buf, uint32_t len);
// Channels with data, at most `num`; -4 at once while no channel is open. Blocks up to the
// time-out.
int32_t prof_channel_poll(struct ProfPollPair* out, int32_t num, int32_t timeoutSec);
// Makes held-back bytes readable and gives their number. Older libraries do not have it.
int32_t halProfDataFlush(uint32_t devId, uint32_t channelId, uint32_t* size) __attribute__((weak));

#ifdef __cplusplus
}

static_assert(sizeof(ProfStartPara) == 32, "start record of the driver");
static_assert(sizeof(ProfDrvChannelEntry) == 40, "channel entry of the driver");
static_assert(sizeof(ProfDrvChannelList) == 6408, "channel list of the driver");
static_assert(sizeof(ProfPollPair) == 8, "poll pair of the driver");
#endif
