// What the daemon refuses, and with which words.
#include <gtest/gtest.h>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"

namespace tiv::e2e {

namespace {

constexpr size_t LARGEST_REQUEST = 3145728;
constexpr int ROOM_FOR_ALL = 16777216;
// More than three readings of /proc/stat and /proc/meminfo hold in any case.
constexpr uint64_t SEVERAL_SAMPLES = 20000;
// The answer to a handshake goes out before its session is on file: only then does it refuse
// others.
constexpr const char* FILED = "Ctrl session finished, devId:0";

class Refusals : public DaemonTest {
 protected:
    void Start(int devices = 1) { StartDaemon(devices, {{"TIV_LOG_LEVEL", "info"}}); }

    // The answer to `first` as the first message of a session, which the daemon has to close then.
    Answer RefusalOf(const google::protobuf::Message& first) {
        RawSession session(SocketPath(0));
        session.Send(first);
        const Answer answer = session.ReceiveAnswer();
        EXPECT_TRUE(session.WaitForClose());
        return answer;
    }

    void ExpectClosedWithoutReply(const std::string& packet) {
        RawSession session(SocketPath(0));
        session.SendBuffer(packet);
        EXPECT_FALSE(session.ReceiveValue().has_value());
        EXPECT_TRUE(session.WaitForClose());
    }

    // Sends a first request of several fragments. A first read that finds no data after a fragment
    // forgets that fragment: all of them have to lie there before the daemon looks.
    void SendWhileDaemonIsStopped(RawSession& session, const std::string& packet) {
        daemon_->Pause();
        EXPECT_TRUE(session.SendBuffer(packet));
        daemon_->Continue();
    }

    static bool Accepts(RawSession& session, const google::protobuf::Message& message) {
        return session.Send(message) && session.ReceiveAnswer().status == ACCEPTED;
    }

    bool Serves() {
        RawSession session(SocketPath(0));
        return Accepts(session, DataHandshake("serves"));
    }
};

const std::string SYSTEM = SampleConfig("job", {{"sys_profiling", "on"}});

}  // namespace

TEST_F(Refusals, ControlHandshakeOfHostDevice64HasAnEmptyInfo) {
    Start();

    const Answer answer = RefusalOf(ControlHandshake("job", 64));

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "");
    EXPECT_TRUE(daemon_->WaitForError("[HandleCtrlSession]hostId: 64 is not valid!"));
}

TEST_F(Refusals, ValueThatIsNoFrameIsAnswered) {
    Start();
    RawSession session(SocketPath(0));

    session.SendBuffer(Packet("garbage"));
    const Answer answer = session.ReceiveAnswer();

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "Failed to decode message");
    EXPECT_TRUE(session.WaitForClose());
}

TEST_F(Refusals, JobStartAsFirstMessageIsUnknown) {
    Start();

    const Answer answer = RefusalOf(JobStart("job", SYSTEM));

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "unknown message");
}

TEST_F(Refusals, SecondControlHandshakeWaitsForTheEndOfTheFirst) {
    Start();
    RawSession first(SocketPath(0));
    ASSERT_TRUE(Accepts(first, ControlHandshake("first")));
    ASSERT_TRUE(daemon_->WaitForError(FILED));

    const Answer second = RefusalOf(ControlHandshake("second"));
    first.Close();

    EXPECT_EQ(second.status, REFUSED);
    EXPECT_EQ(second.info, "");
    EXPECT_TRUE(daemon_->WaitForError(
        "Last profiling job first on device 0 has not exited, please try again later"));
    EXPECT_TRUE(Eventually([&] {
        RawSession session(SocketPath(0));
        return Accepts(session, ControlHandshake("third"));
    }));
}

TEST_F(Refusals, EmptyModeAndDefaultModeAreTheSame) {
    Start();
    RawSession first(SocketPath(0));
    ASSERT_TRUE(Accepts(first, ControlHandshake("first", 0, "")));
    ASSERT_TRUE(daemon_->WaitForError(FILED));

    EXPECT_EQ(RefusalOf(ControlHandshake("second", 0, "def_mode")).status, REFUSED);
}

TEST_F(Refusals, ControlHandshakeOfAnotherModeIsAccepted) {
    Start();
    RawSession first(SocketPath(0));
    ASSERT_TRUE(Accepts(first, ControlHandshake("first", 0, "")));

    RawSession second(SocketPath(0));
    EXPECT_TRUE(Accepts(second, ControlHandshake("second", 0, "other")));
}

TEST_F(Refusals, DataHandshakeOfAnUnknownModeHasAnEmptyInfo) {
    Start();

    const Answer answer = RefusalOf(DataHandshake("job", 0, "abc"));

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "");
    EXPECT_TRUE(daemon_->WaitForError("[HandleDataSession]profilingMode is invalid!"));
}

TEST_F(Refusals, DataHandshakeOfTheSystemWideModeIsAccepted) {
    Start();
    RawSession session(SocketPath(0));

    EXPECT_TRUE(Accepts(session, DataHandshake("job", 0, "system-wide")));
}

TEST_F(Refusals, DataHandshakeOfAnInvalidJobIdHasAnEmptyInfo) {
    Start();

    const Answer answer = RefusalOf(DataHandshake("job_1"));

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "");
    EXPECT_TRUE(daemon_->WaitForError("[HandleDataSession]jobID is invalid!"));
}

TEST_F(Refusals, EmptyRequestIsClosedWithoutReply) {
    Start();

    ExpectClosedWithoutReply(Packet(""));

    EXPECT_TRUE(daemon_->WaitForError("HDC request is invalid"));
    EXPECT_TRUE(Serves());
}

TEST_F(Refusals, RequestAbove3MiBIsClosedWithoutReply) {
    Start();
    RawSession session(SocketPath(0));
    if (!session.WidenSendBuffer(ROOM_FOR_ALL)) {
        GTEST_SKIP() << "only CAP_NET_ADMIN may widen a socket buffer to hold the whole request";
    }

    SendWhileDaemonIsStopped(session, Packet(std::string(LARGEST_REQUEST + 1, 'x')));

    EXPECT_FALSE(session.ReceiveValue().has_value());
    EXPECT_TRUE(daemon_->WaitForError("HDC request is invalid"));
    EXPECT_TRUE(Serves());
}

TEST_F(Refusals, RequestOf3MiBIsHandled) {
    Start();
    RawSession session(SocketPath(0));
    if (!session.WidenSendBuffer(ROOM_FOR_ALL)) {
        GTEST_SKIP() << "only CAP_NET_ADMIN may widen a socket buffer to hold the whole request";
    }

    SendWhileDaemonIsStopped(session, Packet(std::string(LARGEST_REQUEST, 'x')));

    EXPECT_EQ(session.ReceiveAnswer().info, "Failed to decode message");
}

TEST_F(Refusals, RequestTypesOfNobodyAreClosedWithoutReply) {
    Start();

    ExpectClosedWithoutReply(Packet(Frame(ControlHandshake("job")), 17));
    EXPECT_TRUE(
        daemon_->WaitForError("req->type: 17, Invalid request or no hdc process func register"));
    ExpectClosedWithoutReply(Packet(Frame(ControlHandshake("job")), 18));
    EXPECT_TRUE(
        daemon_->WaitForError("req->type: 18, Invalid request or no hdc process func register"));
    ExpectClosedWithoutReply(Packet(Frame(ControlHandshake("job")), 99));
    EXPECT_TRUE(
        daemon_->WaitForError("req->type: 99, Invalid request or no hdc process func register"));

    EXPECT_TRUE(daemon_->WaitForError("req->type: 99, call default process func failed, err: -1"));
    EXPECT_TRUE(Serves());
}

TEST_F(Refusals, JobWithAllSwitchesOffFinishesItsDataSessionBeforeTheAnswer) {
    Start();
    RawSession control(SocketPath(0));
    RawSession data(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(Accepts(data, DataHandshake("job")));
    ASSERT_TRUE(Accepts(control, JobStart("job", SampleConfig("job", {}))));

    control.Send(ReplayStart("job"));
    const Answer answer = control.ReceiveAnswer();

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "start failed");
    EXPECT_TRUE(data.HasUnread());
    const auto finish = data.ReceiveMessage();
    ASSERT_NE(finish, nullptr);
    EXPECT_EQ(finish->GetTypeName(), "analysis.rokt.proto.DataChannelFinish");
    EXPECT_FALSE(data.ReceiveValue().has_value());
    EXPECT_TRUE(data.WaitForClose());
    EXPECT_TRUE(daemon_->WaitForError("CollectionJobRegisterAndRun failed, fail_cnt:6"));
    control.Send(JobStop("job"));
    EXPECT_EQ(control.ReceiveAnswer().info, "Profiling is not started on device");
}

TEST_F(Refusals, SampleConfigurationThatIsNoJson) {
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    control.Send(JobStart("job", "{]"));
    const Answer answer = control.ReceiveAnswer();

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "invalid sample configuration");
    control.Send(JobStart("job", SYSTEM));
    EXPECT_EQ(control.ReceiveAnswer().info, "Create task failed.");
    control.Send(JobStop("job"));
    EXPECT_EQ(control.ReceiveAnswer().info, "Profiling is not started on device");
    EXPECT_TRUE(Accepts(control, JobStart("job", SYSTEM)));
}

TEST_F(Refusals, InvalidCpuEvent) {
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(Accepts(control, JobStart("job", SYSTEM)));
    auto start = ReplayStart("job");
    start.add_ctrl_cpu_events("11");

    control.Send(start);

    EXPECT_EQ(control.ReceiveAnswer().info, "[CollectStart] pmu event is not valid.");
}

TEST_F(Refusals, SecondJobStartOnDevice0IsAnswered) {
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(Accepts(control, JobStart("job", SYSTEM)));

    control.Send(JobStart("job", SYSTEM));
    const Answer second = control.ReceiveAnswer();

    EXPECT_EQ(second.status, REFUSED);
    EXPECT_EQ(second.info, "Create task failed.");
    EXPECT_TRUE(Accepts(control, JobStop("job")));
}

TEST_F(Refusals, SecondJobStartOnDevice1HasNoReply) {
    ConfigureDriver(R"({"devices": 2})");
    Start(2);
    RawSession control(SocketPath(1));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job", 1)));
    ASSERT_TRUE(Accepts(control, JobStart("job", SYSTEM, "1")));

    control.Send(JobStart("job", SYSTEM, "1"));

    // Requests are handled in their order: the next answer is that of the stop.
    EXPECT_TRUE(Accepts(control, JobStop("job", "1")));
    EXPECT_TRUE(daemon_->WaitForError("Can't find jobId job, devIndexId: 0 receiver"));
}

// Out of their order, a start would find its job there and a stop would find none.
TEST_F(Refusals, RequestsInFlightAreHandledInTheirOrder) {
    constexpr int ROUNDS = 20;
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    for (int round = 0; round < ROUNDS; ++round) {
        ASSERT_TRUE(control.Send(JobStart("job", SYSTEM)));
        ASSERT_TRUE(control.Send(ReplayStop("job")));
        ASSERT_TRUE(control.Send(JobStop("job")));
    }

    for (int answer = 0; answer < 3 * ROUNDS; ++answer) {
        EXPECT_EQ(control.ReceiveAnswer().status, ACCEPTED) << answer;
    }
    EXPECT_FALSE(control.HasUnread());
}

TEST_F(Refusals, ReplayStartBeforeJobStartHasNoReply) {
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    control.Send(ReplayStart("job"));

    EXPECT_TRUE(Accepts(control, JobStart("job", SYSTEM)));
    EXPECT_TRUE(daemon_->WaitForError("Get Task Failed"));
}

TEST_F(Refusals, JobContextThatCannotBeReadHasNoReply) {
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    proto::JobStartReq empty;
    proto::JobStartReq cut;
    cut.mutable_hdr()->set_job_ctx("{\"dev_id\":");

    control.Send(empty);
    control.Send(cut);

    EXPECT_TRUE(Accepts(control, JobStart("job", SYSTEM)));
    EXPECT_TRUE(daemon_->WaitForError("Failed to parse jobctx json ."));
    EXPECT_TRUE(daemon_->WaitForError("Failed to parse jobctx json {\"dev_id\":."));
}

TEST_F(Refusals, JobContextOfAnInvalidDeviceHasNoReply) {
    Start();
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    control.Send(JobStart("job", SYSTEM, "64"));

    EXPECT_TRUE(Accepts(control, JobStart("job", SYSTEM)));
    EXPECT_TRUE(
        daemon_->WaitForError("[JobStartHandler::OnNewMessage]jobCtx.dev_id:64 is not valid!"));
}

TEST_F(Refusals, AnswerOfTheDataHandshakeComesBeforeTheFirstChunk) {
    Start();
    RawSession control(SocketPath(0));
    RawSession data(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(data.Send(DataHandshake("job")));
    // Job and data race with the reading of the answer, which the data may not overtake.
    ASSERT_TRUE(daemon_->WaitForError("Reply data handshake"));
    ASSERT_TRUE(Accepts(control, JobStart("job", SYSTEM)));
    ASSERT_TRUE(Accepts(control, ReplayStart("job")));
    ASSERT_TRUE(daemon_->WaitForReads(SEVERAL_SAMPLES));
    ASSERT_TRUE(Accepts(control, ReplayStop("job")));

    EXPECT_EQ(data.ReceiveAnswer().status, ACCEPTED);
    const auto chunk = data.ReceiveMessage();
    ASSERT_NE(chunk, nullptr);
    EXPECT_EQ(chunk->GetTypeName(), "analysis.rokt.proto.FileChunkReq");
}

}  // namespace tiv::e2e
