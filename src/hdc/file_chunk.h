// The unit of upload: one piece of one file on its way to the host.
#pragma once

#include <cstdint>
#include <string>

namespace analysis {
namespace rokt {

// Values of ProfileFileChunk::chunkModule.
constexpr uint32_t PROFILING_IS_FROM_DEVICE = 3;       // collected data
constexpr uint32_t PROFILING_IS_FROM_DEVICE_PROC = 5;  // samples of single processes
constexpr uint32_t PROFILING_IS_CTRL_DATA = 6;         // `chunk` is an already encoded message

// A plain record held by shared pointer. Once an Uploader has taken it, its queue is the only owner
// and the chunk dies when the transport has sent it: the producer drops its own reference.
struct ProfileFileChunk {
    bool isLastChunk = false;
    uint32_t chunkModule = 0;
    uint64_t chunkSize = 0;  // valid bytes in `chunk`, which may be longer
    int64_t offset = -1;     // -1: the host appends
    std::string chunk;
    std::string fileName;   // relative name, a dot and a tag; "null" is the tag of collected data
    std::string extraInfo;  // job id, a dot and device id; a transport refuses a chunk without it
};

}  // namespace rokt
}  // namespace analysis
