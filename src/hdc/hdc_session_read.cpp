// Reassembly of one whole buffer.
#include "hdc/hdc_session_read.h"

#include "hdc/fragment.h"
#include "hdc/fragment_store.h"
#include "hdc/hdc_result.h"
#include "platform/log.h"

namespace {

// One read on its way in.
struct Reading {
    HDC_SESSION session;
    HDC_MSG msg;
    uint64_t flag;
    FragmentStore store;
    bool lastHasCome = false;
};

// Stores the fragment in one buffer of the message; a buffer without bytes is passed over.
int32_t StoreMsgBuffer(Reading& reading, int32_t index) {
    char* fragment = nullptr;
    int32_t bytes = 0;
    const int32_t ret = drvHdcGetMsgBuffer(reading.msg, index, &fragment, &bytes);
    if (ret != 0) {
        TIV_LOGE("Hdc Get Msg Buffer, error %d", ret);
        return IDE_DAEMON_ERROR;
    }
    if (fragment == nullptr || bytes <= 0) {
        return IDE_DAEMON_OK;
    }
    if (!reading.store.Store(fragment, static_cast<size_t>(bytes))) {
        TIV_LOGE("Hdc store package, error");
        return IDE_DAEMON_ERROR;
    }
    if (fragment[HDC_FRAGMENT_LAST_OFFSET] == 1) {
        reading.lastHasCome = true;
    }
    return IDE_DAEMON_OK;
}

int32_t StoreMsg(Reading& reading, int32_t count) {
    reading.store.BeginPass();
    int32_t ret = IDE_DAEMON_OK;
    for (int32_t index = 0; index < count && ret == IDE_DAEMON_OK; ++index) {
        ret = StoreMsgBuffer(reading, index);
    }
    if (reading.store.PassLength() != 0) {
        TIV_LOGD("iovec list add begin");
    }
    if (ret != IDE_DAEMON_OK) {
        TIV_LOGE("[HdcSessionRead]Hdc receive package, error");
    }
    return ret;
}

// Receives one driver message. 0, or the result with which the read ends.
int32_t ReceiveMsg(Reading& reading) {
    int32_t count = 0;
    const int32_t ret = halHdcRecv(reading.session, reading.msg, 0, reading.flag, &count, 0);
    if (ret == HDC_ERR_NO_DATA) {
        return IDE_DAEMON_RECV_NODATA;
    }
    if (ret == HDC_ERR_CLOSED) {
        return IDE_DAEMON_SOCK_CLOSE;
    }
    if (ret != 0) {
        TIV_LOGE("Hdc Receive, error %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return StoreMsg(reading, count);
}

// Makes the message ready for the next fragment.
int32_t ReuseMsg(HDC_MSG msg) {
    const int32_t ret = drvHdcReuseMsg(msg);
    if (ret != 0) {
        TIV_LOGE("Hdc Reuse Msg, error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return IDE_DAEMON_OK;
}

// Receives until the last fragment has come.
int32_t ReceiveFragments(Reading& reading) {
    while (true) {
        const int32_t ret = ReceiveMsg(reading);
        if (ret != IDE_DAEMON_OK || reading.lastHasCome) {
            return ret;
        }
        if (ReuseMsg(reading.msg) != IDE_DAEMON_OK) {
            return IDE_DAEMON_ERROR;
        }
    }
}

bool AreArgumentsValid(HDC_SESSION session, void* const* recvBuf, const uint32_t* recvLen) {
    if (session == nullptr) {
        TIV_LOGE("session is nullptr");
        return false;
    }
    if (recvBuf == nullptr) {
        TIV_LOGE("recv_buf is nullptr");
        return false;
    }
    if (recvLen == nullptr) {
        TIV_LOGE("recv_len is nullptr");
        return false;
    }
    return true;
}

}  // namespace

int32_t HdcSessionRead(HDC_SESSION session, void** recvBuf, uint32_t* recvLen, uint64_t flag) {
    if (!AreArgumentsValid(session, recvBuf, recvLen)) {
        return IDE_DAEMON_ERROR;
    }
    Reading reading{session, nullptr, flag, {}, false};
    int32_t ret = drvHdcAllocMsg(session, &reading.msg, 1);
    if (ret != 0 || reading.msg == nullptr) {
        TIV_LOGE("Hdc Alloc Msg, error %d", ret);
        return IDE_DAEMON_ERROR;
    }
    const int32_t received = ReceiveFragments(reading);
    ret = drvHdcFreeMsg(reading.msg);
    if (received == IDE_DAEMON_SOCK_CLOSE) {
        TIV_LOGI("[HdcSessionRead]Session is closed.");
    }
    if (received != IDE_DAEMON_OK) {
        return received;
    }
    if (ret != 0) {
        TIV_LOGE("Hdc Free Msg, error: %d", ret);
        return IDE_DAEMON_ERROR;
    }
    return reading.store.Merge(recvBuf, recvLen);
}
