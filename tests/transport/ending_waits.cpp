// The C library's timed wait and the steady clock with a switch in front of them.
#include "transport/ending_waits.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace {

constexpr int64_t NANO_PER_SECOND = 1000000000;

std::atomic<bool> waitsEnd{false};
std::atomic<int64_t> clockNs{0};

int64_t KernelNs() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * NANO_PER_SECOND + now.tv_nsec;
}

}  // namespace

// What std::chrono::steady_clock::now reads.
extern "C" int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv();

extern "C" int64_t __wrap__ZNSt6chrono3_V212steady_clock3nowEv() {
    return waitsEnd ? clockNs.load() : KernelNs();
}

extern "C" int __real_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const struct timespec* deadline);
extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const struct timespec* deadline);

extern "C" int __wrap_pthread_cond_clockwait(pthread_cond_t* condition, pthread_mutex_t* mutex,
                                             clockid_t clock, const struct timespec* deadline) {
    if (waitsEnd) {
        clockNs = deadline->tv_sec * NANO_PER_SECOND + deadline->tv_nsec;
        return ETIMEDOUT;
    }
    return __real_pthread_cond_clockwait(condition, mutex, clock, deadline);
}

namespace tiv::test {

EndingWaits::EndingWaits() {
    clockNs = KernelNs();
    waitsEnd = true;
}

EndingWaits::~EndingWaits() { waitsEnd = false; }

}  // namespace tiv::test
