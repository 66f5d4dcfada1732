// The directory of an export that consists of several files.
#include "host/export/output_directory.h"

#include <fmt/format.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>

namespace tiv::host {

OutputDirectory::~OutputDirectory() {
    if (isMade_) {
        (void)rmdir(path_.c_str());  // stays when it holds something
    }
}

std::string OutputDirectory::Make() {
    std::error_code reason;
    isMade_ = std::filesystem::create_directory(path_, reason);
    return reason ? fmt::format("cannot make the directory {}: {}", path_, reason.message()) : "";
}

}  // namespace tiv::host
