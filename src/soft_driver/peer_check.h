// Who sits at the other end of a connected socket.
#pragma once

#include <sys/types.h>

#include <cstdint>

namespace tiv::soft_driver {

// Credentials that the kernel noted when the peer connected. Nothing that the peer sends enters.
struct PeerIdentity {
    pid_t pid = 0;  // 0 when it lies outside this PID namespace
    uid_t uid = 0;
    gid_t gid = 0;
};

// False with errno set when the kernel gives no credentials.
[[nodiscard]] bool ReadPeerIdentity(int fd, PeerIdentity* peer);

// True for this process's own user, for root and for a member of `group`. The group that stands
// for every group without a mapping (the kernel's overflow group) admits nobody.
[[nodiscard]] bool PeerIsAllowed(int fd, const PeerIdentity& peer, gid_t group);

// 0 when the process runs in this process's PID namespace, 1 when it runs in another or that
// cannot be read: a caller in a container.
[[nodiscard]] int32_t VirtualFunctionOf(pid_t pid);

}  // namespace tiv::soft_driver
