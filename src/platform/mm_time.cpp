// The clocks and the sleep of the OS abstraction.
#include <errno.h>
#include <time.h>

#include "platform/mm_api.h"

namespace {

constexpr long NANO_PER_MILLI = 1000000;
constexpr long NANO_PER_SECOND = 1000000000;
constexpr uint32_t MILLI_PER_SECOND = 1000;
constexpr int FIRST_YEAR = 1900;

}  // namespace

// Against a deadline: a sleep that goes on with what is left drifts with each signal.
int32_t mmSleep(uint32_t milliSeconds) {
    timespec end = {};
    if (clock_gettime(CLOCK_MONOTONIC, &end) != 0) {
        return -1;
    }
    end.tv_sec += static_cast<time_t>(milliSeconds / MILLI_PER_SECOND);
    end.tv_nsec += static_cast<long>(milliSeconds % MILLI_PER_SECOND) * NANO_PER_MILLI;
    if (end.tv_nsec >= NANO_PER_SECOND) {
        end.tv_nsec -= NANO_PER_SECOND;
        ++end.tv_sec;
    }
    int error = 0;
    do {
        error = clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr);
    } while (error == EINTR);
    errno = error == 0 ? errno : error;
    return error == 0 ? 0 : -1;
}

struct mmTimespec mmGetTickCount(void) {
    timespec now = {};
    if (clock_gettime(CLOCK_MONOTONIC_RAW, &now) != 0) {
        return {0, 0};
    }
    return {now.tv_sec, now.tv_nsec};
}

int32_t mmGetLocalTime(struct mmSystemTime* time) {
    if (time == nullptr) {
        errno = EINVAL;
        return -1;
    }
    timespec now = {};
    tm local = {};
    if (clock_gettime(CLOCK_REALTIME, &now) != 0 || localtime_r(&now.tv_sec, &local) == nullptr) {
        return -1;
    }
    time->wYear = local.tm_year + FIRST_YEAR;
    time->wMonth = local.tm_mon + 1;
    time->wDay = local.tm_mday;
    time->wHour = local.tm_hour;
    time->wMinute = local.tm_min;
    time->wSecond = local.tm_sec;
    time->wMilliseconds = static_cast<int32_t>(now.tv_nsec / NANO_PER_MILLI);
    return 0;
}
