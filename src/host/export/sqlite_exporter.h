// One SQLite file with all tables.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/export/row_exporter.h"
#include "host/export/sqlite_database.h"

namespace tiv::host {

// The version of the tables, in the database's user_version.
constexpr int TABLES_VERSION = 1;

// The statements that make the empty tables, and those that make the indexes and views over the
// full ones.
[[nodiscard]] std::string CreateTablesSql();
[[nodiscard]] std::string CreateIndexesSql();

// Fills <path>.new within one transaction and without a journal, since a file that is not whole is
// thrown away; makes the indexes over the full tables; then gives it its name.
class SqliteExporter : private CellSink, public RowExporter {
 public:
    explicit SqliteExporter(std::string path);
    ~SqliteExporter() override;

    bool Open() override;
    bool Commit() override;
    std::string Error() const override;
    std::vector<std::string> Outputs() const override { return {path_}; }

 private:
    void BeginRow(Table table) override;
    void Integer(uint64_t value) override;
    void Real(double value) override;
    void Text(std::string_view text) override;
    void Absent() override;
    void Key(uint64_t number, std::string_view text) override;
    void EndRow() override;

    const std::string path_;
    const std::string temporary_;
    std::string error_;
    bool isMade_ = false;
    const std::function<bool()> goesOn_ = [this] { return GoesOn(); };
    SqliteDatabase database_;
    std::vector<std::unique_ptr<SqliteInsert>> inserts_;  // in the order of Table
    SqliteInsert* insert_ = nullptr;                      // of the row in hand
};

}  // namespace tiv::host
