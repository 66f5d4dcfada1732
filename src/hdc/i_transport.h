// The abstract transports: what the profiling side may do with a session.
#pragma once

#include <cstdint>
#include <memory>

#include "hdc/file_chunk.h"
#include "hdc/request_packet.h"

namespace Analysis {
namespace Rokt {
namespace Common {
namespace Statistics {
class PerfCount;
}  // namespace Statistics
}  // namespace Common
}  // namespace Rokt
}  // namespace Analysis

namespace analysis {
namespace rokt {
namespace transport {

// The value with which a device refuses a caller that sits in a container.
constexpr char MESSAGE_CONTAINER_NO_SUPPORT[] = "MESSAGE_CONTAINER_NO_SUPPORT";

// Sends buffers and chunks on a session that it owns. Held by shared pointer; the session closes
// when the last holder lets go.
//
// SendBuffer and CloseSession may come from any thread; a close ends a blocked send.
class ITransport {
 public:
    virtual ~ITransport() = default;

    // Sends one raw buffer as a packet. `length` when it went out, or -1. Blocks while the far end
    // takes nothing.
    virtual int SendBuffer(const void* buffer, int length) = 0;
    // Sends one chunk as a message of its own. 0, or -1 when it did not go out; there is no retry.
    virtual int SendBuffer(const std::shared_ptr<ProfileFileChunk>& chunk) = 0;
    // Idempotent; always 0. Ends a read or send that blocks on another thread.
    virtual int CloseSession() = 0;

    // Slots that carry no behaviour here.
    virtual void Hook0() = 0;
    virtual void Hook1(uintptr_t) {}
    virtual void Hook2(uintptr_t) {}
    virtual void Hook3(uintptr_t, uintptr_t) {}

    // Times and bytes of the raw sends; null until the factory sets it, constant from then on.
    std::shared_ptr<Analysis::Rokt::Common::Statistics::PerfCount> perfCount;
};

// A transport that speaks request packets in both directions.
class KbxTransport : public ITransport {
 public:
    void Hook0() override {}

    // Sends a packet as it is. 0 or -1.
    virtual int SendKbxBuffer(const void* packet, int length) = 0;
    // Waits for the next packet. Bytes received, or -1 when the session gave none; -2 for the
    // refusal of a caller in a container. Whoever receives a packet that is not null, with -2 too,
    // hands it to DestroyPacket.
    virtual int RecvPacket(IdeTlvReq** packet) = 0;
    // Always 0.
    virtual int DestroyPacket(IdeTlvReq* packet) = 0;
};

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
