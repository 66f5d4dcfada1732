// Counting of channel records.
#include "host/result/channel_samples.h"

namespace tiv::host {

void ChannelSampleCounter::OnChannel(const ChannelRow& row) {
    replays_ = replays_ || row.source == ChannelSource::REPLAY;
}

std::optional<uint64_t> ChannelSampleCounter::Samples() const {
    if (lastChannel_ == 0 || replays_) {
        return std::nullopt;
    }
    return parser_.Records();
}

}  // namespace tiv::host
