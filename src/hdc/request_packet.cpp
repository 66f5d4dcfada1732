// Making, freeing and reading request packets.
#include "hdc/request_packet.h"

#include "common/memory_utils.h"
#include "hdc/hdc_api.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace {

// The first value length whose packet with its zero byte does not fit in 32 bits.
constexpr uint32_t VALUE_LEN_LIMIT = UINT32_MAX - IDE_TLV_HEADER_LEN;
constexpr uint32_t READ_TIMES = 141;

// The request in a received buffer with a zero byte behind it, or null.
IdeTlvReq* CopyWithZero(const void* recvBuf, uint32_t recvLen) {
    const size_t room = static_cast<size_t>(recvLen) + 1;
    void* copy = IdeXmalloc(room);
    if (copy == nullptr) {
        TIV_LOGE("Ide Xmalloc failed");
        return nullptr;
    }
    if (memcpy_s(copy, room, recvBuf, recvLen) != 0) {
        TIV_LOGE("memory copy_s failed");
        IdeXfree(copy);
        return nullptr;
    }
    return static_cast<IdeTlvReq*>(copy);
}

// True when the header is whole and its length is what came behind it.
bool IsLengthRight(const IdeTlvReq* req, uint32_t recvLen) {
    const bool isWhole = recvLen >= IDE_TLV_HEADER_LEN;
    const uint32_t len = isWhole ? req->len : 0;
    if (isWhole && static_cast<uint64_t>(len) + IDE_TLV_HEADER_LEN == recvLen) {
        return true;
    }
    TIV_LOGE("recv len: %u bytes, req len %d bytes, size %zu bytes", recvLen,
             static_cast<int32_t>(len), static_cast<size_t>(IDE_TLV_HEADER_LEN));
    return false;
}

int32_t TakeRequest(const void* recvBuf, uint32_t recvLen, IdeTlvReq** req) {
    if (recvLen == UINT32_MAX) {
        TIV_LOGE("too long recv_data: %u bytes", recvLen);
        return IDE_DAEMON_ERROR;
    }
    IdeTlvReq* copy = CopyWithZero(recvBuf, recvLen);
    if (copy == nullptr) {
        return IDE_DAEMON_ERROR;
    }
    if (!IsLengthRight(copy, recvLen)) {
        IdeXfree(copy);
        return IDE_DAEMON_ERROR;
    }
    *req = copy;
    return IDE_DAEMON_OK;
}

}  // namespace

int32_t IdeCreatePacket(uint32_t type, const void* value, uint32_t valueLen, IdeTlvReq** packet,
                        uint32_t* packetLen) {
    if (value == nullptr || packet == nullptr || packetLen == nullptr) {
        TIV_LOGE("[IdeCreatePacket]input invalid parameter");
        return IDE_DAEMON_ERROR;
    }
    if (valueLen >= VALUE_LEN_LIMIT) {
        TIV_LOGE("[IdeCreatePacket]value_len: %u bytes, tlv_len: %lu bytes", valueLen,
                 static_cast<unsigned long>(IDE_TLV_HEADER_LEN));
        return IDE_DAEMON_ERROR;
    }
    const size_t valueRoom = static_cast<size_t>(valueLen) + 1;
    auto* made = static_cast<IdeTlvReq*>(IdeXmalloc(IDE_TLV_HEADER_LEN + valueRoom));
    if (made == nullptr) {
        TIV_LOGE("malloc memory failed");
        return IDE_DAEMON_ERROR;
    }
    made->type = type;
    made->dev_id = 0;
    made->len = valueLen;
    const int32_t err = memcpy_s(made->value, valueRoom, value, valueLen);
    if (err != 0) {
        TIV_LOGE("[IdeCreatePacket]memory copy failed, err: %d", err);
        IdeXfree(made);
        return IDE_DAEMON_ERROR;
    }
    *packet = made;
    *packetLen = valueLen + IDE_TLV_HEADER_LEN;
    return IDE_DAEMON_OK;
}

int32_t KbxIdeCreatePacket(const void* value, uint32_t valueLen, IdeTlvReq** packet,
                           uint32_t* packetLen) {
    const int32_t ret = IdeCreatePacket(IDE_PROFILING_REQ, value, valueLen, packet, packetLen);
    if (ret != IDE_DAEMON_OK) {
        if (packet != nullptr) {
            *packet = nullptr;
        }
        if (packetLen != nullptr) {
            *packetLen = 0;
        }
    }
    return ret;
}

void KbxIdeFreePacket(IdeTlvReq*& packet) {
    if (packet != nullptr) {
        IdeXfree(packet);
        packet = nullptr;
    }
}

int32_t IdeRead(const IdeSessionRef& ref, void** recvBuf, uint32_t* recvLen, bool nonBlocking) {
    if (recvBuf == nullptr || recvLen == nullptr) {
        return IDE_DAEMON_ERROR;
    }
    if (!nonBlocking) {
        return HdcRead(ref.session, recvBuf, recvLen);
    }
    uint32_t attempt = 1;
    for (; attempt <= READ_TIMES; ++attempt) {
        const int32_t ret = HdcReadNb(ref.session, recvBuf, recvLen);
        if (ret != IDE_DAEMON_RECV_NODATA) {
            return ret;
        }
        mmSleep(attempt);
    }
    TIV_LOGW("no received request in %d times", static_cast<int32_t>(attempt));
    return IDE_DAEMON_ERROR;
}

int32_t IdeHdcReadRequest(const IdeSessionRef& ref, IdeTlvReq** req) {
    if (req == nullptr) {
        TIV_LOGE("req is nullptr");
        return IDE_DAEMON_ERROR;
    }
    *req = nullptr;
    void* recvBuf = nullptr;
    uint32_t recvLen = 0;
    const int32_t ret = IdeRead(ref, &recvBuf, &recvLen, true);
    if (ret != IDE_DAEMON_OK) {
        TIV_LOGW("Ide Read ret: %d", ret);
        return ret;
    }
    const int32_t taken = TakeRequest(recvBuf, recvLen, req);
    IdeXfree(recvBuf);
    return taken;
}
