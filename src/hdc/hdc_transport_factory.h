// Makes transports out of sessions, servers and clients.
#pragma once

#include <memory>

#include "hdc/i_transport.h"
#include "platform/driver_api.h"

namespace analysis {
namespace rokt {
namespace transport {

// Used as a temporary object. Every form gives null on failure and a transport with its PerfCount
// ("HdcTransport_<device id>", printed every 128 sends) on success.
class HDCTransportFactory {
 public:
    HDCTransportFactory() = default;
    virtual ~HDCTransportFactory() = default;

    // Wraps an accepted session of a device with a number of at most 63. A refused device id has
    // closed the session already; another failure leaves it to the caller, who closes it in both
    // cases.
    [[nodiscard]] std::shared_ptr<ITransport> CreateHdcTransport(HDC_SESSION session);
    // Waits for the next session of `server`.
    [[nodiscard]] std::shared_ptr<ITransport> CreateHdcServerTransport(int logicDevId,
                                                                       HDC_SERVER server);
    // Connects to a device; the client stays the caller's.
    [[nodiscard]] std::shared_ptr<ITransport> CreateHdcTransport(HDC_CLIENT client, int devId);
    // Connects to a device on behalf of a host process; the transport owns the client from then on.
    [[nodiscard]] std::shared_ptr<ITransport> CreateHdcClientTransport(int hostPid, int devId,
                                                                       HDC_CLIENT client);
};

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
