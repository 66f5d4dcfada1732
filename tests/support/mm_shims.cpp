// The C functions of the OS abstraction in front of a set of replaceable ones.
#include "support/mm_functions.h"

namespace {

using tiv::test::Intercept;
using tiv::test::MmBehindTheInterface;
using tiv::test::SetErrorOf;

// Results that are pointers: null when a fault stands in the call's place.
template <typename Real>
auto InterceptPointer(const char* function, tiv::test::Arguments arguments, Real real)
    -> decltype(real()) {
    const auto fault = MmBehindTheInterface().calls.Enter(function, std::move(arguments));
    if (fault.Replaces()) {
        SetErrorOf(fault);
        return nullptr;
    }
    return real();
}

}  // namespace

extern "C" {

int32_t mmSleep(uint32_t milliSeconds) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"ms", milliSeconds}},
                     [&] { return mm.mmSleep(milliSeconds); });
}

uint32_t mmUmask(uint32_t mask) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"mask", mask}}, [&] { return mm.mmUmask(mask); });
}

int32_t mmOpen2(const char* path, int32_t flags, uint32_t mode) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}, {"flags", flags}, {"mode", mode}},
                     [&] { return mm.mmOpen2(path, flags, mode); });
}

int32_t mmClose(int32_t fd) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"fd", fd}}, [&] { return mm.mmClose(fd); });
}

int32_t mmRealPath(const char* path, char* out, int32_t len) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}, {"len", len}},
                     [&] { return mm.mmRealPath(path, out, len); });
}

int32_t mmSACleanup(void) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmSACleanup(); });
}

int32_t mmGetErrorCode(void) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmGetErrorCode(); });
}

char* mmGetErrorFormatMessage(int32_t code, char* buf, uint32_t len) {
    auto& mm = MmBehindTheInterface();
    return InterceptPointer(__func__, {{"code", code}, {"len", len}},
                            [&] { return mm.mmGetErrorFormatMessage(code, buf, len); });
}

int32_t mmCreateTaskWithThreadAttr(mmThread* handle, const struct mmUserBlock* block,
                                   const struct mmThreadAttr* attr) {
    auto& mm = MmBehindTheInterface();
    tiv::test::Arguments arguments;
    if (attr != nullptr) {
        arguments = {{"detach", attr->detachFlag},
                     {"stackFlag", attr->threadStackFlag},
                     {"stack", attr->stackSize}};
    }
    return Intercept(mm.calls, __func__, std::move(arguments),
                     [&] { return mm.mmCreateTaskWithThreadAttr(handle, block, attr); });
}

int32_t mmJoinTask(mmThread* handle) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmJoinTask(handle); });
}

int32_t mmSetCurrentThreadName(const char* name) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"name", name}},
                     [&] { return mm.mmSetCurrentThreadName(name); });
}

int32_t mmMutexInit(mmMutex* mutex) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmMutexInit(mutex); });
}

int32_t mmMutexLock(mmMutex* mutex) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmMutexLock(mutex); });
}

int32_t mmMutexUnLock(mmMutex* mutex) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmMutexUnLock(mutex); });
}

int32_t mmMutexDestroy(mmMutex* mutex) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmMutexDestroy(mutex); });
}

int32_t mmSemInit(mmSem* sem, uint32_t value) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"value", value}},
                     [&] { return mm.mmSemInit(sem, value); });
}

int32_t mmSemWait(mmSem* sem) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmSemWait(sem); });
}

int32_t mmSemPost(mmSem* sem) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmSemPost(sem); });
}

int32_t mmSemDestroy(mmSem* sem) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmSemDestroy(sem); });
}

// A fault's `out` is the time in nanoseconds.
struct mmTimespec mmGetTickCount(void) {
    constexpr int64_t NANO = 1000000000;
    auto& mm = MmBehindTheInterface();
    const auto fault = mm.calls.Enter(__func__, {});
    if (fault.out.has_value()) {
        return {static_cast<long>(*fault.out / NANO), static_cast<long>(*fault.out % NANO)};
    }
    return mm.mmGetTickCount();
}

int32_t mmGetLocalTime(struct mmSystemTime* time) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {}, [&] { return mm.mmGetLocalTime(time); });
}

int32_t mmCreateProcess(const char* cmd, const struct mmArgvEnv* args, const char* stdoutFile,
                        mmProcess* pid) {
    auto& mm = MmBehindTheInterface();
    std::string words;
    for (int32_t i = 0; args != nullptr && args->argv != nullptr && args->argv[i] != nullptr; ++i) {
        words += (i == 0 ? "" : " ") + std::string(args->argv[i]);
    }
    return InterceptOut(mm.calls, __func__,
                        {{"cmd", cmd}, {"argv", words.c_str()}, {"stdout", stdoutFile}}, pid,
                        [&] { return mm.mmCreateProcess(cmd, args, stdoutFile, pid); });
}

int32_t mmWaitPid(mmProcess pid, int32_t* status, int32_t options) {
    auto& mm = MmBehindTheInterface();
    return InterceptOut(mm.calls, __func__, {{"pid", pid}, {"options", options}}, status,
                        [&] { return mm.mmWaitPid(pid, status, options); });
}

int32_t mmMkdir(const char* path, uint32_t mode) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}, {"mode", mode}},
                     [&] { return mm.mmMkdir(path, mode); });
}

int32_t mmChmod(const char* path, uint32_t mode) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}, {"mode", mode}},
                     [&] { return mm.mmChmod(path, mode); });
}

int32_t mmChdir(const char* path) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}}, [&] { return mm.mmChdir(path); });
}

int32_t mmRmdir(const char* path) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}}, [&] { return mm.mmRmdir(path); });
}

int32_t mmUnlink(const char* path) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}}, [&] { return mm.mmUnlink(path); });
}

int32_t mmScandir(const char* path, struct mmDirent*** list, mmFilter filter, mmSort sort) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}},
                     [&] { return mm.mmScandir(path, list, filter, sort); });
}

void mmScandirFree(struct mmDirent** list, int32_t count) {
    auto& mm = MmBehindTheInterface();
    mm.calls.Enter(__func__, {{"count", count}});
    mm.mmScandirFree(list, count);
}

int32_t mmIsDir(const char* path) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}}, [&] { return mm.mmIsDir(path); });
}

int32_t mmAccess2(const char* path, int32_t mode) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}, {"mode", mode}},
                     [&] { return mm.mmAccess2(path, mode); });
}

int32_t mmStatGet(const char* path, struct stat* buffer) {
    auto& mm = MmBehindTheInterface();
    return Intercept(mm.calls, __func__, {{"path", path}},
                     [&] { return mm.mmStatGet(path, buffer); });
}

int32_t mmGetFileSize(const char* path, uint64_t* size) {
    auto& mm = MmBehindTheInterface();
    return InterceptOut(mm.calls, __func__, {{"path", path}}, size,
                        [&] { return mm.mmGetFileSize(path, size); });
}

char* mmDirName(char* path) {
    return InterceptPointer(__func__, {{"path", path}},
                            [&] { return MmBehindTheInterface().mmDirName(path); });
}

char* mmBaseName(char* path) {
    return InterceptPointer(__func__, {{"path", path}},
                            [&] { return MmBehindTheInterface().mmBaseName(path); });
}

}  // extern "C"
