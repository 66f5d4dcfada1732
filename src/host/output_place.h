// Whether a file may be put somewhere.
#pragma once

#include <string>

namespace tiv::host {

// Why no file may take the place of `path`: a directory, a device, a pipe or a socket stands there,
// maybe behind a link. Naming a file over it would end a device for the whole machine. Empty when a
// file or nothing stands there.
[[nodiscard]] std::string WhyNoFileFits(const std::string& path);

}  // namespace tiv::host
