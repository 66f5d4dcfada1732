// The session threads: each reads one request from a session that a host opened and routes it to
// the component that serves its type.
#pragma once

#include <cstdint>

#include "hdc/request_packet.h"
#include "platform/driver_api.h"

// Starts a detached thread that serves the session. Returns 0; -1 when it cannot be started, and
// the session stays the caller's.
[[nodiscard]] int32_t IdeStartSessionThread(uint32_t phyDevId, uint32_t logDevId,
                                            HDC_SESSION session);

// What a session thread is given; it frees the record.
struct SessionEvent {
    uint32_t phyDevId;
    uint32_t logDevId;
    HDC_SESSION session;
};

// Body of a session thread; the argument is a SessionEvent.
void* IdeDaemonHdcSessionThread(void* arg);

// Reads the request of a session and routes it. Whoever takes the request settles who closes the
// session; a request that cannot be read closes it here, with the result -1.
[[nodiscard]] int32_t IdeDaemonHdcProcessEvent(const SessionEvent& event);

// Hands a request to its component and frees it. Returns the handler's result, -1 without one.
[[nodiscard]] int32_t IdeDaemonHdcRoute(HDC_SESSION session, IdeTlvReq* request);

// Waits until no session thread runs, 15 seconds at most. Called by the teardown.
void IdeWaitForSessionThreads();

// Session threads that still run.
uint32_t IdeSessionThreadCount();
