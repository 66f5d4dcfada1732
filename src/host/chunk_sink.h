// Where the data of a device goes as it arrives.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tiv::host {

// One file chunk as it stands in the packet; everything is valid during the call only.
struct ReceivedChunk {
    std::string_view fileName;  // as the device wrote it: not to be trusted
    int32_t dataModule = 0;
    std::string_view data;
};

// Takes the chunks of one device in the order of their arrival, on the thread of its data session.
class ChunkSink {
 public:
    virtual ~ChunkSink() = default;

    // False ends the session: nothing more can be kept.
    virtual bool OnChunk(const ReceivedChunk& chunk) = 0;

    // The device has sent everything. False when some of it could not be kept after all.
    virtual bool OnFinish() { return true; }
};

}  // namespace tiv::host
