// The functions of the OS abstraction as replaceable members, and what the C functions in front of
// them need.
#pragma once

#include <functional>

#include "platform/mm_api.h"
#include "support/fault_table.h"

namespace tiv::test {

// One member per function of the OS abstraction, under its own name. A test replaces members before
// the threads that call them start; while they run it uses the fault table.
struct MmFunctions {
    std::function<decltype(::mmSleep)> mmSleep;
    std::function<decltype(::mmUmask)> mmUmask;
    std::function<decltype(::mmOpen2)> mmOpen2;
    std::function<decltype(::mmClose)> mmClose;
    std::function<decltype(::mmRealPath)> mmRealPath;
    std::function<decltype(::mmSACleanup)> mmSACleanup;
    std::function<decltype(::mmGetErrorCode)> mmGetErrorCode;
    std::function<decltype(::mmGetErrorFormatMessage)> mmGetErrorFormatMessage;
    std::function<decltype(::mmCreateTaskWithThreadAttr)> mmCreateTaskWithThreadAttr;
    std::function<decltype(::mmJoinTask)> mmJoinTask;
    std::function<decltype(::mmSetCurrentThreadName)> mmSetCurrentThreadName;
    std::function<decltype(::mmMutexInit)> mmMutexInit;
    std::function<decltype(::mmMutexLock)> mmMutexLock;
    std::function<decltype(::mmMutexUnLock)> mmMutexUnLock;
    std::function<decltype(::mmMutexDestroy)> mmMutexDestroy;
    std::function<decltype(::mmSemInit)> mmSemInit;
    std::function<decltype(::mmSemWait)> mmSemWait;
    std::function<decltype(::mmSemPost)> mmSemPost;
    std::function<decltype(::mmSemDestroy)> mmSemDestroy;
    std::function<decltype(::mmGetTickCount)> mmGetTickCount;
    std::function<decltype(::mmGetLocalTime)> mmGetLocalTime;
    std::function<decltype(::mmCreateProcess)> mmCreateProcess;
    std::function<decltype(::mmWaitPid)> mmWaitPid;
    std::function<decltype(::mmMkdir)> mmMkdir;
    std::function<decltype(::mmChmod)> mmChmod;
    std::function<decltype(::mmChdir)> mmChdir;
    std::function<decltype(::mmRmdir)> mmRmdir;
    std::function<decltype(::mmUnlink)> mmUnlink;
    std::function<decltype(::mmScandir)> mmScandir;
    std::function<decltype(::mmScandirFree)> mmScandirFree;
    std::function<decltype(::mmIsDir)> mmIsDir;
    std::function<decltype(::mmAccess2)> mmAccess2;
    std::function<decltype(::mmStatGet)> mmStatGet;
    std::function<decltype(::mmGetFileSize)> mmGetFileSize;
    std::function<decltype(::mmDirName)> mmDirName;
    std::function<decltype(::mmBaseName)> mmBaseName;

    // Sets every member to the function of the platform.
    void ForwardToPlatform();

    // Faults and record. Names of arguments: path, ms, mask, flags, mode, fd, name, code, cmd,
    // stdout, pid, options, value, stack, stackFlag, detach.
    FaultTable calls;
};

// The set behind the C functions of this program; each double has its own.
MmFunctions& MmBehindTheInterface();

}  // namespace tiv::test
