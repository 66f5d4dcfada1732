// Standard error, put aside and back.
#include "host/quiet_libraries.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "platform/driver_api.h"

namespace tiv::host {

namespace {

bool WantsMoreThanErrors() {
    const char* level = std::getenv("TIV_LOG_LEVEL");
    return level != nullptr && std::strcmp(level, "error") != 0;
}

}  // namespace

QuietLibraries::QuietLibraries() {
    if (WantsMoreThanErrors()) {
        return;
    }
    (void)std::fflush(stderr);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    kept_ = nowhere < 0 ? -1 : fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    if (kept_ >= 0) {
        (void)dup2(nowhere, STDERR_FILENO);
    }
    if (nowhere >= 0) {
        (void)close(nowhere);
    }
}

QuietLibraries::~QuietLibraries() {
    if (kept_ >= 0) {
        (void)dup2(kept_, STDERR_FILENO);
        (void)close(kept_);
    }
}

void HearTheDriver() {
    uint32_t count = 0;
    (void)drvGetDevNum(&count);
}

}  // namespace tiv::host
