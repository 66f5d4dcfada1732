// Bytes that no sound host tool sends: the daemon ends the session or answers, and serves on.
#include <gtest/gtest.h>

#include "e2e/daemon_test.h"
#include "e2e/host_messages.h"
#include "e2e/raw_session.h"

namespace tiv::e2e {

namespace {

constexpr size_t ONE_MIB = 1048576;

// One byte more than a segment, as the stream writes it.
const std::string OVERSIZED_LENGTH("\x01\x00\x08\x00", 4);
const std::string HALF_LENGTH("\x64\x00", 2);
const std::string LENGTH_100("\x64\x00\x00\x00", 4);

const std::string LOST = "devIdOnHost(0) Failed to recv packet from host";

FragmentHeader Header(uint32_t len, uint32_t magic = 176, char isLast = 1) {
    return {len, magic, isLast};
}

class HostileBytes : public DaemonTest {
 protected:
    void SetUp() override {
        DaemonTest::SetUp();
        StartDaemon(1, {{"TIV_LOG_LEVEL", "info"}});
    }

    static bool Accepts(RawSession& session, const google::protobuf::Message& message) {
        return session.Send(message) && session.ReceiveAnswer().status == ACCEPTED;
    }

    // A control session is accepted as soon as the one before has ended.
    void ExpectServesOn() {
        EXPECT_TRUE(Eventually([&] {
            RawSession session(SocketPath(0));
            return Accepts(session, ControlHandshake("next"));
        })) << daemon_->Errors();
        EXPECT_FALSE(daemon_->Wait(std::chrono::milliseconds(0)).has_value());
    }

    // As the first message of a session, which is closed at once, and within a control session that
    // was accepted: that one is given up and closes when the next takes its place.
    void ExpectClosedBy(const std::string& driverMessage) {
        RawSession first(SocketPath(0));
        first.SendDriverMessage(driverMessage);
        EXPECT_TRUE(first.WaitForClose());
        RawSession control(SocketPath(0));
        EXPECT_TRUE(Accepts(control, ControlHandshake("job")));
        control.SendDriverMessage(driverMessage);
        EXPECT_TRUE(daemon_->WaitForError(LOST));
        ExpectServesOn();
        EXPECT_TRUE(control.WaitForClose());
    }

    // Bytes that are not a whole message, and then the end.
    void ExpectEndedBy(const std::string& bytes) {
        {
            RawSession first(SocketPath(0));
            first.SendBytes(bytes);
            RawSession control(SocketPath(0));
            EXPECT_TRUE(Accepts(control, ControlHandshake("job")));
            control.SendBytes(bytes);
        }
        EXPECT_TRUE(daemon_->WaitForError("Ide Hdc Read Request failed, err: 1"));
        EXPECT_TRUE(daemon_->WaitForError(LOST));
        ExpectServesOn();
    }
};

}  // namespace

TEST_F(HostileBytes, LengthAboveTheSegmentClosesTheSession) {
    RawSession first(SocketPath(0));
    first.SendBytes(OVERSIZED_LENGTH);
    EXPECT_TRUE(first.WaitForClose());
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    control.SendBytes(OVERSIZED_LENGTH);

    EXPECT_TRUE(control.WaitForClose());
    EXPECT_TRUE(daemon_->WaitForError("declared a message of 524289 bytes, segment is 524288"));
    ExpectServesOn();
}

TEST_F(HostileBytes, WrongMagicClosesTheSession) {
    ExpectClosedBy(Fragment(Header(4, 177), "abcd"));

    EXPECT_TRUE(daemon_->WaitForError("[HdcSessionRead]Hdc receive package, error"));
}

TEST_F(HostileBytes, LengthBeyondTheFragmentClosesTheSession) {
    ExpectClosedBy(Fragment(Header(0x7fffffff), "abcd"));

    EXPECT_TRUE(daemon_->WaitForError("[HdcSessionRead]Hdc receive package, error"));
}

TEST_F(HostileBytes, LengthOfAllOnesClosesTheSession) {
    ExpectClosedBy(Fragment(Header(0xffffffff), "abcd"));

    EXPECT_TRUE(daemon_->WaitForError("[HdcSessionRead]Hdc receive package, error"));
}

TEST_F(HostileBytes, FragmentShorterThanItsHeaderClosesTheSession) {
    ExpectClosedBy("12345678");

    EXPECT_TRUE(daemon_->WaitForError("Hdc store package, error"));
}

TEST_F(HostileBytes, EmptyLastFragmentClosesTheSession) { ExpectClosedBy(Fragment(Header(0), "")); }

TEST_F(HostileBytes, PacketOf11BytesClosesTheSession) {
    ExpectClosedBy(Fragment(Header(11), std::string(11, '\x05')));
}

TEST_F(HostileBytes, MissingLastFragmentEndsWithTheSession) {
    const std::string open = Fragment(Header(4, 176, 0), "abcd");
    const std::string length(1, static_cast<char>(open.size()));

    ExpectEndedBy(length + std::string(3, '\0') + open);
}

TEST_F(HostileBytes, HalfALengthEndsWithTheSession) { ExpectEndedBy(HALF_LENGTH); }

TEST_F(HostileBytes, HalfAMessageEndsWithTheSession) { ExpectEndedBy(LENGTH_100 + "half"); }

TEST_F(HostileBytes, FirstPacketThatLiesAboutItsLengthClosesTheSession) {
    RawSession first(SocketPath(0));

    first.SendBuffer(PacketOfLength(0x7fffffff, Frame(ControlHandshake("job"))));

    EXPECT_TRUE(first.WaitForClose());
    ExpectServesOn();
}

TEST_F(HostileBytes, LaterPacketThatLiesAboutItsLengthIsBelievedAsFarAsItCame) {
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    const std::string config = SampleConfig("job", {{"sys_profiling", "on"}});

    control.SendBuffer(PacketOfLength(0x7fffffff, Frame(JobStart("job", config))));

    EXPECT_EQ(control.ReceiveAnswer().status, ACCEPTED);
}

TEST_F(HostileBytes, GarbageOnAControlSessionLeavesItOpen) {
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    control.SendBuffer(Packet("garbage"));
    control.SendBuffer(Packet(""));
    control.Send(proto::FileChunkFlushReq());

    const std::string config = SampleConfig("job", {{"sys_profiling", "on"}});
    EXPECT_TRUE(Accepts(control, JobStart("job", config)));
    EXPECT_TRUE(daemon_->WaitForError("bufLen less than name len, bufLen=0, expected_len=4"));
    EXPECT_TRUE(daemon_->WaitForError("message is null"));
    EXPECT_TRUE(daemon_->WaitForError(
        "Failed to find handler for message:analysis.rokt.proto.FileChunkFlushReq"));
}

TEST_F(HostileBytes, DeeplyNestedSampleConfigurationIsRefused) {
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));

    control.Send(JobStart("job", std::string(ONE_MIB, '[')));
    const Answer answer = control.ReceiveAnswer();

    EXPECT_EQ(answer.status, REFUSED);
    EXPECT_EQ(answer.info, "invalid sample configuration");
    control.Close();
    ExpectServesOn();
}

TEST_F(HostileBytes, DeeplyNestedObjectsAreRefused) {
    RawSession control(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    std::string config;
    while (config.size() < ONE_MIB - 5) {
        config += "{\"a\":";
    }

    control.Send(JobStart("job", config));

    EXPECT_EQ(control.ReceiveAnswer().info, "invalid sample configuration");
    control.Close();
    ExpectServesOn();
}

TEST_F(HostileBytes, BytesOfTheHostOnADataSessionAreLeftUnread) {
    RawSession control(SocketPath(0));
    RawSession data(SocketPath(0));
    ASSERT_TRUE(Accepts(control, ControlHandshake("job")));
    ASSERT_TRUE(Accepts(data, DataHandshake("job")));
    const std::string config = SampleConfig("job", {{"sys_profiling", "on"}});
    ASSERT_TRUE(Accepts(control, JobStart("job", config)));

    data.SendBytes("nobody reads this");
    ASSERT_TRUE(Accepts(control, JobStop("job")));

    const auto finish = data.ReceiveMessage();
    ASSERT_NE(finish, nullptr);
    EXPECT_EQ(finish->GetTypeName(), "analysis.rokt.proto.DataChannelFinish");
}

}  // namespace tiv::e2e
