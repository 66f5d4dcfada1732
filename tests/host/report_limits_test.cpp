// Tests of what a page tells of very much and of very little.
#include "host/report_model_bench.h"

namespace tiv::host {
namespace {

TEST_F(ReportModelTest, CoreThatWasReadOnceHasNoFigures) {
    AddCpu(100, ALL_CORES, 50, 0, 50);
    model.OnSystemCpu({0, START, 3, {}, {}});

    const nlohmann::json table = Decode().Section("core-table-0");

    ASSERT_EQ(table["rows"].size(), 1u);
    EXPECT_EQ(table["rows"][0][0], "all");
}

TEST_F(ReportModelTest, FilesWithProblemsAreListedLongerThanOthers) {
    for (size_t i = 0; i < FilePart::MOST_ROWS + 2; ++i) {
        model.OnFile({0, "good", FileKind::SYSTEM_CPU, 10, 1, 0, 0, ""});
    }
    model.OnFile({0, "records", FileKind::SYSTEM_CPU, 10, 1, 1, 0, ""});
    model.OnFile({0, "bytes", FileKind::SYSTEM_CPU, 10, 1, 0, 1, ""});
    model.OnFile({0, "problem", FileKind::SYSTEM_CPU, 10, 1, 0, 0, "cut"});
    for (size_t i = 0; i < FilePart::MOST_ROWS; ++i) {
        model.OnFile({0, "bad", FileKind::SYSTEM_CPU, 10, 1, 0, 0, "cut"});
    }

    const nlohmann::json table = Decode().Section("files");

    ASSERT_EQ(table["rows"].size(), 2 * FilePart::MOST_ROWS);
    EXPECT_EQ(table["rows"][FilePart::MOST_ROWS][0], "records");
    EXPECT_EQ(table["rows"][FilePart::MOST_ROWS + 1][0], "bytes");
    EXPECT_EQ(table["rows"][FilePart::MOST_ROWS + 2][0], "problem");
    EXPECT_EQ(table["note"], "5 more files are not listed here.");
}

TEST_F(ReportModelTest, MoreStacksThanAPageHoldsAreTold) {
    constexpr size_t MANY = 500;
    std::vector<std::string> names;
    for (size_t i = 0; i < MANY; ++i) {
        names.push_back("f" + std::to_string(i));
    }
    std::vector<StackFrame> stack = {{1, "", 0, "m"}, {2, "", 0, "m"}};
    for (size_t i = 0; i < MANY * MANY; ++i) {
        stack[0].symbol = names[i / MANY];
        stack[1].symbol = names[i % MANY];
        model.OnProfileSample({0, START, {}, {}, {}, "app", "cycles", 1, stack});
    }
    const size_t drawn = FlameTree::MOST_NODES - 2 - MANY;  // besides the root, "app" and callers

    EXPECT_EQ(Decode().Section("flame-0")["note"],
              std::to_string(MANY * MANY - drawn) +
                  " samples are cut to the calls that they share with others: there are more "
                  "different stacks than a page holds.");
}

TEST_F(ReportModelTest, BusierProcessesStayInThePlotsInAnyOrder) {
    for (uint32_t i = 12; i >= 1; --i) {
        AddProcess(i, 1000 + i, "worker", i, 4096 * i);
    }

    const DecodedPage page = Decode();

    for (const char* id : {"process-cpu", "process-memory"}) {
        const nlohmann::json series = page.Section(id)["series"];
        EXPECT_EQ(series[0]["name"], "worker (1012)");
        EXPECT_EQ(series[ProcessPart::SHOWN - 1]["name"], "worker (1003)");
    }
}

TEST_F(ReportModelTest, ProcessWithoutMemoryOfItsOwnIsNotAmongTheGreatest) {
    AddProcess(1, 7, "kworker", 1, 0);
    AddProcess(2, 8, "worker", 1, 4096);

    const DecodedPage page = Decode();

    ASSERT_EQ(page.Section("process-memory")["series"].size(), 1u);
    EXPECT_EQ(RowOf(page.Section("processes"), "kworker")[7], 0);
}

TEST_F(ReportModelTest, ReadingsOfOneMomentHaveNoCpuUse) {
    model.OnProcessCpu({1, START, 0, 0, 3, 'R', ProcessCpuUse{0, 5, 5}});
    model.OnProcess({0, 1, 7, 1, 1, "p", START, START});

    const nlohmann::json row = RowOf(Decode().Section("processes"), "p");

    EXPECT_TRUE(row[3].is_null());
    EXPECT_EQ(row[6], 3);
}

TEST_F(ReportModelTest, LineOfTheMemoryThatWasNamedAndNotReadIsNotTold) {
    model.OnMemoryKey({0, 0, "MemTotal", true});

    const DecodedPage page = Decode();

    EXPECT_EQ(FactOf(page, "Device 0, machine"), "not measured");
    EXPECT_EQ(page.Section("memory-table-0")["rows"].size(), 0u);
    EXPECT_TRUE(page.Section("memory-0").is_null());
}

TEST_F(ReportModelTest, SwapThatWasInUseStaysDrawn) {
    model.OnMemoryKey({0, 0, "SwapTotal", true});
    model.OnMemoryKey({0, 1, "SwapFree", true});
    for (const uint64_t ms : {0U, 100U, 200U}) {
        model.OnMemory({0, START + ms * MS, 0, 1000});
        model.OnMemory({0, START + ms * MS, 1, ms == 100 ? 400U : 1000U});
    }

    const DecodedPage page = Decode();
    const auto used = page.Column<float>(page.Section("swap-0")["series"][0]["mean"]);

    EXPECT_EQ(used[2], 600);
    EXPECT_EQ(used.back(), 0);
}

TEST_F(ReportModelTest, HeadSaysWhatIsNotKnown) {
    ResultDirectory result;
    result.path = "/";
    model.OnBegin(result);
    AddCpu(100, ALL_CORES, 50, 0, 50);

    const DecodedPage page = Decode();

    EXPECT_EQ(page.model["name"], "/");
    EXPECT_EQ(FactOf(page, "Started"), "not known");
    EXPECT_EQ(FactOf(page, "Ended"), "not known");
    EXPECT_EQ(FactOf(page, "Collected by"), "not known");
    EXPECT_EQ(FactOf(page, "0 s in the plots"),
              "16.000000000 s of the device's raw monotonic clock");
    EXPECT_EQ(FactOf(page, "0 s in wall time"), "");
}

TEST_F(ReportModelTest, HeadTellsBeginEndAndTool) {
    ResultDirectory result = CompleteResult();
    result.started = "yesterday";
    result.ended = "today";
    result.stoppedEarly = true;
    model.OnBegin(result);

    const DecodedPage page = Decode();

    EXPECT_EQ(FactOf(page, "Started"), "yesterday");
    EXPECT_EQ(FactOf(page, "Ended"), "today, stopped early");
    EXPECT_EQ(FactOf(page, "Collected by"), "tivctl 1.0.0");
}

TEST(HeldSince, LevelHoldsSinceTheReadingBeforeForAFewIntervalsAtMost) {
    std::optional<uint64_t> before;
    uint64_t shortest = UINT64_MAX;

    EXPECT_EQ(1000u, HeldSince(before, shortest, 1000)) << "the first one";
    EXPECT_EQ(1000u, HeldSince(before, shortest, 1100));
    EXPECT_EQ(1100u, HeldSince(before, shortest, 1100)) << "no time went by";
    EXPECT_EQ(900u, HeldSince(before, shortest, 900)) << "an earlier one";
    EXPECT_EQ(100u, shortest);
    EXPECT_EQ(1000000u - 5 * 100, HeldSince(before, shortest, 1000000));
}

}  // namespace
}  // namespace tiv::host
