// Time, processor time and medians of benchmark rounds.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace tiv::bench {

using Clock = std::chrono::steady_clock;

constexpr uint64_t MIB = 1024 * 1024;
constexpr double GB = 1e9;

inline double SecondsSince(Clock::time_point start) {
    return std::chrono::duration<double>(Clock::now() - start).count();
}

// Seconds of this process's threads, user's and system's.
double OwnCpu();
// The same of another process, in steps of the kernel's clock tick.
double CpuOf(pid_t pid);
// A number of /proc/<pid>/status as it stands there: kB or a count; 0 when it has none.
uint64_t StatusNumber(pid_t pid, const std::string& name);

// The median; of an even number the mean of the middle two. 0 for none.
double Median(std::vector<double> values);

}  // namespace tiv::bench
