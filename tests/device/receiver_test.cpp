// Tests of the thread that serves a control session.
#include "device/receiver.h"

#include <pthread.h>

#include <google/protobuf/descriptor.pb.h>
#include <google/protobuf/dynamic_message.h>

#include "device/collection_entry.h"
#include "device/device_fixture.h"
#include "device/task_manager.h"
#include "support/failing_new.h"
#include "support/fake_mm.h"
#include "support/recorded_log.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::Receiver;
using analysis::rokt::device::TaskManager;

class ReceiverThread : public DeviceTest {
 protected:
    // A running receiver for device 0, filed under "job".
    void StartReceiver() {
        receiver->SetDevIdOnHost(0);
        receiver->SetThreadName("QTRX_CtrlRecv");
        ASSERT_EQ(receiver->Init(0), 0);
        CollectionEntry::Instance().AddReceiver("", "job", 0, receiver);
        ASSERT_EQ(receiver->Launch(), 0);
    }

    // A request that gets an answer shows that the session still lives.
    void ExpectAnswer() {
        session->Push(Encode(JobStart(ContextText("0", "job"), "{}")));
        EXPECT_TRUE(session->WaitForSent(1));
    }

    static bool HasTask(const std::string& key) {
        return TaskManager::Instance().GetTask(key) != nullptr;
    }

    std::shared_ptr<MemoryTransport> session = std::make_shared<MemoryTransport>();
    std::shared_ptr<Receiver> receiver = std::make_shared<Receiver>(session);
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(ReceiverThread, WithoutInitItEndsAtOnceAndTouchesNoTask) {
    TaskManager::Instance().CreateTask(0, "0_job", session);

    receiver->Run({});

    EXPECT_TRUE(log.Has('I', "Receiver begin, devId:-1, devIdOnHost:-1"));
    EXPECT_TRUE(log.Has('E', "Receiver is not inited."));
    EXPECT_TRUE(HasTask("0_job"));
    EXPECT_FALSE(receiver->IsQuit());
}

TEST_F(ReceiverThread, MessageWithoutHandlerLeavesTheSessionAlive) {
    StartReceiver();

    session->Push(Encode(std::make_shared<proto::FileChunkFlushReq>()));
    ExpectAnswer();

    EXPECT_TRUE(
        log.Has('E', "Failed to find handler for message:analysis.rokt.proto.FileChunkFlushReq"));
    EXPECT_EQ(session->Sent().size(), 1u);
}

TEST_F(ReceiverThread, GarbageLeavesTheSessionAlive) {
    StartReceiver();

    session->Push("garbage");
    ExpectAnswer();

    EXPECT_TRUE(log.Has('E', "message is null"));
    EXPECT_EQ(session->Sent().size(), 1u);
}

TEST_F(ReceiverThread, EmptyValueLeavesTheSessionAlive) {
    StartReceiver();

    session->Push("");
    ExpectAnswer();

    EXPECT_TRUE(log.Has('E', "bufLen less than name len, bufLen=0, expected_len=4"));
    EXPECT_TRUE(log.Has('E', "message is null"));
}

TEST_F(ReceiverThread, LengthBeyondThePacketIsCutToWhatArrived) {
    StartReceiver();

    session->PushPacket(0xFFFFFFFF, "abc");
    ExpectAnswer();

    EXPECT_TRUE(log.Has('E', "bufLen less than name len, bufLen=3, expected_len=4"));
}

TEST_F(ReceiverThread, LengthBelowThePacketTakesOnlyThatMuch) {
    StartReceiver();

    session->PushPacket(2, "abcdef");
    ExpectAnswer();

    EXPECT_TRUE(log.Has('E', "bufLen less than name len, bufLen=2, expected_len=4"));
}

TEST_F(ReceiverThread, ResultBelowTheHeaderGivesAnEmptyValue) {
    StartReceiver();

    session->PushPacket(3, "abc", 11);
    ExpectAnswer();

    EXPECT_TRUE(log.Has('E', "bufLen less than name len, bufLen=0, expected_len=4"));
}

TEST_F(ReceiverThread, MessageSizeIsLogged) {
    StartReceiver();

    session->Push("abc");
    ASSERT_TRUE(session->WaitForIdleReader());

    EXPECT_TRUE(log.Has('I', "Receiver begin, devId:0, devIdOnHost:0"));
    EXPECT_TRUE(log.Has('I', "DeviceOnHost(0) Receiver message size 15"));
}

TEST_F(ReceiverThread, MessageThatDoesNotFitInMemoryIsDropped) {
    StartReceiver();
    const std::string large(1000000, 'x');
    FailNextNewOfAtLeast(large.size());

    session->Push(large);
    ASSERT_TRUE(session->WaitForIdleReader());
    FailNextNewOfAtLeast(0);
    ExpectAnswer();

    EXPECT_TRUE(log.Has('E', "A control message was dropped, device=0: std::bad_alloc"));
    EXPECT_EQ(session->LivePackets(), 0);
}

TEST_F(ReceiverThread, LostSessionEndsItsTasks) {
    StartReceiver();
    ExpectAnswer();
    ASSERT_TRUE(HasTask("0_job"));

    session->ClosePeer();

    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_TRUE(log.Has('W', "devIdOnHost(0) Failed to recv packet from host"));
    EXPECT_FALSE(HasTask("0_job"));
    EXPECT_TRUE(receiver->IsQuit());
}

TEST_F(ReceiverThread, LostSessionCountsAsAliveUntilItsTasksHaveEnded) {
    const auto data = FileUploader("job");
    StartReceiver();
    session->Push(Encode(JobStart(ContextText("0", "job"), R"({"job_id":"job"})")));
    ASSERT_TRUE(session->WaitForSent(1));
    data->HoldSends(true);

    session->ClosePeer();
    ASSERT_TRUE(data->WaitForHeldSend());
    EXPECT_FALSE(receiver->IsQuit());
    data->HoldSends(false);

    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_TRUE(receiver->IsQuit());
}

TEST_F(ReceiverThread, RefusalOfAContainerEndsTheSessionLikeALoss) {
    StartReceiver();

    session->PushPacket(28, "MESSAGE_CONTAINER_NO_SUPPORT", -2);

    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_TRUE(log.Has('W', "devIdOnHost(0) Failed to recv packet from host"));
    EXPECT_EQ(session->LivePackets(), 0);
}

TEST_F(ReceiverThread, ReadThatGivesNoPacketEndsTheSessionLikeALoss) {
    StartReceiver();

    session->PushNoPacket(12);

    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_TRUE(log.Has('W', "devIdOnHost(0) Failed to recv packet from host"));
}

// Sends only.
class OneWayTransport : public analysis::rokt::transport::ITransport {
 public:
    int SendBuffer(const void* /* buffer */, int length) override { return length; }
    int SendBuffer(const std::shared_ptr<analysis::rokt::ProfileFileChunk>& /* chunk */) override {
        return 0;
    }
    int CloseSession() override { return 0; }
    void Hook0() override {}
};

TEST_F(ReceiverThread, SessionThatGivesNoPacketsEndsLikeALoss) {
    const auto oneWay = std::make_shared<OneWayTransport>();
    Receiver mute(oneWay);
    ASSERT_EQ(mute.Init(0), 0);
    ASSERT_NE(TaskManager::Instance().CreateTask(0, "0_job", oneWay), nullptr);

    mute.Run({});

    EXPECT_TRUE(log.Has('W', "devIdOnHost(-1) Failed to recv packet from host"));
    EXPECT_FALSE(HasTask("0_job"));
    EXPECT_TRUE(mute.IsQuit());
}

TEST_F(ReceiverThread, EveryPacketIsGivenBack) {
    StartReceiver();

    session->Push("garbage");
    session->Push(Encode(std::make_shared<proto::JobStopReq>()));
    ASSERT_TRUE(session->WaitForIdleReader());

    EXPECT_EQ(session->LivePackets(), 0);
}

TEST_F(ReceiverThread, QuitDuringAHandlerEndsTheThreadAndNoTask) {
    session->OnSend([this] { receiver->SetQuit(); });
    StartReceiver();

    ExpectAnswer();

    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_FALSE(log.Has('W', "devIdOnHost(0) Failed to recv packet from host"));
    EXPECT_TRUE(HasTask("0_job"));
    session->OnSend({});
}

TEST_F(ReceiverThread, QuitDuringAReadEndsTheThreadBehindTheNextMessage) {
    StartReceiver();
    ASSERT_TRUE(session->WaitForIdleReader());

    receiver->SetQuit();
    ExpectAnswer();

    ASSERT_TRUE(log.WaitFor('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_FALSE(log.Has('W', "devIdOnHost(0) Failed to recv packet from host"));
}

TEST_F(ReceiverThread, UninitClosesTheSessionAndJoins) {
    StartReceiver();
    ASSERT_TRUE(session->WaitForIdleReader());

    EXPECT_EQ(receiver->Uninit(), 0);

    EXPECT_TRUE(log.Has('I', "Receiver Unint"));
    EXPECT_TRUE(log.Has('I', "Receiver end, devId:0, devIdOnHost:0"));
    EXPECT_EQ(session->Closes(), 1);
    EXPECT_EQ(receiver->GetTransport(), nullptr);
}

TEST_F(ReceiverThread, UninitForgetsDeviceAndHandlers) {
    ASSERT_EQ(receiver->Init(3), 0);
    receiver->Uninit();

    receiver->Run({});

    EXPECT_TRUE(log.Has('I', "Receiver begin, devId:-1, devIdOnHost:-1"));
    EXPECT_TRUE(log.Has('E', "Receiver is not inited."));
}

TEST_F(ReceiverThread, SecondUninitClosesNothing) {
    StartReceiver();
    receiver->Uninit();

    EXPECT_EQ(receiver->Uninit(), 0);

    EXPECT_EQ(session->Closes(), 1);
}

TEST_F(ReceiverThread, FailedJoinIsAWarningWithTheThreadsName) {
    FakeMm::Instance().mmJoinTask = [](mmThread* handle) {
        pthread_join(*handle, nullptr);
        return -1;
    };
    StartReceiver();

    EXPECT_EQ(receiver->Uninit(), 0);

    EXPECT_TRUE(log.Has('W', "Faied to stop thread: QTRX_CtrlRecv"));
}

TEST_F(ReceiverThread, DroppedReceiverIsNotStarted) {
    ASSERT_EQ(receiver->Init(0), 0);
    receiver->Uninit();

    EXPECT_EQ(receiver->Launch(), -1);
}

TEST_F(ReceiverThread, RefusedThreadIsReported) {
    ASSERT_EQ(receiver->Init(0), 0);
    FakeMm::Instance().calls.Return("mmCreateTaskWithThreadAttr", 11);

    EXPECT_EQ(receiver->Launch(), -1);
}

TEST_F(ReceiverThread, NullMessageIsNotSent) {
    EXPECT_EQ(receiver->SendMessage(nullptr), -1);

    EXPECT_TRUE(session->Sent().empty());
}

TEST_F(ReceiverThread, SendGivesTheTransportsResultAndLogsIt) {
    receiver->SetDevIdOnHost(7);
    const auto message = std::make_shared<proto::Response>();
    const std::string frame = Encode(message);

    EXPECT_EQ(receiver->SendMessage(message), static_cast<int>(frame.size()));

    EXPECT_EQ(session->Sent(), std::vector<std::string>{frame});
    EXPECT_TRUE(log.Has('I', "DeviceOnHost(7) Send message size " + std::to_string(frame.size()) +
                                 " ret " + std::to_string(frame.size())));
}

TEST_F(ReceiverThread, EmptyEncodingIsSentAllTheSame) {
    // A type name above the limit of a frame.
    google::protobuf::FileDescriptorProto file;
    file.set_name("long.proto");
    file.add_message_type()->set_name(std::string(1025, 'a'));
    google::protobuf::DescriptorPool pool;
    google::protobuf::DynamicMessageFactory factory;
    const auto* type = pool.BuildFile(file)->message_type(0);
    const std::shared_ptr<google::protobuf::Message> message(factory.GetPrototype(type)->New());

    EXPECT_EQ(receiver->SendMessage(message), 0);

    EXPECT_EQ(session->Sent(), std::vector<std::string>{""});
}

TEST_F(ReceiverThread, SendAfterUninitFails) {
    receiver->Uninit();

    EXPECT_EQ(receiver->SendMessage(std::make_shared<proto::Response>()), -1);
}

}  // namespace
}  // namespace tiv::test
