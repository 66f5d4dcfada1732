// Tests of the handshakes that make control and data sessions.
#include "device/collection_entry.h"

#include <algorithm>
#include <thread>

#include "device/device_fixture.h"
#include "device/receiver.h"
#include "device/task_relationship_mgr.h"
#include "message/codec.h"
#include "support/failing_new.h"
#include "support/fake_driver.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"
#include "transport/uploader_mgr.h"

namespace tiv::test {
namespace {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::Receiver;
using analysis::rokt::message::StatusInfo;
using Analysis::Rokt::TaskHandle::TaskRelationshipMgr;
using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;

using Session = std::shared_ptr<MemoryTransport>;

class Handshake : public DeviceTest {
 protected:
    int Handle(const Session& on, const std::shared_ptr<google::protobuf::Message>& message) {
        return entry.Handle(on, Encode(message), 2);
    }
    int OpenControl(const Session& on, const std::string& jobId, const std::string& mode = "") {
        return Handle(on, CtrlHandshake(jobId, 5, mode));
    }
    int OpenData(const Session& on, const std::string& jobId, const std::string& mode = "") {
        return Handle(on, DataHandshake(jobId, mode));
    }
    static Session NewSession() { return std::make_shared<MemoryTransport>(); }

    static void ExpectRefusal(const Session& on, const std::string& info) {
        ASSERT_EQ(on->Sent().size(), 1u);
        const Answer answer = AnswerOf(on->Sent().at(0));
        EXPECT_TRUE(answer.isResponse);
        EXPECT_FALSE(answer.success);
        EXPECT_EQ(answer.status, 1);
        EXPECT_EQ(answer.info, info);
    }
    static void ExpectSuccess(const Session& on) {
        ASSERT_TRUE(on->WaitForSent(1));
        EXPECT_TRUE(AnswerOf(on->Sent().at(0)).success);
    }
    static std::shared_ptr<Uploader> FindUploader(const std::string& jobId) {
        std::shared_ptr<Uploader> uploader;
        UploaderMgr::Instance().GetUploader(jobId, uploader);
        return uploader;
    }

    // Starts the end of the entry, which then waits for `session` to let its reply go.
    std::thread HoldTheEnd() {
        OpenControl(session, "job");
        session->HoldSends(true);
        session->Push(Encode(JobStart(ContextText("5", "job"), "{}")));
        EXPECT_TRUE(session->WaitForHeldSend());
        std::thread end([this] { EXPECT_EQ(entry.Uninit(), 0); });
        EXPECT_TRUE(log.WaitFor('I', "Receiver Unint"));
        return end;
    }

    CollectionEntry& entry = CollectionEntry::Instance();
    Session session = NewSession();
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(Handshake, EntryThatIsNotInitedGivesNoReply) {
    entry.Uninit();

    EXPECT_EQ(OpenControl(session, "job"), -1);

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
    EXPECT_TRUE(log.Contains('I', "Reply ctrl handshake, statusInfo={"));
    EXPECT_TRUE(log.Has('I', "Ctrl session finished, devId:2, devIdOnHost:5"));
    EXPECT_TRUE(log.WaitFor('I', "Receiver begin, devId:2, devIdOnHost:5"));
}

TEST_F(Handshake, ReceiverThreadHasItsName) {
    EXPECT_EQ(OpenControl(session, "job"), 0);
    ASSERT_TRUE(log.WaitFor('I', "Receiver begin, devId:2, devIdOnHost:5"));

    EXPECT_EQ(entry.GetReceiver("job", 2)->GetThreadName(), "QTRX_CtrlRecv");
    EXPECT_TRUE(log.Has('I', "New thread QTRX_CtrlRecv begins to run"));
}

TEST_F(Handshake, SuccessIsSentBeforeTheReceiverIsFiled) {
    bool filed = true;
    session->OnSend([&] { filed = entry.GetReceiver("job", 2) != nullptr; });

    EXPECT_EQ(OpenControl(session, "job"), 0);

    EXPECT_FALSE(filed);
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

TEST_F(Handshake, AcceptedDataSessionAnswersThroughItsQueue) {
    EXPECT_EQ(OpenData(session, "job"), 0);

    ExpectSuccess(session);
    EXPECT_NE(FindUploader("job"), nullptr);
    EXPECT_EQ(UploaderMgr::Instance().GetJobId(2, "def_mode"), "job");
    EXPECT_TRUE(log.Has('I', "Device 2 Received data handshake"));
    EXPECT_TRUE(log.Contains('I', "Reply data handshake, statusInfo={"));
    EXPECT_TRUE(log.Contains('I', ", response sent size:0, resp size:"));
}

TEST_F(Handshake, UploaderThreadIsNamedAfterItsJob) {
    const std::string line = "New thread QTRX_Upld_a-long-job-id begins to run";

    EXPECT_EQ(OpenData(session, "a-long-job-id"), 0);
    ASSERT_TRUE(log.WaitFor('I', line));

    // The system keeps 15 bytes.
    const std::vector<LogLine> lines = log.Lines();
    const auto begins = std::find_if(lines.begin(), lines.end(),
                                     [&](const LogLine& entered) { return entered.text == line; });
    EXPECT_EQ(begins->thread, "QTRX_Upld_a-lon");
}

TEST_F(Handshake, ResponseOfADataSessionComesBeforeItsChunks) {
    session->HoldSends(true);
    OpenData(session, "job");
    auto chunk = std::make_shared<ProfileFileChunk>();
    chunk->extraInfo = "job.2";
    ASSERT_EQ(UploaderMgr::Instance().UploadData("job", chunk), 0);

    session->HoldSends(false);
    ASSERT_TRUE(session->WaitForSent(2));

    EXPECT_TRUE(AnswerOf(session->Sent().at(0)).success);
    EXPECT_EQ(session->Sent().at(1), "chunk  job.2");
}

TEST_F(Handshake, DataSessionQueues512Chunks) {
    session->HoldSends(true);
    OpenData(session, "job");
    ASSERT_TRUE(session->WaitForHeldSend());
    const auto uploader = FindUploader("job");
    for (int i = 0; i < 512; ++i) {
        ASSERT_EQ(uploader->UploadData("x", 1), 0);
    }
    EXPECT_FALSE(log.Contains('W', "IsFULL"));

    std::thread producer([&] { EXPECT_EQ(uploader->UploadData("x", 1), 0); });
    EXPECT_TRUE(
        log.WaitFor('W', "IsFULL, QueueName: UploaderQueue, QueueCapacity:512, QueueSize:512"));
    session->HoldSends(false);
    producer.join();
}

TEST_F(Handshake, DataSessionChecksItsModeAndJobId) {
    const Session badMode = NewSession();
    const Session badJob = NewSession();

    EXPECT_EQ(OpenData(session, "job", "system-wide"), 0);
    EXPECT_EQ(OpenData(badMode, "job", "abc"), -1);
    EXPECT_EQ(OpenData(badJob, "a_b"), -1);

    ExpectSuccess(session);
    ExpectRefusal(badMode, "");
    ExpectRefusal(badJob, "");
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]profilingMode is invalid!"));
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]jobID is invalid!"));
}

TEST_F(Handshake, DataSessionChecksItsJobIdFirst) {
    EXPECT_EQ(OpenData(session, "a_b", "abc"), -1);

    EXPECT_TRUE(log.Has('E', "[HandleDataSession]jobID is invalid!"));
    EXPECT_FALSE(log.Has('E', "[HandleDataSession]profilingMode is invalid!"));
}

TEST_F(Handshake, DeviceNumberOfADataSessionIsNotLookedAt) {
    const auto handshake = DataHandshake("job", "");
    handshake->set_devid(64);

    EXPECT_EQ(Handle(session, handshake), 0);

    ExpectSuccess(session);
}

TEST_F(Handshake, NullUploaderIsRefused) {
    EXPECT_EQ(entry.HandleDataSession(nullptr, *DataHandshake("job", ""), 2), -1);
}

TEST_F(Handshake, UploaderWithoutAThreadIsRefused) {
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    EXPECT_EQ(OpenData(session, "job"), -1);

    ExpectRefusal(session, "");
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]Failed to start uploader thread, ret=-1"));
    EXPECT_EQ(FindUploader("job"), nullptr);
}

TEST_F(Handshake, UploaderWithoutAQueueIsRefused) {
    const auto uploader = std::make_shared<Uploader>(session);
    const auto handshake = DataHandshake("job", "");
    log.SetLevel(DLOG_ERROR);
    int ret = 0;
    {
        const FailingNew failing(0);
        ret = entry.HandleDataSession(uploader, *handshake, 2);
    }

    EXPECT_EQ(ret, -1);
    EXPECT_TRUE(log.Has('E', "[HandleDataSession]Failed to init uploader thread, initRet=-1"));
}

TEST_F(Handshake, UninitEndsLiveSessionsOfBothKinds) {
    const Session data = NewSession();
    OpenControl(session, "job");
    OpenData(data, "job");
    ExpectSuccess(data);

    EXPECT_EQ(entry.Uninit(), 0);

    EXPECT_TRUE(log.Has('I', "uinit Collection Entry."));
    EXPECT_TRUE(log.Has('I', "Receiver end, devId:2, devIdOnHost:5"));
    EXPECT_TRUE(session->Closed());
    EXPECT_EQ(entry.GetReceiver("job", 2), nullptr);
    EXPECT_EQ(FindUploader("job"), nullptr);
    EXPECT_EQ(data.use_count(), 1);
}

TEST_F(Handshake, HandshakeDuringTheEndIsRefusedLikeOneBeforeTheStart) {
    std::thread end = HoldTheEnd();

    const Session late = NewSession();
    EXPECT_EQ(OpenControl(late, "late", "system-wide"), -1);
    session->HoldSends(false);
    end.join();

    EXPECT_TRUE(log.Has('E', "Collection Entry was not inited."));
    EXPECT_TRUE(late->Sent().empty());
}

TEST_F(Handshake, ControlSessionThatPassedBeforeTheEndIsNotFiled) {
    std::thread end = HoldTheEnd();
    const Session late = NewSession();

    auto receiver = std::make_shared<Receiver>(late);
    StatusInfo status;
    EXPECT_EQ(
        entry.HandleCtrlSession(receiver, *CtrlHandshake("late", 5, "system-wide"), status, 2), 0);
    EXPECT_EQ(entry.GetReceiver("late", 2), nullptr);
    receiver.reset();

    EXPECT_TRUE(late->Closed());
    session->HoldSends(false);
    end.join();
}

TEST_F(Handshake, DataSessionThatPassedBeforeTheEndIsNotKept) {
    std::thread end = HoldTheEnd();

    const auto uploader = std::make_shared<Uploader>(NewSession());
    EXPECT_EQ(entry.HandleDataSession(uploader, *DataHandshake("late", ""), 2), 0);

    EXPECT_EQ(FindUploader("late"), nullptr);
    session->HoldSends(false);
    end.join();
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
