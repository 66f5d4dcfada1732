// What a result directory is seen to hold.
#include "host/result/result_directory.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <set>

#include <nlohmann/json.hpp>

#include "support/scoped_limit.h"
#include "support/temp_dir.h"

using namespace tiv::host;
using nlohmann::json;

namespace {

json Device(int id) {
    return {{"device", id},
            {"directory", "device_" + std::to_string(id)},
            {"jobId", "job-" + std::to_string(id)},
            {"samplers", json::array({"cpu"})},
            {"complete", true},
            {"finishArrived", true},
            {"failure", ""},
            {"files", json::array({{{"name", "data/SystemCpuUsage.data"}, {"bytes", 3}}})},
            {"refusedNames", json::object()},
            {"sampleConfig", {{"job_id", "job"}}}};
}

class ResultDirectoryTest : public testing::Test {
 protected:
    ResultDirectoryTest() {
        (void)directory_.MakeDir("device_0/data");
        directory_.Write("device_0/data/SystemCpuUsage.data", "abc");
        manifest_ = {{"format", 1},
                     {"tool", "tivctl 1"},
                     {"state", "complete"},
                     {"complete", true},
                     {"stoppedEarly", false},
                     {"started", "2026-11-21T18:31:55.495Z"},
                     {"ended", "2026-11-21T18:32:02.505Z"},
                     {"askedMs", 5000},
                     {"units", {{"pageBytes", 16384}, {"ticksPerSecond", 250}}},
                     {"devices", json::array({Device(0)})}};
    }

    ResultDirectory Open() {
        directory_.Write("manifest.json", manifest_.dump());
        return OpenAsItIs();
    }
    ResultDirectory OpenAsItIs() {
        std::string error;
        auto result = OpenResult(directory_.Path(), error);
        EXPECT_EQ("", error);
        return result.value_or(ResultDirectory());
    }
    // The only problem that there is.
    std::string Problem() {
        const ResultDirectory result = Open();
        EXPECT_EQ(1u, result.problems.size());
        return result.problems.empty() ? "" : result.problems.back();
    }

    static std::unique_ptr<tiv::test::ScopedLimit> FreeDescriptors(rlim_t count) {
        const int next = dup(STDIN_FILENO);
        (void)close(next);
        return std::make_unique<tiv::test::ScopedLimit>(RLIMIT_NOFILE,
                                                        static_cast<rlim_t>(next) + count);
    }

    tiv::test::TempDir directory_;
    json manifest_;
};

}  // namespace

TEST_F(ResultDirectoryTest, CompleteResultHasItsFactsAndNoProblem) {
    const ResultDirectory result = Open();

    EXPECT_TRUE(result.problems.empty());
    EXPECT_TRUE(result.complete);
    EXPECT_EQ("complete", result.state);
    EXPECT_EQ("tivctl 1", result.tool);
    EXPECT_EQ("2026-11-21T18:31:55.495Z", result.started);
    EXPECT_EQ("2026-11-21T18:32:02.505Z", result.ended);
    EXPECT_EQ(5000u, result.askedMs);
    EXPECT_EQ(16384u, result.pageBytes);
    EXPECT_EQ(250u, result.ticksPerSecond);
    EXPECT_FALSE(result.clock.has_value());
    ASSERT_EQ(1u, result.devices.size());
    EXPECT_EQ("job-0", result.devices[0].jobId);
    EXPECT_EQ("{\"job_id\":\"job\"}", result.devices[0].sampleConfig);
    ASSERT_EQ(1u, result.files.size());
    EXPECT_EQ(FileKind::SYSTEM_CPU, result.files[0].kind);
    EXPECT_EQ(3u, result.files[0].bytes);
}

TEST_F(ResultDirectoryTest, PairOfClockReadingsIsTakenWhereItIs) {
    manifest_["clock"] = {{"wallNs", 1795285915495000000}, {"rawNs", 938854514675}};

    const ResultDirectory result = Open();

    ASSERT_TRUE(result.clock.has_value());
    EXPECT_EQ(1795285915495000000u, result.clock->wallNs);
    EXPECT_EQ(938854514675u, result.clock->rawNs);
}

TEST_F(ResultDirectoryTest, ReplaysAndCommandAreTakenWhereTheyAre) {
    manifest_["replays"] = json::array(
        {{{"replay", 0}, {"started", "a"}, {"ended", "b"}}, {{"replay", 1}, {"started", "c"}}, 7});
    manifest_["command"] = {{"words", {"sleep", "1"}}, {"exitStatus", 0}};

    const ResultDirectory result = Open();

    ASSERT_EQ(2u, result.replays.size());
    EXPECT_EQ("b", result.replays[0].ended);
    EXPECT_EQ("c", result.replays[1].started);
    EXPECT_EQ("", result.replays[1].ended);
    EXPECT_EQ("[\"sleep\",\"1\"]", result.command);
}

TEST_F(ResultDirectoryTest, WhatIsNoResultIsToldWithWhatToName) {
    const tiv::test::TempDir empty;
    std::string error;

    EXPECT_FALSE(OpenResult(empty.Path(), error).has_value());
    EXPECT_NE(std::string::npos, error.find("is no result"));
    EXPECT_FALSE(OpenResult(empty.Path("none"), error).has_value());
    EXPECT_NE(std::string::npos, error.find("No such file or directory"));
    EXPECT_FALSE(OpenResult(empty.Write("file", ""), error).has_value());
    EXPECT_NE(std::string::npos, error.find("Not a directory"));
}

TEST_F(ResultDirectoryTest, WithoutManifestTheFilesAreFoundAndTheStateIsUnknown) {
    const ResultDirectory result = OpenAsItIs();

    EXPECT_EQ("unknown", result.state);
    EXPECT_FALSE(result.complete);
    EXPECT_EQ(4096u, result.pageBytes);
    EXPECT_EQ(100u, result.ticksPerSecond);
    EXPECT_EQ(1u, result.files.size());
    EXPECT_EQ(0u, result.problems.at(0).find("manifest.json is missing"));
}

TEST_F(ResultDirectoryTest, ManifestThatCannotBeOpenedIsNotCalledMissing) {
    ASSERT_EQ(0, symlink("manifest.json", directory_.Path("manifest.json").c_str()));

    EXPECT_EQ(
        "manifest.json cannot be read: Too many levels of symbolic links: what was asked for is "
        "not known",
        OpenAsItIs().problems.at(0));
}

TEST_F(ResultDirectoryTest, DamagedManifestIsAProblemAndTheFilesAreFound) {
    for (const std::string& damaged :
         {std::string("{"), std::string("[]"), std::string("{\"tool\":\"\xff\"}"),
          std::string(1 << 20, '['), std::string(1, '\0'), manifest_.dump().substr(0, 200)}) {
        directory_.Write("manifest.json", damaged);
        const ResultDirectory result = OpenAsItIs();
        EXPECT_EQ("unknown", result.state);
        EXPECT_EQ(1u, result.files.size());
        EXPECT_EQ(0u, result.problems.at(0).find("manifest.json is damaged"));
    }
}

TEST_F(ResultDirectoryTest, ValuesOfAWrongTypeCountAsMissing) {
    for (const char* key : {"tool", "state", "complete", "askedMs", "units", "started", "devices",
                            "stoppedEarly", "clock", "ended", "replays", "command"}) {
        for (const json& value : {json(), json("x"), json(-5), json(1.5), json::array({1}),
                                  json{{"pageBytes", "x"}, {"wallNs", -1}}}) {
            manifest_[key] = value;
            (void)Open();
        }
    }
    EXPECT_EQ(4096u, Open().pageBytes);
    EXPECT_FALSE(Open().complete);
}

TEST_F(ResultDirectoryTest, PageSizeOfZeroIsNone) {
    manifest_["units"] = {{"pageBytes", 0}, {"ticksPerSecond", 0}};

    EXPECT_EQ(
        "manifest.json tells no page size or no tick rate: taken are 4096 bytes and 100 "
        "ticks per second",
        Problem());
}

TEST_F(ResultDirectoryTest, RunningStateIsAProblem) {
    manifest_["state"] = "running";
    manifest_["complete"] = false;
    manifest_["devices"][0]["complete"] = false;
    manifest_["devices"][0]["finishArrived"] = false;
    manifest_["devices"][0]["files"] = json::array();

    EXPECT_EQ("the collection was still running, or was killed, when the manifest was written",
              Problem());
}

TEST_F(ResultDirectoryTest, FailureOfADeviceIsToldOnceWithItsNumber) {
    manifest_["complete"] = false;
    manifest_["devices"][0]["complete"] = false;
    manifest_["devices"][0]["failure"] = "device 0: job stop refused: no";
    EXPECT_EQ("device 0: job stop refused: no", Problem());

    manifest_["devices"][0]["failure"] = "left early";
    EXPECT_EQ("device 0: left early", Problem());
}

TEST_F(ResultDirectoryTest, RefusedNamesAreProblems) {
    manifest_["devices"][0]["complete"] = false;
    manifest_["devices"][0]["refusedNames"] = {{"../x", 2}};

    EXPECT_EQ("device 0: refused file name \"../x\": 2 chunks lost", Problem());
}

TEST_F(ResultDirectoryTest, EndThatNeverArrivedIsAProblem) {
    manifest_["devices"][0]["finishArrived"] = false;

    EXPECT_EQ("device 0: the end of its data never arrived", Problem());
}

TEST_F(ResultDirectoryTest, DataThatIsNotCompleteIsAProblemWithoutAReasonToo) {
    manifest_["devices"][0]["complete"] = false;

    EXPECT_EQ("device 0: its data is not complete", Problem());
}

TEST_F(ResultDirectoryTest, ManifestBeyondAllMeasureIsNotRead) {
    std::filesystem::resize_file(directory_.Write("manifest.json", "{"), (64 << 20) + 1);

    const ResultDirectory result = OpenAsItIs();

    ASSERT_FALSE(result.problems.empty());
    EXPECT_EQ("manifest.json is not read: more than 67108864 bytes", result.problems.front());
    EXPECT_EQ(1u, result.files.size());
}

TEST_F(ResultDirectoryTest, FilesBeyondTheMostAreNotReadAndNotCalledMissing) {
    directory_.Write("device_0/data/Memory.data", "");
    (void)directory_.MakeDir("device_1");
    directory_.Write("device_1/more", "");
    manifest_["devices"][0]["files"].push_back({{"name", "data/Memory.data"}, {"bytes", 0}});
    manifest_["devices"][0]["samplers"] = {"cpu", "memory", "llc"};
    directory_.Write("manifest.json", manifest_.dump());
    std::string error;

    const auto result = OpenResult(directory_.Path(), error, 1);

    ASSERT_TRUE(result.has_value());
    EXPECT_EQ(1u, result->files.size());
    EXPECT_EQ((std::vector<std::string>{"manifest.json does not tell of device_1",
                                        "more than 1 files: the rest is not read"}),
              result->problems);
    EXPECT_EQ(1000000u, MAX_RESULT_FILES);
}

TEST_F(ResultDirectoryTest, AsManyFilesAsTheMostAreAllRead) {
    directory_.Write("manifest.json", manifest_.dump());
    std::string error;

    const auto result = OpenResult(directory_.Path(), error, 1);

    ASSERT_TRUE(result.has_value());
    EXPECT_TRUE(result->problems.empty()) << result->problems.front();
}

TEST_F(ResultDirectoryTest, IncompleteStateWithoutAReasonIsAProblemStill) {
    manifest_["complete"] = false;
    manifest_["state"] = "incomplete";

    EXPECT_EQ("manifest.json calls the result incomplete", Problem());
}

TEST_F(ResultDirectoryTest, FileOfAnotherSizeOrGoneIsAProblem) {
    directory_.Write("device_0/data/SystemCpuUsage.data", "ab");
    EXPECT_EQ("device_0/data/SystemCpuUsage.data: 2 bytes, the manifest tells of 3", Problem());

    manifest_["devices"][0]["samplers"] = json::array();
    unlink(directory_.Path("device_0/data/SystemCpuUsage.data").c_str());
    EXPECT_EQ("device_0/data/SystemCpuUsage.data: missing, 3 bytes", Problem());
}

TEST_F(ResultDirectoryTest, SamplerThatDeliveredNothingIsAProblem) {
    manifest_["devices"][0]["samplers"] = {"cpu", "llc", "some other"};

    EXPECT_EQ("device 0: nothing arrived from the sampler llc", Problem());
}

TEST_F(ResultDirectoryTest, DeviceDirectoryThatIsGoneIsAProblem) {
    manifest_["devices"].push_back(Device(7));
    manifest_["devices"][1]["samplers"] = json::array();
    manifest_["devices"][1]["files"] = json::array();

    EXPECT_EQ("device_7 is missing", Problem());
}

TEST_F(ResultDirectoryTest, FilesOfADirectoryThatCannotBeListedAreNotCalledMissing) {
    (void)directory_.MakeDir("device_0/data/deep");
    (void)directory_.MakeDir("device_1/data/deep");
    directory_.Write("device_1/SystemCpuUsage.data", "abc");
    manifest_["devices"].push_back(Device(1));
    directory_.Write("manifest.json", manifest_.dump());
    (void)OpenAsItIs();                     // a sanitizer's first look at a type takes a descriptor
    const auto limit = FreeDescriptors(2);  // for a device and its data, no deeper

    const ResultDirectory result = OpenAsItIs();

    EXPECT_EQ((std::vector<std::string>{"device_0 cannot be listed: Too many open files",
                                        "device_1 cannot be listed: Too many open files"}),
              result.problems);
}

TEST_F(ResultDirectoryTest, DeviceThatTheManifestDoesNotTellOfIsReadAndTold) {
    (void)directory_.MakeDir("device_3");
    directory_.Write("device_3/x", "1");

    EXPECT_EQ("manifest.json does not tell of device_3", Problem());
    EXPECT_EQ(2u, Open().files.size());
}

TEST_F(ResultDirectoryTest, DirectoryOutsideTheResultIsRefused) {
    for (const char* name : {"../x", "/etc", "", "a//b"}) {
        manifest_["devices"][0]["directory"] = name;
        const ResultDirectory result = Open();
        EXPECT_EQ("manifest.json tells of a device that is none", result.problems.at(0)) << name;
    }
}

TEST_F(ResultDirectoryTest, LinksPipesAndDeepDirectoriesAreNotFollowed) {
    directory_.Write("secret", "xyz");
    ASSERT_EQ(0, symlink("../../secret", directory_.Path("device_0/data/llc.data").c_str()));
    ASSERT_EQ(0, symlink("..", directory_.Path("device_0/loop").c_str()));
    ASSERT_EQ(0, mkfifo(directory_.Path("device_0/data/Memory.data").c_str(), 0600));
    (void)directory_.MakeDir("device_0/1/2/3/4/5/6/7");
    directory_.Write("device_0/1/2/3/4/5/6/7/x", "");

    const ResultDirectory result = Open();

    EXPECT_EQ(1u, result.files.size());
    EXPECT_EQ((std::set<std::string>{"device_0/data/Memory.data: no regular file, not read",
                                     "device_0/data/llc.data: no regular file, not read",
                                     "device_0/loop: no regular file, not read"}),
              std::set<std::string>(result.problems.begin(), result.problems.end()));
}

TEST_F(ResultDirectoryTest, FilesOfAProcessStandSideBySideInTheOrderOfTheNumbers) {
    for (const char* name : {"10-Memory.data", "10-CpuUsage.data", "9-Memory.data",
                             "9-CpuUsage.data", "Memory.data", "x.data"}) {
        directory_.Write(std::string("device_0/data/") + name, "1");
    }
    std::string names;
    for (const FileFacts& file : Open().files) {
        names += file.name.substr(5) + " ";
    }

    EXPECT_EQ(
        "SystemCpuUsage.data Memory.data 9-CpuUsage.data 9-Memory.data 10-CpuUsage.data "
        "10-Memory.data x.data ",
        names);
}

TEST(KindOfFile, IsToldByTheName) {
    uint32_t pid = 0;

    EXPECT_EQ(FileKind::PROCESS_CPU, KindOfFile("data/123-CpuUsage.data", pid));
    EXPECT_EQ(123u, pid);
    EXPECT_EQ(FileKind::PROCESS_MEMORY, KindOfFile("data/4294967295-Memory.data", pid));
    EXPECT_EQ(UINT32_MAX, pid);
    for (const char* name :
         {"data/4294967296-Memory.data", "data/-Memory.data", "data/x-Memory.data", "1-Memory.data",
          "data/1-Memory.data.x", "data/llc.data.0", ""}) {
        EXPECT_EQ(FileKind::OTHER, KindOfFile(name, pid)) << name;
    }
}
