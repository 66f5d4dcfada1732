// Runs the gRPC anchor, where it was built.
#pragma once

#include <cstdint>

namespace tiv::bench {

struct GrpcResult {
    double bytesPerSecond = 0;
    double senderCpuPerGb = 0;
    double receiverCpuPerGb = 0;
};

// True when the anchor was built.
bool HasGrpcAnchor();

// Two processes of their own stream `bytes`, a multiple of 4 MiB; the receiver writes a ring like
// that of the whole path. Throws std::runtime_error when they fail.
GrpcResult RunGrpcStream(uint64_t bytes);

}  // namespace tiv::bench
