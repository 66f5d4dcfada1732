// The OS abstraction's C interface: each function is a thin wrapper around the operating system.
//
// Unless told otherwise a function returns 0 for success and another value for failure, with errno
// set as the system call left it.
#pragma once

#include <pthread.h>
#include <semaphore.h>
#include <stdint.h>
#include <sys/stat.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef pthread_t mmThread;
typedef pthread_mutex_t mmMutex;
typedef sem_t mmSem;
typedef int32_t mmProcess;

// Entry function and argument of a thread; copied before the creating call returns.
struct mmUserBlock {
    void* (*procFunc)(void*);
    void* pulArg;
};

// A value counts only when its flag is 1. Stack size in bytes.
struct mmThreadAttr {
    int32_t detachFlag;
    int32_t priorityFlag;
    int32_t priority;
    int32_t policyFlag;
    int32_t policy;
    int32_t threadStackFlag;
    uint32_t stackSize;
};

struct mmTimespec {
    long tv_sec;
    long tv_nsec;
};

struct mmSystemTime {
    int32_t wYear;   // four digits
    int32_t wMonth;  // 1 to 12
    int32_t wDay;
    int32_t wHour;
    int32_t wMinute;
    int32_t wSecond;
    int32_t wMilliseconds;
};

// Both arrays end with a null pointer, which the counts leave out. The first word of argv is the
// program's own name; envp holds "NAME=value" and may be null for none.
struct mmArgvEnv {
    char** argv;
    int32_t argvCount;
    char** envp;
    int32_t envpCount;
};

struct mmDirent {
    unsigned char d_type;  // DT_DIR, DT_REG, ... as the file system told; DT_UNKNOWN is resolved
    char d_name[256];
};

typedef int32_t (*mmFilter)(const struct mmDirent* entry);
typedef int32_t (*mmSort)(const struct mmDirent** left, const struct mmDirent** right);

enum { MM_WAIT_BLOCK = 0, MM_WAIT_NO_HANG = 1 };

// Whole milliseconds, resumed after a signal.
int32_t mmSleep(uint32_t milliSeconds);
uint32_t mmUmask(uint32_t mask);
// A descriptor, or a negative value.
int32_t mmOpen2(const char* path, int32_t flags, uint32_t mode);
int32_t mmClose(int32_t fd);
// Resolves links and dots into `out` of `len` bytes; a missing path is a failure.
int32_t mmRealPath(const char* path, char* out, int32_t len);
int32_t mmSACleanup(void);
// errno of the calling thread.
int32_t mmGetErrorCode(void);
char* mmGetErrorFormatMessage(int32_t code, char* buf, uint32_t len);

int32_t mmCreateTaskWithThreadAttr(mmThread* handle, const struct mmUserBlock* block,
                                   const struct mmThreadAttr* attr);
int32_t mmJoinTask(mmThread* handle);
// Cut to 15 bytes.
int32_t mmSetCurrentThreadName(const char* name);

int32_t mmMutexInit(mmMutex* mutex);
int32_t mmMutexLock(mmMutex* mutex);
int32_t mmMutexUnLock(mmMutex* mutex);
int32_t mmMutexDestroy(mmMutex* mutex);
int32_t mmSemInit(mmSem* sem, uint32_t value);
// Interrupted by a signal: failure with error code 4.
int32_t mmSemWait(mmSem* sem);
int32_t mmSemPost(mmSem* sem);
int32_t mmSemDestroy(mmSem* sem);

// The raw monotonic clock.
struct mmTimespec mmGetTickCount(void);
int32_t mmGetLocalTime(struct mmSystemTime* time);

// Starts `cmd`, looked up in the PATH entry of the given environment when it holds no slash.
// Standard output goes to `stdoutFile` (created or emptied, 0640), or is inherited when that is
// null; standard error is inherited, standard input is the null device. No other descriptor reaches
// the child, nor do blocked signals and an ignored SIGPIPE.
int32_t mmCreateProcess(const char* cmd, const struct mmArgvEnv* args, const char* stdoutFile,
                        mmProcess* pid);
// 1: the child ended and `status` holds its exit code (128 + signal for a killed one); 0: it still
// runs (MM_WAIT_NO_HANG only); negative: failure.
int32_t mmWaitPid(mmProcess pid, int32_t* status, int32_t options);

int32_t mmMkdir(const char* path, uint32_t mode);
int32_t mmChmod(const char* path, uint32_t mode);
int32_t mmChdir(const char* path);
// Removes a whole tree; follows no link.
int32_t mmRmdir(const char* path);
int32_t mmUnlink(const char* path);
// Number of entries ("." and ".." included), negative for failure. The list goes with
// mmScandirFree.
int32_t mmScandir(const char* path, struct mmDirent*** list, mmFilter filter, mmSort sort);
void mmScandirFree(struct mmDirent** list, int32_t count);
// 0: `path` is a directory.
int32_t mmIsDir(const char* path);
// 0: accessible in `mode` (F_OK, R_OK, W_OK, X_OK).
int32_t mmAccess2(const char* path, int32_t mode);
int32_t mmStatGet(const char* path, struct stat* buffer);
int32_t mmGetFileSize(const char* path, uint64_t* size);
// Both may write to their argument.
char* mmDirName(char* path);
char* mmBaseName(char* path);

#ifdef __cplusplus
}
#endif
