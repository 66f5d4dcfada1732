// The driver's channels on a page.
#pragma once

#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/report/page_part.h"
#include "host/result/tables.h"

namespace tiv::host {

// Draws what each channel counted as rates and lists every event. Starts of one channel, one behind
// the other, are one plot. Events that are told apart by core are summed up. One thread.
class ChannelPart : public PagePart {
 public:
    static constexpr size_t MOST_CHANNELS = 64;  // that are drawn
    static constexpr size_t MOST_EVENTS = 256;   // of a channel
    static constexpr size_t SHOWN_EVENTS = 10;   // in a plot

    void Take(const ChannelRow& row);
    void Take(const ChannelCountRow& row);
    void Take(const ChannelLossRow& row);
    void Take(const ChannelRunRow& row);

    void IncludeIn(PageGrid& grid) const override;
    void Write(PageContext& context) override;

 private:
    struct Event {
        std::string name;
        CellSeries rate;
        bool byCore = false;
        uint64_t count = 0;
        uint64_t records = 0;
        double ratedCount = 0;  // of the records whose interval is known
        double ratedNs = 0;     // mean over the cores' intervals
        double greatest = 0;    // rate of one record
    };
    struct Channel {
        int deviceId = 0;
        std::string title;
        std::string link;  // short form of the title
        std::string file;
        ChannelSource source = ChannelSource::PERF;
        ChannelClock clock = ChannelClock::NONE;
        uint32_t periodMs = 0;
        std::vector<Event> events;
        uint64_t lostRecords = 0;
        uint64_t numbers = 0;
        uint64_t breaks = 0;  // places where the numbers did not go on
        bool hasNumbers = false;
    };

    Channel* Find(uint32_t channel);
    static int ClockOf(const Channel& channel);
    void WriteChart(PageContext& context, size_t index, Channel& channel);
    [[nodiscard]] nlohmann::ordered_json TableRows() const;
    void WriteTable(PageContext& context);

    std::vector<Channel> channels_;
    std::unordered_map<uint32_t, size_t> numbers_;  // a row's channel: its place
};

}  // namespace tiv::host
