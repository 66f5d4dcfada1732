// Reading of clocks, and whose they are.
#include "host/host_clock.h"

#include <ctime>
#include <fstream>
#include <string>

namespace tiv::host {

namespace {

constexpr uint64_t NS_PER_SECOND = 1'000'000'000;
// What the kernel calls the daemon's process.
constexpr const char* DAEMON_NAME = "tiv";

uint64_t ReadNs(clockid_t clock) {
    timespec time{};
    (void)clock_gettime(clock, &time);
    return static_cast<uint64_t>(time.tv_sec) * NS_PER_SECOND + static_cast<uint64_t>(time.tv_nsec);
}

}  // namespace

uint64_t RawClockNs() { return ReadNs(CLOCK_MONOTONIC_RAW); }

HostInstant ReadHostClocks() {
    const uint64_t before = RawClockNs();
    const uint64_t wallNs = ReadNs(CLOCK_REALTIME);
    return {wallNs, before + (RawClockNs() - before) / 2};
}

bool IsDaemonHere(int32_t peerPid) {
    if (peerPid <= 0) {
        return false;
    }
    std::ifstream file("/proc/" + std::to_string(peerPid) + "/comm");
    std::string name;
    return std::getline(file, name) && name == DAEMON_NAME;
}

}  // namespace tiv::host
