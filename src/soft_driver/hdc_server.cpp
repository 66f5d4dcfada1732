// The device's side of the link.
#include "soft_driver/hdc_server.h"

#include <cerrno>

#include "soft_driver/hdc_session.h"
#include "soft_driver/notices.h"
#include "soft_driver/peer_check.h"
#include "soft_driver/runtime_dir.h"
#include "soft_driver/settings.h"

namespace tiv::soft_driver {

std::shared_ptr<HdcServer> HdcServer::Create(uint32_t logicalId, uint32_t serviceType,
                                             const Settings& settings) {
    if (settings.FindDevice(logicalId) == nullptr) {
        errno = ENODEV;
        return nullptr;
    }
    const std::string directory = RuntimeDirectory();
    if (directory.empty()) {
        return nullptr;
    }
    const std::string path = SocketPath(directory, logicalId, serviceType);
    std::unique_ptr<ListeningSocket> socket;
    if (EnsureRuntimeDirectory(directory)) {
        socket = ListeningSocket::Open(directory, path);
    }
    if (socket == nullptr) {
        const int error = errno;
        Warn("server cannot listen: path=%s: %s", path.c_str(), ErrorText(error).c_str());
        errno = error;
        return nullptr;
    }
    return std::make_shared<HdcServer>(logicalId, settings, std::move(socket));
}

std::shared_ptr<HdcSession> HdcServer::Accept() {
    pid_t peer = 0;
    FileDescriptor fd = socket_->Accept(&peer);
    if (!fd.IsOpen()) {
        return nullptr;
    }
    SetSocketBuffers(fd.Get(), settings_);
    const int32_t function = settings_.virtualFunctionId.has_value() ? *settings_.virtualFunctionId
                                                                     : VirtualFunctionOf(peer);
    return std::make_shared<HdcSession>(
        std::move(fd), SessionAttributes{logicalId_, function, peer}, settings_.segmentBytes,
        settings_.stallLimitMs, ClientSlot());
}

}  // namespace tiv::soft_driver
