// The address of a Unix-domain socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <string>

namespace tiv::soft_driver {

// False when the path does not fit into the address (108 bytes with its final zero).
[[nodiscard]] inline bool FillSocketAddress(const std::string& path, sockaddr_un* address) {
    *address = {};
    address->sun_family = AF_UNIX;
    if (path.size() >= sizeof(address->sun_path)) {
        return false;
    }
    memcpy(address->sun_path, path.data(), path.size());
    return true;
}

}  // namespace tiv::soft_driver
