// What a session of the host reads: packets, and the Response in some of them.
#pragma once

#include <atomic>
#include <functional>
#include <string_view>

#include "hdc/i_transport.h"
#include "host/reply.h"

namespace tiv::host {

// Reads packets until the session ends, `take` returns false or `closing` is set, which whoever
// closes the session does first. `value` is the packet's value; it
// is valid during the call. Blocks; one thread per session.
void ReadPackets(analysis::rokt::transport::KbxTransport& transport,
                 const std::atomic<bool>& closing,
                 const std::function<bool(std::string_view value)>& take);

// True when `value` is an answer: a Response, or the bare text that refuses a caller in a
// container. The message is the device's own text, or what an empty one means.
[[nodiscard]] bool ParseReply(std::string_view value, Reply& reply);

}  // namespace tiv::host
