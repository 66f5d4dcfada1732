// The life of the daemon process from its checks to its exit value.
#include "daemon/ide_daemon.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "daemon/hdc_session_thread.h"
#include "daemon/ide_common_util.h"
#include "daemon/ide_daemon_hdc.h"
#include "daemon/ide_platform_util.h"
#include "device/prof_device_core.h"
#include "platform/log.h"
#include "platform/mm_api.h"
#include "platform/resource_manager.h"

namespace {

constexpr uint32_t FILE_CREATION_MASK = 022;
constexpr uint32_t LOG_PROCESS_TYPE = 1;

int32_t HookStub() { return 0; }

// The stubs stand in slot 17, which has no row of its own: the log names them "default".
void RegisterComponents() {
    RegisterComponent(IDE_COMPONENT_HOOK, {HookStub, HookStub, nullptr, nullptr});
    RegisterComponent(IDE_COMPONENT_HDC, {IdeDaemonHdcInit, IdeDaemonHdcDestroy, nullptr, nullptr});
    RegisterComponent(IDE_COMPONENT_PROFILING, {IdeDeviceProfileInit, IdeDeviceProfileCleanup,
                                                nullptr, IdeDeviceProfileProcess});
}

void AttachToLog() {
    (void)dlog_init();
    DlogAttr attr{};
    attr.type = LOG_PROCESS_TYPE;
    if (DlogSetAttr(attr) != 0) {
        TIV_LOGW("Set log attr failed.");
    }
}

int32_t ServeUntilTheLoopEnds() {
    RegisterComponents();
    if (IdeDaemonInit() != 0) {
        TIV_LOGE("tiv init failed, exit");
        std::puts("tiv init failed, exit");
        std::fflush(stdout);
        return -1;
    }
    IdeDaemonHdcCreateServers();
    return 0;
}

void ReleaseLock(int32_t lockFd, const std::string& lockPath) {
    if (lockFd >= 0) {
        (void)mmClose(lockFd);
    }
    SingleProcessRemove(lockPath);
}

}  // namespace

int32_t IdeDaemonRun() {
    if (IAMResMgrReady() != 0) {
        TIV_LOGE("IAMResMgrReady failed.");
        return -1;
    }
    (void)mmUmask(FILE_CREATION_MASK);
    std::string lockPath;
    const int32_t lockFd = SingleProcessStart(lockPath);
    if (lockFd < 0) {
        TIV_LOGE("single process start error");
        SingleProcessRemove(lockPath);
        return -1;
    }
    AttachToLog();
    const int32_t result = ServeUntilTheLoopEnds();
    IdeDaemonDestroy();
    TIV_LOGI("Components Destroy success.");
    (void)mmSACleanup();
    TIV_LOGI("SACleanup success.");
    ReleaseLock(lockFd, lockPath);
    TIV_LOGI("tiv start up exit");
    if (IdeSessionThreadCount() != 0) {
        // A session thread is still in a handler: leave without the exit handlers, which would
        // take the process-wide objects away from under it.
        _exit(result);
    }
    return result;
}
