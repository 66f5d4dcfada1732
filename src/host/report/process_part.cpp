// Sections of the processes.
#include "host/report/process_part.h"

#include <algorithm>
#include <cmath>

#include "host/report/memory_part.h"
#include "host/report/page_text.h"

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr double FULL = 100;
constexpr double NS_PER_SECOND = 1e9;
constexpr int OTHERS_COLOR = 10;

ordered_json TableColumns(bool manyDevices) {
    ordered_json columns = {
        {{"name", "process"}, {"unit", "text"}},
        {{"name", "pid"}, {"unit", "plain"}},
        {{"name", "parent"}, {"unit", "plain"}, {"hint", "process id of the parent"}},
        {{"name", "CPU time"},
         {"unit", "seconds"},
         {"hint", "user and system time during the run"}},
        {{"name", "mean CPU"}, {"unit", "percent"}, {"hint", "of one core, while it was measured"}},
        {{"name", "busiest reading"}, {"unit", "percent"}, {"hint", "of one core"}},
        {{"name", "threads"}, {"unit", "count"}, {"hint", "most at one time"}},
        {{"name", "most resident"}, {"unit", "bytes"}},
        {{"name", "last resident"}, {"unit", "bytes"}},
        {{"name", "first seen"}, {"unit", "time"}},
        {{"name", "last seen"}, {"unit", "time"}}};
    if (manyDevices) {
        columns.push_back({{"name", "device"}, {"unit", "plain"}});
    }
    return columns;
}

void AddTo(std::vector<float>& sum, const std::vector<float>& values) {
    for (size_t i = 0; i < values.size(); ++i) {
        sum[i] += std::isnan(values[i]) ? 0.0f : values[i];
    }
}

}  // namespace

void ProcessPart::Take(const ProcessCpuRow& row) {
    Course& course = open_[row.process];
    Figures& figures = course.figures;
    figures.threads = std::max(figures.threads, row.threads);
    if (!row.use.has_value() || row.use->intervalNs == 0) {
        return;
    }
    const uint64_t interval = row.use->intervalNs;
    const uint64_t used = row.use->userNs + row.use->systemNs;
    const double percent = FULL * static_cast<double>(used) / static_cast<double>(interval);
    figures.hasCpu = true;
    figures.cpuNs += used;
    figures.measuredNs += interval;
    figures.busiest = std::max(figures.busiest, percent);
    course.cpu.Add(row.timeNs - std::min(row.timeNs, interval), row.timeNs, percent);
}

void ProcessPart::Take(const ProcessMemoryRow& row) {
    Course& course = open_[row.process];
    Figures& figures = course.figures;
    figures.hasMemory = true;
    figures.residentBytes = std::max(figures.residentBytes, row.residentBytes);
    figures.lastResidentBytes = row.residentBytes;
    const uint64_t since = HeldSince(course.previousMemoryNs, course.shortestMemoryNs, row.timeNs);
    course.memory.Add(since, row.timeNs, static_cast<double>(row.residentBytes));
}

void ProcessPart::Ranking::Offer(const Figures& figures, const CellSeries& series,
                                 uint64_t (*measure)(const Figures&)) {
    const auto place = std::upper_bound(
        best.begin(), best.end(), measure(figures),
        [&](uint64_t value, const auto& other) { return value > measure(other.first); });
    if (place == best.end() && best.size() == SHOWN) {
        return;  // as most do: their series are not copied
    }
    best.insert(place, {figures, series});
    if (best.size() > SHOWN) {
        best.pop_back();
    }
}

void ProcessPart::Take(const ProcessRow& row) {
    Course& course = open_[row.process];
    Figures& figures = course.figures;
    figures.deviceId = row.deviceId;
    figures.pid = row.pid;
    figures.parentPid = row.parentPid;
    figures.name = row.name.empty() ? "(no name)" : PageText(row.name);
    figures.firstNs = row.firstNs;
    figures.lastNs = row.lastNs;
    ++processes_;
    if (figures.hasCpu) {
        allCpu_[row.deviceId].AddAll(course.cpu);
    }
    if (figures.cpuNs > 0) {
        byCpu_.Offer(figures, course.cpu, [](const Figures& f) { return f.cpuNs; });
    }
    if (figures.residentBytes > 0) {
        byMemory_.Offer(figures, course.memory, [](const Figures& f) { return f.residentBytes; });
    }
    Keep(figures);
    open_.erase(row.process);
}

void ProcessPart::Keep(const Figures& figures) {
    table_.push_back(figures);
    if (table_.size() > 4 * MOST_IN_TABLE) {
        PruneTable();
    }
}

// Leaves the processes that are among the first by either measure.
void ProcessPart::PruneTable() {
    if (table_.size() <= MOST_IN_TABLE) {
        return;
    }
    const auto nth = [&](uint64_t Figures::*measure) {
        std::vector<uint64_t> values;
        for (const Figures& figures : table_) {
            values.push_back(figures.*measure);
        }
        std::nth_element(values.begin(), values.begin() + MOST_IN_TABLE - 1, values.end(),
                         std::greater<>());
        return values[MOST_IN_TABLE - 1];
    };
    const uint64_t leastCpu = nth(&Figures::cpuNs);
    const uint64_t leastMemory = nth(&Figures::residentBytes);
    // Those that equal the last one by CPU are many, for many use none at all.
    table_.erase(std::remove_if(table_.begin(), table_.end(),
                                [&](const Figures& figures) {
                                    return figures.cpuNs <= leastCpu &&
                                           figures.residentBytes <= leastMemory;
                                }),
                 table_.end());
}

void ProcessPart::IncludeIn(PageGrid& grid) const {
    for (const auto& [figures, series] : byCpu_.best) {
        grid.Include(figures.deviceId, series);
    }
    for (const auto& [figures, series] : byMemory_.best) {
        grid.Include(figures.deviceId, series);
    }
    for (const auto& [deviceId, series] : allCpu_) {
        grid.Include(deviceId, series);
    }
}

namespace {

template <class Figures>
ordered_json SeriesHead(const PageContext& context, const Figures& figures, int color) {
    const std::string device = context.OfDevice(figures.deviceId);
    return {{"name", figures.name + " (" + std::to_string(figures.pid) + ")" + device},
            {"color", color}};
}

}  // namespace

// What all processes used less what is shown of them.
ordered_json ProcessPart::OthersOf(PageContext& context, const std::vector<float>& shown) {
    std::vector<float> all(context.grid.Cells(), std::nanf(""));
    for (auto& [deviceId, series] : allCpu_) {
        const std::vector<float> column = ShareColumn(context.grid, deviceId, series);
        for (size_t i = 0; i < column.size(); ++i) {
            if (!std::isnan(column[i])) {
                all[i] = column[i] + (std::isnan(all[i]) ? 0.0f : all[i]);
            }
        }
    }
    for (size_t i = 0; i < all.size(); ++i) {
        all[i] = std::isnan(all[i]) ? all[i] : std::max(0.0f, all[i] - shown[i]);
    }
    return context.block.AddFloats(all);
}

void ProcessPart::WriteCpu(PageContext& context) {
    if (byCpu_.best.empty()) {
        context.sections.push_back(EmptySection(
            "process-cpu", "CPU by process",
            allCpu_.empty() ? "Not measured: it takes the sampler --processes and two readings."
                            : "No process used any CPU time that the system's clock could count."));
        return;
    }
    ordered_json series = ordered_json::array();
    std::vector<float> shown(context.grid.Cells());
    int color = 0;
    for (auto& [figures, cells] : byCpu_.best) {
        ordered_json entry = SeriesHead(context, figures, color++);
        const std::vector<float> column = ShareColumn(context.grid, figures.deviceId, cells);
        AddTo(shown, column);
        entry["mean"] = context.block.AddFloats(column);
        series.push_back(std::move(entry));
    }
    series.push_back({{"name", "all other processes"},
                      {"color", OTHERS_COLOR},
                      {"mean", OthersOf(context, shown)}});
    context.sections.push_back(
        {{"kind", "chart"},
         {"id", "process-cpu"},
         {"title", "Top processes by CPU"},
         {"link", "process CPU"},
         {"subtitle", "100 % is one core"},
         {"unit", "percent"},
         {"stacked", true},
         {"note",
          "Process CPU is counted in clock ticks of 10 ms on most kernels: short readings "
          "come in steps."},
         {"series", std::move(series)}});
}

void ProcessPart::WriteMemory(PageContext& context) {
    if (byMemory_.best.empty()) {
        context.sections.push_back(EmptySection("process-memory", "Memory by process",
                                                "Not measured: it takes the sampler --processes."));
        return;
    }
    ordered_json series = ordered_json::array();
    int color = 0;
    for (auto& [figures, cells] : byMemory_.best) {
        ordered_json entry = SeriesHead(context, figures, color++);
        AddColumns(context.grid, figures.deviceId, cells, context.block, entry);
        series.push_back(std::move(entry));
    }
    context.sections.push_back(
        {{"kind", "chart"},
         {"id", "process-memory"},
         {"title", "Top processes by memory"},
         {"link", "process memory"},
         {"subtitle", "resident memory; pages that processes share count in each"},
         {"unit", "bytes"},
         {"series", std::move(series)}});
}

void ProcessPart::WriteTable(PageContext& context) {
    PruneTable();
    ordered_json rows = ordered_json::array();
    const auto orNull = [](bool known, double value) {
        return known ? ordered_json(value) : ordered_json();
    };
    for (const Figures& f : table_) {
        ordered_json row = {f.name, f.pid};
        row.push_back(f.parentPid.has_value() ? ordered_json(*f.parentPid) : ordered_json());
        row.push_back(orNull(f.hasCpu, static_cast<double>(f.cpuNs) / NS_PER_SECOND));
        row.push_back(
            orNull(f.hasCpu, FULL * static_cast<double>(f.cpuNs) /
                                 static_cast<double>(std::max<uint64_t>(1, f.measuredNs))));
        row.push_back(orNull(f.hasCpu, f.busiest));
        row.push_back(orNull(f.threads > 0, static_cast<double>(f.threads)));
        row.push_back(orNull(f.hasMemory, static_cast<double>(f.residentBytes)));
        row.push_back(orNull(f.hasMemory, static_cast<double>(f.lastResidentBytes)));
        row.push_back(context.grid.Seconds(f.deviceId, f.firstNs));
        row.push_back(context.grid.Seconds(f.deviceId, f.lastNs));
        if (context.manyDevices) {
            row.push_back(f.deviceId);
        }
        rows.push_back(std::move(row));
    }
    const uint64_t left = processes_ - table_.size();
    context.sections.push_back(
        {{"kind", "table"},
         {"id", "processes"},
         {"title", "Processes"},
         {"link", "processes"},
         {"subtitle", "that were seen during the run"},
         {"sort", 3},
         {"columns", TableColumns(context.manyDevices)},
         {"note", left == 0 ? ""
                            : std::to_string(left) + " processes with less CPU time and memory are "
                                                     "left out here; the exports hold them."},
         {"rows", std::move(rows)}});
}

void ProcessPart::Write(PageContext& context) {
    WriteCpu(context);
    WriteMemory(context);
    if (processes_ > 0) {
        WriteTable(context);
    }
}

}  // namespace tiv::host
