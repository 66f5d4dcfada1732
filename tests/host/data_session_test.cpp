// The data session from its handshake to its end, against the driver double.
#include "host/data_session.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "hdc/hdc_transport.h"
#include "host/session_bytes.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"

namespace tiv::host {

namespace {

using analysis::rokt::transport::HDCTransport;
using test::AnswerMessage;
using test::ChunkMessage;
using test::FakeDriver;
using test::FinishMessage;
using State = DataSession::State;

class Sink : public ChunkSink {
 public:
    bool OnChunk(const ReceivedChunk& chunk) override {
        if (throws) {
            throw std::runtime_error("no room");
        }
        received.push_back(std::string(chunk.fileName) + "=" + std::string(chunk.data));
        return keep;
    }
    std::vector<std::string> received;  // read behind the session's end
    bool OnFinish() override { return keepAtFinish; }
    bool keep = true;
    bool keepAtFinish = true;
    bool throws = false;
};

class DataSessionTest : public testing::Test {
 protected:
    void SetUp() override { handle_ = FakeDriver::Instance().NewSession(); }
    void Push(const std::string& message) { FakeDriver::Instance().PushMessage(handle_, message); }
    State Run() {
        FakeDriver::Instance().ClosePeer(handle_);
        session_ = std::make_unique<DataSession>(
            0, "job", std::make_shared<HDCTransport>(handle_, true, nullptr), sink_);
        return session_->WaitForEnd(std::chrono::seconds(30));
    }

    HDC_SESSION handle_ = nullptr;
    Sink sink_;
    std::unique_ptr<DataSession> session_;
};

}  // namespace

TEST_F(DataSessionTest, ChunksThenFinishIsComplete) {
    Push(AnswerMessage(0));
    Push(ChunkMessage("data/a", "one"));
    Push(ChunkMessage("data/b", "two"));
    Push(FinishMessage());

    EXPECT_EQ(Run(), State::COMPLETE);

    EXPECT_EQ(sink_.received, (std::vector<std::string>{"data/a=one", "data/b=two"}));
    EXPECT_EQ(session_->Bytes(), 6u);
    EXPECT_EQ(session_->Chunks(), 2u);
    EXPECT_EQ(session_->Failure(), "");
}

TEST_F(DataSessionTest, EndWithoutFinishIsBroken) {
    Push(AnswerMessage(0));
    Push(ChunkMessage("data/a", "one"));

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(sink_.received.size(), 1u);
    EXPECT_EQ(session_->Failure(),
              "device 0: the data session ended before the device had sent everything: the daemon "
              "died or the link broke; see the daemon's log");
}

TEST_F(DataSessionTest, UnreadableChunkIsNeverCalledComplete) {
    Push(AnswerMessage(0));
    Push(
        test::PacketMessage(std::string("\0\0\0\x22"
                                        "analysis.rokt.proto.FileChunkReq\0\xff\0",
                                        40)));
    Push(FinishMessage());

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(session_->Unreadable(), 1u);
}

TEST_F(DataSessionTest, GarbageIsCountedAndTheStreamGoesOn) {
    Push(AnswerMessage(0));
    Push(test::PacketMessage("no frame"));
    Push(ChunkMessage("data/a", "one"));
    Push(FinishMessage());

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(sink_.received.size(), 1u);
    EXPECT_EQ(session_->Failure(), "device 0: 1 messages were unreadable");
}

TEST_F(DataSessionTest, SinkThatFailsEndsTheSession) {
    sink_.keep = false;
    Push(AnswerMessage(0));
    Push(ChunkMessage("data/a", "one"));
    Push(ChunkMessage("data/a", "two"));
    Push(FinishMessage());

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(sink_.received.size(), 1u);
    EXPECT_EQ(session_->Failure(), "device 0: the result could not be written");
}

TEST_F(DataSessionTest, SinkThatFailsAtTheFinishIsNeverCalledComplete) {
    sink_.keepAtFinish = false;
    Push(AnswerMessage(0));
    Push(ChunkMessage("data/a", "one"));
    Push(FinishMessage());

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(session_->Failure(), "device 0: the result could not be written");
}

TEST_F(DataSessionTest, SinkThatThrowsBreaksTheSessionOnly) {
    sink_.throws = true;
    Push(AnswerMessage(0));
    Push(ChunkMessage("data/a", "one"));

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(session_->Failure(), "device 0: the result could not be taken: no room");
}

TEST_F(DataSessionTest, BrokenSessionIsClosedAtOnce) {
    sink_.keep = false;
    Push(AnswerMessage(0));
    Push(ChunkMessage("data/a", "one"));

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_TRUE(FakeDriver::Instance().WaitForClosed(handle_));
}

TEST_F(DataSessionTest, FinishBeforeTheAnswerIsNeverCalledComplete) {
    Push(FinishMessage());

    EXPECT_EQ(Run(), State::BROKEN);

    EXPECT_EQ(session_->Failure(),
              "device 0: the device ended the data session before it answered the handshake");
}

TEST_F(DataSessionTest, SessionThatIsCompleteAtOnceHasAnAcceptedHandshake) {
    Push(AnswerMessage(0));
    Push(FinishMessage());
    session_ = std::make_unique<DataSession>(
        0, "job", std::make_shared<HDCTransport>(handle_, true, nullptr), sink_);
    EXPECT_EQ(session_->WaitForEnd(std::chrono::seconds(30)), State::COMPLETE);

    EXPECT_TRUE(session_->Handshake().Accepted());
}

TEST_F(DataSessionTest, HandshakeCanBeGivenUp) {
    session_ = std::make_unique<DataSession>(0, "job",
                                             std::make_shared<HDCTransport>(handle_, true, nullptr),
                                             sink_, [] { return true; });

    const Reply reply = session_->Handshake();

    EXPECT_EQ(reply.outcome, Reply::Outcome::GIVEN_UP);
    EXPECT_EQ(reply.message, "device 0: given up before the data handshake was answered");
}

TEST_F(DataSessionTest, CloseIsNoErrorInTheLog) {
    session_ = std::make_unique<DataSession>(
        0, "job", std::make_shared<HDCTransport>(handle_, true, nullptr), sink_);
    session_.reset();

    EXPECT_FALSE(test::RecordedLog::Instance().Contains('E', "session is nullptr"));
}

TEST_F(DataSessionTest, RefusedHandshakeIsItsReply) {
    session_ = std::make_unique<DataSession>(
        0, "job", std::make_shared<HDCTransport>(handle_, true, nullptr), sink_);
    Push(AnswerMessage(1, "unknown message"));

    const Reply reply = session_->Handshake();

    EXPECT_EQ(reply.outcome, Reply::Outcome::REFUSED);
    EXPECT_EQ(reply.message, "device 0: data handshake refused: unknown message");
}

TEST_F(DataSessionTest, AcceptedHandshakeStreams) {
    session_ = std::make_unique<DataSession>(
        0, "job", std::make_shared<HDCTransport>(handle_, true, nullptr), sink_);
    Push(AnswerMessage(0));

    EXPECT_TRUE(session_->Handshake().Accepted());

    EXPECT_EQ(session_->GetState(), State::STREAMING);
}

}  // namespace tiv::host
