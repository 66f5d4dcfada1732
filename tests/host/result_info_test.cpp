// Tests of what `tivctl info` tells.
#include "host/result_info.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

namespace tiv::host {
namespace {

ResultDirectory Whole() {
    ResultDirectory result;
    result.path = "PROF_1";
    result.state = "complete";
    result.complete = true;
    result.started = "2026-11-21T03:14:07.123Z";
    result.devices.push_back({3, "device_3", "job-1", {"cpu", "llc"}, true, true, "", "{}"});
    result.files.push_back({3, "data/llc.data", "device_3", FileKind::CHANNEL, 0, 1500});
    result.files.push_back({3, "data/1-Memory.data", "device_3", FileKind::PROCESS_MEMORY, 1, 100});
    result.files.push_back({3, "data/2-Memory.data", "device_3", FileKind::PROCESS_MEMORY, 2, 50});
    return result;
}

bool Holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST(ResultInfo, WholeResultIsCalledComplete) {
    const std::string text = InfoText(Whole());

    EXPECT_TRUE(Holds(text, "state      complete\n")) << text;
    EXPECT_TRUE(Holds(text, "device 3   complete\n")) << text;
    EXPECT_TRUE(Holds(text, "  samplers cpu, llc\n")) << text;
    EXPECT_FALSE(Holds(text, "missing"));
}

TEST(ResultInfo, FilesAreSummedUpByWhatTheyHold) {
    const std::string text = InfoText(Whole());

    EXPECT_TRUE(Holds(text, "2 files      150 B")) << text;
    EXPECT_TRUE(Holds(text, "1 files     1.5 kB")) << text;
}

TEST(ResultInfo, WhatIsMissingMakesItIncompleteWhateverTheManifestSays) {
    ResultDirectory result = Whole();
    result.problems = {"data/x\x1b[1m is missing"};

    const std::string text = InfoText(result);

    EXPECT_FALSE(IsWhole(result));
    EXPECT_TRUE(Holds(text, "state      INCOMPLETE\n")) << text;
    EXPECT_TRUE(Holds(text, "  data/x\\x1b[1m is missing\n")) << text;
}

TEST(ResultInfo, RunningResultIsNotCalledComplete) {
    ResultDirectory result = Whole();
    result.state = "running";
    result.complete = false;

    EXPECT_TRUE(Holds(InfoText(result), "running, or left behind by a tool that died"));
    EXPECT_FALSE(nlohmann::json::parse(InfoJson(result))["complete"].get<bool>());
}

TEST(ResultInfo, JsonHoldsDevicesAndFiles) {
    const auto info = nlohmann::json::parse(InfoJson(Whole()));

    EXPECT_EQ(info["complete"], true);
    EXPECT_EQ(info["units"]["pageBytes"], 4096);
    EXPECT_EQ(info["devices"][0]["jobId"], "job-1");
    EXPECT_EQ(info["devices"][0]["files"].size(), 3u);
    EXPECT_EQ(info["devices"][0]["files"][0]["bytes"], 1500);
}

TEST(ResultInfo, JsonHoldsAllThatIsKnown) {
    ResultDirectory result = Whole();
    result.tool = "tivctl 1.0.0";
    result.stoppedEarly = true;
    result.ended = "2026-11-21T03:14:09.000Z";
    result.askedMs = 2000;
    result.clock = ClockPair{7, 5};
    result.problems = {"data/x is missing"};
    result.files.resize(1);

    EXPECT_EQ(InfoJson(result),
              R"({"path":"PROF_1","state":"complete","complete":false,)"
              R"("problems":["data/x is missing"],"tool":"tivctl 1.0.0","stoppedEarly":true,)"
              R"("units":{"pageBytes":4096,"ticksPerSecond":100},)"
              R"("started":"2026-11-21T03:14:07.123Z","ended":"2026-11-21T03:14:09.000Z",)"
              R"("askedMs":2000,"clock":{"wallNs":7,"rawNs":5},)"
              R"("devices":[{"device":3,"directory":"device_3","jobId":"job-1",)"
              R"("samplers":["cpu","llc"],"complete":true,"finishArrived":true,"failure":"",)"
              R"("files":[{"name":"data/llc.data","kind":"channel","bytes":1500}]}]})"
              "\n");
}

TEST(ResultInfo, JsonLeavesOutWhatIsNotKnown) {
    ResultDirectory result = Whole();
    result.started.clear();

    const auto info = nlohmann::json::parse(InfoJson(result));

    EXPECT_FALSE(info.contains("started") || info.contains("ended") || info.contains("clock") ||
                 info.contains("askedMs"));
}

}  // namespace
}  // namespace tiv::host
