// Fragments one whole buffer into driver messages.
#pragma once

#include <cstdint>

#include "platform/driver_api.h"

// Writes `length` bytes (at least 1) as fragments of at most the driver's segment size, through one
// driver message that is emptied between them. `flag` is HDC_FLAG_WAIT or HDC_FLAG_NO_WAIT. -1 on
// any failure; what was sent until then stays sent.
[[nodiscard]] int32_t HdcSessionWrite(HDC_SESSION session, const void* buf, uint32_t length,
                                      uint64_t flag);

// The same for a buffer with HDC_ROOM_IN_FRONT writable bytes in front and HDC_ROOM_BEHIND behind
// (fragment.h): each fragment is laid around its slice of the buffer, sent from there, and taken
// away again. The driver is done with a buffer when the send returns.
[[nodiscard]] int32_t HdcSessionWriteInPlace(HDC_SESSION session, char* buf, uint32_t length,
                                             uint64_t flag);
