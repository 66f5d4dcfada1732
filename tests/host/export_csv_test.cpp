// Results as CSV.
#include <algorithm>
#include <filesystem>

#include "host/channel_bytes.h"
#include "host/export/csv_exporter.h"
#include "host/export_bench.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

std::string Field(std::string_view text) {
    std::string out;
    AppendCsvField(text, out);
    return out;
}

class CsvExport : public testing::Test {
 protected:
    void Export(const std::string& result) {
        const ExportReport report =
            ExportResult(Golden(result), ExportFormat::CSV, directory_.Path("csv"));
        ASSERT_EQ("", report.error);
    }
    std::vector<Cells> Rows(const std::string& table) const {
        auto rows = ParseCsv(directory_.Read("csv/" + table + ".csv"));
        rows.erase(rows.begin());
        return rows;
    }

    TempDir directory_;
};

}  // namespace

TEST(CsvField, StandsInQuotesWhereItMust) {
    EXPECT_EQ("plain text", Field("plain text"));
    EXPECT_EQ("\"\"", Field(""));
    EXPECT_EQ("\"a,b\"", Field("a,b"));
    EXPECT_EQ("\"say \"\"hi\"\"\"", Field("say \"hi\""));
    EXPECT_EQ("\"a\nb\"", Field("a\nb"));
    EXPECT_EQ("\"a\rb\"", Field("a\rb"));
    EXPECT_EQ("\" a\"", Field(" a"));
    EXPECT_EQ("\"a \"", Field("a "));
}

TEST_F(CsvExport, EveryTableHasAFileWithItsColumns) {
    Export("complete");

    for (const TableSpec& spec : TableSpecs()) {
        const auto rows = ParseCsv(directory_.Read(std::string("csv/") + spec.name + ".csv"));
        ASSERT_EQ(spec.columns.size(), rows.at(0).size()) << spec.name;
        for (size_t i = 0; i < spec.columns.size(); ++i) {
            EXPECT_EQ(spec.columns[i].name, rows[0][i]) << spec.name;
        }
        for (const Cells& row : rows) {
            EXPECT_EQ(spec.columns.size(), row.size()) << spec.name;
        }
    }
}

TEST_F(CsvExport, HoldsEveryRowOfTheResult) {
    const auto rows = RowsOf(Golden("complete"));
    Export("complete");

    const std::pair<const char*, const char*> tables[] = {
        {"system_cpu", "cpu"},          {"memory", "memory"},
        {"process_cpu", "process_cpu"}, {"process_memory", "process_memory"},
        {"process", "process"},         {"channel_count", "count"},
        {"memory_key", "key"},          {"file", "file"}};
    for (const auto& [table, word] : tables) {
        EXPECT_EQ(CountRows(rows, word), Rows(table).size()) << table;
        EXPECT_GT(Rows(table).size(), 0u) << table;
    }
}

TEST_F(CsvExport, TimesOfTheChunksAreATable) {
    (void)directory_.MakeDir("PROF/device_4");
    (void)directory_.Write("PROF/device_4.chunks.csv",
                           "received_ns,bytes,file\n17,4096,data/llc.data\n18,1,data/a,b\n");

    const ExportReport report =
        ExportResult(directory_.Path("PROF"), ExportFormat::CSV, directory_.Path("csv"));

    ASSERT_EQ("", report.error);
    EXPECT_EQ(
        (std::vector<Cells>{{"4", "data/llc.data", "17", "4096"}, {"4", "data/a,b", "18", "1"}}),
        Rows("chunk"));
    EXPECT_EQ("device_4.chunks.csv", Rows("file").at(0).at(1));
    EXPECT_EQ("chunk_times", Rows("file").at(0).at(2));
}

TEST_F(CsvExport, ReplaysLossesAndRunsAreTables) {
    (void)directory_.MakeDir("PROF/device_4/data");
    (void)directory_.Write("PROF/manifest.json",
                           R"({"replays": [{"replay": 0, "started": "a", "ended": "b"},
                                           {"replay": 1, "started": "c"}]})");
    (void)directory_.Write(
        "PROF/device_4/data/llc.data",
        PerfHeader() + Count(9, UINT32_MAX, UINT32_MAX, 44) + Header(2, {}, 8) + Numbers(5, 3));

    const ExportReport report =
        ExportResult(directory_.Path("PROF"), ExportFormat::CSV, directory_.Path("csv"));

    ASSERT_EQ("", report.error);
    EXPECT_EQ((std::vector<Cells>{{"0", "a", "b"}, {"1", "c", std::nullopt}}), Rows("replay"));
    EXPECT_EQ((std::vector<Cells>{{"1", "9", "44"}}), Rows("channel_loss"));
    EXPECT_EQ((std::vector<Cells>{{"2", "5", "3"}}), Rows("channel_run"));
}

TEST_F(CsvExport, HostileNamesComeBackAsTheyWere) {
    Export("complete");
    std::vector<std::string> names;
    for (const Cells& row : Rows("process")) {
        names.push_back(row[5].value_or(""));
    }

    for (const char* name :
         {"it's \"q\"", "a\nb) S 1", "<b>&amp;<i>", "caf\\xe9", "\xe6\x97\xa5\xe6\x9c\xac"}) {
        EXPECT_EQ(1, std::count(names.begin(), names.end(), name)) << name;
    }
}

TEST_F(CsvExport, StacksAndMemoryKeysStandAsText) {
    Export("profile");

    const std::string stack = Rows("profile_sample").at(0).at(8).value_or("");
    EXPECT_NE(std::string::npos, stack.find(';')) << stack;
    Export("complete");
    EXPECT_EQ("MemTotal", Rows("memory").at(0).at(2));
}

TEST_F(CsvExport, WhatWasNotMeasuredIsEmpty) {
    Export("complete");

    const Cells first = Rows("system_cpu").at(0);
    EXPECT_EQ(std::nullopt, first[2]);
    EXPECT_EQ(std::nullopt, first[3]);
    EXPECT_EQ(std::nullopt, first[4]);
    EXPECT_NE(std::nullopt, first[12]);
}

TEST_F(CsvExport, ChannelWithoutAPeriodAndEarlyEndAreTold) {
    const std::vector<std::string> events = {"reads"};
    ResultDirectory result;
    result.stoppedEarly = true;
    CsvExporter exporter(directory_.Path("csv"));
    ASSERT_TRUE(exporter.Open());
    exporter.OnBegin(result);
    for (const uint32_t period : {0U, 20U}) {
        exporter.OnChannel(
            {0, 1, 8, "f", "n", ChannelSource::PERF, ChannelClock::NONE, period, events});
    }
    exporter.OnEnd({});
    ASSERT_TRUE(exporter.Commit()) << exporter.Error();

    EXPECT_EQ(std::nullopt, Rows("channel")[0].back());
    EXPECT_EQ("20", Rows("channel")[1].back());
    EXPECT_EQ("1", Rows("result")[0][7]);
}

TEST_F(CsvExport, IncompleteResultSaysSo) {
    Export("complete");
    EXPECT_EQ("1", Rows("result").at(0).at(1));
    EXPECT_TRUE(Rows("problem").empty());

    Export("incomplete");
    EXPECT_EQ("0", Rows("result").at(0).at(1));
    EXPECT_EQ("device 0: the data session ended before the device had sent everything",
              Rows("problem").at(0).at(0));
}

TEST_F(CsvExport, PlaceThatCannotBeWrittenIsToldWithTheWayOut) {
    const std::string file = directory_.Write("file", "");

    const ExportReport report = ExportResult(Golden("complete"), ExportFormat::CSV, file + "/csv");

    EXPECT_EQ("cannot make the directory " + file +
                  "/csv: Not a directory; choose another place with --output",
              report.error);
    EXPECT_FALSE(report.isNoResult);
}

TEST_F(CsvExport, LeavesNothingUnderAnotherName) {
    Export("complete");

    for (const auto& entry : std::filesystem::directory_iterator(directory_.Path("csv"))) {
        EXPECT_EQ(".csv", entry.path().extension());
    }
}
