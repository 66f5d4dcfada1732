// The C functions of the link: clients, servers and sessions.
#include "soft_driver/exports.h"
#include "soft_driver/hdc_tables.h"
#include "soft_driver/peer_check.h"
#include "soft_driver/runtime_dir.h"
#include "soft_driver/settings.h"

namespace tiv::soft_driver {
namespace {

// Null with errno set.
std::shared_ptr<HdcSession> Connect(const std::shared_ptr<HdcClient>& client, uint32_t deviceId,
                                    const Settings& settings) {
    ClientSlot slot(client);
    if (!slot.IsTaken()) {
        errno = EUSERS;
        return nullptr;
    }
    const std::string directory = RuntimeDirectory();
    if (directory.empty()) {
        return nullptr;
    }
    FileDescriptor fd = ConnectTo(SocketPath(directory, deviceId, client->ServiceType()), settings);
    if (!fd.IsOpen()) {
        return nullptr;
    }
    PeerIdentity peer;
    (void)ReadPeerIdentity(fd.Get(), &peer);  // a peer without credentials has process 0
    return std::make_shared<HdcSession>(
        std::move(fd), SessionAttributes{deviceId, VirtualFunctionOf(peer.pid), peer.pid},
        settings.segmentBytes, settings.stallLimitMs, std::move(slot));
}

int32_t ConnectSession(int32_t peerNode, int32_t peerDevId, HDC_CLIENT client,
                       HDC_SESSION* session) {
    if (session == nullptr || peerNode != 0 || peerDevId < 0) {
        return Fail(EINVAL);
    }
    const std::shared_ptr<HdcClient> owner = Table<HdcClient>().Find(client);
    if (owner == nullptr) {
        return Fail(EBADF);
    }
    const Settings* settings = ProcessSettings();
    if (settings == nullptr) {
        return -1;
    }
    std::shared_ptr<HdcSession> made = Connect(owner, static_cast<uint32_t>(peerDevId), *settings);
    if (made == nullptr) {
        return -1;
    }
    *session = Table<HdcSession>().Add(std::move(made));
    return 0;
}

}  // namespace
}  // namespace tiv::soft_driver

using tiv::soft_driver::ConnectSession;
using tiv::soft_driver::Fail;
using tiv::soft_driver::Guarded;
using tiv::soft_driver::HdcClient;
using tiv::soft_driver::HdcServer;
using tiv::soft_driver::HdcSession;
using tiv::soft_driver::ProcessSettings;
using tiv::soft_driver::Settings;
using tiv::soft_driver::Table;

int32_t drvHdcClientCreate(HDC_CLIENT* client, int32_t maxSessions, int32_t serviceType,
                           int32_t flag) {
    return Guarded([=] {
        if (client == nullptr || maxSessions < 1 || serviceType < 0 || flag != 0) {
            return Fail(EINVAL);
        }
        *client = Table<HdcClient>().Add(
            std::make_shared<HdcClient>(static_cast<uint32_t>(serviceType), maxSessions));
        return 0;
    });
}

int32_t drvHdcClientDestroy(HDC_CLIENT client) {
    return Guarded([=] { return Table<HdcClient>().Take(client) == nullptr ? Fail(EBADF) : 0; });
}

int32_t drvHdcServerCreate(int32_t logicalDevId, int32_t serviceType, HDC_SERVER* server) {
    return Guarded([=] {
        if (server == nullptr || logicalDevId < 0 || serviceType < 0) {
            return Fail(EINVAL);
        }
        const Settings* settings = ProcessSettings();
        if (settings == nullptr) {
            return -1;
        }
        std::shared_ptr<HdcServer> made = HdcServer::Create(
            static_cast<uint32_t>(logicalDevId), static_cast<uint32_t>(serviceType), *settings);
        if (made == nullptr) {
            return -1;
        }
        *server = Table<HdcServer>().Add(std::move(made));
        return 0;
    });
}

int32_t drvHdcServerDestroy(HDC_SERVER server) {
    return Guarded([=] {
        const std::shared_ptr<HdcServer> taken = Table<HdcServer>().Take(server);
        if (taken == nullptr) {
            return Fail(EBADF);
        }
        taken->Destroy();
        return 0;
    });
}

int32_t drvHdcSessionAccept(HDC_SERVER server, HDC_SESSION* session) {
    return Guarded([=] {
        if (session == nullptr) {
            return Fail(EINVAL);
        }
        const std::shared_ptr<HdcServer> owner = Table<HdcServer>().Find(server);
        if (owner == nullptr) {
            return Fail(EBADF);
        }
        std::shared_ptr<HdcSession> accepted = owner->Accept();
        if (accepted == nullptr) {
            return -1;
        }
        *session = Table<HdcSession>().Add(std::move(accepted));
        return 0;
    });
}

int32_t drvHdcSessionConnect(int32_t peerNode, int32_t peerDevId, HDC_CLIENT client,
                             HDC_SESSION* session) {
    return Guarded([=] { return ConnectSession(peerNode, peerDevId, client, session); });
}

int32_t halHdcSessionConnectEx(int32_t peerNode, int32_t peerDevId, int32_t hostPid,
                               HDC_CLIENT client, HDC_SESSION* session) {
    return Guarded([=] {
        if (hostPid < 0) {
            return Fail(EINVAL);
        }
        return ConnectSession(peerNode, peerDevId, client, session);
    });
}

int32_t drvHdcSetSessionReference(HDC_SESSION session) {
    return Guarded([=] { return Table<HdcSession>().Find(session) == nullptr ? Fail(EBADF) : 0; });
}

int32_t drvHdcSessionClose(HDC_SESSION session) {
    return Guarded([=] {
        const std::shared_ptr<HdcSession> taken = Table<HdcSession>().Take(session);
        if (taken == nullptr) {
            return Fail(EBADF);
        }
        taken->Close();
        return 0;
    });
}

int32_t halHdcGetSessionAttr(HDC_SESSION session, int32_t attr, int32_t* value) {
    return Guarded([=] {
        const std::shared_ptr<HdcSession> found = Table<HdcSession>().Find(session);
        if (found == nullptr) {
            return Fail(EBADF);
        }
        if (value == nullptr) {
            return Fail(EINVAL);
        }
        if (attr == HDC_ATTR_DEVICE_ID) {
            *value = static_cast<int32_t>(found->Attributes().deviceId);
        } else if (attr == HDC_ATTR_VF_ID) {
            *value = found->Attributes().virtualFunctionId;
        } else if (attr == HDC_ATTR_PEER_PID) {
            *value = found->Attributes().peerPid;
        } else {
            return Fail(ENOTSUP);
        }
        return 0;
    });
}
