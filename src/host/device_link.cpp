// Clients and connections of the host.
#include "host/device_link.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <thread>

#include "hdc/hdc_api.h"
#include "hdc/hdc_transport_factory.h"

namespace tiv::host {

using analysis::rokt::transport::HDCTransportFactory;
using analysis::rokt::transport::KbxTransport;

namespace {

constexpr int32_t HDC_SERVICE_TYPE = 4;
constexpr std::chrono::milliseconds RETRY_INTERVAL{50};

std::string AdviceFor(int reason) {
    switch (reason) {
        case ENOENT:
        case ECONNREFUSED:
            return "no daemon serves it here: start `tiv`, or set TIV_RUNTIME_DIR to the directory "
                   "that holds its sockets";
        case EACCES:
        case EPERM:
            return "this user may not open its socket: join the group of the runtime directory, or "
                   "run as the daemon's user";
        case EMFILE:
        case ENFILE:
            return "no file descriptor is left: raise `ulimit -n` or name fewer devices";
        case EINVAL:
            return "the driver said above what is wrong: mend the file that TIV_DRIVER_CONFIG "
                   "names";
        case EAGAIN:
            return "its daemon accepts no connection: it is stopped or overloaded; see its log";
        default:
            return "check that `tiv` runs and that the link to it is up";
    }
}

bool Sleep(std::chrono::milliseconds time) {
    std::this_thread::sleep_for(time);
    return true;
}

}  // namespace

DeviceLink::DeviceLink(std::chrono::milliseconds patience, Pause pause)
    : patience_(patience), pause_(pause ? std::move(pause) : Sleep) {}

DeviceLink::~DeviceLink() {
    MutexLock lock(mutex_);
    for (const HDC_CLIENT client : clients_) {
        (void)HdcClientDestroy(client);
    }
}

bool DeviceLink::AddClient() {
    const HDC_CLIENT client = HdcClientInit(HDC_SERVICE_TYPE);
    if (client == nullptr) {
        return false;
    }
    clients_.push_back(client);
    return true;
}

std::shared_ptr<KbxTransport> DeviceLink::TryConnect(int deviceId) {
    MutexLock lock(mutex_);
    errno = 0;
    if (clients_.empty() && !AddClient()) {
        return nullptr;
    }
    errno = 0;
    auto transport = HDCTransportFactory().CreateHdcTransport(clients_.back(), deviceId);
    if (transport == nullptr && errno == EUSERS) {
        if (!AddClient()) {
            return nullptr;
        }
        transport = HDCTransportFactory().CreateHdcTransport(clients_.back(), deviceId);
    }
    return std::dynamic_pointer_cast<KbxTransport>(transport);
}

std::shared_ptr<KbxTransport> DeviceLink::Connect(int deviceId, std::string& error) {
    const auto deadline = std::chrono::steady_clock::now() + patience_;
    auto transport = TryConnect(deviceId);
    while (transport == nullptr && (errno == ENOENT || errno == ECONNREFUSED) &&
           std::chrono::steady_clock::now() < deadline) {
        if (!pause_(RETRY_INTERVAL)) {
            error = fmt::format("device {}: given up while no daemon was there", deviceId);
            return nullptr;
        }
        transport = TryConnect(deviceId);
    }
    if (transport == nullptr) {
        const int reason = errno;
        error = fmt::format("cannot reach device {}: {}; {}", deviceId,
                            reason == 0 ? "the driver gave no reason" : std::strerror(reason),
                            AdviceFor(reason));
    }
    return transport;
}

}  // namespace tiv::host
