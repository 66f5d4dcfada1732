// A SQLite database that is being filled.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

struct sqlite3;
struct sqlite3_stmt;

namespace tiv::host {

// Owns a connection. The first failure is kept, everything behind it does nothing.
class SqliteDatabase {
 public:
    SqliteDatabase() = default;
    ~SqliteDatabase() { Close(); }
    SqliteDatabase(const SqliteDatabase&) = delete;
    SqliteDatabase& operator=(const SqliteDatabase&) = delete;

    // Makes the database file, which is not there.
    bool Create(const std::string& path);
    // Runs statements that give no rows.
    bool Run(const std::string& sql);
    // Has `pulse` called over and over while a statement runs; false from it makes the statement
    // fail. It outlives the connection.
    void SetPulse(const std::function<bool()>& pulse);
    // Behind the last statement.
    void Close();

    [[nodiscard]] const std::string& Error() const { return error_; }
    [[nodiscard]] sqlite3* Handle() const { return handle_; }
    // For the first failure: whoever finds an error here does nothing more.
    void Fail(const char* what);

 private:
    sqlite3* handle_ = nullptr;
    std::string error_;
};

// A prepared INSERT. Cells are bound in their order, then the row is inserted. The database
// outlives it.
class SqliteInsert {
 public:
    SqliteInsert(SqliteDatabase& database, const std::string& sql);
    ~SqliteInsert();
    SqliteInsert(const SqliteInsert&) = delete;
    SqliteInsert& operator=(const SqliteInsert&) = delete;

    void Integer(uint64_t value);
    void Real(double value);
    void Text(std::string_view text);
    void Absent();
    // Cells that were not bound are those of the row before.
    void Insert();

 private:
    SqliteDatabase& database_;
    sqlite3_stmt* statement_ = nullptr;
    int bound_ = 0;
};

}  // namespace tiv::host
