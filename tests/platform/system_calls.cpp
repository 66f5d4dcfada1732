// The linker leads the calls of the test program here.
#include "platform/system_calls.h"

#include <dirent.h>
#include <errno.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <utility>

namespace tiv::test {

std::atomic<const FixedClock*> fixedClock{nullptr};
std::atomic<timespec*> sleepDeadline{nullptr};
std::atomic<int> liveThreadAttributes{0};
std::atomic<int> liveSpawnAttributes{0};

std::atomic<bool> typesAreHidden{false};
std::atomic<int> refusal{0};
std::atomic<int> statToFail{0};
std::atomic<int> interruptions{0};
std::function<void()> beforeRmdir;

}  // namespace tiv::test

namespace {

bool StatFails() {
    if (tiv::test::statToFail == 0 || --tiv::test::statToFail != 0) {
        return false;
    }
    errno = EIO;
    return true;
}

bool IsInterrupted() {
    if (tiv::test::interruptions == 0) {
        return false;
    }
    --tiv::test::interruptions;
    errno = EINTR;
    return true;
}

}  // namespace

extern "C" {

int __real_fstat(int fd, struct stat* status);
int __wrap_fstat(int fd, struct stat* status);

int __wrap_fstat(int fd, struct stat* status) {
    return StatFails() ? -1 : __real_fstat(fd, status);
}

pid_t __real_waitpid(pid_t pid, int* status, int options);
pid_t __wrap_waitpid(pid_t pid, int* status, int options);

pid_t __wrap_waitpid(pid_t pid, int* status, int options) {
    return IsInterrupted() ? -1 : __real_waitpid(pid, status, options);
}

ssize_t __real_write(int fd, const void* bytes, size_t size);
ssize_t __wrap_write(int fd, const void* bytes, size_t size);

ssize_t __wrap_write(int fd, const void* bytes, size_t size) {
    return IsInterrupted() ? -1 : __real_write(fd, bytes, size);
}

int __real_fstatat(int directory, const char* name, struct stat* status, int flags);
int __wrap_fstatat(int directory, const char* name, struct stat* status, int flags);

int __wrap_fstatat(int directory, const char* name, struct stat* status, int flags) {
    return StatFails() ? -1 : __real_fstatat(directory, name, status, flags);
}

int __real_clock_gettime(clockid_t clock, timespec* time);
int __wrap_clock_gettime(clockid_t clock, timespec* time);

int __wrap_clock_gettime(clockid_t clock, timespec* time) {
    const tiv::test::FixedClock* fixed = tiv::test::fixedClock;
    if (fixed == nullptr || clock != fixed->clock) {
        return __real_clock_gettime(clock, time);
    }
    *time = fixed->time;
    return fixed->result;
}

int __real_clock_nanosleep(clockid_t clock, int flags, const timespec* end, timespec* left);
int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* end, timespec* left);

int __wrap_clock_nanosleep(clockid_t clock, int flags, const timespec* end, timespec* left) {
    timespec* deadline = tiv::test::sleepDeadline;
    if (deadline == nullptr) {
        return __real_clock_nanosleep(clock, flags, end, left);
    }
    *deadline = *end;
    return 0;
}

int __real_pthread_attr_init(pthread_attr_t* attributes);
int __wrap_pthread_attr_init(pthread_attr_t* attributes);

int __wrap_pthread_attr_init(pthread_attr_t* attributes) {
    if (tiv::test::refusal != 0) {
        return tiv::test::refusal;
    }
    ++tiv::test::liveThreadAttributes;
    return __real_pthread_attr_init(attributes);
}

int __real_pthread_attr_destroy(pthread_attr_t* attributes);
int __wrap_pthread_attr_destroy(pthread_attr_t* attributes);

int __wrap_pthread_attr_destroy(pthread_attr_t* attributes) {
    --tiv::test::liveThreadAttributes;
    return __real_pthread_attr_destroy(attributes);
}

int __real_posix_spawnattr_init(posix_spawnattr_t* attributes);
int __wrap_posix_spawnattr_init(posix_spawnattr_t* attributes);

// The values at first are the system's affair: here every signal is blocked.
int __wrap_posix_spawnattr_init(posix_spawnattr_t* attributes) {
    if (tiv::test::refusal != 0) {
        return tiv::test::refusal;
    }
    ++tiv::test::liveSpawnAttributes;
    const int error = __real_posix_spawnattr_init(attributes);
    sigset_t all;
    sigfillset(&all);
    return error != 0 ? error : posix_spawnattr_setsigmask(attributes, &all);
}

int __real_posix_spawnattr_destroy(posix_spawnattr_t* attributes);
int __wrap_posix_spawnattr_destroy(posix_spawnattr_t* attributes);

int __wrap_posix_spawnattr_destroy(posix_spawnattr_t* attributes) {
    --tiv::test::liveSpawnAttributes;
    return __real_posix_spawnattr_destroy(attributes);
}

dirent* __real_readdir(DIR* stream);
dirent* __wrap_readdir(DIR* stream);

dirent* __wrap_readdir(DIR* stream) {
    dirent* entry = __real_readdir(stream);
    if (entry != nullptr && tiv::test::typesAreHidden) {
        entry->d_type = DT_UNKNOWN;
    }
    return entry;
}

DIR* __real_fdopendir(int fd);
DIR* __wrap_fdopendir(int fd);

DIR* __wrap_fdopendir(int fd) {
    if (tiv::test::refusal != 0) {
        errno = tiv::test::refusal;
        return nullptr;
    }
    return __real_fdopendir(fd);
}

int __real_closedir(DIR* stream);
int __wrap_closedir(DIR* stream);

// A successful call may leave any error number.
int __wrap_closedir(DIR* stream) {
    const int result = __real_closedir(stream);
    errno = EIO;
    return result;
}

int __real_rmdir(const char* path);
int __wrap_rmdir(const char* path);

int __wrap_rmdir(const char* path) {
    if (tiv::test::beforeRmdir) {
        std::exchange(tiv::test::beforeRmdir, {})();
    }
    return __real_rmdir(path);
}

}  // extern "C"
