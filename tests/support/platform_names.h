// Second names for functions of the platform that a double stands in front of. The platform's
// sources are compiled once more with this file in front, so that a double can hold the first names
// and still reach them.
#pragma once

#define mmSleep TivPlatform_mmSleep
#define mmUmask TivPlatform_mmUmask
#define mmOpen2 TivPlatform_mmOpen2
#define mmClose TivPlatform_mmClose
#define mmRealPath TivPlatform_mmRealPath
#define mmSACleanup TivPlatform_mmSACleanup
#define mmGetErrorCode TivPlatform_mmGetErrorCode
#define mmGetErrorFormatMessage TivPlatform_mmGetErrorFormatMessage
#define mmCreateTaskWithThreadAttr TivPlatform_mmCreateTaskWithThreadAttr
#define mmJoinTask TivPlatform_mmJoinTask
#define mmSetCurrentThreadName TivPlatform_mmSetCurrentThreadName
#define mmMutexInit TivPlatform_mmMutexInit
#define mmMutexLock TivPlatform_mmMutexLock
#define mmMutexUnLock TivPlatform_mmMutexUnLock
#define mmMutexDestroy TivPlatform_mmMutexDestroy
#define mmSemInit TivPlatform_mmSemInit
#define mmSemWait TivPlatform_mmSemWait
#define mmSemPost TivPlatform_mmSemPost
#define mmSemDestroy TivPlatform_mmSemDestroy
#define mmGetTickCount TivPlatform_mmGetTickCount
#define mmGetLocalTime TivPlatform_mmGetLocalTime
#define mmCreateProcess TivPlatform_mmCreateProcess
#define mmWaitPid TivPlatform_mmWaitPid
#define mmMkdir TivPlatform_mmMkdir
#define mmChmod TivPlatform_mmChmod
#define mmChdir TivPlatform_mmChdir
#define mmRmdir TivPlatform_mmRmdir
#define mmUnlink TivPlatform_mmUnlink
#define mmScandir TivPlatform_mmScandir
#define mmScandirFree TivPlatform_mmScandirFree
#define mmIsDir TivPlatform_mmIsDir
#define mmAccess2 TivPlatform_mmAccess2
#define mmStatGet TivPlatform_mmStatGet
#define mmGetFileSize TivPlatform_mmGetFileSize
#define mmDirName TivPlatform_mmDirName
#define mmBaseName TivPlatform_mmBaseName
#define IAMResMgrReady TivPlatform_IAMResMgrReady
#define dlog_init TivPlatform_dlog_init
#define DlogSetAttr TivPlatform_DlogSetAttr
