// Packets and answers as the host reads them.
#include "host/wire_reply.h"

#include <algorithm>

#include "host/file_chunk_view.h"
#include "message/profiler.pb.h"
#include "message/status_info.h"

namespace tiv::host {

using analysis::rokt::message::StatusInfo;
using analysis::rokt::transport::KbxTransport;
using analysis::rokt::transport::MESSAGE_CONTAINER_NO_SUPPORT;
namespace proto = analysis::rokt::proto;

namespace {

constexpr const char* RESPONSE_TYPE = "analysis.rokt.proto.Response";
constexpr const char* CONTAINER_TEXT =
    "the device does not serve callers in a container: run tivctl on the host itself";
constexpr const char* NO_REASON_TEXT =
    "the device gave no reason; usually another profiling job still runs on it, or the device "
    "number is not valid there: stop the other job or try again later, and see the daemon's log";

// The value within a received packet of `received` bytes. A peer may write any length.
std::string_view ValueOf(const IdeTlvReq& packet, int received) {
    const size_t room = static_cast<size_t>(received) - IDE_TLV_HEADER_LEN;
    return {packet.value, std::min<size_t>(packet.len, room)};
}

// A device's text must not move the cursor of the terminal that it is shown on.
std::string OneLine(std::string text) {
    for (char& c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < ' ' || byte == 0x7f) {
            c = ' ';
        }
    }
    return text;
}

// Gives a packet back to its transport, also when taking it failed.
class HeldPacket {
 public:
    HeldPacket(KbxTransport& transport, IdeTlvReq* packet)
        : transport_(transport), packet_(packet) {}
    ~HeldPacket() { (void)transport_.DestroyPacket(packet_); }
    HeldPacket(const HeldPacket&) = delete;
    HeldPacket& operator=(const HeldPacket&) = delete;

 private:
    KbxTransport& transport_;
    IdeTlvReq* packet_;
};

}  // namespace

void ReadPackets(KbxTransport& transport, const std::atomic<bool>& closing,
                 const std::function<bool(std::string_view value)>& take) {
    bool goOn = true;
    while (goOn && !closing) {
        IdeTlvReq* packet = nullptr;
        const int received = transport.RecvPacket(&packet);
        if (packet == nullptr) {
            return;
        }
        const HeldPacket held(transport, packet);
        if (received > 0) {
            goOn = take(ValueOf(*packet, received));
        } else {
            goOn = take(MESSAGE_CONTAINER_NO_SUPPORT);
        }
    }
}

bool ParseReply(std::string_view value, Reply& reply) {
    if (value == MESSAGE_CONTAINER_NO_SUPPORT) {
        reply = {Reply::Outcome::REFUSED, CONTAINER_TEXT};
        return true;
    }
    FrameView frame;
    proto::Response response;
    if (!ParseFrame(value, frame) || frame.typeName != RESPONSE_TYPE ||
        !response.ParseFromArray(frame.body.data(), static_cast<int>(frame.body.size()))) {
        return false;
    }
    StatusInfo status;
    (void)status.FromString(response.message());
    reply.outcome =
        response.status() == proto::SUCCESS ? Reply::Outcome::ACCEPTED : Reply::Outcome::REFUSED;
    reply.message = status.info.empty() ? NO_REASON_TEXT : OneLine(status.info);
    return true;
}

}  // namespace tiv::host
