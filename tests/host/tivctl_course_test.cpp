// The course of a collection: replays, and the life of a command.
#include "host/tivctl_bench.h"
#include "host/version.h"

namespace tiv::test {
namespace {

using nlohmann::json;
namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

// In the order of the alphabet.
Texts KeysOf(const json& object) {
    Texts keys;
    for (const auto& entry : object.items()) {
        keys.push_back(entry.key());
    }
    return keys;
}

class TivctlCourse : public TivctlTest {
 protected:
    // A program of /bin/sh's for the words behind "--".
    std::vector<std::string> With(const std::string& script) const {
        return {"--", "/bin/sh", "-c", script};
    }
    std::string CommandFile() const { return directory_.Path("ran"); }
};

TEST_F(TivctlCourse, ReplaysFollowEachOtherOnOneJob) {
    Listen(0);
    Collect({"--duration", "0s", "--repeat", "3"});
    Begin();
    for (int replay = 1; replay < 3; ++replay) {
        EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
        EXPECT_EQ("analysis.rokt.proto.ReplayStartReq", control_->ReadAndAnswer());
    }
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    const json replays = Manifest()["replays"];
    ASSERT_EQ(3u, replays.size());
    for (size_t i = 0; i < replays.size(); ++i) {
        EXPECT_EQ(i, replays[i]["replay"]);
        EXPECT_LE(replays[i]["started"], replays[i]["ended"]);
    }
    EXPECT_LE(replays[0]["ended"], replays[1]["started"]);
    EXPECT_EQ(0, Manifest()["askedMs"]);
}

TEST_F(TivctlCourse, RefusedReplayEndsTheJobIncomplete) {
    Listen(0);
    Collect({"--duration", "0s", "--repeat", "3"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.ReplayStartReq", control_->ReadAndAnswer(1, "no more"));
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    data_->Send(FinishMessage());
    control_->Send(AnswerMessage(0));

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ(1u, Manifest()["replays"].size());
    EXPECT_EQ("device 0: collection start refused: no more", Manifest()["devices"][0]["failure"]);
}

TEST_F(TivctlCourse, CtrlCBetweenTwoReplaysEndsTheJobWithoutAnother) {
    Listen(0);
    Collect({"--duration", "0s", "--repeat", "2", "--every", "1h"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    tivctl_->Interrupt();
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    data_->Send(FinishMessage());
    control_->Send(AnswerMessage(0));

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    EXPECT_EQ(true, Manifest()["stoppedEarly"]);
    EXPECT_EQ(1u, Manifest()["replays"].size());
    EXPECT_EQ(3600000, Manifest()["askedMs"]);
}

TEST_F(TivctlCourse, SessionThatEndsBetweenTwoReplaysIsIncomplete) {
    Listen(0);
    Collect({"--duration", "0s", "--repeat", "2", "--every", "1h"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    data_.reset();
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->ReadAndAnswer());

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ("incomplete", Manifest()["state"]);
}

TEST_F(TivctlCourse, JobLastsAsLongAsTheCommandAndTellsItsStatus) {
    Listen(0);
    Collect(With("touch " + CommandFile() + "; exit 7"));
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    EXPECT_TRUE(fs::exists(CommandFile()));
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("tivctl: /bin/sh: exit status 7\n"));
    EXPECT_EQ(7, Manifest()["command"]["exitStatus"]);
    EXPECT_EQ("/bin/sh", Manifest()["command"]["words"][0]);
    EXPECT_EQ(false, Manifest()["stoppedEarly"]);
    EXPECT_FALSE(Manifest().contains("askedMs"));
}

TEST_F(TivctlCourse, CommandStartsWhenTheDeviceCollects) {
    Listen(0);
    Collect(With("touch " + CommandFile()));
    control_ = Accept();
    control_->ReadAndAnswer();
    data_ = Accept();
    data_->ReadAndAnswer();
    EXPECT_EQ("analysis.rokt.proto.JobStartReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.ReplayStartReq", control_->Read());
    EXPECT_FALSE(fs::exists(CommandFile()));
    control_->Send(AnswerMessage(1, "no"));

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_FALSE(fs::exists(CommandFile())) << "a refused job runs no command";
}

TEST_F(TivctlCourse, CommandThatCannotBeStartedMeansThatNothingIsCollected) {
    Listen(0);
    Collect({"--", "/no/such/program"});
    Begin();

    EXPECT_EQ(2, tivctl_->Wait());

    EXPECT_EQ(
        "tivctl: cannot start /no/such/program: No such file or directory; check its name and "
        "PATH, and that it may be executed; nothing was collected\n",
        tivctl_->Errors());
    EXPECT_EQ("", control_->Read()) << "the session is closed";
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlCourse, CtrlCReachesTheCommandAndTheJobEndsWithIt) {
    Listen(0);
    Collect(With("trap 'exit 5' INT; touch " + CommandFile() + "; while :; do sleep 0.01; done"));
    Begin();
    for (int i = 0; i < 6000 && !fs::exists(CommandFile()); ++i) {
        (void)poll(nullptr, 0, 5);
    }
    tivctl_->Interrupt();
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    EXPECT_EQ(5, Manifest()["command"]["exitStatus"]);
    EXPECT_EQ(true, Manifest()["stoppedEarly"]);
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("the job ends when the command does"));
}

TEST_F(TivctlCourse, QuietTellsTheStatusOnlyOfACommandThatFailed) {
    Listen(0);
    Collect({"--quiet", "--", "true"});
    Begin();
    End();
    EXPECT_EQ(0, tivctl_->Wait());
    EXPECT_EQ("", tivctl_->Errors());

    Collect({"--quiet", "--", "false"});
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());
    EXPECT_EQ("tivctl: false: exit status 1\n", tivctl_->Errors());
}

TEST_F(TivctlCourse, CommandThatASignalEndsIsToldSo) {
    Listen(0);
    Collect(With("kill -KILL $$"));
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_EQ(9, Manifest()["command"]["signal"]);
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("/bin/sh: ended by signal 9 (Killed)\n"));
}

TEST_F(TivctlCourse, CommandGetsItsSignalsAsUsual) {
    Listen(0);
    Collect(With("grep SigIgn /proc/self/status >" + CommandFile()));
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait()) << tivctl_->Errors();

    const std::string ignored = directory_.Read("ran");
    const uint64_t mask = std::stoull(ignored.substr(ignored.find('\t') + 1), nullptr, 16);
    EXPECT_EQ(0u, mask & (1ULL << (SIGPIPE - 1))) << ignored;
}

TEST_F(TivctlCourse, SessionThatBreaksWhileTheCommandRunsKeepsWhatArrivedAndItsStatus) {
    Listen(0);
    Collect(With("while [ ! -e " + CommandFile() + " ]; do sleep 0.01; done; exit 3"));
    Begin();
    data_->Send(ChunkMessage("data/a", "one"));
    data_.reset();
    control_->ReadAndAnswer();
    control_->ReadAndAnswer();
    directory_.Write("ran", "");

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ(3, Manifest()["command"]["exitStatus"]);
    EXPECT_EQ(3, Manifest()["devices"][0]["bytes"]);
}

TEST_F(TivctlCourse, DeviceThatIsNoProcessOfThisMachineHasAClockOfItsOwn) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_FALSE(Manifest().contains("clock"));
    EXPECT_GT(Manifest()["hostClock"]["rawNs"], 0);
}

TEST_F(TivctlCourse, UnitsOfTheCardStandInTheManifest) {
    Listen(0);
    Collect({"--duration", "0s", "--page-size", "65536", "--tick-rate", "250"});
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_EQ((json{{"pageBytes", 65536}, {"ticksPerSecond", 250}}), Manifest()["units"]);
}

TEST_F(TivctlCourse, ManifestHoldsTheJobAndWhatCame) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    const json manifest = Manifest();
    EXPECT_EQ((Texts{"askedMs", "complete", "devices", "ended", "format", "hostClock", "replays",
                     "started", "state", "stoppedEarly", "tool", "units"}),
              KeysOf(manifest));
    EXPECT_EQ(1, manifest["format"]);
    EXPECT_EQ(std::string("tivctl ") + host::VERSION, manifest["tool"]);
    EXPECT_LE(manifest["started"], manifest["ended"]);
    const json device = manifest["devices"][0];
    EXPECT_EQ((Texts{"bytes", "chunks", "complete", "device", "directory", "failure", "files",
                     "finishArrived", "jobId", "refusedNames", "sampleConfig", "samplers"}),
              KeysOf(device));
    EXPECT_NE("", device["jobId"]);
    EXPECT_EQ(device["sampleConfig"]["job_id"], device["jobId"]);
    EXPECT_EQ(0, device["device"]);
    EXPECT_EQ("device_0", device["directory"]);
    EXPECT_EQ("", device["failure"]);
    EXPECT_EQ(true, device["finishArrived"]);
}

}  // namespace
}  // namespace tiv::test
