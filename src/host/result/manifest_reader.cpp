// The manifest as facts.
#include "host/result/manifest_reader.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <nlohmann/json.hpp>

#include "host/result_files.h"

namespace tiv::host {

namespace {

using nlohmann::json;

// A file of a process takes about a hundred bytes; a week of short-lived ones fits.
constexpr std::streamoff MAX_MANIFEST_BYTES = 64 << 20;
constexpr int MAX_DEPTH = 16;
constexpr int MAX_DEVICE_ID = 4096;

std::string TextOf(const json& object, const char* key) {
    const auto value = object.find(key);
    return value != object.end() && value->is_string() ? value->get<std::string>() : "";
}

bool FlagOf(const json& object, const char* key) {
    const auto value = object.find(key);
    return value != object.end() && value->is_boolean() && value->get<bool>();
}

std::optional<uint64_t> NumberOf(const json& object, const char* key) {
    const auto value = object.find(key);
    if (value == object.end() || !value->is_number_unsigned()) {
        return std::nullopt;
    }
    const auto number = value->get<uint64_t>();
    return number > static_cast<uint64_t>(INT64_MAX) ? std::nullopt : std::optional(number);
}

const json& PartOf(const json& object, const char* key) {
    static const json nothing;
    const auto value = object.find(key);
    return value == object.end() ? nothing : *value;
}

// The text, or an empty one with a problem.
std::string LoadText(ResultDirectory& result) {
    errno = 0;
    std::ifstream file(result.path + "/manifest.json", std::ios::binary | std::ios::ate);
    if (!file.is_open()) {
        const std::string what = errno == ENOENT || errno == 0
                                     ? "is missing"
                                     : std::string("cannot be read: ") + std::strerror(errno);
        result.problems.push_back("manifest.json " + what + ": what was asked for is not known");
        return "";
    }
    const std::streamoff bytes = file.tellg();
    if (bytes < 0 || bytes > MAX_MANIFEST_BYTES) {
        result.problems.push_back(
            fmt::format("manifest.json is not read: more than {} bytes", MAX_MANIFEST_BYTES));
        return "";
    }
    std::string text(static_cast<size_t>(bytes), '\0');
    file.seekg(0);
    file.read(text.data(), bytes);
    text.resize(static_cast<size_t>(file.gcount()));
    return text;
}

// What lies deeper than any manifest is left out.
json ParseShallow(const std::string& text) {
    const auto keep = [](int depth, json::parse_event_t event, const json&) {
        const bool opens =
            event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
        return !opens || depth < MAX_DEPTH;
    };
    return json::parse(text, keep, false);
}

void ReadUnits(const json& units, ResultDirectory& result) {
    const auto page = NumberOf(units, "pageBytes");
    const auto ticks = NumberOf(units, "ticksPerSecond");
    if (page.value_or(0) == 0 || ticks.value_or(0) == 0) {
        result.problems.push_back(
            fmt::format("manifest.json tells no page size or no tick rate: taken are {} bytes and "
                        "{} ticks per second",
                        page.value_or(0) == 0 ? result.pageBytes : *page,
                        ticks.value_or(0) == 0 ? result.ticksPerSecond : *ticks));
    }
    if (page.value_or(0) != 0) {
        result.pageBytes = *page;
    }
    if (ticks.value_or(0) != 0) {
        result.ticksPerSecond = *ticks;
    }
}

void ReadClock(const json& clock, ResultDirectory& result) {
    const auto wall = NumberOf(clock, "wallNs");
    const auto raw = NumberOf(clock, "rawNs");
    if (wall.has_value() && raw.has_value()) {
        result.clock = ClockPair{*wall, *raw};
    }
}

void ReadCourse(const json& manifest, ResultDirectory& result) {
    const json& replays = PartOf(manifest, "replays");
    if (replays.is_array()) {
        for (const json& replay : replays) {
            if (replay.is_object()) {
                result.replays.push_back({TextOf(replay, "started"), TextOf(replay, "ended")});
            }
        }
    }
    const json& words = PartOf(PartOf(manifest, "command"), "words");
    result.command = words.is_array() ? words.dump() : "";
}

void ReadHead(const json& manifest, ResultDirectory& result) {
    result.tool = TextOf(manifest, "tool");
    const std::string state = TextOf(manifest, "state");
    if (state == "complete" || state == "incomplete" || state == "running") {
        result.state = state;
    }
    result.complete = state == "complete" && FlagOf(manifest, "complete");
    result.stoppedEarly = FlagOf(manifest, "stoppedEarly");
    result.started = TextOf(manifest, "started");
    result.ended = TextOf(manifest, "ended");
    result.askedMs = NumberOf(manifest, "askedMs");
    ReadCourse(manifest, result);
    ReadUnits(PartOf(manifest, "units"), result);
    ReadClock(PartOf(manifest, "clock"), result);
    if (result.state == "running") {
        result.problems.emplace_back(
            "the collection was still running, or was killed, when the manifest was written");
    }
}

void NoteDeviceProblems(const json& device, const DeviceFacts& facts, ResultDirectory& result) {
    const std::string who = fmt::format("device {}", facts.deviceId);
    if (!facts.failure.empty()) {
        // The failure mostly names the device itself.
        const bool named = facts.failure.compare(0, who.size(), who) == 0;
        result.problems.push_back(named ? facts.failure : who + ": " + facts.failure);
    }
    const json& refused = PartOf(device, "refusedNames");
    if (refused.is_object()) {
        for (const auto& [name, chunks] : refused.items()) {
            result.problems.push_back(fmt::format("{}: refused file name \"{}\": {} chunks lost",
                                                  who, name,
                                                  chunks.is_number() ? chunks.dump() : "some"));
        }
    }
    if (result.state == "running") {
        return;
    }
    if (!facts.finishArrived) {
        result.problems.push_back(who + ": the end of its data never arrived");
    } else if (!facts.complete && facts.failure.empty() &&
               !(refused.is_object() && !refused.empty())) {
        result.problems.push_back(who + ": its data is not complete");
    }
}

void ReadFiles(const json& files, const std::string& directory, ListedFiles& listed) {
    if (!files.is_array()) {
        return;
    }
    for (const json& file : files) {
        const std::string name = TextOf(file, "name");
        const auto bytes = NumberOf(file, "bytes");
        if (!name.empty() && bytes.has_value()) {
            listed[{directory, name}] = *bytes;
        }
    }
}

bool ReadDevice(const json& device, ResultDirectory& result, ListedFiles& listed) {
    DeviceFacts facts;
    const auto id = NumberOf(device, "device");
    facts.directory = TextOf(device, "directory");
    if (!id.has_value() || *id > MAX_DEVICE_ID || !IsSafeFileName(facts.directory)) {
        return false;
    }
    facts.deviceId = static_cast<int>(*id);
    facts.jobId = TextOf(device, "jobId");
    facts.complete = FlagOf(device, "complete");
    facts.finishArrived = FlagOf(device, "finishArrived");
    facts.failure = TextOf(device, "failure");
    const json& samplers = PartOf(device, "samplers");
    if (samplers.is_array()) {
        for (const json& sampler : samplers) {
            if (sampler.is_string()) {
                facts.samplers.push_back(sampler.get<std::string>());
            }
        }
    }
    const json& config = PartOf(device, "sampleConfig");
    facts.sampleConfig = config.is_object() ? config.dump() : "";
    NoteDeviceProblems(device, facts, result);
    ReadFiles(PartOf(device, "files"), facts.directory, listed);
    result.devices.push_back(std::move(facts));
    return true;
}

}  // namespace

bool ReadManifest(ResultDirectory& result, ListedFiles& listed) {
    const std::string text = LoadText(result);
    if (text.empty()) {
        return false;
    }
    const json manifest = ParseShallow(text);
    if (!manifest.is_object()) {
        result.problems.emplace_back(
            "manifest.json is damaged: what was asked for is not known, taken are the usual page "
            "size and tick rate");
        return false;
    }
    ReadHead(manifest, result);
    const json& devices = PartOf(manifest, "devices");
    if (devices.is_array()) {
        for (const json& device : devices) {
            if (!device.is_object() || !ReadDevice(device, result, listed)) {
                result.problems.emplace_back("manifest.json tells of a device that is none");
            }
        }
    }
    if (result.state == "unknown") {
        result.problems.emplace_back("manifest.json does not say whether the result is complete");
    }
    return true;
}

}  // namespace tiv::host
