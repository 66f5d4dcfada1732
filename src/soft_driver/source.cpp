// Chooses the source that a channel's settings name.
#include "soft_driver/source.h"

#include "soft_driver/counter_source.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/replay_source.h"
#include "soft_driver/settings.h"

namespace tiv::soft_driver {

std::unique_ptr<Source> MakeSource(const ChannelSettings& channel) {
    const SourceSettings& source = channel.source;
    if (source.kind == SourceKind::PERF) {
        return std::make_unique<PerfSource>(channel);
    }
    if (source.kind == SourceKind::REPLAY) {
        return std::make_unique<ReplaySource>(source);
    }
    if (source.kind == SourceKind::COUNTER && source.bytesPerSecond != 0) {
        return std::make_unique<CounterSource>(source);
    }
    return nullptr;
}

}  // namespace tiv::soft_driver
