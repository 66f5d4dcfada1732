// One reader per key of a job file.
#include "host/job_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <nlohmann/json.hpp>

#include "host/duration.h"

namespace tiv::host {

using nlohmann::json;
using std::chrono::milliseconds;

namespace {

constexpr std::streamsize MAX_FILE_BYTES = 1 << 20;
constexpr int MAX_DEPTH = 8;

// What is expected in place of a value; empty when the value was taken.
using Expected = std::string;

Expected TakeText(const json& value, std::string& out) {
    if (!value.is_string()) {
        return "a text";
    }
    out = value.get<std::string>();
    return "";
}

Expected TakeTexts(const json& value, std::vector<std::string>& out) {
    const bool good = value.is_array() && std::all_of(value.begin(), value.end(),
                                                      [](const json& v) { return v.is_string(); });
    if (!good) {
        return "a list of texts";
    }
    out = value.get<std::vector<std::string>>();
    return "";
}

template <class Number>
Expected TakeNumber(const json& value, Number& out) {
    const bool good =
        value.is_number_integer() &&
        (value.is_number_unsigned()
             ? value.get<uint64_t>() <= static_cast<uint64_t>(std::numeric_limits<Number>::max())
             : value.get<int64_t>() >= std::numeric_limits<Number>::min());
    if (!good) {
        return "a whole number";
    }
    out = value.get<Number>();
    return "";
}

Expected TakeTime(const json& value, milliseconds& out) {
    const auto time =
        value.is_string() ? ParseDuration(value.get<std::string>()) : std::optional<milliseconds>();
    if (!time.has_value()) {
        return "a time such as \"10s\", \"500ms\", \"5m\" or \"1h\"";
    }
    out = *time;
    return "";
}

Expected TakeTime(const json& value, std::optional<milliseconds>& out) {
    milliseconds time{0};
    Expected expected = TakeTime(value, time);
    if (expected.empty()) {
        out = time;
    }
    return expected;
}

Expected TakeDevices(const json& value, CollectOptions& options) {
    std::vector<int> devices;
    Expected expected = value.is_array() ? "" : "a list of device numbers";
    for (size_t i = 0; expected.empty() && i < value.size(); ++i) {
        expected = TakeNumber(value[i], devices.emplace_back());
    }
    options.devices = expected.empty() ? devices : options.devices;
    return expected.empty() ? "" : "a list of device numbers";
}

Expected TakeSamplers(const json& value, CollectOptions& options) {
    std::vector<std::string> names;
    Expected expected = TakeTexts(value, names);
    for (const std::string& name : names) {
        if (name != "cpu" && name != "memory" && name != "processes") {
            expected = "a list of \"cpu\", \"memory\" and \"processes\"";
        }
    }
    if (expected.empty()) {
        const auto has = [&](const char* name) {
            return std::find(names.begin(), names.end(), name) != names.end();
        };
        options.cpu = has("cpu");
        options.memory = has("memory");
        options.processes = has("processes");
    }
    return expected;
}

Expected TakeLlc(const json& value, CollectOptions& options) {
    std::string event;
    Expected expected = TakeText(value, event);
    if (expected.empty()) {
        options.llcEvents = {event};
    }
    return expected;
}

std::string SettingText(const json& value) {
    return value.is_string() ? value.get<std::string>() : value.dump();
}

Expected TakeSettings(const json& value, CollectOptions& options) {
    const bool good =
        value.is_object() && std::all_of(value.begin(), value.end(), [](const json& v) {
            return v.is_string() || v.is_number_integer() || v.is_boolean();
        });
    if (!good) {
        return "an object with texts, whole numbers, true or false";
    }
    for (const auto& [name, field] : value.items()) {
        options.settings.emplace_back(name, SettingText(field));
    }
    return "";
}

struct Key {
    const char* name;
    Expected (*take)(const json& value, CollectOptions& options);
};

constexpr Key KEYS[] = {
    {"$schema",
     [](const json& v, CollectOptions&) {
         std::string ignored;
         return TakeText(v, ignored);
     }},
    {"devices", TakeDevices},
    {"duration", [](const json& v, CollectOptions& o) { return TakeTime(v, o.duration); }},
    {"repeat", [](const json& v, CollectOptions& o) { return TakeNumber(v, o.repeat); }},
    {"every", [](const json& v, CollectOptions& o) { return TakeTime(v, o.every); }},
    {"command", [](const json& v, CollectOptions& o) { return TakeTexts(v, o.command); }},
    {"samplers", TakeSamplers},
    {"llc", TakeLlc},
    {"ctrlCpu", [](const json& v, CollectOptions& o) { return TakeTexts(v, o.ctrlCpuEvents); }},
    {"interval", [](const json& v, CollectOptions& o) { return TakeTime(v, o.interval); }},
    {"pageSize", [](const json& v, CollectOptions& o) { return TakeNumber(v, o.pageBytes); }},
    {"tickRate", [](const json& v, CollectOptions& o) { return TakeNumber(v, o.ticksPerSecond); }},
    {"sampleConfig", TakeSettings},
    {"output", [](const json& v, CollectOptions& o) { return TakeText(v, o.output); }},
    {"wait", [](const json& v, CollectOptions& o) { return TakeTime(v, o.wait); }},
    {"drainTimeout", [](const json& v, CollectOptions& o) { return TakeTime(v, o.drainTimeout); }},
};

std::string KeyNames() {
    std::string names;
    for (const Key& key : KEYS) {
        names.append(names.empty() ? "" : ", ").append(key.name);
    }
    return names;
}

std::string TakeKey(const std::string& name, const json& value, CollectOptions& options) {
    const auto* const key = std::find_if(std::begin(KEYS), std::end(KEYS),
                                         [&](const Key& known) { return name == known.name; });
    if (key == std::end(KEYS)) {
        return fmt::format("there is no key \"{}\"; the keys are {}", name, KeyNames());
    }
    const Expected expected = key->take(value, options);
    return expected.empty() ? "" : fmt::format("\"{}\" must be {}", name, expected);
}

// The text of the file; false with the reason in `error`.
bool ReadText(const std::string& path, std::string& text, std::string& error) {
    errno = 0;
    std::ifstream file(path, std::ios::binary);
    text.assign(static_cast<size_t>(MAX_FILE_BYTES) + 1, '\0');
    file.read(text.data(), MAX_FILE_BYTES + 1);
    if (!file.is_open() || file.bad() || errno == EISDIR) {
        error = std::strerror(errno == 0 ? EIO : errno);
        return false;
    }
    text.resize(static_cast<size_t>(file.gcount()));
    if (file.gcount() > MAX_FILE_BYTES) {
        error = "it is larger than 1 MiB";
        return false;
    }
    return true;
}

// What is nested deeper than any job file is cut off.
json ParseShallow(const std::string& text) {
    const auto keep = [](int depth, json::parse_event_t event, const json&) {
        const bool opens =
            event == json::parse_event_t::object_start || event == json::parse_event_t::array_start;
        return !opens || depth < MAX_DEPTH;
    };
    return json::parse(text, keep);
}

}  // namespace

std::string ReadJobFile(const std::string& path, CollectOptions& options) {
    std::string text;
    std::string error;
    if (!ReadText(path, text, error)) {
        return fmt::format("cannot read the job file {}: {}; name a file that holds a job in JSON",
                           path, error);
    }
    json job;
    try {
        job = ParseShallow(text);
    } catch (const json::exception& wrong) {
        return fmt::format("the job file {} is no JSON: {}", path, wrong.what());
    }
    if (!job.is_object()) {
        return fmt::format("the job file {} must hold one object", path);
    }
    for (const auto& [name, value] : job.items()) {
        error = TakeKey(name, value, options);
        if (!error.empty()) {
            return fmt::format("job file {}: {}", path, error);
        }
    }
    return "";
}

}  // namespace tiv::host
