// Names of what the tables tell apart.
#include "host/result/tables.h"

namespace tiv::host {

const char* FileKindName(FileKind kind) {
    switch (kind) {
        case FileKind::SYSTEM_CPU:
            return "system_cpu";
        case FileKind::MEMORY:
            return "memory";
        case FileKind::PROCESS_CPU:
            return "process_cpu";
        case FileKind::PROCESS_MEMORY:
            return "process_memory";
        case FileKind::CPU_PROFILE:
            return "cpu_profile";
        case FileKind::CHANNEL:
            return "channel";
        case FileKind::CHUNK_TIMES:
            return "chunk_times";
        case FileKind::OTHER:
            break;
    }
    return "other";
}

const char* ChannelSourceName(ChannelSource source) {
    switch (source) {
        case ChannelSource::PERF:
            return "perf";
        case ChannelSource::COUNTER:
            return "counter";
        case ChannelSource::REPLAY:
            return "replay";
        case ChannelSource::STATISTIC:
            break;
    }
    return "statistic";
}

const char* ChannelClockName(ChannelClock clock) {
    switch (clock) {
        case ChannelClock::NONE:
            return "none";
        case ChannelClock::RAW_MONOTONIC:
            return "raw_monotonic";
        case ChannelClock::SINCE_START:
            break;
    }
    return "since_start";
}

}  // namespace tiv::host
