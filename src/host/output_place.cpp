// Whether a file may be put somewhere.
#include "host/output_place.h"

#include <fmt/format.h>

#include <filesystem>

namespace tiv::host {

std::string WhyNoFileFits(const std::string& path) {
    std::error_code ignored;
    const std::filesystem::file_status status = std::filesystem::status(path, ignored);
    if (!std::filesystem::exists(status) || std::filesystem::is_regular_file(status)) {
        return "";
    }
    const char* kind = std::filesystem::is_directory(status) ? "a directory" : "not a file";
    return fmt::format("cannot write {}: it is {}", path, kind);
}

}  // namespace tiv::host
