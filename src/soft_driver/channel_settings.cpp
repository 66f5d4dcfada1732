// Reads the channels of a device from the configuration.
#include "soft_driver/channel_settings.h"

#include <nlohmann/json.hpp>
#include <set>

#include "soft_driver/perf_events.h"
#include "soft_driver/settings_reader.h"

namespace tiv::soft_driver {
namespace {

constexpr uint64_t MOST_CHANNELS = 160;
constexpr size_t MOST_NAME_BYTES = 31;
constexpr uint32_t LEAST_RING = 65536;
constexpr uint32_t MOST_RING = 1073741824;
constexpr uint64_t MOST_RATE = 1000000000000;
constexpr uint64_t MOST_LIMIT = 1ULL << 60;
constexpr size_t MOST_EVENTS = 64;

std::vector<std::string> ReadEvents(SettingsReader& reader) {
    const nlohmann::json* list = reader.Member("events");
    if (list == nullptr) {
        return {};
    }
    const std::string path = reader.PathOf("events");
    if (!list->is_array() || list->empty() || list->size() > MOST_EVENTS) {
        throw SettingsError(path, "must be a list of 1 to 64 event names");
    }
    std::vector<std::string> events;
    for (const nlohmann::json& event : *list) {
        const std::string at = path + "[" + std::to_string(events.size()) + "]";
        if (!event.is_string()) {
            throw SettingsError(at, "must be a string");
        }
        if (!FindPerfEvent(event.get<std::string>())) {
            throw SettingsError(
                at, "names no hardware, cache or software event: " + event.get<std::string>());
        }
        events.push_back(event.get<std::string>());
    }
    return events;
}

void ReadPerf(SettingsReader& reader, SourceSettings* source) {
    source->kind = SourceKind::PERF;
    source->events = ReadEvents(reader);
    source->eventsAreDefault = source->events.empty();
    if (source->eventsAreDefault) {
        source->events = DefaultPerfEvents();
    }
    source->perCpu = reader.Bool("per_cpu", source->perCpu);
    source->periodMs = reader.Unsigned32("period_ms", source->periodMs, 1, 3600000);
}

void ReadPace(SettingsReader& reader, SourceSettings* source) {
    source->bytesPerSecond = reader.Unsigned("bytes_per_second", 0, 0, MOST_RATE);
    source->burstBytes = reader.Unsigned("burst_bytes", 0, 0, MOST_RING);
    if (source->burstBytes != 0 && source->bytesPerSecond == 0) {
        throw SettingsError(reader.PathOf("burst_bytes"), "needs bytes_per_second");
    }
}

void ReadReplay(SettingsReader& reader, SourceSettings* source) {
    source->kind = SourceKind::REPLAY;
    source->file = reader.Text("file", "");
    if (source->file.empty()) {
        throw SettingsError(reader.PathOf("file"), "must name the file to replay");
    }
    source->loop = reader.Bool("loop", false);
    ReadPace(reader, source);
}

SourceSettings ReadSource(SettingsReader& channel) {
    const std::string kind = channel.Text("source", "silent");
    SourceSettings source;
    if (kind == "perf") {
        ReadPerf(channel, &source);
    } else if (kind == "counter") {
        source.kind = SourceKind::COUNTER;
        source.limitBytes = channel.Unsigned("limit_bytes", 0, 0, MOST_LIMIT);
        ReadPace(channel, &source);
    } else if (kind == "replay") {
        ReadReplay(channel, &source);
    } else if (kind != "silent") {
        throw SettingsError(channel.PathOf("source"), "must be perf, counter, replay or silent");
    }
    return source;
}

ChannelSettings ReadChannel(const nlohmann::json& value, const std::string& path) {
    SettingsReader reader(value, path);
    ChannelSettings channel;
    if (reader.Member("id") == nullptr) {
        throw SettingsError(reader.PathOf("id"), "is missing");
    }
    channel.id = reader.Unsigned32("id", 0, 1, MOST_CHANNELS);
    channel.source = ReadSource(reader);
    channel.name = reader.Text("name", "channel_" + std::to_string(channel.id));
    if (channel.name.size() > MOST_NAME_BYTES) {
        throw SettingsError(reader.PathOf("name"), "must have at most 31 bytes");
    }
    channel.type = reader.Unsigned32("type", 1, 0, UINT32_MAX);
    channel.ringBytes = reader.Unsigned32("ring_bytes", channel.ringBytes, LEAST_RING, MOST_RING);
    channel.holdBackBytes = reader.Unsigned32("hold_back_bytes", 0, 0, channel.ringBytes / 2);
    reader.Finish();
    return channel;
}

}  // namespace

std::vector<ChannelSettings> ReadChannelSettings(const nlohmann::json& list,
                                                 const std::string& path) {
    if (!list.is_array() || list.size() > MOST_CHANNELS) {
        throw SettingsError(path, "must be a list of at most 160 channels");
    }
    std::vector<ChannelSettings> channels;
    std::set<uint32_t> ids;
    for (const nlohmann::json& value : list) {
        const std::string at = path + "[" + std::to_string(channels.size()) + "]";
        channels.push_back(ReadChannel(value, at));
        if (!ids.insert(channels.back().id).second) {
            throw SettingsError(at + ".id", "is used twice");
        }
    }
    return channels;
}

}  // namespace tiv::soft_driver
