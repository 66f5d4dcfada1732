// The clocks of this machine.
#pragma once

#include <cstdint>

namespace tiv::host {

// One instant on two clocks.
struct HostInstant {
    uint64_t wallNs = 0;  // since 1970
    uint64_t rawNs = 0;   // the raw monotonic clock, which counts from the start of the machine
};

// Nanoseconds of the raw monotonic clock.
[[nodiscard]] uint64_t RawClockNs();

// Both clocks, read closely one behind the other.
[[nodiscard]] HostInstant ReadHostClocks();

// True when the process at the other end of a session is a daemon that runs on this machine, so
// that the device's raw monotonic clock is this machine's. False also where that cannot be known:
// for a process that hands the stream on to another machine, and with the driver of a card.
[[nodiscard]] bool IsDaemonHere(int32_t peerPid);

}  // namespace tiv::host
