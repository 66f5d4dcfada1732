// Sections of the driver's channels.
#include "host/report/channel_part.h"

#include <algorithm>

#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr double NS_PER_SECOND = 1e9;

std::string TitleOf(const ChannelRow& row) {
    const std::string name = PageText(row.name);
    if (!row.channelId.has_value()) {
        return name.empty() ? "Cache statistic" : "Cache statistic: " + name;
    }
    const std::string title = "Channel " + std::to_string(*row.channelId);
    return name.empty() ? title : title + ": " + name;
}

ordered_json OrNull(bool known, double value) {
    return known ? ordered_json(value) : ordered_json();
}

}  // namespace

void ChannelPart::Take(const ChannelRow& row) {
    Channel channel;
    channel.deviceId = row.deviceId;
    channel.title = TitleOf(row);
    channel.link =
        row.channelId.has_value() ? "channel " + std::to_string(*row.channelId) : "cache statistic";
    channel.file = PageText(row.file);
    channel.source = row.source;
    channel.clock = row.clock;
    channel.periodMs = row.periodMs;
    for (const std::string& event : row.events) {
        if (channel.events.size() < MOST_EVENTS) {
            channel.events.emplace_back().name = PageText(event);
        }
    }
    // Each event of a statistic, which knows no channels, comes as one of its own.
    auto place = std::find_if(channels_.begin(), channels_.end(), [&](const Channel& other) {
        return other.deviceId == channel.deviceId && other.title == channel.title &&
               other.file == channel.file && other.clock == channel.clock &&
               other.events.size() == channel.events.size() &&
               std::equal(other.events.begin(), other.events.end(), channel.events.begin(),
                          [](const Event& a, const Event& b) { return a.name == b.name; });
    });
    if (place == channels_.end()) {
        if (channels_.size() >= MOST_CHANNELS) {
            return;
        }
        place = channels_.insert(channels_.end(), std::move(channel));
    }
    numbers_[row.channel] = static_cast<size_t>(place - channels_.begin());
}

ChannelPart::Channel* ChannelPart::Find(uint32_t channel) {
    const auto found = numbers_.find(channel);
    return found == numbers_.end() ? nullptr : &channels_[found->second];
}

void ChannelPart::Take(const ChannelCountRow& row) {
    Channel* channel = Find(row.channel);
    if (channel == nullptr || row.event >= channel->events.size()) {
        return;
    }
    Event& event = channel->events[row.event];
    event.count += row.count;
    ++event.records;
    event.byCore = event.byCore || row.core != ALL_CORES;
    if (!row.intervalNs.has_value() || *row.intervalNs == 0) {
        return;
    }
    const auto ns = static_cast<double>(*row.intervalNs);
    const double rate = static_cast<double>(row.count) / ns * NS_PER_SECOND;
    event.ratedCount += static_cast<double>(row.count);
    event.ratedNs += ns;
    event.greatest = std::max(event.greatest, rate);
    event.rate.Add(row.timeNs - std::min(row.timeNs, *row.intervalNs), row.timeNs, rate);
}

void ChannelPart::Take(const ChannelLossRow& row) {
    if (Channel* channel = Find(row.channel); channel != nullptr) {
        channel->lostRecords += row.records;
    }
}

void ChannelPart::Take(const ChannelRunRow& row) {
    if (Channel* channel = Find(row.channel); channel != nullptr) {
        channel->breaks += channel->hasNumbers || row.first != 0 ? 1 : 0;
        channel->hasNumbers = true;
        channel->numbers += row.numbers;
    }
}

int ChannelPart::ClockOf(const Channel& channel) {
    return channel.clock == ChannelClock::RAW_MONOTONIC ? channel.deviceId
                                                        : PageGrid::OwnClock(channel.deviceId);
}

void ChannelPart::IncludeIn(PageGrid& grid) const {
    for (const Channel& channel : channels_) {
        for (const Event& event : channel.events) {
            grid.Include(ClockOf(channel), event.rate);
        }
    }
}

void ChannelPart::WriteChart(PageContext& context, size_t index, Channel& channel) {
    std::vector<Event*> shown;
    for (Event& event : channel.events) {
        if (!event.rate.Empty()) {
            shown.push_back(&event);
        }
    }
    if (shown.empty()) {
        return;
    }
    std::stable_sort(shown.begin(), shown.end(),
                     [](const Event* a, const Event* b) { return a->count > b->count; });
    const size_t left = shown.size() - std::min(shown.size(), SHOWN_EVENTS);
    shown.resize(shown.size() - left);
    ordered_json series = ordered_json::array();
    for (Event* event : shown) {
        ordered_json entry = {{"name", event->name}, {"color", series.size()}};
        if (event->byCore) {
            entry["mean"] =
                context.block.AddFloats(ShareColumn(context.grid, ClockOf(channel), event->rate));
        } else {
            AddColumns(context.grid, ClockOf(channel), event->rate, context.block, entry);
        }
        series.push_back(std::move(entry));
    }
    const std::string of = context.OfDevice(channel.deviceId);
    std::string note;
    if (channel.clock == ChannelClock::SINCE_START) {
        note =
            "Its times count from its own start, which stands at 0 here: how that lies to the "
            "other plots is not known. ";
    }
    if (left > 0) {
        note += std::to_string(left) + " rarer events are in the table only.";
    }
    context.sections.push_back({{"kind", "chart"},
                                {"id", "channel-" + std::to_string(index)},
                                {"title", channel.title + of},
                                {"link", channel.link + of},
                                {"subtitle", "events per second"},
                                {"unit", "perSecond"},
                                {"note", note},
                                {"series", std::move(series)}});
}

ordered_json ChannelPart::TableRows() const {
    ordered_json rows = ordered_json::array();
    for (const Channel& channel : channels_) {
        const auto add = [&](const std::string& what, uint64_t count, uint64_t records) {
            ordered_json row = ordered_json::array();
            row.push_back(channel.title);
            row.push_back(channel.deviceId);
            row.push_back(ChannelSourceName(channel.source));
            row.push_back(what);
            row.push_back(count);
            row.push_back(records);
            rows.push_back(std::move(row));
            return &rows.back();
        };
        for (const Event& event : channel.events) {
            ordered_json* row = add(event.name, event.count, event.records);
            const bool rated = event.ratedNs > 0;
            const double mean = rated ? event.ratedCount / event.ratedNs * NS_PER_SECOND : 0;
            row->push_back(OrNull(rated && !event.byCore, mean));
            row->push_back(OrNull(rated && !event.byCore, event.greatest));
            row->push_back(channel.lostRecords);
        }
        if (channel.hasNumbers) {
            ordered_json* row = add("numbers, " + std::to_string(channel.breaks) +
                                        " places where they did not follow each other",
                                    channel.numbers, channel.numbers);
            row->push_back(nullptr);
            row->push_back(nullptr);
            row->push_back(channel.lostRecords);
        }
    }
    return rows;
}

void ChannelPart::WriteTable(PageContext& context) {
    context.sections.push_back(
        {{"kind", "table"},
         {"id", "channels"},
         {"title", "Driver channels"},
         {"link", "channels"},
         {"subtitle", "what they counted"},
         {"sort", 4},
         {"columns",
          {{{"name", "channel"}, {"unit", "text"}},
           {{"name", "device"}, {"unit", "plain"}},
           {{"name", "source"}, {"unit", "text"}},
           {{"name", "event"}, {"unit", "text"}},
           {{"name", "count"}, {"unit", "count"}},
           {{"name", "records"}, {"unit", "count"}},
           {{"name", "mean rate"}, {"unit", "perSecond"}},
           {{"name", "greatest rate"}, {"unit", "perSecond"}, {"hint", "of one record"}},
           {{"name", "lost records"},
            {"unit", "count"},
            {"hint", "of the channel: they found no room in the driver's ring"}}}},
         {"rows", TableRows()}});
}

void ChannelPart::Write(PageContext& context) {
    if (channels_.empty()) {
        context.sections.push_back(
            EmptySection("channels", "Driver channels",
                         "Not measured: it takes a channel's sampler, such as --llc read."));
        return;
    }
    for (size_t i = 0; i < channels_.size(); ++i) {
        WriteChart(context, i, channels_[i]);
    }
    WriteTable(context);
}

}  // namespace tiv::host
