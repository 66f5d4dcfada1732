// Calls of SQLite.
#include "host/export/sqlite_database.h"

#include <fmt/format.h>
#include <sqlite3.h>

namespace tiv::host {

void SqliteDatabase::Fail(const char* what) {
    error_ = fmt::format("cannot {}: {}", what,
                         handle_ == nullptr ? "out of memory" : sqlite3_errmsg(handle_));
}

bool SqliteDatabase::Create(const std::string& path) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX;
    if (sqlite3_open_v2(path.c_str(), &handle_, flags, nullptr) != SQLITE_OK) {
        Fail("make the database");
    }
    return error_.empty();
}

bool SqliteDatabase::Run(const std::string& sql) {
    if (error_.empty() &&
        sqlite3_exec(handle_, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        Fail("write the database");
    }
    return error_.empty();
}

void SqliteDatabase::SetPulse(const std::function<bool()>& pulse) {
    constexpr int STEPS = 100000;
    const auto call = [](void* function) {
        return (*static_cast<const std::function<bool()>*>(function))() ? 0 : 1;
    };
    // The library only hands the pointer back.
    sqlite3_progress_handler(handle_, STEPS, call, const_cast<std::function<bool()>*>(&pulse));
}

void SqliteDatabase::Close() {
    (void)sqlite3_close(handle_);  // fails only while there are statements
    handle_ = nullptr;
}

SqliteInsert::SqliteInsert(SqliteDatabase& database, const std::string& sql) : database_(database) {
    if (database_.Error().empty() &&
        sqlite3_prepare_v3(database_.Handle(), sql.c_str(), -1, SQLITE_PREPARE_PERSISTENT,
                           &statement_, nullptr) != SQLITE_OK) {
        database_.Fail("write the database");
    }
}

SqliteInsert::~SqliteInsert() { (void)sqlite3_finalize(statement_); }

void SqliteInsert::Integer(uint64_t value) {
    (void)sqlite3_bind_int64(statement_, ++bound_, static_cast<sqlite3_int64>(value));
}

void SqliteInsert::Real(double value) { (void)sqlite3_bind_double(statement_, ++bound_, value); }

void SqliteInsert::Text(std::string_view text) {
    (void)sqlite3_bind_text(statement_, ++bound_, text.empty() ? "" : text.data(),
                            static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

void SqliteInsert::Absent() { (void)sqlite3_bind_null(statement_, ++bound_); }

void SqliteInsert::Insert() {
    bound_ = 0;
    if (!database_.Error().empty()) {
        return;
    }
    if (sqlite3_step(statement_) != SQLITE_DONE) {
        database_.Fail("write the database");
    }
    (void)sqlite3_reset(statement_);
}

}  // namespace tiv::host
