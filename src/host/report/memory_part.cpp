// Sections of the system's memory.
#include "host/report/memory_part.h"

#include <algorithm>
#include <utility>

#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr uint64_t MOST_INTERVALS_HELD = 5;
constexpr const char* CHART_KEYS[] = {"MemTotal",     "MemFree",   "Buffers", "Cached",
                                      "SReclaimable", "SwapTotal", "SwapFree"};

bool IsChartKey(const std::string& name) {
    return std::find(std::begin(CHART_KEYS), std::end(CHART_KEYS), name) != std::end(CHART_KEYS);
}

using Bytes = std::map<std::string, uint64_t, std::less<>>;

bool HasAll(const Bytes& bytes, std::initializer_list<const char*> names) {
    return std::all_of(names.begin(), names.end(),
                       [&](const char* name) { return bytes.count(name) != 0; });
}

uint64_t ValueOf(const Bytes& bytes, const char* name) {
    const auto found = bytes.find(name);
    return found == bytes.end() ? 0 : found->second;
}

}  // namespace

uint64_t HeldSince(std::optional<uint64_t>& previousNs, uint64_t& shortestNs, uint64_t timeNs) {
    const std::optional<uint64_t> before = previousNs;
    previousNs = timeNs;
    if (!before.has_value() || *before >= timeNs) {
        return timeNs;
    }
    const uint64_t interval = timeNs - *before;
    shortestNs = std::min(shortestNs, interval);
    const uint64_t most = shortestNs > UINT64_MAX / MOST_INTERVALS_HELD
                              ? UINT64_MAX
                              : shortestNs * MOST_INTERVALS_HELD;
    return timeNs - std::min(interval, most);
}

void MemoryPart::Take(const MemoryKeyRow& row) {
    Key& key = devices_[row.deviceId].keys[row.key];
    key.name = std::string(row.name);
    key.isBytes = row.isBytes;
}

void MemoryPart::Take(const MemoryRow& row) {
    Device& device = devices_[row.deviceId];
    Key& key = device.keys[row.key];
    key.first = key.readings == 0 ? row.value : key.first;
    key.least = key.readings == 0 ? row.value : std::min(key.least, row.value);
    key.greatest = std::max(key.greatest, row.value);
    key.last = row.value;
    ++key.readings;
    if (device.reading.timeNs != row.timeNs) {
        EndReading(device);
        device.reading.timeNs = row.timeNs;
    }
    if (IsChartKey(key.name)) {
        device.reading.bytes[key.name] = row.value;
    }
}

// A reading is whole when the next begins.
void MemoryPart::EndReading(Device& device) {
    const Bytes bytes = std::exchange(device.reading.bytes, {});
    const uint64_t now = device.reading.timeNs;
    if (bytes.empty()) {
        return;
    }
    const uint64_t since = HeldSince(device.previousNs, device.shortestNs, now);
    if (HasAll(bytes, {"MemTotal", "MemFree"})) {
        const uint64_t total = ValueOf(bytes, "MemTotal");
        const uint64_t free = std::min(total, ValueOf(bytes, "MemFree"));
        const uint64_t buffers = std::min(total - free, ValueOf(bytes, "Buffers"));
        const uint64_t cached = std::min(total - free - buffers,
                                         ValueOf(bytes, "Cached") + ValueOf(bytes, "SReclaimable"));
        device.layers[FREE].Add(since, now, static_cast<double>(free));
        device.layers[BUFFERS].Add(since, now, static_cast<double>(buffers));
        device.layers[CACHED].Add(since, now, static_cast<double>(cached));
        device.layers[USED].Add(since, now, static_cast<double>(total - free - buffers - cached));
    }
    if (HasAll(bytes, {"SwapTotal", "SwapFree"})) {
        TakeSwap(device, since, ValueOf(bytes, "SwapTotal"), ValueOf(bytes, "SwapFree"));
    }
}

void MemoryPart::TakeSwap(Device& device, uint64_t since, uint64_t total, uint64_t free) {
    const uint64_t used = total - std::min(total, free);
    device.swapInUse = device.swapInUse || used > 0;
    device.swapUsed.Add(since, device.reading.timeNs, static_cast<double>(used));
}

void MemoryPart::Finish() {
    for (auto& [deviceId, device] : devices_) {
        EndReading(device);
    }
}

void MemoryPart::IncludeIn(PageGrid& grid) const {
    for (const auto& [deviceId, device] : devices_) {
        grid.Include(deviceId, device.layers[USED]);
        grid.Include(deviceId, device.swapUsed);
    }
}

std::optional<uint64_t> MemoryPart::TotalBytes(int deviceId) const {
    const auto device = devices_.find(deviceId);
    if (device == devices_.end()) {
        return std::nullopt;
    }
    for (const auto& [number, key] : device->second.keys) {
        if (key.name == "MemTotal" && key.readings > 0) {
            return key.last;
        }
    }
    return std::nullopt;
}

void MemoryPart::WriteChart(PageContext& context, int deviceId, Device& device) {
    const struct {
        Layer layer;
        const char* name;
        int color;
        const char* detail;
    } layers[] = {
        {USED, "used", 0, "used: total less free, buffers and cache"},
        {CACHED, "cache", 2, "cache: Cached and SReclaimable"},
        {BUFFERS, "buffers", 9, "buffers: Buffers"},
        {FREE, "free", 12, "free: MemFree"},
    };
    ordered_json series = ordered_json::array();
    for (const auto& layer : layers) {
        series.push_back({{"name", layer.name},
                          {"color", layer.color},
                          {"detail", layer.detail},
                          {"mean", context.block.AddFloats(MeanColumn(
                                       context.grid, deviceId, device.layers[layer.layer]))}});
    }
    ordered_json section = {{"kind", "chart"},
                            {"id", "memory-" + std::to_string(deviceId)},
                            {"title", "Memory" + context.OfDevice(deviceId)},
                            {"link", "memory" + context.OfDevice(deviceId)},
                            {"subtitle", "of the system"},
                            {"unit", "bytes"},
                            {"stacked", true},
                            {"series", std::move(series)}};
    section["top"] = TotalBytes(deviceId).value();  // what is drawn is parts of it
    context.sections.push_back(std::move(section));
}

void MemoryPart::WriteSwap(PageContext& context, int deviceId, Device& device) {
    ordered_json used = {{"name", "used"}, {"color", 3}};
    AddColumns(context.grid, deviceId, device.swapUsed, context.block, used);
    ordered_json series = ordered_json::array();
    series.push_back(std::move(used));
    context.sections.push_back({{"kind", "chart"},
                                {"id", "swap-" + std::to_string(deviceId)},
                                {"title", "Swap" + context.OfDevice(deviceId)},
                                {"link", "swap" + context.OfDevice(deviceId)},
                                {"subtitle", "SwapTotal less SwapFree"},
                                {"unit", "bytes"},
                                {"series", std::move(series)}});
}

void MemoryPart::WriteTable(PageContext& context, int deviceId, const Device& device) {
    ordered_json rows = ordered_json::array();
    bool numbersLeftOut = false;
    for (const auto& [number, key] : device.keys) {
        numbersLeftOut = numbersLeftOut || !key.isBytes;
        if (key.isBytes && key.readings > 0) {
            rows.push_back({PageText(key.name), key.first, key.last, key.least, key.greatest,
                            key.greatest - key.least, key.readings});
        }
    }
    context.sections.push_back(
        {{"kind", "table"},
         {"id", "memory-table-" + std::to_string(deviceId)},
         {"title", "Memory in figures" + context.OfDevice(deviceId)},
         {"link", ""},
         {"subtitle", "every line of the readings that counts bytes"},
         {"sort", 5},
         {"columns",
          {{{"name", "line"}, {"unit", "text"}},
           {{"name", "first"}, {"unit", "bytes"}},
           {{"name", "last"}, {"unit", "bytes"}},
           {{"name", "least"}, {"unit", "bytes"}},
           {{"name", "greatest"}, {"unit", "bytes"}},
           {{"name", "range"}, {"unit", "bytes"}, {"hint", "greatest less least"}},
           {{"name", "readings"}, {"unit", "count"}}}},
         {"note", numbersLeftOut
                      ? "Lines that count something else are in the CSV and SQLite exports."
                      : ""},
         {"rows", std::move(rows)}});
}

void MemoryPart::Write(PageContext& context) {
    bool any = false;
    for (auto& [deviceId, device] : devices_) {
        if (!device.layers[USED].Empty()) {
            WriteChart(context, deviceId, device);
            any = true;
        }
        if (device.swapInUse) {
            WriteSwap(context, deviceId, device);
        }
        if (!device.keys.empty()) {
            WriteTable(context, deviceId, device);
            any = true;
        }
    }
    if (!any) {
        context.sections.push_back(
            EmptySection("memory", "Memory", "Not measured: it takes the sampler --memory."));
    }
}

}  // namespace tiv::host
