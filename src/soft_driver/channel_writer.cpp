// The producer's end of a channel.
#include "soft_driver/channel_writer.h"

#include <algorithm>
#include <cstring>

namespace tiv::soft_driver {

RingRegion ChannelWriter::WaitForRoom() {
    uint64_t used = 0;
    if (!ready_.WaitForRoom(entry_, ring_.Capacity(), &used)) {
        return {};
    }
    if (used == 0) {
        ring_.Rewind();
    }
    return ring_.FreeRun(ring_.Capacity() - used);
}

void ChannelWriter::Commit(size_t bytes) {
    ring_.Produced(bytes);
    ready_.Add(entry_, bytes);
}

bool ChannelWriter::TryAppend(const char* data, size_t bytes) {
    const uint64_t used = ready_.Used(entry_);
    if (ring_.Capacity() - used < bytes) {
        return false;
    }
    if (used == 0) {
        ring_.Rewind();
    }
    for (size_t done = 0; done < bytes;) {
        const RingRegion run = ring_.FreeRun(bytes - done);
        memcpy(run.data, data + done, run.size);
        ring_.Produced(run.size);
        done += run.size;
    }
    ready_.Add(entry_, bytes);
    return true;
}

}  // namespace tiv::soft_driver
