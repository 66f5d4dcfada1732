// Small text helpers that the daemon shell and the components share.
#include "common/impl_utils.h"

#include <pwd.h>
#include <unistd.h>

#include <cstring>

#include "common/utils.h"

namespace tiv {

using analysis::rokt::common::utils::MAX_PATH_LENGTH;

std::string HomeDirectory() {
    const struct passwd* const record = getpwuid(getuid());
    if (record == nullptr || record->pw_dir == nullptr) {
        return "";
    }
    const size_t length = strnlen(record->pw_dir, MAX_PATH_LENGTH);
    return length < MAX_PATH_LENGTH ? std::string(record->pw_dir, length) : "";
}

std::string ExpandHome(const std::string& path) {
    return path.compare(0, 2, "~/") == 0 ? HomeDirectory() + path.substr(1) : path;
}

}  // namespace tiv
