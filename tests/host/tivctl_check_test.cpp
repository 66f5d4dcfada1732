// tivctl check: a job's plan and its refusals, as the program tells them.
#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

using nlohmann::json;

class TivctlCheck : public TivctlTest {
 protected:
    // The exit code of `tivctl check` with these words.
    int Check(std::vector<std::string> words) {
        words.insert(words.begin(), "check");
        tivctl_ = std::make_unique<TivctlRun>(directory_, words);
        return tivctl_->Wait();
    }
    json Plan(std::vector<std::string> words) {
        words.emplace_back("--json");
        EXPECT_EQ(0, Check(std::move(words))) << tivctl_->Errors();
        return json::parse(tivctl_->Output());
    }
    std::string JobFile(const std::string& text) const {
        return directory_.Write("job.json", text);
    }
};

TEST_F(TivctlCheck, PlanNamesJobsFilesAndWhatTheEstimateRestsOn) {
    ASSERT_EQ(0, Check({"--cpu", "--llc", "read", "--device", "2", "--duration", "5s"}));

    const std::string plan = tivctl_->Output();
    EXPECT_EQ(0u, plan.find("collects: 5.0s, a sample every 100ms\ndevice 2, files below "));
    EXPECT_NE(std::string::npos, plan.find("data/SystemCpuUsage.data\n"));
    EXPECT_NE(std::string::npos, plan.find("data/llc.data\n"));
    EXPECT_NE(std::string::npos, plan.find("rests on one reading of /proc on this machine, "));
    EXPECT_NE(std::string::npos, plan.find("without llc of device 2: its amount depends on"));
    EXPECT_EQ("", tivctl_->Errors());
}

TEST_F(TivctlCheck, CourseIsToldAsItWillBe) {
    const auto course = [this](const std::vector<std::string>& words) {
        EXPECT_EQ(0, Check(words));
        const std::string plan = tivctl_->Output();
        return plan.substr(0, plan.find(", a sample every"));
    };

    EXPECT_EQ("collects: until Ctrl-C", course({"--cpu"}));
    EXPECT_EQ("collects: 3 replays of 2.0s, one every 4.0s",
              course({"--cpu", "--duration", "2s", "--repeat", "3", "--every", "4s"}));
    EXPECT_EQ("collects: 2 replays of 2.0s, one every 2.0s",
              course({"--cpu", "--duration", "2s", "--repeat", "2"}));
    EXPECT_EQ("collects: for the life of the command prog", course({"--cpu", "--", "prog", "x"}));
}

TEST_F(TivctlCheck, NothingIsStarted) {
    Listen(0);

    ASSERT_EQ(0, Check({"--output", output_}));

    pollfd entry{listener_, POLLIN, 0};
    EXPECT_EQ(0, poll(&entry, 1, 0)) << "no connection waits";
    EXPECT_TRUE(std::filesystem::is_empty(output_));
}

TEST_F(TivctlCheck, PlanIsJsonForPrograms) {
    const json plan = Plan({"--device", "1", "--device", "4", "--memory", "--llc", "write",
                            "--duration", "2s", "--repeat", "3", "--every", "4s"});

    EXPECT_EQ(true, plan["good"]);
    EXPECT_EQ("time", plan["course"]["endsWith"]);
    EXPECT_EQ(4000, plan["course"]["everyMs"]);
    ASSERT_EQ(2u, plan["devices"].size());
    EXPECT_EQ(3u, plan["devices"][0]["jobs"].size());
    EXPECT_EQ(json::array({"data/Memory.data"}), plan["devices"][0]["jobs"][1]["files"]);
    ASSERT_EQ(1u, plan["devices"][1]["jobs"].size());
    EXPECT_EQ("llc", plan["devices"][1]["jobs"][0]["sampler"]);
    EXPECT_FALSE(plan["devices"][1]["jobs"][0].contains("bytesPerSecond"));
    EXPECT_EQ(2u, plan["estimate"]["unknown"].size());
    EXPECT_GT(plan["estimate"]["bytesPerSecond"], 0);
    EXPECT_EQ(plan["estimate"]["cpus"], sysconf(_SC_NPROCESSORS_ONLN));
}

TEST_F(TivctlCheck, RefusalsComeTogetherAndExit2) {
    EXPECT_EQ(2, Check({"--device", "64", "--interval", "5ms"}));

    EXPECT_EQ(
        "tivctl: --device 64 is out of range: devices are numbered 0 to 63\n"
        "tivctl: --interval 5ms is out of range: 100ms to 4294ms\n",
        tivctl_->Errors());
    EXPECT_EQ("", tivctl_->Output());
}

TEST_F(TivctlCheck, SettingNeedsANameInFrontOfItsValue) {
    EXPECT_EQ(2, Check({"--set", "=1"}));
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("\"=1\" is not NAME=VALUE"));
    EXPECT_EQ(2, Check({"--set", "a=1"}));
    EXPECT_EQ(0u, tivctl_->Errors().find("tivctl: --set a: the sample configuration has no field"));
}

TEST_F(TivctlCheck, RefusalsAreJsonForPrograms) {
    EXPECT_EQ(2, Check({"--json", "--set", "roceInterval=0"}));

    const json report = json::parse(tivctl_->Output());
    EXPECT_EQ(false, report["good"]);
    EXPECT_EQ("--set roceInterval", report["refusals"][0]["option"]);
    EXPECT_EQ("1 to 1296000000", report["refusals"][0]["allowed"]);
    EXPECT_EQ("", tivctl_->Errors());
}

TEST_F(TivctlCheck, LogLevelThatAsksForMoreShowsWhatTheLibrarySays) {
    setenv("TIV_LOG_LEVEL", "warning", 1);

    EXPECT_EQ(2, Check({"--set", "roceInterval=0"}));

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("invalid roceInterval interval: 0"));
    unsetenv("TIV_LOG_LEVEL");
}

TEST_F(TivctlCheck, QuietLeavesTheExitCode) {
    EXPECT_EQ(0, Check({"--quiet"}));
    EXPECT_EQ("", tivctl_->Output());
    EXPECT_EQ(2, Check({"--quiet", "--device", "64"}));
    EXPECT_NE("", tivctl_->Errors());
}

TEST_F(TivctlCheck, OptionsGoBeforeTheFile) {
    const std::string file = JobFile(
        R"({"devices": [3], "duration": "9s", "interval": "200ms", "samplers": ["processes"],
            "llc": "read", "pageSize": 65536, "sampleConfig": {"ddr_interval": 5}})");

    const json plan =
        Plan({file, "--device", "7", "--duration", "1s", "--cpu", "--set", "ddr_interval=6"});

    EXPECT_EQ(1000, plan["course"]["durationMs"]);
    EXPECT_EQ(200, plan["course"]["intervalMs"]);
    EXPECT_EQ(65536, plan["units"]["pageBytes"]);
    ASSERT_EQ(1u, plan["devices"].size());
    EXPECT_EQ(7, plan["devices"][0]["device"]);
    EXPECT_EQ(2u, plan["devices"][0]["jobs"].size());
    EXPECT_EQ("cpu", plan["devices"][0]["jobs"][0]["sampler"]);
    EXPECT_EQ(6, plan["devices"][0]["sampleConfig"]["ddr_interval"]);
}

TEST_F(TivctlCheck, EventsGoBeforeThoseOfTheFile) {
    const std::string file = JobFile(R"({"llc": "miss", "ctrlCpu": ["cycles"]})");

    EXPECT_EQ(0, Check({file, "--llc", "write", "--ctrl-cpu", "0x8"})) << tivctl_->Errors();

    EXPECT_EQ(2, Check({file}));
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("--llc miss is no event"));
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("--ctrl-cpu cycles is no event"));
}

TEST_F(TivctlCheck, CommandBehindTheDashesTakesThePlaceOfTheFilesCourse) {
    const std::string file = JobFile(R"({"duration": "9s", "repeat": 2, "every": "10s"})");

    const json plan = Plan({file, "--cpu"});
    EXPECT_EQ("time", plan["course"]["endsWith"]);
    ASSERT_EQ(0, Check({file, "--cpu", "--json", "--", "prog", "--device", "99"}));

    const json with = json::parse(tivctl_->Output());
    EXPECT_EQ("command", with["course"]["endsWith"]);
    EXPECT_EQ(json::array({"prog", "--device", "99"}), with["course"]["command"]);
    EXPECT_EQ(1, with["course"]["repeat"]);
}

TEST_F(TivctlCheck, DashesWithoutACommandAreRefused) {
    EXPECT_EQ(2, Check({"--cpu", "--"}));

    EXPECT_EQ("tivctl: no command stands behind --: name one, or leave -- out\n",
              tivctl_->Errors());
}

TEST_F(TivctlCheck, JobFileThatIsNoneIsToldWithItsPlace) {
    const std::string file = JobFile(R"({"interval": 100})");

    EXPECT_EQ(2, Check({file}));

    EXPECT_EQ("tivctl: job file " + file +
                  ": \"interval\" must be a time such as \"10s\", \"500ms\", \"5m\" or \"1h\"\n",
              tivctl_->Errors());
}

}  // namespace
}  // namespace tiv::test
