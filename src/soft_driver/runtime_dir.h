// Where the sockets of this machine's devices live.
#pragma once

#include <cstdint>
#include <string>

namespace tiv::soft_driver {

// $TIV_RUNTIME_DIR, else /run/tiv for root, else $XDG_RUNTIME_DIR/tiv. Empty, with errno set to
// ENOENT and a warning, when none of them names a place.
[[nodiscard]] std::string RuntimeDirectory();

// Makes the directory (its last component) with mode 0750 when it is missing. A directory that is
// there keeps its owner, group and mode: its group is how an administrator admits people. False
// with errno set when it is neither there nor can be made.
[[nodiscard]] bool EnsureRuntimeDirectory(const std::string& directory);

// <directory>/hdc_<logical device>_<service type>.sock
[[nodiscard]] std::string SocketPath(const std::string& directory, uint32_t logicalId,
                                     uint32_t serviceType);

}  // namespace tiv::soft_driver
