// Whether a path stays inside a directory once its "." and ".." are resolved.
#pragma once

#include <string>

namespace analysis::rokt::device {

// True for the directory itself and for everything below it. Both are absolute; the comparison is
// by text, so symbolic links are not followed. Paths of any length; a zero byte ends one.
bool PathIsBelow(const std::string& path, const std::string& directory);

}  // namespace analysis::rokt::device
