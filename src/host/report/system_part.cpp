// Sections of the system's CPU use.
#include "host/report/system_part.h"

#include <algorithm>

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

constexpr double FULL = 100;

// From the lowest layer of the stack upwards, with the page's colour of each. Waiting for a disk is
// a kind of idleness and lies on top.
struct Layer {
    CpuState state;
    int color;
    const char* detail;
};
constexpr Layer LAYERS[] = {
    {USER, 0, "user: programs, guests included"},
    {NICE, 8, "nice: programs of low priority"},
    {SYSTEM, 1, "system: the kernel on behalf of programs"},
    {IRQ, 3, "irq: interrupts"},
    {SOFTIRQ, 6, "softirq: deferred work of interrupts"},
    {STEAL, 5, "steal: taken by other machines of the host"},
    {IOWAIT, 10, "iowait: idle while a disk was waited for"},
};

double BusyOf(const SystemCpuUse& use) {
    return std::clamp(FULL - use.percent[IDLE] - use.percent[IOWAIT], 0.0, FULL);
}

std::string CoreName(int32_t core) {
    return core == ALL_CORES ? "all" : "cpu" + std::to_string(core);
}

}  // namespace

void SystemPart::Take(const SystemCpuRow& row) {
    Device& device = devices_[row.deviceId];
    Core& core = device.cores[row.core];
    if (!row.use.has_value()) {
        return;
    }
    const double busy = BusyOf(*row.use);
    const uint64_t from = row.timeNs - std::min(row.timeNs, row.use->intervalNs);
    core.busy.Add(from, row.timeNs, busy);
    const auto ns = static_cast<double>(row.use->intervalNs);
    core.sum.ns += ns;
    core.sum.greatestBusy = std::max(core.sum.greatestBusy, busy);
    for (int state = 0; state < CPU_STATE_COUNT; ++state) {
        core.sum.percentNs[state] += row.use->percent[state] * ns;
        if (row.core == ALL_CORES) {
            device.states[static_cast<size_t>(state)].Add(from, row.timeNs,
                                                          row.use->percent[state]);
        }
    }
}

void SystemPart::IncludeIn(PageGrid& grid) const {
    for (const auto& [deviceId, device] : devices_) {
        for (const auto& [number, core] : device.cores) {
            grid.Include(deviceId, core.busy);
        }
    }
}

bool SystemPart::IsMeasured(const Device& device) {
    const auto all = device.cores.find(ALL_CORES);
    return all != device.cores.end() && !all->second.busy.Empty();
}

CellSeries* SystemPart::Busy(int& deviceId) {
    for (auto& [number, device] : devices_) {
        if (IsMeasured(device)) {
            deviceId = number;
            return &device.cores[ALL_CORES].busy;
        }
    }
    return nullptr;
}

size_t SystemPart::Cores(int deviceId) const {
    const auto device = devices_.find(deviceId);
    if (device == devices_.end()) {
        return 0;
    }
    const auto& cores = device->second.cores;
    return cores.size() - cores.count(ALL_CORES);
}

void SystemPart::WriteStates(PageContext& context, int deviceId, Device& device) {
    ordered_json series = ordered_json::array();
    for (const Layer& layer : LAYERS) {
        ordered_json entry = {{"name", CPU_STATE_NAMES[layer.state]},
                              {"color", layer.color},
                              {"detail", layer.detail}};
        entry["mean"] =
            context.block.AddFloats(MeanColumn(context.grid, deviceId, device.states[layer.state]));
        series.push_back(std::move(entry));
    }
    ordered_json section = {
        {"kind", "chart"},
        {"id", "cpu-" + std::to_string(deviceId)},
        {"title", "CPU by state" + context.OfDevice(deviceId)},
        {"link", "CPU" + context.OfDevice(deviceId)},
        {"subtitle", "% of " + std::to_string(Cores(deviceId)) + " cores together"},
        {"unit", "percent"},
        {"stacked", true},
        {"top", FULL},
        {"series", std::move(series)},
    };
    CellSeries& busy = device.cores[ALL_CORES].busy;
    if (busy.Thinned()) {
        ordered_json peak;
        AddColumns(context.grid, deviceId, busy, context.block, peak);
        section["peak"] = peak["max"];
        section["note"] =
            "Long run: the areas are means of several readings; the thin line is the busiest of "
            "them, without iowait.";
    }
    context.sections.push_back(std::move(section));
}

void SystemPart::WriteCores(PageContext& context, int deviceId, Device& device) {
    ordered_json rows = ordered_json::array();
    for (auto& [number, core] : device.cores) {
        if (number != ALL_CORES) {
            rows.push_back(
                {{"name", CoreName(number)},
                 {"mean", context.block.AddFloats(MeanColumn(context.grid, deviceId, core.busy))}});
        }
    }
    if (!rows.empty()) {
        context.sections.push_back({{"kind", "heatmap"},
                                    {"id", "cores-" + std::to_string(deviceId)},
                                    {"title", "CPU by core" + context.OfDevice(deviceId)},
                                    {"link", "cores" + context.OfDevice(deviceId)},
                                    {"subtitle", "busy share of each core"},
                                    {"rows", std::move(rows)}});
    }
}

void SystemPart::WriteTable(PageContext& context, int deviceId, const Device& device) {
    ordered_json columns = {
        {{"name", "core"}, {"unit", "text"}},
        {{"name", "busy"}, {"unit", "percent"}, {"hint", "neither idle nor iowait"}},
        {{"name", "busiest reading"}, {"unit", "percent"}}};
    for (const char* state : CPU_STATE_NAMES) {
        columns.push_back({{"name", state}, {"unit", "percent"}});
    }
    ordered_json rows = ordered_json::array();
    for (const auto& [number, core] : device.cores) {
        if (core.sum.ns <= 0) {
            continue;
        }
        const Sum& sum = core.sum;
        ordered_json row = {CoreName(number),
                            FULL - (sum.percentNs[IDLE] + sum.percentNs[IOWAIT]) / sum.ns,
                            sum.greatestBusy};
        for (const double percentNs : sum.percentNs) {
            row.push_back(percentNs / sum.ns);
        }
        rows.push_back(std::move(row));
    }
    context.sections.push_back({{"kind", "table"},
                                {"id", "core-table-" + std::to_string(deviceId)},
                                {"title", "CPU in figures" + context.OfDevice(deviceId)},
                                {"link", ""},
                                {"subtitle", "means over the run"},
                                {"sort", 1},
                                {"columns", std::move(columns)},
                                {"rows", std::move(rows)}});
}

void SystemPart::Write(PageContext& context) {
    bool any = false;
    for (auto& [deviceId, device] : devices_) {
        if (IsMeasured(device)) {
            WriteStates(context, deviceId, device);
            WriteCores(context, deviceId, device);
            WriteTable(context, deviceId, device);
            any = true;
        }
    }
    if (!any) {
        context.sections.push_back(EmptySection(
            "cpu", "CPU", "Not measured: it takes the sampler --cpu and two readings."));
    }
}

}  // namespace tiv::host
