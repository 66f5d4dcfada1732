// The request packet: a type, a device id and a length in front of one opaque value.
//
//   0      4        8      12             12 + len
//   +------+--------+------+----------------+---+
//   | type | dev_id | len  | value          | 0 |
//   +------+--------+------+----------------+---+
//
// Integers are in the machine's byte order. The zero byte behind the value is in memory only: it is
// neither sent nor counted.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/driver_api.h"

constexpr uint32_t IDE_TLV_HEADER_LEN = 12;

// Request type numbers; every packet made here is IDE_PROFILING_REQ.
constexpr uint32_t IDE_PROFILING_REQ = 5;
constexpr uint32_t IDE_HOOK_REG_REQ = 17;
constexpr uint32_t IDE_DEFAULT_REQ = 18;

// One packet: an allocation of IdeXmalloc, owned by whoever holds the pointer and released with
// IdeXfree (or KbxIdeFreePacket).
struct IdeTlvReq {
    uint32_t type;
    uint32_t dev_id;  // 0 from every sender; the receiving side writes its own number here
    uint32_t len;     // bytes in value
    char value[];
};

static_assert(sizeof(IdeTlvReq) == IDE_TLV_HEADER_LEN, "header of the wire format");
static_assert(offsetof(IdeTlvReq, value) == IDE_TLV_HEADER_LEN, "value of the wire format");

constexpr int32_t IDE_SESSION_HDC = 1;

// Carries a session through the read path.
struct IdeSessionRef {
    int32_t kind = IDE_SESSION_HDC;
    HDC_SESSION session = nullptr;
};

inline IdeSessionRef MakeIdeSessionRef(HDC_SESSION session) {
    IdeSessionRef ref;
    ref.session = session;
    return ref;
}

// Makes a packet with dev_id 0 around a copy of `value`. `packetLen` is the number of bytes to
// send. A length of 0 is allowed with a value that is not null. -1 on failure.
[[nodiscard]] int32_t IdeCreatePacket(uint32_t type, const void* value, uint32_t valueLen,
                                      IdeTlvReq** packet, uint32_t* packetLen);

// The same for IDE_PROFILING_REQ; both outputs are zero when it fails.
[[nodiscard]] int32_t KbxIdeCreatePacket(const void* value, uint32_t valueLen, IdeTlvReq** packet,
                                         uint32_t* packetLen);

// Frees a packet and clears the caller's pointer. Null is left alone.
void KbxIdeFreePacket(IdeTlvReq*& packet);

// Reads one whole buffer. Without `nonBlocking` it waits as long as it takes; with it the session
// is asked 141 times with a rising pause, about ten seconds in all, before the result is -1. Any
// other result is that of HdcRead or HdcReadNb.
[[nodiscard]] int32_t IdeRead(const IdeSessionRef& ref, void** recvBuf, uint32_t* recvLen,
                              bool nonBlocking);

// Reads one request whole within about ten seconds and checks its length. On 0 the caller owns
// `req`, whose value is followed by a zero byte. 1: the far end closed the session; -1: failure.
// The session stays open in every case.
[[nodiscard]] int32_t IdeHdcReadRequest(const IdeSessionRef& ref, IdeTlvReq** req);
