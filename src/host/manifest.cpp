// Writing of the manifest.
#include "host/manifest.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/output_file.h"
#include "host/version.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr int MANIFEST_FORMAT = 1;

ordered_json FilesOf(DeviceRun& run) {
    ordered_json files = ordered_json::array();
    for (const auto& [name, summary] : run.Files().Summaries()) {
        files.push_back({{"name", name},
                         {"bytes", summary.bytes},
                         {"chunks", summary.chunks},
                         {"dataModule", summary.dataModule}});
    }
    return files;
}

ordered_json DeviceOf(DeviceRun& run) {
    const DeviceJob& job = run.Job();
    return {{"device", job.deviceId},
            {"directory", "device_" + std::to_string(job.deviceId)},
            {"jobId", job.jobId},
            {"samplers", job.samplers},
            {"complete", run.Complete()},
            {"finishArrived", run.FinishArrived()},
            {"failure", run.Failure()},
            {"bytes", run.Bytes()},
            {"chunks", run.Chunks()},
            {"files", FilesOf(run)},
            {"refusedNames", run.Files().RefusedNames()},
            {"sampleConfig", ordered_json::parse(run.Job().configText)}};
}

ordered_json ReplaysOf(const CollectionRecord& record) {
    ordered_json replays = ordered_json::array();
    for (const ReplayRecord& replay : record.replays) {
        ordered_json entry = {{"replay", replays.size()}, {"started", UtcText(replay.started)}};
        if (replay.ended.has_value()) {
            entry["ended"] = UtcText(*replay.ended);
        }
        replays.push_back(entry);
    }
    return replays;
}

// A command that runs, or that nobody waited for, has no status.
ordered_json CommandOf(const CollectionRecord& record) {
    ordered_json command = {{"words", record.command}};
    if (record.runs != nullptr && record.runs->ExitStatus().has_value()) {
        command["exitStatus"] = *record.runs->ExitStatus();
    }
    if (record.runs != nullptr && record.runs->EndSignal().has_value()) {
        command["signal"] = *record.runs->EndSignal();
    }
    return command;
}

// Whether the devices' raw monotonic clock is this machine's.
bool AllHere(const std::vector<std::unique_ptr<DeviceRun>>& runs) {
    return std::all_of(runs.begin(), runs.end(), [](const auto& run) { return run->IsHere(); });
}

ordered_json ClockOf(const HostInstant& clocks) {
    return {{"wallNs", clocks.wallNs}, {"rawNs", clocks.rawNs}};
}

bool AllComplete(const std::vector<std::unique_ptr<DeviceRun>>& runs) {
    return std::all_of(runs.begin(), runs.end(), [](const auto& run) { return run->Complete(); });
}

ordered_json ManifestOf(const CollectionRecord& record,
                        const std::vector<std::unique_ptr<DeviceRun>>& runs) {
    const bool complete = !record.running && AllComplete(runs);
    ordered_json devices = ordered_json::array();
    for (const auto& run : runs) {
        devices.push_back(DeviceOf(*run));
    }
    ordered_json manifest = {
        {"format", MANIFEST_FORMAT},
        {"tool", std::string("tivctl ") + VERSION},
        {"state", record.running ? "running"
                  : complete     ? "complete"
                                 : "incomplete"},
        {"complete", complete},
        {"stoppedEarly", record.stoppedEarly},
        {"started", UtcText(record.started)},
        {"replays", ReplaysOf(record)},
        {"units", {{"pageBytes", record.pageBytes}, {"ticksPerSecond", record.ticksPerSecond}}},
        {"devices", devices},
    };
    if (record.clocks.rawNs != 0) {
        manifest["hostClock"] = ClockOf(record.clocks);
    }
    if (record.clocks.rawNs != 0 && AllHere(runs)) {
        manifest["clock"] = ClockOf(record.clocks);
    }
    if (record.asked.has_value()) {
        manifest["askedMs"] = record.asked->count();
    }
    if (!record.command.empty()) {
        manifest["command"] = CommandOf(record);
    }
    if (!record.running) {
        manifest["ended"] = UtcText(record.ended);
    }
    return manifest;
}

}  // namespace

std::string UtcText(std::chrono::system_clock::time_point time) {
    const auto sinceEpoch = time.time_since_epoch();
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(sinceEpoch).count() % 1000;
    return fmt::format("{:%Y-%m-%dT%H:%M:%S}.{:03}Z",
                       fmt::gmtime(std::chrono::system_clock::to_time_t(time)), milliseconds);
}

std::string WriteManifest(const std::string& directory, const CollectionRecord& record,
                          const std::vector<std::unique_ptr<DeviceRun>>& runs) {
    OutputFile file(directory + "/manifest.json");
    if (file.Open()) {
        // File names come from the device in any encoding: what is no text is replaced.
        file.Write(
            ManifestOf(record, runs).dump(2, ' ', false, ordered_json::error_handler_t::replace));
        file.Write("\n");
        (void)file.Commit();  // a failure stays in its error
    }
    return file.Error().empty()
               ? ""
               : file.Error() + "; make room there, or choose another directory with --output";
}

}  // namespace tiv::host
