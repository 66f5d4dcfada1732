// Small text helpers that the daemon shell and the components share.
#pragma once

#include <string>

namespace tiv {

// Home directory of the real user; empty when there is no record of it, or when the record's field
// is empty or does not fit 4096 bytes with its terminating zero.
std::string HomeDirectory();

// "~/" in front becomes the home directory; any other path is kept.
std::string ExpandHome(const std::string& path);

}  // namespace tiv
