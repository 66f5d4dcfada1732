// Tests of first messages, and of the handshake that makes a control session.
#include <thread>

#include "device/handshake_fixture.h"
#include "device/receiver.h"
#include "device/task_relationship_mgr.h"
#include "message/codec.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::Receiver;
using Analysis::Rokt::TaskHandle::TaskRelationshipMgr;

class Handshake : public HandshakeTest {};

TEST_F(Handshake, EntryThatIsNotInitedGivesNoReply) {
    entry.Uninit();

    EXPECT_EQ(OpenControl(session, "job"), -1);

    EXPECT_TRUE(log.Has('E', "Collection Entry was not inited."));
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handshake, EntryThatWasNeverInitedGivesNoReply) {
    CollectionEntry fresh;

    EXPECT_EQ(fresh.Handle(session, Encode(CtrlHandshake("job", 5, "")), 2), -1);

    EXPECT_TRUE(log.Has('E', "Collection Entry was not inited."));
    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(Handshake, NullTransportIsRefused) {
    EXPECT_EQ(OpenControl(nullptr, "job"), -1);

    EXPECT_TRUE(log.Has('E', "Collection Entry was not inited."));
}

TEST_F(Handshake, ValueThatIsNoFrameIsRefused) {
    EXPECT_EQ(entry.Handle(session, "garbage", 2), -1);

    ExpectRefusal(session, "Failed to decode message");
    EXPECT_TRUE(log.Has('W', "Failed to decode message"));
}

TEST_F(Handshake, OtherFirstMessageIsUnknown) {
    EXPECT_EQ(Handle(session, JobStart("", "")), -1);

    ExpectRefusal(session, "unknown message");
}

TEST_F(Handshake, AnswersNameNoDevice) {
    const Session data = NewSession();
    const Session refused = NewSession();

    EXPECT_EQ(OpenControl(session, "job"), 0);
    EXPECT_EQ(OpenData(data, "job"), 0);
    EXPECT_EQ(Handle(refused, JobStart("", "")), -1);

    ExpectSuccess(data);
    EXPECT_EQ(AnswerOf(session->Sent().at(0)).devId, "-1");
    EXPECT_EQ(AnswerOf(data->Sent().at(0)).devId, "-1");
    EXPECT_EQ(AnswerOf(refused->Sent().at(0)).devId, "-1");
}

TEST_F(Handshake, RefusalIsLoggedWithItsSize) {
    EXPECT_EQ(Handle(session, JobStart("", "")), -1);

    const std::string size = std::to_string(session->Sent().at(0).size());
    EXPECT_TRUE(log.Contains('W', "Reply handle failed, dev_id=2, statusInfo={"));
    EXPECT_TRUE(log.Contains('W', ", response sent size:" + size + ", resp size:" + size));
}

TEST_F(Handshake, FailedRefusalChangesNothing) {
    session->SetSendResult(-1);

    EXPECT_EQ(Handle(session, JobStart("", "")), -1);

    EXPECT_TRUE(log.Contains('W', ", response sent size:-1, resp size:"));
}

TEST_F(Handshake, HostNumber64IsRefusedWithoutWordsAndThenCloses) {
    EXPECT_EQ(Handle(session, CtrlHandshake("job", 64, "")), -1);

    ExpectRefusal(session, "");
    EXPECT_TRUE(log.Has('E', "[HandleCtrlSession]hostId: 64 is not valid!"));
    EXPECT_TRUE(session->Closed());
}

TEST_F(Handshake, RefusedHostNumberIsNotRelated) {
    EXPECT_EQ(Handle(session, CtrlHandshake("job", 64, "")), -1);

    EXPECT_EQ(TaskRelationshipMgr::Instance().GetDevIdByHostId(64), 64);
}

TEST_F(Handshake, ControlSessionWithoutAJobIdKeepsNobodyOut) {
    EXPECT_EQ(OpenControl(session, ""), 0);

    EXPECT_EQ(OpenControl(NewSession(), ""), 0);

    EXPECT_TRUE(session->Closed());
}

TEST_F(Handshake, NegativeHostNumberIsRefused) {
    EXPECT_EQ(Handle(session, CtrlHandshake("job", -1, "")), -1);

    ExpectRefusal(session, "");
    EXPECT_TRUE(log.Has('E', "[HandleCtrlSession]hostId: -1 is not valid!"));
}

TEST_F(Handshake, AcceptedControlSessionIsServed) {
    EXPECT_EQ(OpenControl(session, "job"), 0);

    ExpectSuccess(session);
    EXPECT_NE(entry.GetReceiver("job", 2), nullptr);
    EXPECT_EQ(TaskRelationshipMgr::Instance().GetDevIdByHostId(5), 2);
    EXPECT_TRUE(log.Has('I', "Device 2 Received ctrl handshake, devIdOnHost: 5"));
    const std::string size = std::to_string(session->Sent().at(0).size());
    EXPECT_TRUE(log.Contains('I', "Reply ctrl handshake, statusInfo={"));
    EXPECT_TRUE(log.Contains('I', "}, response sent size:" + size + ", resp size:" + size));
    EXPECT_TRUE(log.Has('I', "Ctrl session finished, devId:2, devIdOnHost:5"));
    EXPECT_TRUE(log.WaitFor('I', "Receiver begin, devId:2, devIdOnHost:5"));
}

TEST_F(Handshake, ReceiverThreadHasItsName) {
    EXPECT_EQ(OpenControl(session, "job"), 0);
    ASSERT_TRUE(log.WaitFor('I', "Receiver begin, devId:2, devIdOnHost:5"));

    EXPECT_EQ(entry.GetReceiver("job", 2)->GetThreadName(), "QTRX_CtrlRecv");
    EXPECT_TRUE(log.Has('I', "New thread QTRX_CtrlRecv begins to run"));
}

TEST_F(Handshake, SuccessIsSentBeforeTheReceiverIsFiledAndStarted) {
    bool filed = true;
    size_t threads = 1;
    session->OnSend([&] {
        filed = entry.GetReceiver("job", 2) != nullptr;
        threads = FakeMm::Instance().calls.Count("mmCreateTaskWithThreadAttr");
    });

    EXPECT_EQ(OpenControl(session, "job"), 0);

    EXPECT_FALSE(filed);
    EXPECT_EQ(threads, 0u);
    session->OnSend({});
}

TEST_F(Handshake, LostSuccessReplyIsNotLookedAt) {
    session->SetSendResult(-1);

    EXPECT_EQ(OpenControl(session, "job"), 0);

    EXPECT_NE(entry.GetReceiver("job", 2), nullptr);
}

TEST_F(Handshake, SecondControlSessionIsRefusedWhileTheFirstLives) {
    OpenControl(session, "job");
    const Session second = NewSession();

    EXPECT_EQ(OpenControl(second, "next", "def_mode"), -1);

    ExpectRefusal(second, "");
    EXPECT_TRUE(
        log.Has('E', "Last profiling job job on device 2 has not exited, please try again later"));
    EXPECT_FALSE(session->Closed());
}

TEST_F(Handshake, LivingJobIsFoundBeforeTheHostNumberIsChecked) {
    OpenControl(session, "job");
    const Session second = NewSession();

    EXPECT_EQ(Handle(second, CtrlHandshake("next", 64, "")), -1);

    ExpectRefusal(second, "");
    EXPECT_FALSE(log.Has('E', "[HandleCtrlSession]hostId: 64 is not valid!"));
}

TEST_F(Handshake, AnotherModeOrDeviceIsAnotherKey) {
    OpenControl(session, "job");

    EXPECT_EQ(OpenControl(NewSession(), "wide", "system-wide"), 0);
    EXPECT_EQ(entry.Handle(NewSession(), Encode(CtrlHandshake("three", 6, "")), 3), 0);
}

TEST_F(Handshake, ModeOfAControlSessionIsNotChecked) {
    EXPECT_EQ(OpenControl(session, "job", "abc"), 0);
}

TEST_F(Handshake, DeadReceiverStaysUntilTheNextHandshakeReplacesIt) {
    OpenControl(session, "job");
    session->ClosePeer();
    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:2, devIdOnHost:5"));
    EXPECT_EQ(OpenControl(NewSession(), "wide", "system-wide"), 0);
    EXPECT_FALSE(session->Closed());
    EXPECT_TRUE(entry.GetReceiver("job", 2)->IsQuit());

    const Session second = NewSession();
    EXPECT_EQ(OpenControl(second, "next"), 0);

    ExpectSuccess(second);
    EXPECT_TRUE(session->Closed());
    EXPECT_EQ(entry.GetReceiver("job", 2), nullptr);
}

TEST_F(Handshake, ReceiverWithoutAThreadIsForgottenAndRefusedInTheEnd) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    EXPECT_EQ(OpenControl(session, "job"), -1);

    EXPECT_TRUE(log.Has('E', "[HandleCtrlSession]Failed to start receiver thread, ret=-1"));
    ASSERT_EQ(session->Sent().size(), 2u);
    EXPECT_TRUE(AnswerOf(session->Sent().at(0)).success);
    EXPECT_FALSE(AnswerOf(session->Sent().at(1)).success);
    EXPECT_EQ(AnswerOf(session->Sent().at(1)).status, 1);
    EXPECT_TRUE(session->Closed());
    EXPECT_EQ(OpenControl(NewSession(), "next"), 0);
}

TEST_F(Handshake, ReceiverThatTookThePlaceOfOneWithoutAThreadStays) {
    const auto other = std::make_shared<Receiver>(NewSession());
    ASSERT_EQ(other->Init(2), 0);
    std::thread second;
    FakeMm::Instance().calls.OnCall([&](const Call& call) {
        if (call.function == "mmCreateTaskWithThreadAttr") {
            FakeMm::Instance().calls.OnCall({});
            second = std::thread([&] { entry.AddReceiver("system-wide", "job", 2, other); });
            EXPECT_TRUE(log.WaitFor(
                'I', "devModeKey:2_system-wide, jobId:job Entering AddModeJobIdRelation..."));
        }
    });
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    EXPECT_EQ(OpenControl(session, "job"), -1);
    second.join();

    EXPECT_EQ(entry.GetReceiver("job", 2), other);
}

TEST_F(Handshake, ReceiverThatDoesNotFitInMemoryIsRefused) {
    const std::string value = Encode(CtrlHandshake("job", 5, ""));
    // The first look-up of a message's type builds tables; later ones allocate little.
    ASSERT_NE(analysis::rokt::message::Codec::DecodeMessage(value), nullptr);
    log.SetLevel(DLOG_ERROR);
    FailNextNewOfAtLeast(sizeof(analysis::rokt::device::Receiver));

    EXPECT_EQ(entry.Handle(session, value, 2), -1);

    FailNextNewOfAtLeast(0);
    EXPECT_TRUE(log.Has('E', "make shared failed, message: std::bad_alloc"));
    ExpectRefusal(session, "");
}

TEST_F(Handshake, ControlRequestsAreServedOneAfterTheOther) {
    EXPECT_EQ(OpenControl(session, "job"), 0);
    const std::string context = ContextText("5", "job");

    session->Push(Encode(JobStart(context, R"({"job_id":"job"})")));
    session->Push(Encode(ReplayStop(context)));
    session->Push(Encode(ReplayStart(context)));
    session->Push(Encode(JobStop(context)));
    ASSERT_TRUE(session->WaitForSent(5));

    const std::vector<std::string> sent = session->Sent();
    EXPECT_TRUE(AnswerOf(sent.at(1)).success);
    EXPECT_TRUE(AnswerOf(sent.at(2)).success);
    EXPECT_EQ(AnswerOf(sent.at(3)).info, "start failed");
    EXPECT_EQ(AnswerOf(sent.at(4)).info, "Profiling is not started on device");
}

TEST_F(Handshake, SimultaneousHandshakesLeaveOneLiveReceiver) {
    const Session other = NewSession();

    std::thread first([&] { static_cast<void>(OpenControl(session, "a")); });
    std::thread second([&] { static_cast<void>(OpenControl(other, "b")); });
    first.join();
    second.join();

    const std::string holder = entry.GetModeJobIdRelation(2, "");
    EXPECT_NE(entry.GetReceiver(holder, 2), nullptr);
    EXPECT_EQ(entry.Uninit(), 0);
    EXPECT_TRUE(session->Closed());
    EXPECT_TRUE(other->Closed());
}

}  // namespace
}  // namespace tiv::test
