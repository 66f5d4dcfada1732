// The three functions of the profiling component, as the daemon's component table calls them.
#pragma once

#include <cstdint>

#include "hdc/request_packet.h"
#include "platform/driver_api.h"

// The longest value of a session's first request, in bytes.
constexpr uint32_t PROFILE_REQUEST_MAX_LEN = 3145728;

// Makes the component ready for sessions. Returns 0 or -1; after a failure the daemon goes on, and
// every handshake finds the collection entry not inited. Main thread.
int32_t IdeDeviceProfileInit();

// Serves the first request of a session and takes the session over: it is closed by the time this
// returns, or belongs to a receiver or an uploader. The request stays the caller's. Returns 0 or -1
// or the failure of the handshake. Session threads, several at a time.
int32_t IdeDeviceProfileProcess(HDC_SESSION session, const IdeTlvReq* request);

// Ends all sessions and tasks; no thread of the component is left. Returns 0 or -1. Main thread.
int32_t IdeDeviceProfileCleanup();
