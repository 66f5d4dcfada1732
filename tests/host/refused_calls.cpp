// The calls in front of the real ones.
#include "host/refused_calls.h"

#include <sqlite3.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>
#include <zlib.h>

#include <atomic>
#include <mutex>

#include "support/before_every_test.h"

namespace {

using std::chrono::steady_clock;
using tiv::test::Refuses;

std::mutex mutex;
std::vector<std::chrono::nanoseconds> sleeps;
std::atomic<int64_t> forwardSeconds{0};

[[maybe_unused]] const bool fresh = tiv::test::BeforeEveryTest([] {
    const std::lock_guard<std::mutex> lock(mutex);
    sleeps.clear();
    forwardSeconds = 0;
});

}  // namespace

namespace tiv::test {

void PutClockForward(std::chrono::seconds time) { forwardSeconds += time.count(); }

std::vector<std::chrono::nanoseconds> Sleeps() {
    const std::lock_guard<std::mutex> lock(mutex);
    return sleeps;
}

}  // namespace tiv::test

extern "C" {

TIV_REFUSABLE(deflateInit2_, int, Z_MEM_ERROR,
              (z_streamp stream, int level, int method, int window, int memory, int strategy,
               const char* version, int bytes),
              (stream, level, method, window, memory, strategy, version, bytes))
TIV_REFUSABLE(fork, pid_t, -1, (), ())
TIV_REFUSABLE(mkdirat, int, -1, (int fd, const char* path, mode_t mode), (fd, path, mode))
TIV_REFUSABLE(pread, ssize_t, -1, (int fd, void* bytes, size_t count, off_t offset),
              (fd, bytes, count, offset))
TIV_REFUSABLE(read, ssize_t, -1, (int fd, void* bytes, size_t count), (fd, bytes, count))
TIV_REFUSABLE(sqlite3_open_v2, int, SQLITE_NOMEM,
              (const char* path, sqlite3** handle, int flags, const char* module),
              (path, handle, flags, module))
TIV_REFUSABLE(write, ssize_t, -1, (int fd, const void* bytes, size_t count), (fd, bytes, count))

int __real_close(int fd);
int __wrap_close(int fd);

int __wrap_close(int fd) {
    const int result = __real_close(fd);
    return Refuses("close") ? -1 : result;
}

int __wrap_nanosleep(const timespec* time, timespec* rest);

int __wrap_nanosleep(const timespec* time, timespec* /*rest*/) {
    const std::lock_guard<std::mutex> lock(mutex);
    sleeps.push_back(std::chrono::seconds(time->tv_sec) + std::chrono::nanoseconds(time->tv_nsec));
    return 0;
}

}  // extern "C"

// The names that the linker knows steady_clock::now by.
steady_clock::time_point RealNow() asm("__real__ZNSt6chrono3_V212steady_clock3nowEv");
steady_clock::time_point PutForwardNow() asm("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");

steady_clock::time_point PutForwardNow() {
    return RealNow() + std::chrono::seconds(forwardSeconds.load());
}
