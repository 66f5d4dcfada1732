// The transport over a driver session.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "hdc/chunk_packet.h"
#include "hdc/file_chunk.h"
#include "hdc/i_transport.h"
#include "hdc/request_packet.h"
#include "platform/driver_api.h"
#include "platform/mutex.h"

namespace analysis {
namespace rokt {
namespace transport {

// Owns one session from the moment it exists: open while `session` is set, closed when it is null.
//
// The driver wakes a blocked call of a session that is closed under it, so that a close never waits
// for a read or a send: it takes `sessionMutex` alone, which reads and sends do not take. A reader
// that loaded the handle just before the close uses a stale one and gets an error for it.
//
// Reads belong to one thread. Sends may come from several: whole packets go out one after the
// other.
class HDCTransport : public KbxTransport {
 public:
    // The client is destroyed with the transport when this side connected and it is not null.
    HDCTransport(HDC_SESSION ownedSession, bool clientSide, HDC_CLIENT ownedClient);
    ~HDCTransport() override;
    HDCTransport(const HDCTransport&) = delete;
    HDCTransport& operator=(const HDCTransport&) = delete;

    int SendBuffer(const void* buffer, int length) override;
    int SendBuffer(const std::shared_ptr<ProfileFileChunk>& chunk) override;
    int CloseSession() override;
    int SendKbxBuffer(const void* packet, int length) override;
    int RecvPacket(IdeTlvReq** packet) override;
    int DestroyPacket(IdeTlvReq* packet) override;

    // An attribute of the session, one of HDC_ATTR_...; -1 when it is closed or the driver does not
    // tell it.
    [[nodiscard]] int32_t Attribute(int32_t attr) const;

 private:
    int SendChunk(const ProfileFileChunk& chunk) EXCLUDES(packetMutex);
    int SendCounted(const void* packet, uint32_t packetLength, int valueLength, uint64_t startNs);

    std::atomic<HDC_SESSION> session;
    const bool isClient;
    const HDC_CLIENT client;
    tiv::Mutex sessionMutex;  // one close at a time

    // Keeps the fragments of one packet together. Taken behind packetMutex, never by a close.
    tiv::Mutex sendMutex;
    tiv::Mutex packetMutex;
    // The packet of the chunk on its way out; its memory serves the next chunk too.
    ChunkPacket chunkPacket GUARDED_BY(packetMutex);
    // That packet while it goes out: its fragments need no memory of their own.
    std::atomic<char*> ownPacket{nullptr};
};

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
