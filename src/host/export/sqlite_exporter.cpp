// Cells as rows of a database.
#include "host/export/sqlite_exporter.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/output_place.h"

namespace tiv::host {

namespace {

constexpr const char* BULK_SETTINGS =
    "PRAGMA journal_mode = OFF;"
    "PRAGMA synchronous = OFF;"
    "PRAGMA locking_mode = EXCLUSIVE;"
    "PRAGMA cache_size = -65536;";

// process_cpu_by_time holds everything that is asked of a span of time, so that the table itself is
// not read.
constexpr const char* INDEXES = R"(
CREATE INDEX system_cpu_by_core ON system_cpu (device, core, time_ns);
CREATE INDEX memory_by_key ON memory (device, key, time_ns);
CREATE INDEX process_cpu_by_time ON process_cpu (time_ns, process, user_ns, system_ns);
CREATE INDEX process_cpu_by_process ON process_cpu (process, time_ns);
CREATE INDEX process_memory_by_time ON process_memory (time_ns, process, resident_bytes);
CREATE INDEX process_memory_by_process ON process_memory (process, time_ns);
CREATE INDEX profile_sample_by_time ON profile_sample (time_ns);
CREATE INDEX channel_count_by_event ON channel_count (channel, event, core, time_ns);
CREATE VIEW memory_named AS
    SELECT m.device, m.time_ns, k.name, m.value, k.unit
    FROM memory m JOIN memory_key k ON k.device = m.device AND k.key = m.key;
CREATE VIEW channel_count_named AS
    SELECT c.device, n.channel, c.name AS channel_name, e.name AS event_name, n.time_ns, n.core,
           n.count, n.interval_ns, n.per_second
    FROM channel_count n
    JOIN channel c ON c.channel = n.channel
    JOIN channel_event e ON e.channel = n.channel AND e.event = n.event;
)";

const char* TypeName(CellType type) {
    switch (type) {
        case CellType::INTEGER:
            return "INTEGER";
        case CellType::REAL:
            return "REAL";
        case CellType::TEXT:
            break;
    }
    return "TEXT";
}

std::string CreateTable(const TableSpec& spec) {
    std::string columns;
    for (const ColumnSpec& column : spec.columns) {
        const bool isKey = columns.empty() && spec.firstIsKey;
        columns += fmt::format("{}{} {}{}", columns.empty() ? "" : ", ", column.name,
                               TypeName(column.type), isKey ? " PRIMARY KEY" : "");
    }
    return fmt::format("CREATE TABLE {} ({}) STRICT;\n", spec.name, columns);
}

std::string InsertInto(const TableSpec& spec) {
    std::string cells = "?";
    for (size_t i = 1; i < spec.columns.size(); ++i) {
        cells += ",?";
    }
    return fmt::format("INSERT INTO {} VALUES ({})", spec.name, cells);
}

}  // namespace

std::string CreateTablesSql() {
    std::string sql;
    for (const TableSpec& spec : TableSpecs()) {
        sql += CreateTable(spec);
    }
    return sql + fmt::format("PRAGMA user_version = {};\n", TABLES_VERSION);
}

std::string CreateIndexesSql() { return INDEXES; }

SqliteExporter::SqliteExporter(std::string path)
    : RowExporter(static_cast<CellSink&>(*this)),
      path_(std::move(path)),
      temporary_(path_ + ".new") {}

SqliteExporter::~SqliteExporter() {
    inserts_.clear();
    database_.Close();
    if (isMade_) {
        unlink(temporary_.c_str());
    }
}

bool SqliteExporter::Open() {
    error_ = WhyNoFileFits(path_);
    if (!error_.empty()) {
        return false;
    }
    if (unlink(temporary_.c_str()) != 0 && errno != ENOENT) {
        error_ = fmt::format("cannot write {}: {}", temporary_, std::strerror(errno));
        return false;
    }
    isMade_ = true;
    if (!database_.Create(temporary_) || !database_.Run(BULK_SETTINGS) ||
        !database_.Run(CreateTablesSql()) || !database_.Run("BEGIN")) {
        return false;
    }
    for (const TableSpec& spec : TableSpecs()) {
        inserts_.push_back(std::make_unique<SqliteInsert>(database_, InsertInto(spec)));
    }
    return Error().empty();
}

std::string SqliteExporter::Error() const {
    if (error_.empty() && !database_.Error().empty()) {
        return fmt::format("{}: file {}", database_.Error(), temporary_);
    }
    return error_;
}

bool SqliteExporter::Commit() {
    inserts_.clear();
    database_.SetPulse(goesOn_);
    if (!database_.Run("COMMIT") || !database_.Run(CreateIndexesSql()) ||
        !database_.Run("PRAGMA optimize")) {
        return false;
    }
    database_.Close();
    if (std::rename(temporary_.c_str(), path_.c_str()) != 0) {
        error_ = fmt::format("cannot name {}: {}", path_, std::strerror(errno));
        return false;
    }
    isMade_ = false;
    return true;
}

void SqliteExporter::BeginRow(Table table) { insert_ = inserts_[static_cast<size_t>(table)].get(); }
void SqliteExporter::Integer(uint64_t value) { insert_->Integer(value); }
void SqliteExporter::Real(double value) { insert_->Real(value); }
void SqliteExporter::Text(std::string_view text) { insert_->Text(text); }
void SqliteExporter::Absent() { insert_->Absent(); }
void SqliteExporter::Key(uint64_t number, std::string_view /*text*/) { insert_->Integer(number); }
void SqliteExporter::EndRow() { insert_->Insert(); }

}  // namespace tiv::host
