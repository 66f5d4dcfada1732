// Opens sessions to the daemon of a device.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "hdc/i_transport.h"
#include "platform/driver_api.h"
#include "platform/mutex.h"

namespace tiv::host {

// The driver's clients of this process. A client takes a limited number of sessions; when one is
// full the next connection opens another. Thread-safe. The sessions close before the clients go:
// the link outlives every transport that it handed out.
class DeviceLink {
 public:
    // `patience`: how long a connection waits for a daemon that is not there yet.
    // `pause` lets the time between two tries pass and gives false when the caller does not want to
    // wait any longer; an empty one sleeps.
    using Pause = std::function<bool(std::chrono::milliseconds)>;
    explicit DeviceLink(std::chrono::milliseconds patience = std::chrono::milliseconds(0),
                        Pause pause = {});
    ~DeviceLink();
    DeviceLink(const DeviceLink&) = delete;
    DeviceLink& operator=(const DeviceLink&) = delete;

    // A session to `deviceId`, or null with the reason and what to try in `error`.
    [[nodiscard]] std::shared_ptr<analysis::rokt::transport::KbxTransport> Connect(
        int deviceId, std::string& error);

 private:
    std::shared_ptr<analysis::rokt::transport::KbxTransport> TryConnect(int deviceId);
    bool AddClient() REQUIRES(mutex_);

    const std::chrono::milliseconds patience_;
    const Pause pause_;
    Mutex mutex_;
    std::vector<HDC_CLIENT> clients_ GUARDED_BY(mutex_);
};

}  // namespace tiv::host
