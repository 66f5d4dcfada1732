// The session layer's operations: whole buffers over the driver's bounded messages, and the calls
// around clients, servers and session attributes.
//
// Unless told otherwise a result is 0 for success and -1 for failure. All operations are re-entrant
// and hold no lock; two writers on one session would interleave their fragments, so that a session
// has one writer at a time, and that is its owner's rule to keep.
#pragma once

#include <cstdint>

#include "hdc/hdc_capacity.h"
#include "hdc/hdc_result.h"
#include "platform/driver_api.h"

// A client for service type 2 and at most 96 sessions.
int32_t HdcClientCreate(HDC_CLIENT* client);
// A client for the given service type and at most 96 sessions, or null.
[[nodiscard]] HDC_CLIENT HdcClientInit(int32_t serviceType);
// Null is a success without any driver call.
int32_t HdcClientDestroy(HDC_CLIENT client);

// The server handle, or null; null with a warning while the driver says that it is not ready yet.
[[nodiscard]] HDC_SERVER HdcServerCreate(int32_t logDevId, int32_t serviceType);
// Destroys a server and tries again every 100 ms, at most 30 calls in all, while the driver calls
// it busy. Null does nothing.
void HdcServerDestroy(HDC_SERVER server);
// Blocks for the next session and takes a reference on it; null on failure, with nothing left open.
[[nodiscard]] HDC_SESSION HdcServerAccept(HDC_SERVER server);

// Both connect forms set `session` also when they fail for want of a reference: it is open then and
// belongs to the caller.
int32_t HdcSessionConnect(int32_t peerNode, int32_t peerDevId, HDC_CLIENT client,
                          HDC_SESSION* session);
int32_t HalHdcSessionConnect(int32_t peerNode, int32_t peerDevId, int32_t hostPid,
                             HDC_CLIENT client, HDC_SESSION* session);

// Read one whole buffer, waiting for it (HdcRead) or not (HdcReadNb). On 0 the caller owns
// `recvBuf` and frees it with IdeXfree. 1: the far end closed the session; 2: no data at the
// moment, and the fragments of a half-read buffer are forgotten; -1: any other failure.
[[nodiscard]] int32_t HdcRead(HDC_SESSION session, void** recvBuf, uint32_t* recvLen);
[[nodiscard]] int32_t HdcReadNb(HDC_SESSION session, void** recvBuf, uint32_t* recvLen);

// Write one whole buffer of `len` bytes (at least 1). A failure in the middle tells the far end
// nothing: it sees a buffer without a last fragment.
[[nodiscard]] int32_t HdcWrite(HDC_SESSION session, const void* buf, int32_t len);
[[nodiscard]] int32_t HdcWriteNb(HDC_SESSION session, const void* buf, int32_t len);

// HdcWrite for a buffer that the caller owns with HDC_ROOM_IN_FRONT writable bytes in front of it
// and HDC_ROOM_BEHIND behind (fragment.h): what goes out is the same, but no byte is copied on the
// way to the driver. The bytes of the buffer and around it change during the call and are as before
// after it.
[[nodiscard]] int32_t HdcWriteInPlace(HDC_SESSION session, char* buf, int32_t len);

int32_t HdcSessionClose(HDC_SESSION session);
int32_t HdcSessionDestroy(HDC_SESSION session);

[[nodiscard]] int32_t IdeGetDevIdBySession(HDC_SESSION session, int32_t* devId);
// A value other than 0 means that the caller sits in a container.
[[nodiscard]] int32_t IdeGetVfIdBySession(HDC_SESSION session, int32_t* vfId);
