// The jobs that run the helper script, with a double in its place.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <future>

#include "e2e/control_cpu_fixture.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using host::DataSession;
using Texts = std::vector<std::string>;

constexpr const char* PROFILE = "data/ai_ctrl_cpu.data";
constexpr const char* RECORDS = "/var/log/npu/profiling/0/ai_ctrl_cpu.data.0";
constexpr const char* NOTES = "/var/double.d/";
constexpr const char* PATH_ENTRY = "/usr/bin:/usr/sbin:/var ";
constexpr const char* STAT_PATH_ENTRY = "/usr/bin/:/usr/sbin:/var ";
constexpr uint64_t NOISE = 1048576;
constexpr uint64_t SLICE = 262144;

class ControlCpu : public HelperScriptTest {
 protected:
    void SetUp() override {
        HelperScriptTest::SetUp();
        Place("tests/e2e/control_cpu_script.sh");
        fs::create_directory(NOTES);
    }
    // A recorder that finds its notes gone ends.
    void TearDown() override {
        fs::remove_all(NOTES);
        DaemonTest::TearDown();
    }

    static void Tell(const std::string& name, const std::string& content = "") {
        std::ofstream(NOTES + name) << content;
    }
    static void Forget(const std::string& name) { fs::remove(NOTES + name); }
    static std::string Note(const std::string& name) { return FileContent(NOTES + name); }
    static Texts Calls() {
        std::ifstream file(std::string(NOTES) + "calls");
        Texts calls;
        for (std::string line; std::getline(file, line);) {
            calls.push_back(line);
        }
        return calls;
    }
    static bool RecorderRuns() {
        for (const auto& entry : fs::directory_iterator(NOTES)) {
            if (entry.path().filename().string().rfind("recorder.", 0) == 0) {
                return true;
            }
        }
        return false;
    }
    static bool Recorded() { return fs::exists(std::string(RECORDS) + ".000002"); }
    static bool WaitForRecords() { return Eventually(Recorded); }
};

// The text that the double makes of its n-th file.
std::string Text(const std::string& number) {
    return "double 7 [000] 1.5: 1 r11: \n\tffff part " + number + " (double)\n\n";
}

std::string WholeText() { return Text("1") + Text("2") + Text("3"); }

std::string Call(const char* pathEntry, const std::string& arguments) {
    return pathEntry + arguments;
}

std::string Conversion(const std::string& number) {
    return Call(PATH_ENTRY, "--script " + std::string(RECORDS) + ".00000" + number);
}

bool IsIgnored(const std::string& processStatus, int signal) {
    const size_t at = processStatus.find("SigIgn:");
    const uint64_t ignored = std::stoull(processStatus.substr(at + 7), nullptr, 16);
    return (ignored & (1ULL << (signal - 1))) != 0;
}

}  // namespace

TEST_F(ControlCpu, RecordsArriveAsTextInTheirOrder) {
    StartDaemon();
    HostJob job(link_, 0, "in-order");

    ASSERT_TRUE(StartRecording(job, "in-order").Accepted());
    ASSERT_TRUE(Eventually([&] { return job.sink.Files()[PROFILE] == Text("1"); }));
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
    EXPECT_EQ(job.sink.Files(), (std::map<std::string, std::string>{{PROFILE, WholeText()}}));
    EXPECT_EQ(
        Calls(),
        (Texts{Call(PATH_ENTRY, "--record " + std::string(RECORDS) + " 0050 {r11,r2a}"),
               Conversion("1"), Call(PATH_ENTRY, "--kill"), Conversion("2"), Conversion("3")}));
    EXPECT_FALSE(fs::exists("/var/log/npu/profiling/0"));
}

TEST_F(ControlCpu, RecorderHasNothingOfTheDaemonButItsErrorOutput) {
    StartDaemon();
    HostJob job(link_, 0, "circumstances");
    const std::string daemon = "/proc/" + std::to_string(daemon_->Pid());
    ASSERT_TRUE(IsIgnored(FileContent(daemon + "/status"), SIGPIPE));

    ASSERT_TRUE(StartRecording(job, "circumstances").Accepted());
    ASSERT_TRUE(WaitForRecords());

    EXPECT_NE(Note("environment").find("PATH=/usr/bin:/usr/sbin:/var\n"), std::string::npos);
    EXPECT_EQ(Note("environment").find("TIV_"), std::string::npos) << Note("environment");
    EXPECT_EQ(Note("descriptors").find("socket:"), std::string::npos) << Note("descriptors");
    EXPECT_EQ(Note("descriptors").find(".ruvo.lock"), std::string::npos) << Note("descriptors");
    EXPECT_NE(Note("descriptors").find(" 0 -> /dev/null\n"), std::string::npos);
    EXPECT_NE(Note("descriptors").find(" 1 -> /var/log/npu/profiling/0/perf.log\n"),
              std::string::npos)
        << Note("descriptors");
    EXPECT_FALSE(IsIgnored(Note("status"), SIGPIPE));
    ASSERT_TRUE(job.Stop().Accepted());
}

TEST_F(ControlCpu, RecorderThatEndsAtOnceIsNoError) {
    Tell("exits", "3");
    StartTalkativeDaemon();
    HostJob job(link_, 0, "ends-at-once");

    ASSERT_TRUE(StartRecording(job, "ends-at-once").Accepted());
    ASSERT_TRUE(Eventually([&] { return Calls().size() == 1 && !RecorderRuns(); }));
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
    EXPECT_TRUE(job.sink.Files().empty());
    EXPECT_TRUE(daemon_->WaitForError("exited, exit code=3"));
}

TEST_F(ControlCpu, StopWaitsForARecorderThatIgnoresTheKillForAWhile) {
    Tell("deaf");
    StartTalkativeDaemon();
    HostJob job(link_, 0, "deaf");
    ASSERT_TRUE(StartRecording(job, "deaf").Accepted());
    ASSERT_TRUE(WaitForRecords());

    auto stop = std::async(std::launch::async, [&] { return job.Stop(); });
    EXPECT_TRUE(daemon_->WaitForError("Succeeded to kill process, ret=0, exitCode=0"));
    EXPECT_TRUE(RecorderRuns());
    Forget("deaf");

    EXPECT_TRUE(stop.get().Accepted());
    EXPECT_TRUE(daemon_->WaitForError("exited, exit code=7"));
    EXPECT_EQ(job.sink.Files()[PROFILE], WholeText());
}

TEST_F(ControlCpu, ChildrenThatWriteMoreThanAPipeHoldsHoldNothingUp) {
    Tell("loud");
    StartDaemon();
    HostJob job(link_, 0, "loud");

    ASSERT_TRUE(StartRecording(job, "loud").Accepted());
    ASSERT_TRUE(WaitForRecords());
    EXPECT_EQ(fs::file_size("/var/log/npu/profiling/0/perf.log"), NOISE);
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
    const std::string profile = job.sink.Files()[PROFILE];
    EXPECT_EQ(profile.size(), 3 * NOISE + WholeText().size());
    EXPECT_EQ(profile.substr(profile.size() - Text("3").size()), Text("3"));
    EXPECT_GE(daemon_->Errors().size(), 5 * NOISE);
}

TEST_F(ControlCpu, TextThatFillsItsBufferIsFollowedByAnEmptyChunk) {
    Tell("exact", std::to_string(SLICE));
    StartDaemon();
    HostJob job(link_, 0, "exact");

    ASSERT_TRUE(StartRecording(job, "exact").Accepted());
    ASSERT_TRUE(WaitForRecords());
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.sink.Files()[PROFILE], std::string(3 * SLICE, 'x'));
    EXPECT_EQ(job.data->Chunks(), 6u);
}

TEST_F(ControlCpu, HostThatGoesAwayEndsTheRecorder) {
    StartDaemon();
    {
        HostJob job(link_, 0, "gone");
        ASSERT_TRUE(StartRecording(job, "gone").Accepted());
        ASSERT_TRUE(WaitForRecords());
    }

    EXPECT_TRUE(Eventually([] { return !fs::exists("/var/log/npu/profiling/0"); }));
    EXPECT_FALSE(RecorderRuns());
}

TEST_F(ControlCpu, EveryReplayHasARecorderOfItsOwn) {
    StartDaemon();
    HostJob job(link_, 0, "replays");
    ASSERT_TRUE(StartRecording(job, "replays").Accepted());
    ASSERT_TRUE(WaitForRecords());

    ASSERT_TRUE(job.control->StopReplay().Accepted());
    ASSERT_TRUE(job.control->StartReplay({"0x11"}, {}).Accepted());
    ASSERT_TRUE(WaitForRecords());
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.sink.Files()[PROFILE], WholeText() + WholeText());
}

TEST_F(ControlCpu, SecondDeviceNeitherRecordsNorEndsTheFirstOnesRecorder) {
    ConfigureDriver(R"({"devices": 2})");
    StartDaemon(2);
    HostJob first(link_, 0, "first");
    ASSERT_TRUE(StartRecording(first, "first").Accepted());
    ASSERT_TRUE(WaitForRecords());

    {
        HostJob second(link_, 1, "second");
        EXPECT_EQ(StartRecording(second, "second").outcome, host::Reply::Outcome::REFUSED);
    }

    EXPECT_TRUE(RecorderRuns());
    ASSERT_TRUE(first.Stop().Accepted());
    EXPECT_EQ(first.sink.Files()[PROFILE], WholeText());
}

TEST_F(ControlCpu, MachineWithoutSudoRefusesTheJob) {
    fs::remove("/var/sudo");
    StartDaemon();
    HostJob job(link_, 0, "no-sudo");

    const host::Reply reply = StartRecording(job, "no-sudo");

    EXPECT_EQ(reply.outcome, host::Reply::Outcome::REFUSED);
    EXPECT_TRUE(daemon_->WaitForError("Failed to kill process perf, ret=-1"));
}

TEST_F(ControlCpu, MachineWithoutTheScriptCollectsNothing) {
    fs::remove("/var/prof_collect.sh");
    StartTalkativeDaemon();
    HostJob job(link_, 0, "no-script");

    ASSERT_TRUE(StartRecording(job, "no-script").Accepted());
    ASSERT_TRUE(job.Stop().Accepted());

    EXPECT_EQ(job.data->GetState(), DataSession::State::COMPLETE) << job.data->Failure();
    EXPECT_TRUE(job.sink.Files().empty());
    EXPECT_TRUE(daemon_->WaitForError("exited, exit code=127"));
}

TEST_F(ControlCpu, TivctlShowsSizeAndSamplesOfTheProfile) {
    StartDaemon();

    const std::string result =
        CollectUntil(Recorded, {"--ctrl-cpu", "0x11,0x3c", "--interval", "20ms"});

    EXPECT_EQ(FileContent(result + "/device_0/" + PROFILE), WholeText());
    const std::string bytes = std::to_string(WholeText().size());
    EXPECT_EQ(Row(PROFILE), (Texts{PROFILE, "1", "3", bytes, "B"})) << tivctl_->Output();
    EXPECT_EQ(Calls().front(),
              Call(PATH_ENTRY, "--record " + std::string(RECORDS) + " 0050 {r11,r3c}"));
}

// A platform of type 0 has no driver channel for the cache.
class ControlCpuCache : public ControlCpu {
 protected:
    void SetUp() override {
        ControlCpu::SetUp();
        ConfigureDriver(R"({"chip_id": 0, "devices": 2})");
    }

    static bool Counted() { return FileContent(STATISTIC).find('\n') != std::string::npos; }

    static constexpr const char* STATISTIC = "/var/log/npu/profiling/0/llc.data.0";
    static constexpr const char* COUNTS = "counted read\nlast line\n";
};

TEST_F(ControlCpuCache, StatisticOfTheScriptArrivesInPlaceOfTheChannel) {
    StartDaemon(2);

    const std::string result = CollectUntil(Counted, {"--llc", "read"});

    EXPECT_EQ(FileContent(result + "/device_0/data/llc.data"), COUNTS);
    EXPECT_EQ(Calls(),
              (Texts{Call(STAT_PATH_ENTRY, "--stat " + std::string(STATISTIC) + " read 20"),
                     Call(PATH_ENTRY, "--kill")}));
    EXPECT_EQ(Row("data/llc.data").size(), 5u) << tivctl_->Output();
}

TEST_F(ControlCpuCache, ChipThatCannotBeReadCountsAsOneWithoutTheChannel) {
    ConfigureDriver(R"({"chip_id": 5})");
    const std::string plan = "halGetDeviceInfo module=0 info=1 count=-1 result=1\n";
    daemon_ = std::make_unique<ChildProcess>(
        directory_.Path(), "daemon", Texts{TIV_WITH_FAULTS_PROGRAM},
        Environment{{"TIV_FAULT_PLAN", directory_.Write("plan", plan)}});
    ASSERT_TRUE(WaitForServer(0)) << daemon_->Errors();

    const std::string result = CollectUntil(Counted, {"--llc", "read"});

    EXPECT_EQ(FileContent(result + "/device_0/data/llc.data"), COUNTS);
    EXPECT_TRUE(daemon_->WaitForError("get device type version failed , ret:1"));
}

TEST_F(ControlCpuCache, StatisticThatEndsAtOnceLeavesAnEmptyFile) {
    Tell("exits", "1");
    StartDaemon(2);

    const std::string result =
        CollectUntil([] { return Calls().size() == 1 && !RecorderRuns(); }, {"--llc", "read"});

    EXPECT_EQ(fs::file_size(result + "/device_0/data/llc.data"), 0u);
}

TEST_F(ControlCpuCache, StopWaitsForAStatisticThatIgnoresTheKillForAWhile) {
    Tell("deaf");
    StartTalkativeDaemon(2);
    auto result = std::async(std::launch::async, [&] {
        return CollectUntil(Counted, {"--llc", "read"});
    });

    EXPECT_TRUE(daemon_->WaitForError("Succeeded to kill process, ret=0, exitCode=0"));
    EXPECT_TRUE(RecorderRuns());
    Forget("deaf");

    EXPECT_EQ(FileContent(result.get() + "/device_0/data/llc.data"), COUNTS);
    EXPECT_TRUE(daemon_->WaitForError("exited, exit code=7"));
}

TEST_F(ControlCpuCache, StatisticAndRecorderRunSideBySide) {
    StartDaemon(2);

    const std::string result = CollectUntil([] { return Counted() && Recorded(); },
                                            {"--llc", "write", "--ctrl-cpu", "0x11"});

    EXPECT_EQ(FileContent(result + "/device_0/data/llc.data"), "counted write\nlast line\n");
    EXPECT_EQ(FileContent(result + "/device_0/" + PROFILE), WholeText());
}

}  // namespace tiv::e2e
