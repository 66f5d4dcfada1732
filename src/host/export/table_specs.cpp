// The list of tables.
#include "host/export/table_specs.h"

namespace tiv::host {

namespace {

constexpr CellType INTEGER = CellType::INTEGER;
constexpr CellType REAL = CellType::REAL;
constexpr CellType TEXT = CellType::TEXT;

std::vector<TableSpec> JobTables() {
    return {
        {"result",
         {{"state", TEXT},
          {"complete", INTEGER},
          {"tool", TEXT},
          {"started", TEXT},
          {"ended", TEXT},
          {"asked_ms", INTEGER},
          {"command", TEXT},
          {"stopped_early", INTEGER},
          {"page_bytes", INTEGER},
          {"ticks_per_second", INTEGER},
          {"clock", TEXT},
          {"first_ns", INTEGER},
          {"last_ns", INTEGER},
          {"wall_ns", INTEGER},
          {"raw_ns", INTEGER}},
         false},
        {"problem", {{"text", TEXT}}, false},
        {"replay", {{"replay", INTEGER}, {"started", TEXT}, {"ended", TEXT}}, true},
        {"device",
         {{"device", INTEGER},
          {"directory", TEXT},
          {"job", TEXT},
          {"complete", INTEGER},
          {"failure", TEXT},
          {"samplers", TEXT},
          {"config", TEXT}},
         false},
        {"file",
         {{"device", INTEGER},
          {"name", TEXT},
          {"kind", TEXT},
          {"bytes", INTEGER},
          {"records", INTEGER},
          {"unreadable_records", INTEGER},
          {"unreadable_bytes", INTEGER},
          {"problem", TEXT}},
         false},
        {"chunk",
         {{"device", INTEGER}, {"file", TEXT}, {"received_ns", INTEGER}, {"bytes", INTEGER}},
         false},
    };
}

std::vector<TableSpec> SystemTables() {
    return {
        {"system_cpu",
         {{"device", INTEGER},        {"time_ns", INTEGER},      {"core", INTEGER},
          {"interval_ns", INTEGER},   {"user_pct", REAL},        {"nice_pct", REAL},
          {"system_pct", REAL},       {"idle_pct", REAL},        {"iowait_pct", REAL},
          {"irq_pct", REAL},          {"softirq_pct", REAL},     {"steal_pct", REAL},
          {"user_ticks", INTEGER},    {"nice_ticks", INTEGER},   {"system_ticks", INTEGER},
          {"idle_ticks", INTEGER},    {"iowait_ticks", INTEGER}, {"irq_ticks", INTEGER},
          {"softirq_ticks", INTEGER}, {"steal_ticks", INTEGER}},
         false},
        {"memory_key",
         {{"device", INTEGER}, {"key", INTEGER}, {"name", TEXT}, {"unit", TEXT}},
         false},
        {"memory",
         {{"device", INTEGER}, {"time_ns", INTEGER}, {"key", INTEGER}, {"value", INTEGER}},
         false},
    };
}

std::vector<TableSpec> ProcessTables() {
    return {
        {"process",
         {{"process", INTEGER},
          {"device", INTEGER},
          {"pid", INTEGER},
          {"start_ticks", INTEGER},
          {"parent_pid", INTEGER},
          {"name", TEXT},
          {"first_ns", INTEGER},
          {"last_ns", INTEGER}},
         true},
        {"process_cpu",
         {{"process", INTEGER},
          {"time_ns", INTEGER},
          {"interval_ns", INTEGER},
          {"user_ns", INTEGER},
          {"system_ns", INTEGER},
          {"cpu_pct", REAL},
          {"user_ticks", INTEGER},
          {"system_ticks", INTEGER},
          {"threads", INTEGER},
          {"state", TEXT}},
         false},
        {"process_memory",
         {{"process", INTEGER},
          {"time_ns", INTEGER},
          {"size_bytes", INTEGER},
          {"resident_bytes", INTEGER},
          {"shared_bytes", INTEGER},
          {"text_bytes", INTEGER},
          {"data_bytes", INTEGER}},
         false},
    };
}

std::vector<TableSpec> ProfileTables() {
    return {
        {"profile_frame", {{"frame", INTEGER}, {"symbol", TEXT}, {"module", TEXT}}, true},
        {"profile_stack",
         {{"stack", INTEGER}, {"parent", INTEGER}, {"frame", INTEGER}, {"depth", INTEGER}},
         true},
        {"profile_sample",
         {{"device", INTEGER},
          {"time_ns", INTEGER},
          {"core", INTEGER},
          {"pid", INTEGER},
          {"thread", INTEGER},
          {"command", TEXT},
          {"event", TEXT},
          {"period", INTEGER},
          {"stack", INTEGER}},
         false},
    };
}

std::vector<TableSpec> ChannelTables() {
    return {
        {"channel",
         {{"channel", INTEGER},
          {"device", INTEGER},
          {"driver_channel", INTEGER},
          {"file", TEXT},
          {"name", TEXT},
          {"source", TEXT},
          {"clock", TEXT},
          {"period_ms", INTEGER}},
         true},
        {"channel_event", {{"channel", INTEGER}, {"event", INTEGER}, {"name", TEXT}}, false},
        {"channel_count",
         {{"channel", INTEGER},
          {"time_ns", INTEGER},
          {"event", INTEGER},
          {"core", INTEGER},
          {"count", INTEGER},
          {"interval_ns", INTEGER},
          {"per_second", REAL}},
         false},
        {"channel_loss", {{"channel", INTEGER}, {"time_ns", INTEGER}, {"records", INTEGER}}, false},
        {"channel_run", {{"channel", INTEGER}, {"first", INTEGER}, {"numbers", INTEGER}}, false},
    };
}

}  // namespace

const std::vector<TableSpec>& TableSpecs() {
    static const std::vector<TableSpec> specs = [] {
        std::vector<TableSpec> all;
        for (auto part :
             {JobTables(), SystemTables(), ProcessTables(), ProfileTables(), ChannelTables()}) {
            all.insert(all.end(), part.begin(), part.end());
        }
        return all;
    }();
    return specs;
}

}  // namespace tiv::host
