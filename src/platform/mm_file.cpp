// Files, paths and error texts of the OS abstraction.
#include <errno.h>
#include <fcntl.h>
#include <libgen.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "platform/mm_api.h"

namespace {

int32_t Refuse(int error) {
    errno = error;
    return -1;
}

}  // namespace

uint32_t mmUmask(uint32_t mask) { return umask(static_cast<mode_t>(mask)); }

int32_t mmOpen2(const char* path, int32_t flags, uint32_t mode) {
    return path == nullptr ? Refuse(EINVAL) : open(path, flags, static_cast<mode_t>(mode));
}

int32_t mmClose(int32_t fd) { return close(fd); }

int32_t mmRealPath(const char* path, char* out, int32_t len) {
    if (path == nullptr || out == nullptr || len <= 0) {
        return Refuse(EINVAL);
    }
    char* resolved = realpath(path, nullptr);
    if (resolved == nullptr) {
        return -1;
    }
    const size_t bytes = strlen(resolved) + 1;
    const bool fits = bytes <= static_cast<size_t>(len);
    if (fits) {
        memcpy(out, resolved, bytes);
    }
    free(resolved);
    return fits ? 0 : Refuse(ENAMETOOLONG);
}

int32_t mmSACleanup(void) { return 0; }

int32_t mmGetErrorCode(void) { return errno; }

char* mmGetErrorFormatMessage(int32_t code, char* buf, uint32_t len) {
    if (buf == nullptr || len == 0) {
        return nullptr;
    }
    const char* text = strerrordesc_np(code);
    if (text == nullptr) {
        snprintf(buf, len, "Unknown error %d", code);
    } else {
        snprintf(buf, len, "%s", text);
    }
    return buf;
}

int32_t mmMkdir(const char* path, uint32_t mode) {
    return path == nullptr ? Refuse(EINVAL) : mkdir(path, static_cast<mode_t>(mode));
}

int32_t mmChmod(const char* path, uint32_t mode) {
    return path == nullptr ? Refuse(EINVAL) : chmod(path, static_cast<mode_t>(mode));
}

int32_t mmChdir(const char* path) { return path == nullptr ? Refuse(EINVAL) : chdir(path); }

int32_t mmUnlink(const char* path) { return path == nullptr ? Refuse(EINVAL) : unlink(path); }

int32_t mmIsDir(const char* path) {
    struct stat status = {};
    if (path == nullptr) {
        return Refuse(EINVAL);
    }
    if (lstat(path, &status) != 0) {
        return -1;
    }
    return S_ISDIR(status.st_mode) ? 0 : Refuse(ENOTDIR);
}

int32_t mmAccess2(const char* path, int32_t mode) {
    return path == nullptr ? Refuse(EINVAL) : access(path, mode);
}

int32_t mmStatGet(const char* path, struct stat* buffer) {
    return path == nullptr || buffer == nullptr ? Refuse(EINVAL) : stat(path, buffer);
}

int32_t mmGetFileSize(const char* path, uint64_t* size) {
    struct stat status = {};
    if (size == nullptr || mmStatGet(path, &status) != 0) {
        return size == nullptr ? Refuse(EINVAL) : -1;
    }
    *size = static_cast<uint64_t>(status.st_size);
    return 0;
}

char* mmDirName(char* path) { return dirname(path); }

char* mmBaseName(char* path) { return basename(path); }
