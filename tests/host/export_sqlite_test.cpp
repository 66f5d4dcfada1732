// Results as a database.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/export/sqlite_database.h"
#include "host/export/sqlite_exporter.h"
#include "host/export_bench.h"
#include "support/scoped_limit.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

std::string Manual() {
    std::ifstream file(TIV_RESULT_MANUAL);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

// The queries that the manual shows.
std::vector<std::string> Examples() {
    std::vector<std::string> examples;
    const std::string manual = Manual();
    const std::string begin = "```sql\n";
    for (size_t at = manual.find(begin); at != std::string::npos; at = manual.find(begin, at)) {
        at += begin.size();
        examples.push_back(manual.substr(at, manual.find("```", at) - at));
    }
    return examples;
}

class SqliteExport : public testing::Test {
 protected:
    OpenDatabase& Export(const std::string& result) {
        const std::string path = directory_.Path(result + ".sqlite");
        EXPECT_EQ("", ExportResult(Golden(result), ExportFormat::SQLITE, path).error);
        database_ = std::make_unique<OpenDatabase>(path);
        return *database_;
    }

    TempDir directory_;
    std::unique_ptr<OpenDatabase> database_;
};

}  // namespace

TEST_F(SqliteExport, HoldsTheSameCellsAsCsv) {
    OpenDatabase& database = Export("complete");
    ASSERT_EQ("", ExportResult(Golden("complete"), ExportFormat::CSV, directory_.Path("c")).error);

    for (const TableSpec& spec : TableSpecs()) {
        auto rows = ParseCsv(directory_.Read(fmt::format("c/{}.csv", spec.name)));
        rows.erase(rows.begin());
        const std::string columns = std::string(spec.name) == "memory"
                                        ? "m.device, time_ns, k.name, value FROM memory m JOIN "
                                          "memory_key k USING (key) ORDER BY m.rowid"
                                        : fmt::format("* FROM {}", spec.name);
        const auto found = database.Query("SELECT " + columns);
        ASSERT_EQ(rows.size(), found.size()) << spec.name;
        for (size_t i = 0; i < rows.size(); ++i) {
            for (size_t column = 0; column < spec.columns.size(); ++column) {
                if (spec.columns[column].type == CellType::REAL && rows[i][column].has_value()) {
                    // A number as text has fewer digits than the number.
                    EXPECT_NEAR(std::stod(*rows[i][column]), std::stod(*found[i][column]), 1e-6);
                } else {
                    EXPECT_EQ(rows[i][column], found[i][column]) << spec.name;
                }
            }
        }
    }
}

TEST_F(SqliteExport, ExamplesOfTheManualRunAndGiveRows) {
    const auto examples = Examples();
    ASSERT_GE(examples.size(), 8u);

    for (const std::string& example : examples) {
        const size_t rows =
            Export("complete").Query(example).size() + Export("profile").Query(example).size();
        EXPECT_GT(rows, 0u) << example;
    }
}

TEST_F(SqliteExport, ManualTellsOfEveryTableAndColumn) {
    const std::string manual = Manual();

    for (const TableSpec& spec : TableSpecs()) {
        const std::string title = fmt::format("### `{}`\n", spec.name);
        const size_t begin = manual.find(title);
        ASSERT_NE(std::string::npos, begin) << spec.name;
        const std::string section = manual.substr(begin, manual.find("\n### ", begin + 1) - begin);
        for (const ColumnSpec& column : spec.columns) {
            EXPECT_NE(std::string::npos, section.find(fmt::format("`{}`", column.name)))
                << spec.name << "." << column.name;
        }
    }
}

TEST_F(SqliteExport, BusiestProcessesOfASpanComeFromTheIndexAlone) {
    const auto plan =
        Export("complete")
            .Query(
                "EXPLAIN QUERY PLAN SELECT process, sum(user_ns + system_ns) FROM process_cpu "
                "WHERE time_ns BETWEEN 1 AND 2 GROUP BY process");

    EXPECT_EQ(
        "SEARCH process_cpu USING COVERING INDEX process_cpu_by_time (time_ns>? AND "
        "time_ns<?)",
        plan.at(0).at(3));
}

TEST_F(SqliteExport, CpuTimeOfAProcessAddsUpToItsTicks) {
    const auto rows =
        Export("complete")
            .Query(
                "SELECT sum(user_ns + system_ns), (max(user_ticks + system_ticks) - min(user_ticks "
                "+ "
                "system_ticks)) * 10000000, min(interval_ns IS NULL), sum(interval_ns IS NULL) "
                "FROM process_cpu GROUP BY process HAVING count(*) > 1");

    ASSERT_GE(rows.size(), 5u);
    for (const Cells& row : rows) {
        EXPECT_EQ(row[1], row[0]);
        EXPECT_EQ("1", row[3]) << "only the first reading has no interval";
    }
}

TEST_F(SqliteExport, SharesOfEveryCoreAddUpTo100) {
    OpenDatabase& database = Export("complete");

    EXPECT_EQ("0", database.Value("SELECT count(*) FROM system_cpu WHERE abs(user_pct + nice_pct + "
                                  "system_pct + idle_pct + iowait_pct + irq_pct + softirq_pct + "
                                  "steal_pct - 100) > 1e-9"));
    EXPECT_NE("0", database.Value("SELECT count(*) FROM system_cpu WHERE user_pct IS NOT NULL"));
}

TEST_F(SqliteExport, EveryStackLeadsToAnOutermostFrame) {
    OpenDatabase& database = Export("profile");

    EXPECT_EQ("0", database.Value("SELECT count(*) FROM profile_stack k LEFT JOIN profile_stack p "
                                  "ON p.stack = k.parent WHERE k.depth <> ifnull(p.depth, 0) + 1"));
    EXPECT_EQ("0", database.Value("SELECT count(*) FROM profile_sample WHERE stack NOT IN "
                                  "(SELECT stack FROM profile_stack)"));
}

TEST_F(SqliteExport, IsOneSoundFileOfItsVersion) {
    OpenDatabase& database = Export("complete");

    EXPECT_EQ("ok", database.Value("PRAGMA integrity_check"));
    EXPECT_EQ("1", database.Value("PRAGMA user_version"));
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(directory_.Path()), {}));
}

TEST_F(SqliteExport, IncompleteResultSaysSo) {
    EXPECT_EQ("1", Export("complete").Value("SELECT complete FROM result"));
    EXPECT_EQ("0", Export("complete").Value("SELECT count(*) FROM problem"));
    EXPECT_EQ("0", Export("incomplete").Value("SELECT complete FROM result"));
    EXPECT_EQ("3", Export("incomplete").Value("SELECT count(*) FROM problem"));
}

TEST_F(SqliteExport, EarlierExportIsReplacedAndALeftoverIsNot) {
    directory_.Write("complete.sqlite", "old");
    directory_.Write("complete.sqlite.new", "leftover");

    EXPECT_EQ("ok", Export("complete").Value("PRAGMA integrity_check"));
}

TEST_F(SqliteExport, FirstFailureOfADatabaseIsKeptAndEndsItsWriting) {
    const std::string path = directory_.Path("x.sqlite");
    {
        SqliteDatabase database;
        ASSERT_TRUE(database.Create(path));
        ASSERT_TRUE(database.Run("CREATE TABLE numbers (number INTEGER PRIMARY KEY) STRICT"));
        SqliteInsert insert(database, "INSERT INTO numbers VALUES (?)");
        for (const unsigned number : {1U, 1U, 2U}) {
            insert.Integer(number);
            insert.Insert();
        }
        const SqliteInsert none(database, "INSERT INTO none VALUES (?)");

        EXPECT_FALSE(database.Run("DELETE FROM numbers"));

        EXPECT_EQ("cannot write the database: UNIQUE constraint failed: numbers.number",
                  database.Error());
    }
    EXPECT_EQ("1", OpenDatabase(path).Value("SELECT group_concat(number) FROM numbers"));
}

TEST_F(SqliteExport, InsertThatCannotBeMadeReadyIsAFailure) {
    SqliteDatabase database;
    ASSERT_TRUE(database.Create(directory_.Path("x.sqlite")));

    const SqliteInsert none(database, "INSERT INTO none VALUES (?)");

    EXPECT_EQ("cannot write the database: no such table: none", database.Error());
}

TEST_F(SqliteExport, SampleWithoutAStackHasNone) {
    (void)directory_.MakeDir("device_0/data");
    directory_.Write("device_0/data/ai_ctrl_cpu.data", "a 1 [0] 0.000000090: 1 e: \n\n");
    directory_.Write("manifest.json", R"({"devices": [{"device": 0, "directory": "device_0"}]})");
    const std::string path = directory_.Path("x.sqlite");

    EXPECT_EQ("", ExportResult(directory_.Path(), ExportFormat::SQLITE, path).error);

    EXPECT_EQ("1",
              OpenDatabase(path).Value("SELECT count(*) FROM profile_sample WHERE stack IS NULL"));
}

TEST_F(SqliteExport, FullDiskIsAnErrorAndLeavesNothing) {
    const ScopedLimit small(RLIMIT_FSIZE, 64 << 10);

    const ExportReport report =
        ExportResult(Golden("complete"), ExportFormat::SQLITE, directory_.Path("x.sqlite"));

    EXPECT_EQ(0u, report.error.find("cannot write the database: ")) << report.error;
    EXPECT_TRUE(std::filesystem::is_empty(directory_.Path()));
}

TEST_F(SqliteExport, DirectoryThatIsNotThereIsAnError) {
    const ExportReport report =
        ExportResult(Golden("complete"), ExportFormat::SQLITE, directory_.Path("none/x.sqlite"));

    EXPECT_EQ(0u, report.error.find("cannot make the database: unable to open")) << report.error;
}
