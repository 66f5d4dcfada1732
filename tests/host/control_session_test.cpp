// Requests and answers of the control session, against the driver double.
#include "host/control_session.h"

#include <gtest/gtest.h>

#include <memory>

#include "hdc/hdc_transport.h"
#include "host/session_bytes.h"
#include "message/job_context.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/recorded_log.h"

namespace tiv::host {

namespace {

using analysis::rokt::message::JobContext;
using analysis::rokt::transport::HDCTransport;
using test::AnswerMessage;
using test::FakeDriver;
namespace proto = analysis::rokt::proto;

class ControlSessionTest : public testing::Test {
 protected:
    void SetUp() override {
        handle_ = FakeDriver::Instance().NewSession();
        session_ = std::make_unique<ControlSession>(
            3, "job", std::make_shared<HDCTransport>(handle_, true, nullptr));
    }
    void Answer(int status, const std::string& info = "") {
        FakeDriver::Instance().PushMessage(handle_, AnswerMessage(status, info));
    }
    template <class Message>
    Message Sent(size_t index) {
        const auto message = test::SentMessage(FakeDriver::Instance().Sent(handle_).at(index));
        return dynamic_cast<const Message&>(*message);
    }

    HDC_SESSION handle_ = nullptr;
    std::unique_ptr<ControlSession> session_;
};

}  // namespace

TEST_F(ControlSessionTest, HandshakeNamesJobAndDevice) {
    Answer(0);

    EXPECT_TRUE(session_->Handshake().Accepted());

    const auto sent = Sent<proto::CtrlChannelHandshake>(0);
    EXPECT_EQ(sent.jobid(), "job");
    EXPECT_EQ(sent.devid(), 3);
    EXPECT_EQ(sent.mode(), "");
}

TEST_F(ControlSessionTest, RequestsCarryTheJobsContext) {
    Answer(0);
    Answer(0);

    EXPECT_TRUE(session_->StartJob("{}").Accepted());
    EXPECT_TRUE(session_->StartReplay({"0x11"}, {"read", "write"}).Accepted());

    JobContext context;
    ASSERT_TRUE(context.FromString(Sent<proto::JobStartReq>(0).hdr().job_ctx()));
    EXPECT_EQ(context.job_id, "job");
    EXPECT_EQ(context.dev_id, "3");
    const auto replay = Sent<proto::ReplayStartReq>(1);
    EXPECT_EQ(replay.ctrl_cpu_events_size(), 1);
    EXPECT_EQ(replay.llc_events(1), "write");
}

TEST_F(ControlSessionTest, ReplaysAreNamedByTheirNumbers) {
    Answer(0);
    Answer(0);

    EXPECT_TRUE(session_->StartReplay({}, {}, 7).Accepted());
    EXPECT_TRUE(session_->StopReplay(8).Accepted());

    EXPECT_EQ(Sent<proto::ReplayStartReq>(0).replayid(), 7);
    const auto stop = Sent<proto::ReplayStopReq>(1);
    EXPECT_EQ(stop.replayid(), 8);
    JobContext context;
    ASSERT_TRUE(context.FromString(stop.hdr().job_ctx()));
    EXPECT_EQ(context.job_id, "job");
}

TEST_F(ControlSessionTest, BareTextForContainersIsARefusalOfTheHandshake) {
    FakeDriver::Instance().PushMessage(handle_,
                                       test::PacketMessage("MESSAGE_CONTAINER_NO_SUPPORT"));

    const Reply reply = session_->Handshake();

    EXPECT_EQ(reply.outcome, Reply::Outcome::REFUSED);
    EXPECT_NE(reply.message.find("container"), std::string::npos) << reply.message;
}

TEST_F(ControlSessionTest, RefusalSaysWhatWasRefusedAndWhy) {
    Answer(1, "invalid sample configuration");

    const Reply reply = session_->StartJob("x");

    EXPECT_EQ(reply.outcome, Reply::Outcome::REFUSED);
    EXPECT_EQ(reply.message, "device 3: job start refused: invalid sample configuration");
}

TEST_F(ControlSessionTest, SessionThatClosesInsteadOfAnsweringIsSaidSo) {
    FakeDriver::Instance().ClosePeer(handle_);

    const Reply reply = session_->StopReplay();

    EXPECT_EQ(reply.outcome, Reply::Outcome::CLOSED);
    EXPECT_TRUE(session_->Closed() || reply.message.find("could not be sent") != std::string::npos);
}

TEST_F(ControlSessionTest, MissingAnswerTimesOutWithAdvice) {
    ASSERT_TRUE(session_->SendStopJob());

    const Reply reply = session_->WaitForReply(std::chrono::milliseconds(1));

    EXPECT_EQ(reply.outcome, Reply::Outcome::TIMED_OUT);
    EXPECT_NE(reply.message.find("device 3: no answer to the job stop within"), std::string::npos);
}

TEST_F(ControlSessionTest, WaitCanBeGivenUp) {
    session_.reset();
    handle_ = FakeDriver::Instance().NewSession();
    session_ = std::make_unique<ControlSession>(
        3, "job", std::make_shared<HDCTransport>(handle_, true, nullptr), [] { return true; });

    const Reply reply = session_->StartJob("{}");

    EXPECT_EQ(reply.outcome, Reply::Outcome::GIVEN_UP);
    EXPECT_EQ(reply.message, "device 3: given up before the job start was answered");
}

TEST_F(ControlSessionTest, CloseBetweenTwoPacketsIsNoErrorInTheLog) {
    session_.reset();
    handle_ = FakeDriver::Instance().NewSession();
    // The packet arrives while the session is being closed: the reader comes back to a closed one.
    const auto receive = FakeDriver::Instance().halHdcRecv;
    FakeDriver::Instance().halHdcRecv = [&](HDC_SESSION session, HDC_MSG msg, int32_t length,
                                            uint64_t flag, int32_t* count, uint32_t timeout) {
        const int32_t result = receive(session, msg, length, flag, count, timeout);
        session_->Close();
        return result;
    };
    session_ = std::make_unique<ControlSession>(
        3, "job", std::make_shared<HDCTransport>(handle_, true, nullptr));
    Answer(0);
    EXPECT_TRUE(session_->WaitForReply(std::chrono::seconds(30)).Accepted());
    session_.reset();
    FakeDriver::Instance().halHdcRecv = receive;

    EXPECT_FALSE(test::RecordedLog::Instance().Contains('E', "session is nullptr"));
}

TEST_F(ControlSessionTest, AnswersThatNobodyAskedForAreBounded) {
    for (int i = 0; i < 20; ++i) {
        Answer(1, "number " + std::to_string(i));
    }
    // It comes back for more when it has taken them all.
    ASSERT_TRUE(FakeDriver::Instance().calls.WaitForCalls("halHdcRecv", 21));
    FakeDriver::Instance().ClosePeer(handle_);

    for (int i = 0; i < 16; ++i) {
        const std::string message = session_->WaitForReply(std::chrono::seconds(30)).message;
        EXPECT_EQ("device 3:  refused: number " + std::to_string(i), message);
    }
    EXPECT_EQ(session_->WaitForReply(std::chrono::seconds(30)).outcome, Reply::Outcome::CLOSED);
}

TEST_F(ControlSessionTest, AnswerThatFindsNoMemoryEndsTheSession) {
    constexpr size_t LARGE = 100000;
    session_.reset();
    handle_ = FakeDriver::Instance().NewSession();
    const auto receive = FakeDriver::Instance().halHdcRecv;
    FakeDriver::Instance().halHdcRecv = [&](HDC_SESSION session, HDC_MSG msg, int32_t length,
                                            uint64_t flag, int32_t* count, uint32_t timeout) {
        const int32_t result = receive(session, msg, length, flag, count, timeout);
        test::FailNextNewOfAtLeast(LARGE);
        return result;
    };
    Answer(1, std::string(LARGE, 'x'));
    testing::internal::CaptureStderr();
    session_ = std::make_unique<ControlSession>(
        3, "job", std::make_shared<HDCTransport>(handle_, true, nullptr));

    EXPECT_EQ(session_->WaitForReply(std::chrono::seconds(30)).outcome, Reply::Outcome::CLOSED);

    session_.reset();
    FakeDriver::Instance().halHdcRecv = receive;
    EXPECT_EQ("tivctl: device 3: cannot read answers: std::bad_alloc\n",
              testing::internal::GetCapturedStderr());
}

TEST_F(ControlSessionTest, WhatIsNoAnswerIsPassedOver) {
    FakeDriver::Instance().PushMessage(handle_, test::PacketMessage("garbage"));
    FakeDriver::Instance().PushMessage(handle_, test::FinishMessage());
    Answer(0);

    EXPECT_TRUE(session_->Handshake().Accepted());
}

}  // namespace tiv::host
