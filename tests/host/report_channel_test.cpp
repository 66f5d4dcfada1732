// Tests of what a page tells of channels and of when their data came.
#include <algorithm>
#include <cmath>

#include "host/report_model_bench.h"

namespace tiv::host {
namespace {

// So many events, of which each counts less than the one before.
std::vector<std::string> Events(size_t count) {
    std::vector<std::string> names;
    for (size_t i = 0; i < count; ++i) {
        names.push_back("e" + std::to_string(i));
    }
    return names;
}

TEST_F(ReportModelTest, ChannelIsDrawnAsRates) {
    const std::vector<std::string> events = {"page-faults"};
    model.OnChannel({0, 1, 8, "data/llc.data", "software", ChannelSource::PERF,
                     ChannelClock::RAW_MONOTONIC, 100, events});
    model.OnChannelCount({1, START, 0, ALL_CORES, 999, {}});
    model.OnChannelCount({1, START + 100 * MS, 0, ALL_CORES, 50, 100 * MS});
    model.OnChannelLoss({1, START + 100 * MS, 7});

    const DecodedPage page = Decode();
    const nlohmann::json chart = page.Section("channel-0");
    const nlohmann::json row = page.Section("channels")["rows"][0];

    EXPECT_EQ(chart["title"], "Channel 8: software");
    EXPECT_EQ(page.Column<float>(chart["series"][0]["mean"])[2], 500);
    EXPECT_EQ(row[4], 1049);
    EXPECT_EQ(row[6], 500.0);
    EXPECT_EQ(row[8], 7);
}

TEST_F(ReportModelTest, RunsOfOneChannelAreOneAndOthersAreNot) {
    const std::vector<std::string> events = {"e"};
    const std::vector<std::string> others = {"f"};
    for (uint32_t number = 1; number <= 2; ++number) {
        model.OnChannel({0, number, 8, "data/llc.data", "software", ChannelSource::PERF,
                         ChannelClock::RAW_MONOTONIC, 100, events});
        model.OnChannelCount({number, START + 100 * MS, 0, ALL_CORES, 5, 100 * MS});
    }
    model.OnChannel({0, 3, 8, "data/llc.data", "software", ChannelSource::PERF,
                     ChannelClock::RAW_MONOTONIC, 100, others});
    model.OnChannelCount({3, START + 100 * MS, 0, ALL_CORES, 7, 100 * MS});

    const nlohmann::json rows = Decode().Section("channels")["rows"];

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][4], 10);
    EXPECT_EQ(rows[1][4], 7);
}

TEST_F(ReportModelTest, ChannelsBeyondTheMostAreLeftOut) {
    const std::vector<std::string> events = {"e"};
    for (uint32_t number = 1; number <= 65; ++number) {
        model.OnChannel({0, number, number, "f", "", ChannelSource::PERF,
                         ChannelClock::RAW_MONOTONIC, 100, events});
        model.OnChannelCount({number, START + 100 * MS, 0, ALL_CORES, 5, 100 * MS});
    }

    model.OnChannelLoss({65, START, 7});
    model.OnChannelRun({65, 0, 100});

    const nlohmann::json rows = Decode().Section("channels")["rows"];

    ASSERT_EQ(rows.size(), 64u);
    for (const auto& row : rows) {
        EXPECT_EQ(row[8], 0);
    }
}

TEST_F(ReportModelTest, ChannelsThatDifferInAnythingAreTold) {
    const std::vector<std::string> events = {"e"};
    const std::vector<std::string> more = {"e", "f"};
    const auto raw = ChannelClock::RAW_MONOTONIC;
    model.OnChannel({0, 1, 8, "f", "n", ChannelSource::PERF, raw, 100, events});
    model.OnChannel({1, 2, 8, "f", "n", ChannelSource::PERF, raw, 100, events});
    model.OnChannel({0, 3, 9, "f", "n", ChannelSource::PERF, raw, 100, events});
    model.OnChannel({0, 4, 8, "g", "n", ChannelSource::PERF, raw, 100, events});
    model.OnChannel({0, 5, 8, "f", "", ChannelSource::PERF, raw, 100, events});
    model.OnChannel({0, 6, 8, "f", "n", ChannelSource::PERF, ChannelClock::NONE, 100, events});
    model.OnChannel({0, 7, 8, "f", "n", ChannelSource::PERF, raw, 100, more});
    for (uint32_t number = 1; number <= 7; ++number) {
        model.OnChannelCount({number, START, 0, ALL_CORES, number, {}});
    }

    const nlohmann::json rows = Decode().Section("channels")["rows"];

    ASSERT_EQ(rows.size(), 8u);
    for (size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(rows[i][4], i + 1);
    }
}

TEST_F(ReportModelTest, ChannelsAndStatisticsAreTitledByWhatIsKnownOfThem) {
    const std::vector<std::string> events = {"e"};
    const auto title = [&](std::optional<uint32_t> id, const char* name) {
        ReportModel told;
        told.OnBegin(CompleteResult());
        told.OnChannel({0, 1, id, "f", name, ChannelSource::PERF, ChannelClock::NONE, 1, events});
        told.OnEnd({});
        return std::string(DecodedPage(told.Encode()).Section("channels")["rows"][0][0]);
    };

    EXPECT_EQ(title(8, "software"), "Channel 8: software");
    EXPECT_EQ(title(8, ""), "Channel 8");
    EXPECT_EQ(title({}, "read"), "Cache statistic: read");
    EXPECT_EQ(title({}, ""), "Cache statistic");
}

TEST_F(ReportModelTest, ChannelsSayWhereTheirCountsComeFrom) {
    const std::vector<std::string> events = {"e"};
    model.OnChannel({0, 1, 8, "a", "", ChannelSource::PERF, ChannelClock::NONE, 1, events});
    model.OnChannel({0, 2, {}, "b", "", ChannelSource::STATISTIC, ChannelClock::NONE, 1, events});

    const nlohmann::json rows = Decode().Section("channels")["rows"];

    ASSERT_EQ(rows.size(), 2u);
    EXPECT_EQ(rows[0][2], ChannelSourceName(ChannelSource::PERF));
    EXPECT_EQ(rows[1][2], ChannelSourceName(ChannelSource::STATISTIC));
}

TEST_F(ReportModelTest, EventsBeyondTheMostOfAChannelAreLeftOut) {
    const std::vector<std::string> events = Events(ChannelPart::MOST_EVENTS + 1);
    model.OnChannel(
        {0, 1, 8, "f", "", ChannelSource::PERF, ChannelClock::RAW_MONOTONIC, 100, events});
    for (const uint32_t event : {0U, 255U, 256U, UINT32_MAX}) {
        model.OnChannelCount({1, START, event, ALL_CORES, 5, {}});
    }

    const nlohmann::json rows = Decode().Section("channels")["rows"];

    ASSERT_EQ(rows.size(), ChannelPart::MOST_EVENTS);
    EXPECT_EQ(rows.back()[3], "e255");
    EXPECT_EQ(rows.back()[4], 5);
}

TEST_F(ReportModelTest, CountsOfNoTimeHaveNoRate) {
    const std::vector<std::string> events = {"e"};
    model.OnChannel(
        {0, 1, 8, "f", "", ChannelSource::PERF, ChannelClock::RAW_MONOTONIC, 100, events});
    model.OnChannelCount({1, START, 0, ALL_CORES, 5, 0});
    EXPECT_TRUE(Decode().Section("channel-0").is_null());
    model.OnChannelCount({1, START + 100 * MS, 0, ALL_CORES, 50, 100 * MS});

    const nlohmann::json row = Decode().Section("channels")["rows"][0];

    EXPECT_EQ(row[4], 55);
    EXPECT_EQ(row[6], 500.0);
    EXPECT_EQ(row[7], 500.0);
}

TEST_F(ReportModelTest, EventsByCoreAreSummedUp) {
    const std::vector<std::string> events = {"e"};
    model.OnChannel(
        {0, 1, 8, "f", "", ChannelSource::PERF, ChannelClock::RAW_MONOTONIC, 100, events});
    model.OnChannelCount({1, START + 100 * MS, 0, 0, 10, 100 * MS});
    model.OnChannelCount({1, START + 100 * MS, 0, 1, 30, 100 * MS});

    const DecodedPage page = Decode();

    EXPECT_EQ(page.Column<float>(page.Section("channel-0")["series"][0]["mean"])[2], 400);
}

TEST_F(ReportModelTest, ArrivalIsDrawnAsBytesPerSecond) {
    model.OnChunk({0, START, 1000, "data/llc.data"});
    model.OnChunk({0, START + 50 * MS, 3000, "data/Memory.data"});
    model.OnChunk({0, START + 200 * MS, 500, "data/llc.data"});
    model.OnChunk({0, START + 250 * MS, 500, "data/llc.data"});

    const DecodedPage page = Decode();
    const nlohmann::json chart = page.Section("arrival-0");
    const auto all = page.Column<float>(chart["series"][0]["mean"]);
    const auto channel = page.Column<float>(chart["series"][1]["mean"]);

    EXPECT_EQ(chart["unit"], "bytesPerSecond");
    EXPECT_EQ(chart["series"][0]["name"], "all files");
    EXPECT_EQ(chart["series"][1]["name"], "data/llc.data");
    EXPECT_FLOAT_EQ(all[1], 20000);      // 4000 bytes in the first 200 ms
    EXPECT_FLOAT_EQ(channel[1], 5000);   // 1000
    EXPECT_FLOAT_EQ(all.back(), 10000);  // 1000 bytes in the least stretch of 100 ms
    EXPECT_NE(std::string(chart["note"]).find("not known"), std::string::npos);
}

TEST_F(ReportModelTest, ArrivalLiesBesideTheOtherPlotsOnOneClock) {
    ResultDirectory result = CompleteResult();
    result.clock = ClockPair{1, 1};
    model.OnBegin(result);
    AddCpu(1000, ALL_CORES, 50, 0, 50);
    model.OnChunk({0, START + 1000 * MS, 1000, "data/llc.data"});
    model.OnChunk({0, START + 2000 * MS, 1000, "data/llc.data"});

    const DecodedPage page = Decode();

    const auto all = page.Column<float>(page.Section("arrival-0")["series"][0]["mean"]);
    EXPECT_TRUE(std::isnan(all[0]));
    EXPECT_EQ(page.Section("arrival-0")["note"], "");
}

TEST_F(ReportModelTest, ArrivalRatesAreToldForATenthOfASecondAtLeast) {
    model.OnChunk({0, START, 1000, "data/Memory.data"});
    model.OnChunk({0, START + 100 * MS - 1, 3000, "data/Memory.data"});

    const DecodedPage page = Decode();
    const auto all = page.Column<float>(page.Section("arrival-0")["series"][0]["mean"]);

    EXPECT_FLOAT_EQ(*std::max_element(all.begin(), all.end()), 40000);  // both in one stretch
}

TEST_F(ReportModelTest, TenEventsOfAChannelAreDrawnAndTheRarestAreInTheTable) {
    const std::vector<std::string> events = Events(12);
    model.OnChannel(
        {0, 1, 8, "f", "", ChannelSource::PERF, ChannelClock::RAW_MONOTONIC, 100, events});
    for (uint32_t event = 0; event < events.size(); ++event) {
        model.OnChannelCount({1, START + 100 * MS, event, ALL_CORES, 100 - event, 100 * MS});
    }

    const DecodedPage page = Decode();
    const nlohmann::json chart = page.Section("channel-0");

    ASSERT_EQ(chart["series"].size(), 10u);
    EXPECT_EQ(chart["series"][9]["name"], "e9");
    EXPECT_EQ(chart["note"], "2 rarer events are in the table only.");
    EXPECT_EQ(page.Section("channels")["rows"].size(), 12u);
}

TEST_F(ReportModelTest, StatisticWithAClockOfItsOwnBeginsAtZeroAndSaysSo) {
    const std::vector<std::string> events = {"read"};
    AddCpu(100, ALL_CORES, 50, 0, 50);
    model.OnChannel(
        {0, 1, {}, "f", "", ChannelSource::STATISTIC, ChannelClock::SINCE_START, 100, events});
    model.OnChannelCount({1, 100 * MS, 0, ALL_CORES, 10, 100 * MS});

    const DecodedPage page = Decode();
    const nlohmann::json chart = page.Section("channel-0");

    EXPECT_EQ(page.Column<float>(chart["series"][0]["mean"])[2], 100);
    EXPECT_NE(std::string(chart["note"]).find("not known"), std::string::npos);
    EXPECT_LT(page.model["grid"]["count"], 20);
}

TEST_F(ReportModelTest, NumbersThatDoNotFollowEachOtherAreTold) {
    const std::vector<std::string> events;
    model.OnChannel({0, 1, 8, "f", "count", ChannelSource::COUNTER, ChannelClock::NONE, 0, events});
    model.OnChannelRun({1, 0, 100});
    model.OnChannelRun({1, 150, 10});
    model.OnChannel({0, 2, 9, "f", "late", ChannelSource::COUNTER, ChannelClock::NONE, 0, events});
    model.OnChannelRun({2, 5, 10});  // its first numbers are missing

    const nlohmann::json rows = Decode().Section("channels")["rows"];
    const nlohmann::json& row = rows[0];

    EXPECT_EQ(rows[1][3], "numbers, 1 places where they did not follow each other");
    EXPECT_EQ(row[3], "numbers, 1 places where they did not follow each other");
    EXPECT_EQ(row[4], 110);
    EXPECT_TRUE(row[6].is_null());
}

}  // namespace
}  // namespace tiv::host
