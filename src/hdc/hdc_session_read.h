// Puts the fragments of driver messages together again into one whole buffer.
#pragma once

#include <cstdint>

#include "platform/driver_api.h"

// Reads fragments up to and including the last one. On 0 the caller owns `recvBuf` and frees it
// with IdeXfree. 1: closed by the far end; 2: the driver has nothing at the moment; -1: failure. In
// all cases but 0 the outputs are left alone and what was read is gone.
[[nodiscard]] int32_t HdcSessionRead(HDC_SESSION session, void** recvBuf, uint32_t* recvLen,
                                     uint64_t flag);
