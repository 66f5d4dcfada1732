// Sending and receiving on one owned session.
#include "hdc/hdc_transport.h"

#include <cstring>
#include <exception>

#include "common/memory_utils.h"
#include "common/perf_count.h"
#include "common/utils.h"
#include "hdc/hdc_api.h"
#include "platform/log.h"

namespace analysis {
namespace rokt {
namespace transport {

using common::utils::Utils;

namespace {

constexpr uint32_t NO_SUPPORT_LEN = sizeof(MESSAGE_CONTAINER_NO_SUPPORT) - 1;

// The value is compared only when all of it has arrived.
bool IsContainerRefusal(const IdeTlvReq& packet, uint32_t received) {
    return packet.len == NO_SUPPORT_LEN && received >= IDE_TLV_HEADER_LEN + NO_SUPPORT_LEN &&
           memcmp(packet.value, MESSAGE_CONTAINER_NO_SUPPORT, NO_SUPPORT_LEN) == 0;
}

}  // namespace

HDCTransport::HDCTransport(HDC_SESSION ownedSession, bool clientSide, HDC_CLIENT ownedClient)
    : session(ownedSession), isClient(clientSide), client(ownedClient) {}

HDCTransport::~HDCTransport() {
    HDCTransport::CloseSession();
    if (isClient && client != nullptr) {
        HdcClientDestroy(client);
    }
}

int HDCTransport::SendBuffer(const void* buffer, int length) {
    if (buffer == nullptr) {
        TIV_LOGE("buffer is null");
        return -1;
    }
    const uint64_t startNs = Utils::GetClockMonotonicRaw();
    IdeTlvReq* packet = nullptr;
    uint32_t packetLength = 0;
    int32_t err = -1;
    if (length >= 0) {
        err = KbxIdeCreatePacket(buffer, static_cast<uint32_t>(length), &packet, &packetLength);
    }
    if (err != 0) {
        TIV_LOGE("Failed to KbxIdeCreatePacket, err=%d.", err);
        return -1;
    }
    const int sent = SendCounted(packet, packetLength, length, startNs);
    KbxIdeFreePacket(packet);
    return sent;
}

int HDCTransport::SendBuffer(const std::shared_ptr<ProfileFileChunk>& chunk) {
    if (chunk == nullptr || chunk->extraInfo.empty()) {
        TIV_LOGE("FileChunk info is empty in HDC SendBuffer");
        return -1;
    }
    try {
        return SendChunk(*chunk);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return -1;
    }
}

int HDCTransport::SendChunk(const ProfileFileChunk& chunk) {
    tiv::MutexLock lock(packetMutex);
    const uint64_t startNs = Utils::GetClockMonotonicRaw();
    const int err = chunkPacket.Build(chunk);
    const int size = static_cast<int>(chunkPacket.ValueLength());
    int sent = -1;
    if (err != 0) {
        TIV_LOGE("Failed to KbxIdeCreatePacket, err=%d.", err);
    } else {
        ownPacket = chunkPacket.Bytes();
        sent = SendCounted(chunkPacket.Packet(), chunkPacket.PacketLength(), size, startNs);
        ownPacket = nullptr;
    }
    TIV_LOGD("SendBuffer size %d/%d", sent, size);
    chunkPacket.Trim();
    return sent == size ? 0 : -1;
}

int HDCTransport::SendCounted(const void* packet, uint32_t packetLength, int valueLength,
                              uint64_t startNs) {
    if (SendKbxBuffer(packet, static_cast<int>(packetLength)) != 0) {
        return -1;
    }
    const uint64_t endNs = Utils::GetClockMonotonicRaw();
    if (perfCount != nullptr) {
        perfCount->UpdatePerfInfo(startNs, endNs, static_cast<uint64_t>(valueLength));
    }
    return valueLength;
}

int HDCTransport::SendKbxBuffer(const void* packet, int length) {
    tiv::MutexLock lock(sendMutex);
    char* const own = ownPacket.load();
    const int32_t err = packet != nullptr && packet == own
                            ? HdcWriteInPlace(session.load(), own, length)
                            : HdcWrite(session.load(), packet, length);
    if (err != 0) {
        TIV_LOGE("hdc write failed, outLen=%d bytes, err=%d.", length, err);
        return -1;
    }
    return 0;
}

int HDCTransport::CloseSession() {
    tiv::MutexLock lock(sessionMutex);
    const HDC_SESSION closing = session.exchange(nullptr);
    if (closing == nullptr) {
        return 0;
    }
    TIV_LOGI("close HDC session");
    if (isClient) {
        HdcSessionDestroy(closing);
    } else {
        HdcSessionClose(closing);
    }
    return 0;
}

int HDCTransport::RecvPacket(IdeTlvReq** packet) {
    if (packet == nullptr) {
        return -1;
    }
    void* buffer = nullptr;
    uint32_t length = 0;
    const int32_t ret = HdcRead(session.load(), &buffer, &length);
    if (ret != 0 || length < IDE_TLV_HEADER_LEN) {
        TIV_LOGW("hdc read failed: ret=%d; bufLen=%d", ret, static_cast<int>(length));
        IdeXfree(buffer);
        return -1;
    }
    *packet = static_cast<IdeTlvReq*>(buffer);
    if (IsContainerRefusal(**packet, length)) {
        return -2;
    }
    return static_cast<int>(length);
}

int32_t HDCTransport::Attribute(int32_t attr) const {
    int32_t value = -1;
    return halHdcGetSessionAttr(session.load(), attr, &value) == 0 ? value : -1;
}

int HDCTransport::DestroyPacket(IdeTlvReq* packet) {
    KbxIdeFreePacket(packet);
    return 0;
}

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
