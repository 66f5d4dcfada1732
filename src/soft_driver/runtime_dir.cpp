// Where the sockets of this machine's devices live.
#include "soft_driver/runtime_dir.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "soft_driver/notices.h"

namespace tiv::soft_driver {
namespace {

constexpr mode_t DIRECTORY_MODE = 0750;

std::string Variable(const char* name) {
    const char* value = getenv(name);
    return value == nullptr ? "" : value;
}

}  // namespace

std::string RuntimeDirectory() {
    std::string chosen = Variable("TIV_RUNTIME_DIR");
    if (!chosen.empty()) {
        return chosen;
    }
    if (geteuid() == 0) {
        return "/run/tiv";
    }
    const std::string session = Variable("XDG_RUNTIME_DIR");
    if (session.empty()) {
        Warn("no runtime directory: set TIV_RUNTIME_DIR or XDG_RUNTIME_DIR");
        errno = ENOENT;
        return "";
    }
    return session + "/tiv";
}

bool EnsureRuntimeDirectory(const std::string& directory) {
    if (mkdir(directory.c_str(), DIRECTORY_MODE) == 0) {
        return chmod(directory.c_str(), DIRECTORY_MODE) == 0;  // whatever the umask took
    }
    const int error = errno;
    struct stat status {};
    if (error == EEXIST && stat(directory.c_str(), &status) == 0) {
        errno = ENOTDIR;
        return S_ISDIR(status.st_mode);
    }
    errno = error;
    return false;
}

std::string SocketPath(const std::string& directory, uint32_t logicalId, uint32_t serviceType) {
    return directory + "/hdc_" + std::to_string(logicalId) + "_" + std::to_string(serviceType) +
           ".sock";
}

}  // namespace tiv::soft_driver
