// Periodic readings of the machine's own counters.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "soft_driver/perf_counters.h"
#include "soft_driver/settings.h"
#include "soft_driver/source.h"

namespace tiv::soft_driver {

// One record per event and period, 24 bytes, unsigned and little-endian:
//
//   0    8   nanoseconds of the raw monotonic clock
//   8    4   index of the event in the header's list
//   12   4   CPU; all ones: the sum of all
//   16   8   count since the record before
//
// A full ring loses the records of a period. The next period that finds room begins with a record
// whose event and CPU are all ones and whose count is the number of records lost.
class PerfSource : public Source {
 public:
    explicit PerfSource(const ChannelSettings& channel)
        : channelId_(channel.id), settings_(channel.source) {}

    [[nodiscard]] bool Prepare(const StartRecord& start) override;
    [[nodiscard]] SourceDescription Describe() const override;
    void Run(ChannelWriter& writer) override;
    [[nodiscard]] uint64_t Dropped() const override { return dropped_; }

 private:
    void SelectEvents(const StartRecord& start);
    void BuildRecords(uint64_t now);
    void AppendSums(uint64_t now);
    void AppendRecord(uint64_t now, uint32_t event, uint32_t cpu, uint64_t count);
    void Deliver(ChannelWriter& writer, uint64_t now);

    const uint32_t channelId_;
    const SourceSettings settings_;
    uint32_t periodMs_ = 0;
    std::vector<std::string> events_;
    PerfCounters counters_;
    std::string records_;  // of the period in hand
    uint64_t recordCount_ = 0;
    uint64_t dropped_ = 0;  // since the start
    uint64_t untold_ = 0;   // of them not yet told in a record
};

}  // namespace tiv::soft_driver
