// Who sits at the other end of a connected socket.
#include "soft_driver/peer_check.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <string>
#include <vector>

namespace tiv::soft_driver {
namespace {

constexpr gid_t OVERFLOW_GROUP = 65534;

// The peer's supplementary groups; empty when they cannot be read.
std::vector<gid_t> PeerGroups(int fd) {
    std::vector<gid_t> groups(64);
    for (;;) {
        auto bytes = static_cast<socklen_t>(groups.size() * sizeof(gid_t));
        if (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &bytes) == 0) {
            groups.resize(bytes / sizeof(gid_t));
            return groups;
        }
        const size_t needed = bytes / sizeof(gid_t);
        if (errno != ERANGE || needed <= groups.size()) {
            return {};
        }
        groups.resize(needed);
    }
}

// "pid:[4026531836]", or empty when the link cannot be read.
std::string PidNamespace(const std::string& process) {
    std::array<char, 64> target{};
    const std::string link = "/proc/" + process + "/ns/pid";
    const ssize_t count = readlink(link.c_str(), target.data(), target.size());
    return {target.data(), static_cast<size_t>(std::max<ssize_t>(count, 0))};
}

}  // namespace

bool ReadPeerIdentity(int fd, PeerIdentity* peer) {
    ucred credentials{};
    socklen_t bytes = sizeof(credentials);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &bytes) != 0) {
        return false;
    }
    *peer = {credentials.pid, credentials.uid, credentials.gid};
    return true;
}

bool PeerIsAllowed(int fd, const PeerIdentity& peer, gid_t group) {
    if (peer.uid == geteuid() || peer.uid == 0) {
        return true;
    }
    if (group == OVERFLOW_GROUP) {
        return false;
    }
    const std::vector<gid_t> groups = PeerGroups(fd);
    return peer.gid == group || std::find(groups.begin(), groups.end(), group) != groups.end();
}

int32_t VirtualFunctionOf(pid_t pid) {
    const std::string own = PidNamespace("self");
    const std::string theirs = PidNamespace(std::to_string(pid));
    return !own.empty() && own == theirs ? 0 : 1;
}

}  // namespace tiv::soft_driver
