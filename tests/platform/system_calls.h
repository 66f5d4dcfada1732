// Calls of the C library with a clock or a count in front of them.
#pragma once

#include <atomic>
#include <ctime>
#include <functional>

namespace tiv::test {

// What one clock tells the program, and the result of asking it.
struct FixedClock {
    clockid_t clock;
    timespec time;
    int result;
};

// While it is set the clock stands still; null leaves it to the system.
extern std::atomic<const FixedClock*> fixedClock;

// While it is set a sleep ends at once and leaves its deadline here.
extern std::atomic<timespec*> sleepDeadline;

// Attributes made for threads and for child processes less those given back.
extern std::atomic<int> liveThreadAttributes;
extern std::atomic<int> liveSpawnAttributes;

// While it is set entries of directories come without their type, as some file systems give them.
extern std::atomic<bool> typesAreHidden;

// While it is not 0, pthread_attr_init, posix_spawnattr_init and fdopendir fail with this error.
extern std::atomic<int> refusal;

// The fstat or fstatat of which this is the number from now on fails with EIO; 0: none does.
extern std::atomic<int> statToFail;

// So many calls of waitpid or write are interrupted by a signal.
extern std::atomic<int> interruptions;

// Called once, before the next removal of a directory by its path.
extern std::function<void()> beforeRmdir;

}  // namespace tiv::test
