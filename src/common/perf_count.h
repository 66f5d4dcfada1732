// Timing statistics of one repeated operation.
#pragma once

#include <cstdint>
#include <string>

#include "platform/mutex.h"

namespace Analysis::Rokt::Common::Statistics {

// Module names under which statistics are printed.
constexpr const char* CHANNEL_READER_SPEED_NAME = "ChannelReaderSpeed";
constexpr const char* CHANNEL_READER_SPEED_ALL_NAME = "ChannelReaderSpeedAll";
constexpr const char* HDC_TRANSPORT_NAME = "HdcTransport";
constexpr const char* PROF_TASK_STREAM_BUFFER_NAME = "ProfTaskStreamBuffer";

// Collects spans and byte counts of an operation and writes them to the log at info level.
//
// All times are nanoseconds of the monotonic clock. Safe for any number of updaters: one mutex
// guards everything, and the public operations never call each other, since each of them takes it.
class PerfCount {
 public:
    explicit PerfCount(const std::string& name);
    // Every `frequency` updates print and reset; 0 never does.
    PerfCount(const std::string& name, uint64_t frequency);
    PerfCount(const PerfCount&) = delete;
    PerfCount& operator=(const PerfCount&) = delete;

    // Counts one operation. A start after the end is an error and changes nothing.
    void UpdatePerfInfo(uint64_t startTimeNs, uint64_t endTimeNs, uint64_t bytes) EXCLUDES(mutex);

    // Prints what was counted since the last reset, under `name` or, when that is empty, under the
    // module's own name. Nothing is printed while the spans come to less than one millisecond.
    void OutPerfInfo(const std::string& name) EXCLUDES(mutex);

    void ResetPerfInfo() EXCLUDES(mutex);

 private:
    void Print(const std::string& name) const REQUIRES(mutex);
    void Reset() REQUIRES(mutex);

    uint64_t overheadMin GUARDED_BY(mutex) = UINT64_MAX;  // smallest span, ns
    uint64_t overheadMax GUARDED_BY(mutex) = 0;           // largest span, ns
    uint64_t overheadSum GUARDED_BY(mutex) = 0;           // sum of spans, ns
    uint64_t packageNums GUARDED_BY(mutex) = 0;           // updates
    uint64_t firstTime GUARDED_BY(mutex) = 0;             // start of the first update, ns
    uint64_t lastTime GUARDED_BY(mutex) = 0;              // end of the last update, ns
    uint64_t packageSize GUARDED_BY(mutex) = 0;           // sum of bytes
    const std::string moduleName;
    const uint64_t printFrequency = 0;
    tiv::Mutex mutex;
    const uint64_t overHeadWaterLine = 0;  // span above which an update is excess, ns
    uint64_t exceedWaterLineCounter GUARDED_BY(mutex) = 0;  // updates in excess
};

}  // namespace Analysis::Rokt::Common::Statistics
