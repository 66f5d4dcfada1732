// The head of a page and the order of its sections.
#include "host/report/report_model.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>

#include "host/duration.h"
#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr uint64_t NS_PER_SECOND = 1'000'000'000;
constexpr double BYTES_PER_GIB = 1024.0 * 1024 * 1024;

void AddFact(ordered_json& facts, const char* name, const std::string& value) {
    ordered_json fact = ordered_json::array();
    fact.push_back(name);
    fact.push_back(value);
    facts.push_back(std::move(fact));
}

std::string Joined(const std::vector<std::string>& words) {
    return words.empty() ? "nothing that the manifest names"
                         : fmt::format("{}", fmt::join(words, ", "));
}

std::string WallText(uint64_t wallNs) {
    return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03} UTC",
                       fmt::gmtime(static_cast<time_t>(wallNs / NS_PER_SECOND)),
                       wallNs % NS_PER_SECOND / 1'000'000);
}

// What is looked at together stands together: everything over time, then the profile, then tables.
size_t PlaceOf(const ordered_json& section) {
    const std::string kind = section.at("kind");
    const std::string id = section.at("id");
    if (kind != "table") {
        return kind == "flame" ? 1 : 0;
    }
    constexpr std::string_view FIRST_TABLES[] = {"processes", "functions"};
    size_t place = 2;
    for (const std::string_view name : FIRST_TABLES) {
        if (id.compare(0, name.size(), name) == 0) {
            return place;
        }
        ++place;
    }
    return place;
}

void PutInOrder(ordered_json& sections) {
    std::stable_sort(
        sections.begin(), sections.end(),
        [](const ordered_json& a, const ordered_json& b) { return PlaceOf(a) < PlaceOf(b); });
}

std::string NameOf(const std::string& path) {
    const size_t end = path.find_last_not_of('/');
    if (end == std::string::npos) {
        return path;
    }
    const std::string bare = path.substr(0, end + 1);
    return PageText(bare.substr(bare.rfind('/') + 1));
}

}  // namespace

// What a reader has to know first: is it everything?
std::string ReportModel::StateText() const {
    if (result_.state == "running") {
        return "still running, or left behind by a tool that died";
    }
    if (result_.state == "unknown") {
        return "unknown: no manifest";
    }
    return result_.complete && outcome_.problems.empty() ? "complete" : "incomplete";
}

void ReportModel::AddDeviceFacts(ordered_json& facts) const {
    for (const DeviceFacts& device : result_.devices) {
        const std::string name = "Device " + std::to_string(device.deviceId);
        std::string machine;
        if (const size_t cores = system_.Cores(device.deviceId); cores > 0) {
            machine = fmt::format("{} cores", cores);
        }
        if (const auto bytes = memory_.TotalBytes(device.deviceId); bytes.has_value()) {
            machine += fmt::format("{}{:.1f} GiB of memory", machine.empty() ? "" : ", ",
                                   static_cast<double>(*bytes) / BYTES_PER_GIB);
        }
        AddFact(facts, (name + ", machine").c_str(), machine.empty() ? "not measured" : machine);
        AddFact(facts, (name + ", job").c_str(), PageText(device.jobId));
        AddFact(facts, (name + ", samplers").c_str(), PageText(Joined(device.samplers)));
    }
}

void ReportModel::AddClockFacts(ordered_json& facts, const PageGrid& grid) const {
    if (grid.Empty()) {
        return;
    }
    const int device = result_.devices.empty() ? 0 : result_.devices.front().deviceId;
    const uint64_t origin = grid.OriginNs(device);
    AddFact(facts, "0 s in the plots",
            ClockText(origin) + " of the device's raw monotonic clock" +
                (grid.OneClock() ? "" : "; the devices' clocks differ, each begins at 0"));
    if (result_.clock.has_value()) {
        AddFact(facts, "0 s in wall time",
                WallText(result_.clock->wallNs + origin - result_.clock->rawNs));
    }
}

ordered_json ReportModel::Facts(const PageGrid& grid) const {
    ordered_json facts = ordered_json::array();
    AddDeviceFacts(facts);
    AddFact(facts, "Started", result_.started.empty() ? "not known" : PageText(result_.started));
    AddFact(facts, "Ended",
            (result_.ended.empty() ? "not known" : PageText(result_.ended)) +
                (result_.stoppedEarly ? ", stopped early" : ""));
    if (result_.askedMs.has_value()) {
        AddFact(facts, "Asked for", FormatDuration(std::chrono::milliseconds(*result_.askedMs)));
    }
    AddClockFacts(facts, grid);
    AddFact(facts, "Read",
            fmt::format("{} in {} files; {} unreadable records, {} unreadable bytes",
                        FormatBytes(static_cast<double>(files_.Bytes())), files_.Files(),
                        files_.UnreadableRecords(), files_.UnreadableBytes()));
    AddFact(facts, "Units of the job",
            fmt::format("pages of {} bytes, {} clock ticks per second", result_.pageBytes,
                        result_.ticksPerSecond));
    AddFact(facts, "Collected by", PageText(result_.tool.empty() ? "not known" : result_.tool));
    return facts;
}

std::string ReportModel::Encode() {
    PageGrid grid;
    PageBlock block;
    PagePart* const parts[] = {&system_,   &memory_,  &processes_, &channels_,
                               &arrivals_, &profile_, &files_};
    for (PagePart* part : parts) {
        part->Finish();
        part->IncludeIn(grid);
    }
    grid.Fix();
    ordered_json sections = ordered_json::array();
    PageContext context{grid, block, sections, result_.devices.size() > 1};
    for (PagePart* part : parts) {
        part->Write(context);
    }
    PutInOrder(sections);
    ordered_json missing = ordered_json::array();
    for (const std::string& problem : outcome_.problems) {
        missing.push_back(PageText(problem, 2000));
    }
    ordered_json model = {
        {"name", NameOf(result_.path)}, {"state", StateText()}, {"missing", std::move(missing)},
        {"facts", Facts(grid)},         {"grid", nullptr},      {"sections", std::move(sections)}};
    if (!grid.Empty()) {
        model["grid"] = {{"start", 0}, {"step", grid.CellSeconds()}, {"count", grid.Cells()}};
    }
    int device = 0;
    if (CellSeries* busy = system_.Busy(device); busy != nullptr) {
        model["overview"] = block.AddFloats(MeanColumn(grid, device, *busy));
    }
    return block.Encode(model);
}

}  // namespace tiv::host
