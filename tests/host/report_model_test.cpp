// Tests of what a page tells of a result.
#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "host/report_model_bench.h"

namespace tiv::host {
namespace {

TEST_F(ReportModelTest, ResultWithoutAnyReadingSaysWhatWasNotMeasured) {
    const DecodedPage page = Decode();

    EXPECT_TRUE(page.model["grid"].is_null());
    for (const char* id :
         {"cpu", "memory", "process-cpu", "process-memory", "channels", "profile"}) {
        EXPECT_EQ(page.Section(id).at("kind"), "empty") << id;
        EXPECT_NE(page.Section(id).at("text"), "") << id;
    }
}

TEST_F(ReportModelTest, HeadNamesTheResultAndItsState) {
    const DecodedPage page = Decode();

    EXPECT_EQ(page.model["name"], "PROF_1");
    EXPECT_EQ(page.model["state"], "complete");
    EXPECT_EQ(page.model["missing"].size(), 0u);
    EXPECT_EQ(FactOf(page, "Device 0, job"), "job-1");
    EXPECT_EQ(FactOf(page, "Units of the job"), "pages of 4096 bytes, 100 clock ticks per second");
}

TEST_F(ReportModelTest, MachineIsToldOrSaidToBeUnknown) {
    EXPECT_EQ(FactOf(Decode(), "Device 0, machine"), "not measured");

    AddCpu(100, 0, 60, 40, 0);
    model.OnMemoryKey({0, 0, "MemTotal", true});
    model.OnMemory({0, START, 0, 3ULL << 29});

    EXPECT_EQ(FactOf(Decode(), "Device 0, machine"), "1 cores, 1.5 GiB of memory");
}

TEST_F(ReportModelTest, ProblemOfTheReadingMakesACompleteResultIncomplete) {
    ReadOutcome outcome;
    outcome.problems = {"a file\nis cut"};

    const DecodedPage page = Decode(outcome);

    EXPECT_EQ(page.model["state"], "incomplete");
    EXPECT_EQ(page.model["missing"][0], "a file\\x0ais cut");
}

TEST_F(ReportModelTest, CpuIsDrawnByStateAndByCore) {
    AddCpu(100, ALL_CORES, 30, 20, 50);
    AddCpu(100, 0, 60, 40, 0);
    AddCpu(100, 1, 0, 0, 100);

    const DecodedPage page = Decode();
    const nlohmann::json chart = page.Section("cpu-0");
    const nlohmann::json cores = page.Section("cores-0");

    std::vector<int> colors;
    for (const auto& entry : chart["series"]) {
        colors.push_back(entry["color"].get<int>());
    }
    EXPECT_EQ(colors, (std::vector<int>{0, 8, 1, 3, 6, 5, 10})) << "the last is the grey one";
    EXPECT_EQ(chart["series"][0]["name"], "user");
    EXPECT_EQ(page.Column<float>(chart["series"][0]["mean"])[3], 30);
    EXPECT_EQ(chart["series"][2]["name"], "system");
    EXPECT_EQ(page.Column<float>(chart["series"][2]["mean"])[3], 20);
    ASSERT_EQ(cores["rows"].size(), 2u);
    EXPECT_EQ(page.Column<float>(cores["rows"][0]["mean"])[3], 100);
    EXPECT_EQ(page.Column<float>(cores["rows"][1]["mean"])[3], 0);
    EXPECT_EQ(page.Column<float>(page.model["overview"])[3], 50);
}

TEST_F(ReportModelTest, CpuTableHasMeansWeightedByTimeAndTheBusiestReading) {
    AddCpu(100, 0, 60, 40, 0);
    AddCpu(200, 0, 10, 0, 90);
    AddCpu(200, ALL_CORES, 10, 0, 90);

    const nlohmann::json row = RowOf(Decode().Section("core-table-0"), "cpu0");

    EXPECT_EQ(row[1], 55);
    EXPECT_EQ(row[2], 100);
    EXPECT_EQ(row[3], 35);
}

TEST(ReportModel, StateOfAResultThatIsNotFinishedIsToldInWords) {
    const auto told = [](const char* state) {
        ResultDirectory result = CompleteResult();
        result.complete = false;
        result.state = state;
        ReportModel model;
        model.OnBegin(result);
        model.OnEnd({});
        const DecodedPage page(model.Encode());
        return std::string(page.model["state"]);
    };

    EXPECT_EQ(told("running"), "still running, or left behind by a tool that died");
    EXPECT_EQ(told("unknown"), "unknown: no manifest");
    EXPECT_EQ(told("incomplete"), "incomplete");
    EXPECT_EQ(told("complete"), "incomplete") << "the manifest's word counts";
}

TEST_F(ReportModelTest, LongRunShowsTheBusiestReadingOfEachCell) {
    for (uint64_t reading = 0; reading < 100; ++reading) {
        AddCpu(10 * reading, ALL_CORES, reading == 50 ? 80 : 10, 0, reading == 50 ? 20 : 90);
    }
    AddCpu(1000 * 1000, ALL_CORES, 10, 0, 90);

    const DecodedPage page = Decode();
    const nlohmann::json section = page.Section("cpu-0");

    EXPECT_EQ(section.value("note", "").find("Long run: the areas are means"), 0u);
    const auto peak = page.Column<float>(section.at("peak"));
    EXPECT_EQ(*std::max_element(peak.begin(), peak.end()), 80);
}

TEST_F(ReportModelTest, TimeWithoutReadingsIsAGap) {
    AddCpu(100, ALL_CORES, 50, 0, 50);
    AddCpu(900, ALL_CORES, 50, 0, 50);

    const DecodedPage page = Decode();
    const auto user = page.Column<float>(page.Section("cpu-0")["series"][0]["mean"]);

    EXPECT_EQ(user.front(), 50);
    EXPECT_TRUE(std::isnan(user[30]));
    EXPECT_EQ(user.back(), 50);
}

TEST_F(ReportModelTest, MemoryIsPartedIntoWhatItIsUsedFor) {
    const std::pair<const char*, uint64_t> keys[] = {{"MemTotal", 1000},
                                                     {"MemFree", 400},
                                                     {"Buffers", 50},
                                                     {"Cached", 150},
                                                     {"SReclaimable", 100}};
    uint32_t number = 0;
    for (const auto& [name, value] : keys) {
        model.OnMemoryKey({0, number, name, true});
        model.OnMemory({0, START, number++, value});
    }

    const DecodedPage page = Decode();
    const nlohmann::json series = page.Section("memory-0")["series"];

    EXPECT_EQ(page.Column<float>(series[0]["mean"])[0], 300);  // used
    EXPECT_EQ(page.Column<float>(series[1]["mean"])[0], 250);  // cache
    EXPECT_EQ(page.Column<float>(series[2]["mean"])[0], 50);   // buffers
    EXPECT_EQ(page.Column<float>(series[3]["mean"])[0], 400);  // free
    EXPECT_EQ(page.Section("memory-0")["top"], 1000);
}

TEST_F(ReportModelTest, MemoryTableHasTheLinesThatCountBytes) {
    model.OnMemoryKey({0, 0, "MemTotal", true});
    model.OnMemoryKey({0, 1, "HugePages_Total", false});
    for (const uint32_t key : {0U, 1U, 2U}) {  // nobody has told what 2 is
        model.OnMemory({0, START, key, 1000});
    }

    const nlohmann::json table = Decode().Section("memory-table-0");

    ASSERT_EQ(table["rows"].size(), 1u);
    EXPECT_EQ(table["rows"][0], nlohmann::json({"MemTotal", 1000, 1000, 1000, 1000, 0, 1}));
}

TEST_F(ReportModelTest, SwapIsDrawnWhenItIsInUse) {
    model.OnMemoryKey({0, 0, "SwapTotal", true});
    model.OnMemoryKey({0, 1, "SwapFree", true});
    model.OnMemory({0, START, 0, 1000});
    model.OnMemory({0, START, 1, 1000});
    EXPECT_TRUE(Decode().Section("swap-0").is_null());
    model.OnMemory({0, START + 100 * MS, 0, 1000});
    model.OnMemory({0, START + 100 * MS, 1, 700});

    const DecodedPage page = Decode();

    EXPECT_EQ(page.Column<float>(page.Section("swap-0")["series"][0]["mean"]).back(), 300);
}

TEST_F(ReportModelTest, MemoryLevelIsNotDrawnAcrossALongSilence) {
    model.OnMemoryKey({0, 0, "MemTotal", true});
    model.OnMemoryKey({0, 1, "MemFree", true});
    for (const uint64_t ms : {0U, 100U, 5000U}) {
        model.OnMemory({0, START + ms * MS, 0, 1000});
        model.OnMemory({0, START + ms * MS, 1, 300});
    }

    const DecodedPage page = Decode();
    const auto used = page.Column<float>(page.Section("memory-0")["series"][0]["mean"]);

    EXPECT_TRUE(std::isnan(used[200]));
    EXPECT_EQ(used.back(), 700);
}

TEST_F(ReportModelTest, BusiestProcessesAreDrawnAndTheRestIsSummedUp) {
    for (uint32_t i = 1; i <= 12; ++i) {
        AddProcess(i, 1000 + i, "worker", i, 4096 * i);
    }

    const DecodedPage page = Decode();
    const nlohmann::json cpu = page.Section("process-cpu")["series"];

    ASSERT_EQ(cpu.size(), ProcessPart::SHOWN + 1);
    EXPECT_EQ(cpu[0]["name"], "worker (1012)");
    EXPECT_EQ(page.Column<float>(cpu[0]["mean"])[1], 12);
    EXPECT_EQ(cpu.back()["name"], "all other processes");
    EXPECT_EQ(page.Column<float>(cpu.back()["mean"])[1], 1 + 2);
    EXPECT_EQ(page.Section("process-memory")["series"].size(), ProcessPart::SHOWN);
}

TEST_F(ReportModelTest, ProcessTableHasAllOfThem) {
    AddProcess(1, 77, "<b>\"x\"\n", 25, 8192);
    AddProcess(2, 78, "", 0, 4096);

    const nlohmann::json table = Decode().Section("processes");

    ASSERT_EQ(table["rows"].size(), 2u);
    EXPECT_EQ(table["note"], "");
    const nlohmann::json row = RowOf(table, "<b>\"x\"\\x0a");
    EXPECT_EQ(row[1], 77);
    EXPECT_EQ(row[3], 0.025);
    EXPECT_EQ(row[4], 25);
    EXPECT_EQ(row[7], 8192);
    EXPECT_FALSE(RowOf(table, "(no name)").is_null());
}

TEST_F(ReportModelTest, ProcessWhoseCpuWasNotReadHasNoCpuFigures) {
    ProcessMemoryRow memory;
    memory.process = 1;
    memory.timeNs = START;
    memory.residentBytes = 4096;
    model.OnProcessMemory(memory);
    ProcessCpuRow first;  // there is nothing yet to compare it with
    first.process = 1;
    first.timeNs = START;
    model.OnProcessCpu(first);
    model.OnProcess({0, 1, 5, {}, {}, "p", START, START});

    const nlohmann::json row = RowOf(Decode().Section("processes"), "p");

    EXPECT_TRUE(row[2].is_null());
    EXPECT_TRUE(row[3].is_null());
    EXPECT_TRUE(row[4].is_null());
    EXPECT_EQ(row[7], 4096);
}

TEST_F(ReportModelTest, OfVeryManyProcessesTheGreatestStayInTheTable) {
    const uint32_t count = 6 * ProcessPart::MOST_IN_TABLE;
    for (uint32_t i = 1; i <= count; ++i) {
        AddProcess(i, i, "p", 0, 4096 * i);
    }

    const nlohmann::json table = Decode().Section("processes");

    EXPECT_LE(table["rows"].size(), 4 * ProcessPart::MOST_IN_TABLE);
    EXPECT_EQ(table["rows"].back()[1], count);
    EXPECT_NE(table["note"], "");
}

TEST_F(ReportModelTest, EachEventOfTheProfileHasAFlameGraph) {
    const std::vector<StackFrame> stack = {{1, "f", 0, "m"}};
    model.OnProfileSample({0, START, {}, {}, {}, "app", "cycles", 1, stack});
    model.OnProfileSample({0, START, {}, {}, {}, "app", "faults", 1, stack});

    const DecodedPage page = Decode();

    EXPECT_EQ(page.Section("flame-0")["title"], "CPU profile at cycles");
    EXPECT_EQ(page.Section("flame-1")["title"], "CPU profile at faults");
    EXPECT_EQ(page.Section("functions-0")["rows"][0][0], "f");
}

TEST_F(ReportModelTest, EventsBeyondTheEighthAreCountedAndNotDrawn) {
    const std::vector<StackFrame> stack = {{1, "f", 0, "m"}};
    for (const char* event : {"e1", "e2", "e3", "e4", "e5", "e6", "e7", "e8", "e9", "e9"}) {
        model.OnProfileSample({0, START, {}, {}, {}, "app", event, 1, stack});
    }

    const DecodedPage page = Decode();

    EXPECT_EQ(page.Section("flame-7")["title"], "CPU profile at e8");
    EXPECT_EQ(page.model.dump().find("CPU profile at e9"), std::string::npos);
    EXPECT_NE(page.model.dump().find("2 samples of further events are not drawn on this page."),
              std::string::npos);
}

TEST_F(ReportModelTest, PlotsStandBeforeTheProfileAndTablesLast) {
    const std::vector<StackFrame> stack = {{1, "f", 0, "m"}};
    AddCpu(100, ALL_CORES, 50, 0, 50);
    AddProcess(1, 7, "p", 1, 4096);
    model.OnProfileSample({0, START, {}, {}, {}, "app", "cycles", 1, stack});

    std::vector<std::string> ids;
    const DecodedPage page = Decode();
    for (const auto& section : page.model["sections"]) {
        ids.push_back(section["id"]);
    }

    EXPECT_EQ(ids, (std::vector<std::string>{"cpu-0", "memory", "process-cpu", "process-memory",
                                             "channels", "flame-0", "processes", "functions-0",
                                             "core-table-0", "files"}));
}

TEST_F(ReportModelTest, TablesAreOrderedByTheFigureThatPeopleLookForFirst) {
    AddSomethingOfEverything();

    const DecodedPage page = Decode();
    std::map<std::string, std::string> orders;
    for (const auto& section : page.model["sections"]) {
        if (section.at("kind") == "table") {
            const auto sorted = section.at("sort").get<size_t>();
            orders[section.at("id")] = section.at("columns").at(sorted).at("name");
        }
    }

    const std::map<std::string, std::string> wanted = {
        {"channels", "count"},   {"core-table-0", "busy"},    {"files", "size"},
        {"functions-0", "self"}, {"memory-table-0", "range"}, {"processes", "CPU time"}};
    EXPECT_EQ(orders, wanted);
}

TEST_F(ReportModelTest, SectionsHaveTheirTitlesAndTablesAColumnForEachCell) {
    AddSomethingOfEverything();

    const DecodedPage page = Decode();
    std::set<std::string> seen;
    for (const auto& section : page.model["sections"]) {
        const std::string id = section.at("id");
        seen.insert(section.at("kind"));
        EXPECT_NE(section.at("title"), "") << id;
        for (const auto& row : section.value("rows", nlohmann::json::array())) {
            EXPECT_TRUE(!row.is_array() || row.size() == section.at("columns").size()) << id;
        }
    }
    EXPECT_EQ(seen, (std::set<std::string>{"chart", "flame", "heatmap", "table"}));
}

TEST_F(ReportModelTest, SeriesOfAChartDifferInTheirColours) {
    for (uint32_t i = 1; i <= 12; ++i) {
        AddProcess(i, 1000 + i, "worker", i, 4096 * i);
    }
    AddCpu(100, ALL_CORES, 50, 0, 50);
    model.OnMemoryKey({0, 0, "MemTotal", true});
    model.OnMemory({0, START, 0, 1000});

    const DecodedPage page = Decode();
    size_t most = 0;
    for (const auto& section : page.model["sections"]) {
        std::set<int> colors;
        const auto series = section.value("series", nlohmann::json::array());
        for (const auto& entry : series) {
            colors.insert(entry.at("color").get<int>());
        }
        EXPECT_EQ(colors.size(), series.size()) << section.at("id");
        most = std::max(most, series.size());
    }
    EXPECT_LT(1u, most);
}

TEST_F(ReportModelTest, FilesAreListedWithWhatCouldNotBeRead) {
    model.OnFile({0, "data/x", FileKind::SYSTEM_CPU, 10, 1, 2, 3, "cut"});
    model.OnFile({0, "data/y", FileKind::OTHER, 5, 0, 0, 0, ""});

    const DecodedPage page = Decode();
    const nlohmann::json rows = page.Section("files")["rows"];

    EXPECT_EQ(rows[0][5], 2);
    EXPECT_EQ(rows[0][7], "cut");
    EXPECT_TRUE(rows[1][4].is_null());
    EXPECT_EQ(FactOf(page, "Read"), "15 B in 2 files; 2 unreadable records, 3 unreadable bytes");
}

TEST_F(ReportModelTest, ZeroOfThePlotsIsToldOnBothClocks) {
    ResultDirectory result = CompleteResult();
    result.clock = ClockPair{1'700'000'000'000 * MS, START - 500 * MS};
    model.OnBegin(result);
    AddCpu(100, ALL_CORES, 50, 0, 50);

    const DecodedPage page = Decode();

    EXPECT_EQ(FactOf(page, "0 s in the plots"),
              "16.000000000 s of the device's raw monotonic clock");
    EXPECT_EQ(FactOf(page, "0 s in wall time"), "2023-11-14 22:13:20.500 UTC");
}

}  // namespace
}  // namespace tiv::host
