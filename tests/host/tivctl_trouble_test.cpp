// Collections that meet trouble on the way: steps that a device refuses, places that don't fit.
#include <utility>

#include "common/utils.h"
#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

using analysis::rokt::common::utils::Utils;
using nlohmann::json;
namespace fs = std::filesystem;

constexpr size_t MOST_PATH_BYTES = 4095;

class TivctlTrouble : public TivctlTest {
 protected:
    // The output directory becomes one in which the path of a result leaves `rest` bytes.
    void LeaveRoomInAResult(size_t rest) {
        const size_t result = Utils::CreateResultPath(0, "00000000").size();
        const size_t wanted = MOST_PATH_BYTES - rest - result - 1;
        while (output_.size() < wanted) {
            const size_t part = std::min<size_t>(wanted - output_.size(), 201);
            output_ += part < 2 ? "x" : "/" + std::string(part - 1, 'x');
        }
    }
    std::string CommandFile() const { return directory_.Path("ran"); }
};

TEST_F(TivctlTrouble, RefusedStopLeavesTheDeviceIncompleteAndUnasked) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer(1, "not now"));
    EXPECT_TRUE(control_->IsClosed()) << "a device that stops no replay is asked nothing more";

    EXPECT_EQ(4, tivctl_->Wait());

    const std::string errors = tivctl_->Errors();
    EXPECT_NE(std::string::npos, errors.find("refused: not now")) << errors;
    EXPECT_EQ(errors.find("device 0: "), errors.rfind("device 0: ")) << "one reason: " << errors;
    const std::string failure = Manifest()["devices"][0]["failure"];
    EXPECT_NE(std::string::npos, failure.find("refused: not now")) << failure;
    EXPECT_EQ(false, Manifest()["complete"]);
}

TEST_F(TivctlTrouble, RefusedStopOfOneOfManyReplaysEndsTheJob) {
    Listen(0);
    Collect({"--duration", "0s", "--repeat", "3"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer(1, "not now"));
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    data_->Send(FinishMessage());
    control_->Send(AnswerMessage(0));

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ(1u, Manifest()["replays"].size());
    const std::string failure = Manifest()["devices"][0]["failure"];
    EXPECT_NE(std::string::npos, failure.find("refused: not now")) << failure;
}

TEST_F(TivctlTrouble, DeviceThatIsGoneForTheStopIsToldSo) {
    Listen(0);
    Collect({"--duration", "0s", "--repeat", "2", "--every", "1h"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    control_.reset();

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_NE(std::string::npos,
              tivctl_->Errors().find("tivctl: device 0: the job stop could not be sent\n"));
    EXPECT_EQ("incomplete", Manifest()["state"]);
}

TEST_F(TivctlTrouble, DaemonThatEndsBetweenTheSessionsIsNotReached) {
    Listen(0);
    Collect({});
    control_ = Accept();
    EXPECT_EQ("analysis.rokt.proto.CtrlChannelHandshake", control_->Read());
    fs::remove(directory_.Path("run/hdc_0_4.sock"));
    control_->Send(AnswerMessage(0));

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("tivctl: cannot reach device 0: "));
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTrouble, DataSessionThatIsClosedUnansweredIsToldAndLeavesNoResult) {
    Listen(0);
    Collect({});
    control_ = Accept();
    EXPECT_EQ("analysis.rokt.proto.CtrlChannelHandshake", control_->ReadAndAnswer());
    data_ = Accept();
    EXPECT_EQ("analysis.rokt.proto.DataChannelHandshake", data_->Read());
    data_.reset();

    EXPECT_EQ(3, tivctl_->Wait());

    EXPECT_EQ(0u, tivctl_->Errors().find("tivctl: device 0: the data session ended before "));
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTrouble, CtrlCReachesACommandThatOutlivesTheCollection) {
    Listen(0);
    Collect({"--", "/bin/sh", "-c",
             "trap 'exit 5' INT; touch " + CommandFile() + "; while :; do sleep 0.01; done"});
    Begin();
    for (int i = 0; i < 6000 && !fs::exists(CommandFile()); ++i) {
        (void)poll(nullptr, 0, 5);
    }
    data_.reset();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->ReadAndAnswer());
    ASSERT_TRUE(tivctl_->WaitForError("the data session ended before"));  // the drain is over
    tivctl_->Interrupt();

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ(5, Manifest()["command"]["exitStatus"]);
    EXPECT_EQ(true, Manifest()["stoppedEarly"]);
}

TEST_F(TivctlTrouble, StatusOfTheCommandIsToldToWhoIgnoresItsChildren) {
    Listen(0);
    (void)signal(SIGCHLD, SIG_IGN);
    Collect({"--", "/bin/sh", "-c", "exit 7"});
    (void)signal(SIGCHLD, SIG_DFL);
    Begin();
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("/bin/sh: exit status 7\n"));
    EXPECT_EQ(7, Manifest()["command"]["exitStatus"]);
}

TEST_F(TivctlTrouble, OnlyTheDeviceWhoseSessionEndsIsToldSo) {
    Listen(1);
    const int second = listener_;
    Listen(0);
    Collect({"--device", "0", "--device", "1", "--llc", "read", "--duration", "1h"});
    Begin();
    const auto control = std::move(control_);
    const auto data = std::move(data_);
    close(std::exchange(listener_, second));
    Begin();
    data_.reset();
    for (ScriptedSession* session : {control.get(), control_.get()}) {
        EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", session->ReadAndAnswer());
        EXPECT_EQ("analysis.rokt.proto.JobStopReq", session->ReadAndAnswer());
    }
    data->Send(FinishMessage());

    EXPECT_EQ(4, tivctl_->Wait());

    const std::string errors = tivctl_->Errors();
    EXPECT_NE(std::string::npos, errors.find("device 1: a session ended in the middle")) << errors;
    EXPECT_EQ(std::string::npos, errors.find("device 0: ")) << errors;
    EXPECT_EQ(true, Manifest()["devices"][0]["complete"]);
}

TEST_F(TivctlTrouble, CollectionWithoutRoomForAThreadIsNotBegun) {
    Listen(0);
    const HugeStacks stacks;
    Collect({});

    EXPECT_EQ(1, tivctl_->Wait());

    EXPECT_EQ(
        "tivctl: cannot go on: Resource temporarily unavailable; raise the limits of memory and "
        "threads, or name fewer devices\n",
        tivctl_->Errors());
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTrouble, ManifestThatCannotBeWrittenAtTheEndExits1) {
    Listen(0);
    Collect({"--duration", "0s"});
    Begin();
    EXPECT_EQ("analysis.rokt.proto.ReplayStopReq", control_->ReadAndAnswer());
    fs::remove_all(Result());
    EXPECT_EQ("analysis.rokt.proto.JobStopReq", control_->Read());
    data_->Send(FinishMessage());
    control_->Send(AnswerMessage(0));

    EXPECT_EQ(1, tivctl_->Wait());

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("/manifest.json: No such file or directory"
                                                        "; make room there, or choose another"));
}

TEST_F(TivctlTrouble, ResultWithoutRoomForADeviceIsNotBegun) {
    LeaveRoomInAResult(sizeof("/device") - 1);
    Collect({});

    EXPECT_EQ(1, tivctl_->Wait());

    EXPECT_NE(std::string::npos,
              tivctl_->Errors().find("/device_0: File name too long; choose another directory "
                                     "with --output\n"));
    EXPECT_TRUE(fs::is_empty(output_));
}

TEST_F(TivctlTrouble, ResultWithoutRoomForItsManifestIsNotBegun) {
    LeaveRoomInAResult(sizeof("/device_0") - 1);
    Collect({});

    EXPECT_EQ(1, tivctl_->Wait());

    const std::string errors = tivctl_->Errors();
    EXPECT_NE(std::string::npos, errors.find("/manifest.json: File name too long; make room there"))
        << errors;
    EXPECT_TRUE(fs::is_empty(output_));
}

}  // namespace
}  // namespace tiv::test
