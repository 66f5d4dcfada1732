// tivctl's jobs on the real daemon: replays, commands, job files.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "e2e/daemon_test.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using nlohmann::json;

class TivctlJob : public DaemonTest {
 protected:
    // `tivctl collect` into a directory of its own; expects exit code 0 and gives the manifest.
    json Collect(std::vector<std::string> words) {
        const std::string output = directory_.MakeDir("results");
        words.insert(words.begin(), {"collect", "--output", output});
        const auto tivctl = Tivctl(std::move(words));
        EXPECT_EQ(tivctl->Wait(), 0) << tivctl->Errors() << daemon_->Errors();
        for (const auto& entry : fs::directory_iterator(output)) {
            result_ = entry.path().string();
        }
        return json::parse(FileContent(result_ + "/manifest.json"));
    }

    std::string result_;
};

// The list of the run that wrote last: all runs of a test write into one file.
json LastDevices(const std::string& output) {
    const size_t start = output.rfind("\n{");
    return json::parse(output.substr(start == std::string::npos ? 0 : start))["devices"];
}

}  // namespace

TEST_F(TivctlJob, ReplaysOfOneJobAreCompleteAndTold) {
    StartDaemon();

    const json manifest =
        Collect({"--cpu", "--duration", "300ms", "--repeat", "3", "--every", "400ms"});

    EXPECT_EQ(manifest["state"], "complete");
    ASSERT_EQ(manifest["replays"].size(), 3u);
    EXPECT_EQ(manifest["askedMs"], 1100);
    const std::string samples = FileContent(result_ + "/device_0/data/SystemCpuUsage.data");
    size_t firsts = 0;
    for (size_t at = 0; (at = samples.find("\nIndex:0\n", at)) != std::string::npos; ++at) {
        ++firsts;
    }
    EXPECT_EQ(firsts, 3u) << "each replay numbers its samples from 0";
}

TEST_F(TivctlJob, ClocksOfOneMachineAreToldWithTheTimesOfTheChunks) {
    StartDaemon();

    const json manifest = Collect({"--memory", "--duration", "300ms"});

    ASSERT_TRUE(manifest.contains("clock"));
    EXPECT_EQ(manifest["clock"], manifest["hostClock"]);
    const uint64_t began = manifest["clock"]["rawNs"];
    const std::string samples = FileContent(result_ + "/device_0/data/Memory.data");
    const uint64_t sampled = std::stoull(samples.substr(samples.find(':') + 1));
    const std::string times = FileContent(result_ + "/device_0.chunks.csv");
    const uint64_t received = std::stoull(times.substr(times.find('\n') + 1));
    EXPECT_LT(sampled, received);
    EXPECT_LT(began, received);
    EXPECT_NE(times.find(",data/Memory.data\n"), std::string::npos);
}

TEST_F(TivctlJob, CommandsLifeIsTheCollections) {
    StartDaemon();

    const json manifest = Collect({"--processes", "--", "/bin/sh", "-c", "sleep 0.5; exit 4"});

    EXPECT_EQ(manifest["state"], "complete");
    EXPECT_EQ(manifest["command"]["exitStatus"], 4);
    EXPECT_FALSE(fs::is_empty(result_ + "/device_0/data"));
}

TEST_F(TivctlJob, CommandThatDoesNotExistLeavesTheDaemonFree) {
    StartDaemon();
    const std::string output = directory_.MakeDir("results");
    {
        const auto tivctl = Tivctl({"collect", "--output", output, "--", "/no/such/program"});
        EXPECT_EQ(tivctl->Wait(), 2) << tivctl->Errors();
    }
    EXPECT_TRUE(fs::is_empty(output));

    EXPECT_TRUE(Eventually([&] {
        const auto next = Tivctl({"collect", "--output", output, "--duration", "0s"});
        return next->Wait() == 0;
    }));
}

TEST_F(TivctlJob, FilesOfThePlanAreThoseThatCome) {
    StartDaemon();
    const std::string file = directory_.Write(
        "job.json", R"({"samplers": ["cpu", "memory"], "duration": "300ms", "interval": "100ms"})");
    const auto check = Tivctl({"check", file, "--json"});
    ASSERT_EQ(check->Wait(), 0) << check->Errors();
    json planned = json::array();
    const json plan = json::parse(check->Output());
    for (const json& job : plan["devices"][0]["jobs"]) {
        for (const json& name : job["files"]) {
            planned.push_back(name);
        }
    }

    const json manifest = Collect({file});

    json came = json::array();
    for (const json& arrived : manifest["devices"][0]["files"]) {
        came.push_back(arrived["name"]);
    }
    std::sort(came.begin(), came.end());
    std::sort(planned.begin(), planned.end());
    EXPECT_EQ(came, planned);
}

TEST_F(TivctlJob, ProbeTellsBusyFromFreeAndGivesTheDeviceBack) {
    ConfigureDriver(R"({"devices": 2})");
    StartDaemon(2);
    HostJob job(link_, 1, "holder");
    ASSERT_TRUE(job.Start(SampleConfig("holder", {{"sys_profiling", "on"}})).Accepted());

    const auto devices = Tivctl({"devices", "--probe", "--json"});

    ASSERT_EQ(devices->Wait(), 0) << devices->Errors();
    const json list = LastDevices(devices->Output());
    EXPECT_EQ(list[0]["state"], "free");
    EXPECT_EQ(list[1]["state"], "busy");
    EXPECT_TRUE(job.Stop().Accepted()) << "the job that runs is left alone";
    EXPECT_TRUE(Eventually([&] {
        const auto again = Tivctl({"devices", "--probe", "--json"});
        return again->Wait() == 0 && LastDevices(again->Output())[0]["state"] == "free";
    }));
}

}  // namespace tiv::e2e
