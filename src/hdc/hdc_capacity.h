// The size of the driver's segment.
#pragma once

#include <cstdint>

#include "platform/driver_api.h"

// The driver's segment size in bytes, asked anew at every call; -1 when it is outside 1024..524288.
// Shares its name with the driver's record, as both have to; "struct" tells the record.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wshadow"
[[nodiscard]] int32_t HdcCapacity(uint32_t* segment);
#pragma GCC diagnostic pop
