// Clients, servers, connections, attributes, and the argument checks in front of reads and writes.
#include "hdc/hdc_api.h"

#include "hdc/hdc_session_read.h"
#include "hdc/hdc_session_write.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace {

constexpr int32_t MAX_SESSION_NUM = 96;
constexpr int32_t DEFAULT_SERVICE_TYPE = 2;
constexpr int32_t DESTROY_TIMES = 30;
constexpr uint32_t DESTROY_PAUSE_MS = 100;

int32_t CheckPeer(int32_t peerNode, int32_t peerDevId) {
    if (peerNode < 0) {
        TIV_LOGE("peer_node is invalid");
        return IDE_DAEMON_ERROR;
    }
    if (peerDevId < 0) {
        TIV_LOGE("peer_devid is invalid");
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

int32_t CheckConnectHandles(HDC_CLIENT client, const HDC_SESSION* session) {
    if (client == nullptr) {
        TIV_LOGE("client is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

// A refused reference leaves the session open: the caller has its handle.
int32_t FinishConnect(int32_t ret, const HDC_SESSION* session) {
    if (ret != 0) {
        TIV_LOGI("Hdc Session Connect, ret: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    if (drvHdcSetSessionReference(*session) != 0) {
        TIV_LOGE("session reference set failed");
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

int32_t CheckReadOutputs(HDC_SESSION session, void* const* recvBuf, const uint32_t* recvLen) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (recvBuf == nullptr) {
        TIV_LOGE("recv_buf is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (recvLen == nullptr) {
        TIV_LOGE("recv_len is nullptr");
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

bool IsLengthValid(int32_t len) {
    if (len < 1) {
        TIV_LOGE("len is invalid");
        return false;
    }
    return true;
}

bool IsBufferValid(const void* buf) {
    if (buf == nullptr) {
        TIV_LOGE("buf is nullptr");
        return false;
    }
    return true;
}

}  // namespace

int32_t HdcClientCreate(HDC_CLIENT* client) {
    if (client == nullptr) {
        TIV_LOGE("client is nullptr");
        return IDE_DAEMON_ERROR;
    }
    const int32_t ret = drvHdcClientCreate(client, MAX_SESSION_NUM, DEFAULT_SERVICE_TYPE, 0);
    if (ret != 0 || *client == nullptr) {
        TIV_LOGE("Hdc Client Create Failed, error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

HDC_CLIENT HdcClientInit(int32_t serviceType) {
    HDC_CLIENT client = nullptr;
    const int32_t ret = drvHdcClientCreate(&client, MAX_SESSION_NUM, serviceType, 0);
    if (ret != 0 || client == nullptr) {
        TIV_LOGE("Hdc Client Create Failed, error: %d", ret);
        return nullptr;
    }
    return client;
}

int32_t HdcClientDestroy(HDC_CLIENT client) {
    if (client == nullptr) {
        return IDE_DAEMON_OK;
    }
    const int32_t ret = drvHdcClientDestroy(client);
    if (ret != 0) {
        TIV_LOGE("Hdc Client Destroy error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

HDC_SERVER HdcServerCreate(int32_t logDevId, int32_t serviceType) {
    HDC_SERVER server = nullptr;
    const int32_t ret = drvHdcServerCreate(logDevId, serviceType, &server);
    if (ret == HDC_ERR_NOT_READY) {
        TIV_LOGW("[HdcServerCreate]logDevId %u HDC not ready", static_cast<uint32_t>(logDevId));
        return nullptr;
    }
    if (ret != 0 || server == nullptr) {
        TIV_LOGE("logDevId %u create HDC failed, error: %d", static_cast<uint32_t>(logDevId), ret);
        return nullptr;
    }
    TIV_EVENT("logDevId %u create HDC server successfully", static_cast<uint32_t>(logDevId));
    return server;
}

void HdcServerDestroy(HDC_SERVER server) {
    if (server == nullptr) {
        return;
    }
    int32_t ret = 0;
    int32_t times = 0;
    do {
        ret = drvHdcServerDestroy(server);
        if (ret != 0) {
            TIV_LOGE("[HdcServerDestroy]hdc server destroy error : %d, times %d", ret, times);
            ++times;
            mmSleep(DESTROY_PAUSE_MS);
        }
    } while (ret == HDC_ERR_BUSY && times < DESTROY_TIMES);
}

HDC_SESSION HdcServerAccept(HDC_SERVER server) {
    HDC_SESSION session = nullptr;
    if (drvHdcSessionAccept(server, &session) != 0 || session == nullptr) {
        TIV_LOGW("[HdcServerAccept]hdc accept error");
        return nullptr;
    }
    if (drvHdcSetSessionReference(session) != 0) {
        TIV_LOGE("[HdcServerAccept]set reference error");
        HdcSessionClose(session);
        return nullptr;
    }
    return session;
}

int32_t HdcSessionConnect(int32_t peerNode, int32_t peerDevId, HDC_CLIENT client,
                          HDC_SESSION* session) {
    if (CheckPeer(peerNode, peerDevId) != IDE_DAEMON_OK ||
        CheckConnectHandles(client, session) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    const int32_t ret = drvHdcSessionConnect(peerNode, peerDevId, client, session);
    if (FinishConnect(ret, session) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    TIV_LOGI("connect succ, peer_node: %d, peer_devid: %d", peerNode, peerDevId);
    return IDE_DAEMON_OK;
}

int32_t HalHdcSessionConnect(int32_t peerNode, int32_t peerDevId, int32_t hostPid,
                             HDC_CLIENT client, HDC_SESSION* session) {
    if (CheckPeer(peerNode, peerDevId) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    if (hostPid < 0) {
        TIV_LOGE("host_pid is invalid");
        return IDE_DAEMON_ERROR;
    }
    if (CheckConnectHandles(client, session) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    const int32_t ret = halHdcSessionConnectEx(peerNode, peerDevId, hostPid, client, session);
    if (FinishConnect(ret, session) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    TIV_LOGI("connect succ, peer_node: %d, peer_devid: %d, host_pid: %d", peerNode, peerDevId,
             hostPid);
    return IDE_DAEMON_OK;
}

int32_t HdcRead(HDC_SESSION session, void** recvBuf, uint32_t* recvLen) {
    if (CheckReadOutputs(session, recvBuf, recvLen) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    return HdcSessionRead(session, recvBuf, recvLen, HDC_FLAG_WAIT);
}

int32_t HdcReadNb(HDC_SESSION session, void** recvBuf, uint32_t* recvLen) {
    if (CheckReadOutputs(session, recvBuf, recvLen) != IDE_DAEMON_OK) {
        return IDE_DAEMON_ERROR;
    }
    return HdcSessionRead(session, recvBuf, recvLen, HDC_FLAG_NO_WAIT);
}

int32_t HdcWrite(HDC_SESSION session, const void* buf, int32_t len) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (!IsLengthValid(len) || !IsBufferValid(buf)) {
        return IDE_DAEMON_ERROR;
    }
    return HdcSessionWrite(session, buf, static_cast<uint32_t>(len), HDC_FLAG_WAIT);
}

int32_t HdcWriteInPlace(HDC_SESSION session, char* buf, int32_t len) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (!IsLengthValid(len) || !IsBufferValid(buf)) {
        return IDE_DAEMON_ERROR;
    }
    return HdcSessionWriteInPlace(session, buf, static_cast<uint32_t>(len), HDC_FLAG_WAIT);
}

int32_t HdcWriteNb(HDC_SESSION session, const void* buf, int32_t len) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (!IsBufferValid(buf) || !IsLengthValid(len)) {
        return IDE_DAEMON_ERROR;
    }
    return HdcSessionWrite(session, buf, static_cast<uint32_t>(len), HDC_FLAG_NO_WAIT);
}

int32_t HdcSessionClose(HDC_SESSION session) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    const int32_t ret = drvHdcSessionClose(session);
    if (ret != 0) {
        TIV_LOGE("Hdc Session Close Failed, error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

int32_t HdcSessionDestroy(HDC_SESSION session) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    return HdcSessionClose(session);
}

int32_t IdeGetDevIdBySession(HDC_SESSION session, int32_t* devId) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (devId == nullptr) {
        TIV_LOGE("devId is nullptr");
        return IDE_DAEMON_ERROR;
    }
    const int32_t ret = halHdcGetSessionAttr(session, HDC_ATTR_DEVICE_ID, devId);
    if (ret != 0) {
        TIV_LOGE("Hdc Get Session DevId Failed, err: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

int32_t IdeGetVfIdBySession(HDC_SESSION session, int32_t* vfId) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return IDE_DAEMON_ERROR;
    }
    if (vfId == nullptr) {
        TIV_LOGE("vfId is nullptr");
        return IDE_DAEMON_ERROR;
    }
    const int32_t ret = halHdcGetSessionAttr(session, HDC_ATTR_VF_ID, vfId);
    if (ret != 0) {
        TIV_LOGE("Hdc get session vfid failed, err: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}
