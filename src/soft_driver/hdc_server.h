// The device's side of the link: the place where sessions of one service arrive.
#pragma once

#include <cstdint>
#include <memory>
#include <utility>

#include "soft_driver/listening_socket.h"

namespace tiv::soft_driver {

class HdcSession;
struct Settings;

// Turns admitted connections into sessions. Sessions live on when their server is destroyed.
// Any thread.
class HdcServer {
 public:
    // Null with errno set: ENODEV for a device that the configuration does not have, EADDRINUSE
    // when a live server, of this process or another, serves the device already.
    [[nodiscard]] static std::shared_ptr<HdcServer> Create(uint32_t logicalId, uint32_t serviceType,
                                                           const Settings& settings);

    HdcServer(uint32_t logicalId, const Settings& settings, std::unique_ptr<ListeningSocket> socket)
        : logicalId_(logicalId), settings_(settings), socket_(std::move(socket)) {}

    // Blocks until a session comes. Null with errno set: EBADF once Destroy was called, EINTR.
    [[nodiscard]] std::shared_ptr<HdcSession> Accept();

    // Wakes every blocked Accept and frees the path.
    void Destroy() { socket_->Close(); }

 private:
    const uint32_t logicalId_;
    const Settings& settings_;  // lives as long as the process
    const std::unique_ptr<ListeningSocket> socket_;
};

}  // namespace tiv::soft_driver
