// Telling what a result holds.
#include "host/result_info.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>

#include "host/duration.h"
#include "host/result_files.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

struct Sum {
    uint64_t files = 0;
    uint64_t bytes = 0;
};

std::string Line(const std::string& name, const std::string& value) {
    return fmt::format("{:<10} {}\n", name, value);
}

std::string StateText(const ResultDirectory& result) {
    if (result.state == "running") {
        return "running, or left behind by a tool that died";
    }
    if (IsWhole(result)) {
        return "complete";
    }
    return "INCOMPLETE";
}

std::string DeviceText(const ResultDirectory& result, const DeviceFacts& device) {
    std::map<FileKind, Sum> sums;
    for (const FileFacts& file : result.files) {
        if (file.directory == device.directory) {
            ++sums[file.kind].files;
            sums[file.kind].bytes += file.bytes;
        }
    }
    std::string text = "\n" + Line(fmt::format("device {}", device.deviceId),
                                   device.complete ? "complete" : "INCOMPLETE");
    text += Line("  job", Printable(device.jobId));
    text += Line("  samplers", Printable(fmt::format("{}", fmt::join(device.samplers, ", "))));
    for (const auto& [kind, sum] : sums) {
        text += fmt::format("  {:<16} {:>6} files {:>10}\n", FileKindName(kind), sum.files,
                            FormatBytes(static_cast<double>(sum.bytes)));
    }
    return text;
}

ordered_json DeviceJson(const ResultDirectory& result, const DeviceFacts& device) {
    ordered_json files = ordered_json::array();
    for (const FileFacts& file : result.files) {
        if (file.directory == device.directory) {
            files.push_back(
                {{"name", file.name}, {"kind", FileKindName(file.kind)}, {"bytes", file.bytes}});
        }
    }
    return {{"device", device.deviceId},   {"directory", device.directory},
            {"jobId", device.jobId},       {"samplers", device.samplers},
            {"complete", device.complete}, {"finishArrived", device.finishArrived},
            {"failure", device.failure},   {"files", std::move(files)}};
}

void AddKnown(ordered_json& info, const ResultDirectory& result) {
    if (!result.started.empty()) {
        info["started"] = result.started;
    }
    if (!result.ended.empty()) {
        info["ended"] = result.ended;
    }
    if (result.askedMs.has_value()) {
        info["askedMs"] = *result.askedMs;
    }
    if (result.clock.has_value()) {
        info["clock"] = {{"wallNs", result.clock->wallNs}, {"rawNs", result.clock->rawNs}};
    }
}

}  // namespace

bool IsWhole(const ResultDirectory& result) { return result.complete && result.problems.empty(); }

std::string InfoText(const ResultDirectory& result) {
    std::string text = Line("result", result.path) + Line("state", StateText(result));
    if (!result.started.empty()) {
        text += Line("started", Printable(result.started));
    }
    if (!result.ended.empty()) {
        text +=
            Line("ended", Printable(result.ended) + (result.stoppedEarly ? ", stopped early" : ""));
    }
    if (result.askedMs.has_value()) {
        text += Line("asked for", FormatDuration(std::chrono::milliseconds(*result.askedMs)));
    }
    text += Line("units", fmt::format("pages of {} bytes, {} clock ticks per second",
                                      result.pageBytes, result.ticksPerSecond));
    for (const DeviceFacts& device : result.devices) {
        text += DeviceText(result, device);
    }
    if (!result.problems.empty()) {
        text += "\nmissing or damaged:\n";
    }
    for (const std::string& problem : result.problems) {
        text += fmt::format("  {}\n", Printable(problem));
    }
    return text;
}

std::string InfoJson(const ResultDirectory& result) {
    ordered_json info = {
        {"path", result.path},
        {"state", result.state},
        {"complete", IsWhole(result)},
        {"problems", result.problems},
        {"tool", result.tool},
        {"stoppedEarly", result.stoppedEarly},
        {"units", {{"pageBytes", result.pageBytes}, {"ticksPerSecond", result.ticksPerSecond}}}};
    AddKnown(info, result);
    info["devices"] = ordered_json::array();
    for (const DeviceFacts& device : result.devices) {
        info["devices"].push_back(DeviceJson(result, device));
    }
    return info.dump(-1, ' ', false, ordered_json::error_handler_t::replace) + "\n";
}

}  // namespace tiv::host
