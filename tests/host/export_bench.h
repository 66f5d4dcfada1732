// What the tests of exports share: the recorded results and ways to read an export back.
#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/export/export_result.h"
#include "host/result_table_log.h"
#include "support/temp_dir.h"

namespace tiv::test {

// Results that the daemon made; see golden/record.sh.
inline std::string Golden(const std::string& name) {
    return std::string(TIV_GOLDEN_DIR) + "/" + name;
}

using Cell = std::optional<std::string>;
using Cells = std::vector<Cell>;

// The rows of a result in the words of TableLog.
inline std::vector<std::string> RowsOf(const std::string& directory) {
    std::string error;
    const auto result = host::OpenResult(directory, error);
    TableLog log;
    if (result.has_value()) {
        (void)host::ResultReader(*result, log).Read();
    }
    return log.lines;
}

// How many of `rows` begin with `word` and a blank.
inline size_t CountRows(const std::vector<std::string>& rows, const std::string& word) {
    return static_cast<size_t>(std::count_if(rows.begin(), rows.end(), [&](const std::string& row) {
        return row.rfind(word + " ", 0) == 0;
    }));
}

// An open database that must not fail.
class OpenDatabase {
 public:
    explicit OpenDatabase(const std::string& path) {
        EXPECT_EQ(SQLITE_OK,
                  sqlite3_open_v2(path.c_str(), &handle_, SQLITE_OPEN_READONLY, nullptr));
    }
    ~OpenDatabase() { sqlite3_close(handle_); }
    OpenDatabase(const OpenDatabase&) = delete;
    OpenDatabase& operator=(const OpenDatabase&) = delete;

    // The rows of a query as text; a failure is told and gives none.
    std::vector<Cells> Query(const std::string& sql) {
        std::vector<Cells> rows;
        sqlite3_stmt* statement = nullptr;
        EXPECT_EQ(SQLITE_OK, sqlite3_prepare_v2(handle_, sql.c_str(), -1, &statement, nullptr))
            << sqlite3_errmsg(handle_) << ": " << sql;
        while (statement != nullptr && sqlite3_step(statement) == SQLITE_ROW) {
            Cells row;
            for (int i = 0; i < sqlite3_column_count(statement); ++i) {
                const auto* text = sqlite3_column_text(statement, i);
                row.push_back(text == nullptr
                                  ? std::nullopt
                                  : Cell(std::string(reinterpret_cast<const char*>(text))));
            }
            rows.push_back(std::move(row));
        }
        sqlite3_finalize(statement);
        return rows;
    }
    // The first cell of the first row; empty when there is none.
    std::string Value(const std::string& sql) {
        const auto rows = Query(sql);
        return rows.empty() || rows[0].empty() ? "" : rows[0][0].value_or("");
    }

 private:
    sqlite3* handle_ = nullptr;
};

// Reads RFC 4180: an empty field without quotes is absent.
inline std::vector<Cells> ParseCsv(const std::string& text) {
    std::vector<Cells> rows(1);
    std::string field;
    bool quoted = false;
    bool wasQuoted = false;
    const auto endField = [&] {
        rows.back().push_back(field.empty() && !wasQuoted ? std::nullopt : Cell(field));
        field.clear();
        wasQuoted = false;
    };
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (quoted && c == '"' && i + 1 < text.size() && text[i + 1] == '"') {
            field += text[++i];
        } else if (c == '"') {
            quoted = !quoted;
            wasQuoted = true;
        } else if (!quoted && c == ',') {
            endField();
        } else if (!quoted && c == '\n') {
            endField();
            rows.emplace_back();
        } else {
            field += c;
        }
    }
    rows.pop_back();
    return rows;
}

}  // namespace tiv::test
