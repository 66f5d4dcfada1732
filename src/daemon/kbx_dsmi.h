// The driver's device lists as the daemon shell asks for them. Stateless; any thread.
//
// A device has a logical id, by which the driver counts, and a physical id, by which the daemon
// knows it. Each call asks the driver anew: logical ids may move when a device comes back.
#pragma once

#include <cstdint>

// The one accepted length of the id lists, and the largest device count.
constexpr uint32_t DEVICE_LIST_LEN = 1124;

// All return 0, or -1 with one log line.

// Number of devices and their logical ids. The driver fills at most 64 ids whatever the count; a
// count of 0 or above 1124 asks for none and leaves the list alone.
[[nodiscard]] int32_t IdeGetDevList(uint32_t* devNum, uint32_t* devIds, uint32_t len);

// Number of devices and their physical ids, in the order of the logical ids.
[[nodiscard]] int32_t IdeGetPhyDevList(uint32_t* devNum, uint32_t* phyIds, uint32_t len);

// The logical id that stands for a physical id at the moment.
[[nodiscard]] int32_t IdeGetLogIdByPhyId(uint32_t phyId, uint32_t* logId);

// The driver's index of a physical id below 1125.
[[nodiscard]] int32_t IdeGetIndexByPhyId(uint32_t phyId, uint32_t* index);
