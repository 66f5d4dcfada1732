// The system's CPU times as rows.
#include "host/result/system_cpu_parser.h"

#include <algorithm>

namespace tiv::host {

namespace {

constexpr uint64_t MAX_CORES = 65536;
constexpr double PERCENT = 100.0;

}  // namespace

bool SystemCpuParser::ParseLine(std::string_view line, SystemCpuRow& row) const {
    if (!TakeText(line, "cpu")) {
        return false;
    }
    uint64_t core = 0;
    if (!line.empty() && line.front() != ' ') {
        if (!TakeNumber(line, core) || core >= MAX_CORES || line.empty() || line.front() != ' ') {
            return false;
        }
        row.core = static_cast<int32_t>(core);
    }
    for (uint64_t& ticks : row.ticks) {
        if (!TakeField(line, ticks)) {
            return false;
        }
    }
    for (uint64_t guest = 0; !line.empty();) {
        if (!TakeField(line, guest)) {
            return false;
        }
    }
    return true;
}

void SystemCpuParser::AddUse(SystemCpuRow& row) {
    const auto [entry, isFirst] = previous_.try_emplace(row.core, Reading{});
    Reading& before = entry->second;
    bool forwards = !isFirst && row.timeNs > before.timeNs;
    uint64_t steps[CPU_STATE_COUNT] = {};
    double total = 0;
    for (size_t state = 0; forwards && state < CPU_STATE_COUNT; ++state) {
        forwards = row.ticks[state] >= before.ticks[state];
        steps[state] = row.ticks[state] - before.ticks[state];
        total += static_cast<double>(steps[state]);
    }
    if (forwards && total > 0) {
        row.use.emplace();
        row.use->intervalNs = row.timeNs - before.timeNs;
        for (size_t state = 0; state < CPU_STATE_COUNT; ++state) {
            row.use->percent[state] = PERCENT * static_cast<double>(steps[state]) / total;
        }
    }
    before.timeNs = row.timeNs;
    std::copy(std::begin(row.ticks), std::end(row.ticks), std::begin(before.ticks));
}

bool SystemCpuParser::Parse(const SampleRecord& record) {
    rows_.clear();
    std::string_view rest = record.data;
    for (std::string_view line; TakeLine(rest, line);) {
        SystemCpuRow row;
        row.deviceId = DeviceId();
        row.timeNs = record.timeNs;
        if (rows_.size() > MAX_CORES || !ParseLine(line, row)) {
            return false;
        }
        rows_.push_back(row);
    }
    for (SystemCpuRow& row : rows_) {
        AddUse(row);
        Visitor().OnSystemCpu(row);
    }
    return !rows_.empty();
}

}  // namespace tiv::host
