// The anchor: bytes through a plain Unix stream between two processes.
#pragma once

#include <cstddef>
#include <cstdint>

#include "bench/result_ring.h"

namespace tiv::bench {

struct RawResult {
    double bytesPerSecond = 0;
    double senderCpuPerGb = 0;
    double receiverCpuPerGb = 0;
};

// A child sends `bytes` in writes of `writeBytes` from one hot buffer; this process receives them
// and, when `ring` is given, writes them there. The socket buffers are 1 MiB each, by force where
// that is permitted. Throws std::runtime_error when a call of the kernel fails.
RawResult RunRawStream(uint64_t bytes, size_t writeBytes, ResultRing* ring);

// The fastest of the write sizes from 64 KiB to 1 MiB, one short run each.
size_t FastestWriteSize(uint64_t bytes, ResultRing* ring);

}  // namespace tiv::bench
