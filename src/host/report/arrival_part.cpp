// Sections of the arrival of data.
#include "host/report/arrival_part.h"

#include <algorithm>

#include "host/report/page_text.h"
#include "host/result/result_directory.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr double NS_PER_SECOND = 1e9;

bool IsChannel(const std::string& file) {
    uint32_t pid = 0;
    return KindOfFile(file, pid) == FileKind::CHANNEL;
}

}  // namespace

void ArrivalPart::Flow::Add(uint64_t timeNs, uint64_t bytes) {
    fromNs = fromNs.value_or(timeNs);
    if (timeNs >= *fromNs + LEAST_STRETCH_NS) {
        End(timeNs);
    }
    lastNs = std::max(lastNs, timeNs);
    pending += bytes;
}

void ArrivalPart::Flow::End(uint64_t timeNs) {
    const auto seconds = static_cast<double>(timeNs - *fromNs) / NS_PER_SECOND;
    rate.Add(*fromNs, timeNs, static_cast<double>(pending) / seconds);
    fromNs = timeNs;
    pending = 0;
}

void ArrivalPart::Flow::Finish() { End(std::max(lastNs, *fromNs + LEAST_STRETCH_NS)); }

void ArrivalPart::Take(const ChunkRow& row) {
    const auto [place, isNew] = devices_.try_emplace(row.deviceId);
    Device& device = place->second;
    if (isNew && !oneClock_) {
        device.firstNs = row.receivedNs;
    }
    const uint64_t timeNs = row.receivedNs - std::min(row.receivedNs, device.firstNs);
    device.all.Add(timeNs, row.bytes);
    const std::string file(row.file);
    if (IsChannel(file)) {
        device.channels[file].Add(timeNs, row.bytes);
    }
}

void ArrivalPart::Finish() {
    for (auto& [deviceId, device] : devices_) {
        device.all.Finish();
        for (auto& [file, flow] : device.channels) {
            flow.Finish();
        }
    }
}

int ArrivalPart::ClockOf(int deviceId) const {
    return oneClock_ ? deviceId : PageGrid::OwnClock(deviceId);
}

void ArrivalPart::IncludeIn(PageGrid& grid) const {
    for (const auto& [deviceId, device] : devices_) {
        grid.Include(ClockOf(deviceId), device.all.rate);
        for (const auto& [file, flow] : device.channels) {
            grid.Include(ClockOf(deviceId), flow.rate);
        }
    }
}

void ArrivalPart::WriteChart(PageContext& context, int deviceId, Device& device) {
    ordered_json series = ordered_json::array();
    const auto add = [&](const std::string& name, Flow& flow) {
        ordered_json entry = {{"name", name}, {"color", series.size()}};
        AddColumns(context.grid, ClockOf(deviceId), flow.rate, context.block, entry);
        series.push_back(std::move(entry));
    };
    add("all files", device.all);
    for (auto& [file, flow] : device.channels) {
        add(PageText(file), flow);
    }
    const std::string of = context.OfDevice(deviceId);
    const char* note = oneClock_ ? ""
                                 : "Its times are the collecting machine's, whose clock is not the "
                                   "device's: how they lie to the other plots is not known.";
    context.sections.push_back({{"kind", "chart"},
                                {"id", "arrival-" + std::to_string(deviceId)},
                                {"title", "Data received" + of},
                                {"link", "data received" + of},
                                {"subtitle", "bytes per second, by the time of arrival"},
                                {"unit", "bytesPerSecond"},
                                {"note", note},
                                {"series", std::move(series)}});
}

void ArrivalPart::Write(PageContext& context) {
    for (auto& [deviceId, device] : devices_) {
        WriteChart(context, deviceId, device);
    }
}

}  // namespace tiv::host
