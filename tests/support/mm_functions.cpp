// The members that forward the OS abstraction to the platform's own functions.
#include "support/mm_functions.h"

extern "C" {

decltype(::mmSleep) TivPlatform_mmSleep;
decltype(::mmUmask) TivPlatform_mmUmask;
decltype(::mmOpen2) TivPlatform_mmOpen2;
decltype(::mmClose) TivPlatform_mmClose;
decltype(::mmRealPath) TivPlatform_mmRealPath;
decltype(::mmSACleanup) TivPlatform_mmSACleanup;
decltype(::mmGetErrorCode) TivPlatform_mmGetErrorCode;
decltype(::mmGetErrorFormatMessage) TivPlatform_mmGetErrorFormatMessage;
decltype(::mmCreateTaskWithThreadAttr) TivPlatform_mmCreateTaskWithThreadAttr;
decltype(::mmJoinTask) TivPlatform_mmJoinTask;
decltype(::mmSetCurrentThreadName) TivPlatform_mmSetCurrentThreadName;
decltype(::mmMutexInit) TivPlatform_mmMutexInit;
decltype(::mmMutexLock) TivPlatform_mmMutexLock;
decltype(::mmMutexUnLock) TivPlatform_mmMutexUnLock;
decltype(::mmMutexDestroy) TivPlatform_mmMutexDestroy;
decltype(::mmSemInit) TivPlatform_mmSemInit;
decltype(::mmSemWait) TivPlatform_mmSemWait;
decltype(::mmSemPost) TivPlatform_mmSemPost;
decltype(::mmSemDestroy) TivPlatform_mmSemDestroy;
decltype(::mmGetTickCount) TivPlatform_mmGetTickCount;
decltype(::mmGetLocalTime) TivPlatform_mmGetLocalTime;
decltype(::mmCreateProcess) TivPlatform_mmCreateProcess;
decltype(::mmWaitPid) TivPlatform_mmWaitPid;
decltype(::mmMkdir) TivPlatform_mmMkdir;
decltype(::mmChmod) TivPlatform_mmChmod;
decltype(::mmChdir) TivPlatform_mmChdir;
decltype(::mmRmdir) TivPlatform_mmRmdir;
decltype(::mmUnlink) TivPlatform_mmUnlink;
decltype(::mmScandir) TivPlatform_mmScandir;
decltype(::mmScandirFree) TivPlatform_mmScandirFree;
decltype(::mmIsDir) TivPlatform_mmIsDir;
decltype(::mmAccess2) TivPlatform_mmAccess2;
decltype(::mmStatGet) TivPlatform_mmStatGet;
decltype(::mmGetFileSize) TivPlatform_mmGetFileSize;
decltype(::mmDirName) TivPlatform_mmDirName;
decltype(::mmBaseName) TivPlatform_mmBaseName;

}  // extern "C"

namespace tiv::test {

void MmFunctions::ForwardToPlatform() {
    mmSleep = TivPlatform_mmSleep;
    mmUmask = TivPlatform_mmUmask;
    mmOpen2 = TivPlatform_mmOpen2;
    mmClose = TivPlatform_mmClose;
    mmRealPath = TivPlatform_mmRealPath;
    mmSACleanup = TivPlatform_mmSACleanup;
    mmGetErrorCode = TivPlatform_mmGetErrorCode;
    mmGetErrorFormatMessage = TivPlatform_mmGetErrorFormatMessage;
    mmCreateTaskWithThreadAttr = TivPlatform_mmCreateTaskWithThreadAttr;
    mmJoinTask = TivPlatform_mmJoinTask;
    mmSetCurrentThreadName = TivPlatform_mmSetCurrentThreadName;
    mmMutexInit = TivPlatform_mmMutexInit;
    mmMutexLock = TivPlatform_mmMutexLock;
    mmMutexUnLock = TivPlatform_mmMutexUnLock;
    mmMutexDestroy = TivPlatform_mmMutexDestroy;
    mmSemInit = TivPlatform_mmSemInit;
    mmSemWait = TivPlatform_mmSemWait;
    mmSemPost = TivPlatform_mmSemPost;
    mmSemDestroy = TivPlatform_mmSemDestroy;
    mmGetTickCount = TivPlatform_mmGetTickCount;
    mmGetLocalTime = TivPlatform_mmGetLocalTime;
    mmCreateProcess = TivPlatform_mmCreateProcess;
    mmWaitPid = TivPlatform_mmWaitPid;
    mmMkdir = TivPlatform_mmMkdir;
    mmChmod = TivPlatform_mmChmod;
    mmChdir = TivPlatform_mmChdir;
    mmRmdir = TivPlatform_mmRmdir;
    mmUnlink = TivPlatform_mmUnlink;
    mmScandir = TivPlatform_mmScandir;
    mmScandirFree = TivPlatform_mmScandirFree;
    mmIsDir = TivPlatform_mmIsDir;
    mmAccess2 = TivPlatform_mmAccess2;
    mmStatGet = TivPlatform_mmStatGet;
    mmGetFileSize = TivPlatform_mmGetFileSize;
    mmDirName = TivPlatform_mmDirName;
    mmBaseName = TivPlatform_mmBaseName;
}

}  // namespace tiv::test
