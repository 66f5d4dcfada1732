// Resolution of a path's components by text.
#include "device/path_below.h"

#include <algorithm>
#include <string_view>
#include <vector>

namespace analysis::rokt::device {
namespace {

void TakeComponent(std::string_view component, std::vector<std::string_view>& resolved) {
    if (component.empty() || component == ".") {
        return;
    }
    if (component != "..") {
        resolved.push_back(component);
    } else if (!resolved.empty()) {
        resolved.pop_back();
    }
}

std::vector<std::string_view> Resolve(std::string_view path) {
    std::vector<std::string_view> resolved;
    size_t begin = 0;
    while (begin <= path.size()) {
        const size_t end = std::min(path.find('/', begin), path.size());
        TakeComponent(path.substr(begin, end - begin), resolved);
        begin = end + 1;
    }
    return resolved;
}

}  // namespace

bool PathIsBelow(const std::string& path, const std::string& directory) {
    // The system sees a path up to its first zero byte: "..\0" is the parent there.
    const std::vector<std::string_view> inner = Resolve(path.c_str());
    const std::vector<std::string_view> outer = Resolve(directory);
    return inner.size() >= outer.size() && std::equal(outer.begin(), outer.end(), inner.begin());
}

}  // namespace analysis::rokt::device
