// Chooses the source that a channel's settings name.
#include "soft_driver/source.h"

#include "soft_driver/counter_source.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/replay_source.h"
#include "soft_driver/settings.h"

namespace tiv::soft_driver {

std::unique_ptr<Source> MakeSource(const ChannelSettings& channel) {
    switch (channel.source.kind) {
        case SourceKind::PERF:
            return std::make_unique<PerfSource>(channel);
        case SourceKind::COUNTER:
            if (channel.source.bytesPerSecond != 0) {
                return std::make_unique<CounterSource>(channel.source);
            }
            return nullptr;
        case SourceKind::REPLAY:
            return std::make_unique<ReplaySource>(channel.source);
        case SourceKind::SILENT:
            return nullptr;
    }
    return nullptr;
}

}  // namespace tiv::soft_driver
