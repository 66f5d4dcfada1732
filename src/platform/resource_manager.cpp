// The resource manager of a plain Linux machine: ready unless the driver's configuration says no.
#include "platform/resource_manager.h"

#include <stdlib.h>

#include <exception>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

constexpr int MOST_DEPTH = 8;

// False only when the file says so. What else may be wrong with it is the driver's to tell.
bool FileSaysReady(const char* path) {
    const auto keep = [](int depth, nlohmann::json::parse_event_t, nlohmann::json&) {
        return depth <= MOST_DEPTH;  // deeper values are not built: freeing them recurses
    };
    std::ifstream file(path, std::ios::binary);
    const nlohmann::json root = nlohmann::json::parse(file, keep, false);
    const auto ready = root.is_object() ? root.find("resource_manager_ready") : root.end();
    return ready == root.end() || !ready->is_boolean() || ready->get<bool>();
}

}  // namespace

int32_t IAMResMgrReady(void) {
    const char* path = getenv("TIV_DRIVER_CONFIG");
    if (path == nullptr || *path == '\0') {
        return 0;
    }
    try {
        return FileSaysReady(path) ? 0 : 1;
    } catch (const std::exception&) {
        return 1;
    }
}
