// The daemon's single-instance lock.
#include "daemon/ide_platform_util.h"

#include <fcntl.h>

#include <cstdio>

#include "common/impl_utils.h"
#include "common/memory_utils.h"
#include "common/utils.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"
#include "platform/mm_api.h"

using analysis::rokt::common::utils::Utils;

namespace {

// Longest path that the system's calls take, with its terminating zero.
constexpr size_t IDE_MAX_PATH_LEN = 4096;

// Locks the whole file without waiting.
bool LockWholeFile(int32_t fd) {
    struct flock lock;
    (void)memset_s(&lock, sizeof(lock), 0, sizeof(lock));
    lock.l_type = F_WRLCK;
    lock.l_whence = SEEK_SET;
    lock.l_start = 0;
    lock.l_len = 0;
    return fcntl(fd, F_SETLK, &lock) >= 0;
}

// Keeps the descriptor, and with it the lock, out of the programs that the daemon starts.
bool SetCloseOnExec(int32_t fd) {
    const int flags = fcntl(fd, F_GETFD, 0);
    if (flags < 0) {
        TIV_LOGE("single process fcntl get fd");
        return false;
    }
    if (fcntl(fd, F_SETFD, flags | FD_CLOEXEC) < 0) {
        TIV_LOGE("single process fcntl set fd");
        return false;
    }
    return true;
}

}  // namespace

int32_t SingleProcessStart(std::string& path) {
    path = tiv::HomeDirectory() + "/ide_daemon/";
    (void)Utils::CreateDir(path);  // a failure shows up when the file is opened
    path += ".";
    path += "ruvo";
    path += ".lock";
    const int32_t fd = mmOpen2(path.c_str(), O_WRONLY | O_CREAT, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        TIV_LOGE("single process open %s fd = %d", path.c_str(), fd);
        return -1;
    }
    if (!LockWholeFile(fd)) {
        TIV_LOGE("tiv is exist, don't start again");
        std::puts("tiv is exist, don't start again");
        std::fflush(stdout);
        (void)mmClose(fd);
        return -1;
    }
    if (!SetCloseOnExec(fd)) {
        (void)mmClose(fd);
        return -1;
    }
    return fd;
}

void SingleProcessRemove(const std::string& path) {
    if (path.empty()) {
        return;
    }
    char* resolved = static_cast<char*>(IdeXmalloc(IDE_MAX_PATH_LEN));
    if (resolved == nullptr) {
        TIV_LOGE("IdeXmalloc failed");
        return;
    }
    if (mmRealPath(tiv::ExpandHome(path).c_str(), resolved, IDE_MAX_PATH_LEN) == 0) {
        const int result = remove(resolved);
        if (result != 0) {
            TIV_LOGD("remove %s exit code %d", resolved, result);
        }
    }
    IdeXfree(resolved);
}
