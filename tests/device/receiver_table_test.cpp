// Tests of the table of control sessions.
#include "device/receiver_table.h"

#include <thread>

#include "device/collection_entry.h"
#include "device/device_fixture.h"
#include "device/receiver.h"
#include "device/session_reply.h"
#include "device/task_manager.h"
#include "support/recorded_log.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::CollectionEntry;
using analysis::rokt::device::Receiver;
using analysis::rokt::device::SendReply;
using analysis::rokt::device::TaskManager;

class ReceiverRows : public DeviceTest {
 protected:
    static std::shared_ptr<Receiver> MakeReceiver(const std::shared_ptr<MemoryTransport>& session) {
        auto receiver = std::make_shared<Receiver>(session);
        EXPECT_EQ(receiver->Init(0), 0);
        return receiver;
    }

    // Files a running receiver under "job", device 0, mode "".
    void FileRunning() {
        const auto receiver = MakeReceiver(session);
        table.AddReceiver("", "job", 0, receiver);
        ASSERT_EQ(receiver->Launch(), 0);
    }

    CollectionEntry& table = CollectionEntry::Instance();
    std::shared_ptr<MemoryTransport> session = std::make_shared<MemoryTransport>();
    RecordedLog& log = RecordedLog::Instance();
};

TEST_F(ReceiverRows, ReceiverIsFoundUnderJobAndDevice) {
    const auto receiver = MakeReceiver(session);

    table.AddReceiver("m", "job", 2, receiver);

    EXPECT_EQ(table.GetReceiver("job", 2), receiver);
    EXPECT_EQ(table.GetModeJobIdRelation(2, "m"), "job");
    EXPECT_TRUE(log.Has('I', "mode: m, devIndexId: 2, jobId: job Entering AddReceiver..."));
    EXPECT_TRUE(log.Has('I', "devIndexId: 2, jobId: job Entering GetReceiver..."));
}

TEST_F(ReceiverRows, AbsentJobAndAbsentDeviceHaveTheirOwnTexts) {
    table.AddReceiver("", "job", 2, MakeReceiver(session));

    EXPECT_EQ(table.GetReceiver("other", 2), nullptr);
    EXPECT_EQ(table.GetReceiver("job", 3), nullptr);

    EXPECT_TRUE(log.Has('E', "Can't find jobId: other receiver"));
    EXPECT_TRUE(log.Has('E', "Can't find jobId job, devIndexId: 3 receiver"));
}

TEST_F(ReceiverRows, EmptyModeAndDefModeAreOneKey) {
    table.AddModeJobIdRelation(0, "", "job");

    EXPECT_EQ(table.GetModeJobIdRelation(0, "def_mode"), "job");
    EXPECT_EQ(table.GetModeJobIdRelation(1, "def_mode"), "");
    EXPECT_EQ(table.GetModeJobIdRelation(0, "system-wide"), "");
    EXPECT_TRUE(log.Has('I', "devModeKey:0_def_mode, jobId:job Entering AddModeJobIdRelation..."));
}

TEST_F(ReceiverRows, LaterJobOfADeviceAndModeCounts) {
    table.AddModeJobIdRelation(3, "m", "job");
    table.AddModeJobIdRelation(3, "m", "next");

    EXPECT_EQ(table.GetModeJobIdRelation(3, "m"), "next");
}

TEST_F(ReceiverRows, DeletingARelationGivesTheJobThatHeldIt) {
    table.AddModeJobIdRelation(3, "m", "job");

    EXPECT_EQ(table.DeleteModeJobIdRelation(3, "m"), "job");
    EXPECT_EQ(table.DeleteModeJobIdRelation(3, "m"), "");

    EXPECT_EQ(log.Count('I', "devModeKey:3_m, Entering DeleteModeJobIdRelation..."), 2u);
}

TEST_F(ReceiverRows, EmptyJobIdDeletesNothing) {
    table.AddReceiver("", "", 0, MakeReceiver(session));
    log.Clear();

    table.DeleteReceiver("", 0);

    EXPECT_TRUE(log.Has('I', "Delete receiver jobId , devIndexId 0"));
    EXPECT_EQ(log.Lines().size(), 1u);
    EXPECT_NE(table.GetReceiver("", 0), nullptr);
    EXPECT_FALSE(session->Closed());
}

TEST_F(ReceiverRows, DeletedReceiverIsClosedAndItsEmptyRowGone) {
    FileRunning();

    table.DeleteReceiver("job", 0);

    EXPECT_EQ(table.GetReceiver("job", 0), nullptr);
    EXPECT_TRUE(session->Closed());
    EXPECT_TRUE(log.Has('E', "Can't find jobId: job receiver"));
}

TEST_F(ReceiverRows, OtherDevicesOfTheJobStay) {
    table.AddReceiver("", "job", 0, MakeReceiver(session));
    table.AddReceiver("", "job", 1, MakeReceiver(std::make_shared<MemoryTransport>()));

    table.DeleteReceiver("job", 0);

    EXPECT_EQ(table.GetReceiver("job", 0), nullptr);
    EXPECT_NE(table.GetReceiver("job", 1), nullptr);
}

TEST_F(ReceiverRows, NextJobOfTheDeviceAndModeDropsTheEarlierRow) {
    FileRunning();

    table.AddReceiver("def_mode", "next", 0, MakeReceiver(std::make_shared<MemoryTransport>()));

    EXPECT_EQ(table.GetReceiver("job", 0), nullptr);
    EXPECT_TRUE(session->Closed());
    EXPECT_EQ(table.GetModeJobIdRelation(0, ""), "next");
}

TEST_F(ReceiverRows, SameJobWithAnotherModeReplacesTheReceiver) {
    FileRunning();
    const auto later = MakeReceiver(std::make_shared<MemoryTransport>());

    table.AddReceiver("system-wide", "job", 0, later);

    EXPECT_EQ(table.GetReceiver("job", 0), later);
    EXPECT_TRUE(session->Closed());
}

TEST_F(ReceiverRows, NullReceiverOnlyDropsTheEarlierRow) {
    FileRunning();

    table.AddReceiver("", "next", 0, nullptr);

    EXPECT_TRUE(session->Closed());
    EXPECT_EQ(table.GetReceiver("next", 0), nullptr);
    EXPECT_EQ(table.GetModeJobIdRelation(0, ""), "");
}

TEST_F(ReceiverRows, TasksOfASessionThatEndedByQuitGoWithItsRow) {
    const auto receiver = MakeReceiver(session);
    table.AddReceiver("", "job", 0, receiver);
    TaskManager::Instance().CreateTask(0, "0_job", session);

    table.DeleteReceiver("job", 0);

    EXPECT_EQ(TaskManager::Instance().GetTask("0_job"), nullptr);
}

TEST_F(ReceiverRows, TableStaysFreeWhileADroppedThreadIsJoined) {
    FileRunning();
    session->HoldSends(true);
    session->Push(Encode(JobStart(ContextText("0", "job"), "{}")));
    ASSERT_TRUE(session->WaitForHeldSend());

    std::thread dropper([this] { table.DeleteReceiver("job", 0); });
    ASSERT_TRUE(log.WaitFor('I', "Receiver Unint"));
    EXPECT_EQ(table.GetReceiver("job", 0), nullptr);
    session->HoldSends(false);
    dropper.join();

    EXPECT_TRUE(log.Has('I', "Receiver end, devId:0, devIdOnHost:-1"));
}

TEST_F(ReceiverRows, MessageGoesToTheSessionOfItsJobAndDevice) {
    table.AddReceiver("", "job", 2, MakeReceiver(session));
    const auto message = std::make_shared<proto::Response>();

    EXPECT_EQ(table.SendMsgByDevId("job", 2, message), static_cast<int>(Encode(message).size()));
    EXPECT_EQ(SendReply("job", 2, message), static_cast<int>(Encode(message).size()));

    EXPECT_EQ(session->Sent().size(), 2u);
    EXPECT_TRUE(log.Has('I', "Send devIndexId 2 Message..."));
}

TEST_F(ReceiverRows, MessageWithoutASessionIsNotSent) {
    EXPECT_EQ(table.SendMsgByDevId("job", 2, std::make_shared<proto::Response>()), -1);

    EXPECT_TRUE(log.Has('E', "Can't find jobId: job receiver"));
}

TEST_F(ReceiverRows, NullMessageIsRefusedBeforeTheLookUp) {
    EXPECT_EQ(table.SendMsgByDevId("job", 2, nullptr), -1);

    EXPECT_TRUE(log.Has('E', "[SendMsgByDevId] message is nullptr."));
    EXPECT_FALSE(log.Has('I', "Send devIndexId 2 Message..."));
}

TEST_F(ReceiverRows, ClosedTableFilesNothing) {
    table.Uninit();

    table.AddReceiver("", "job", 0, MakeReceiver(session));

    EXPECT_EQ(table.GetReceiver("job", 0), nullptr);
}

// The table as its heir sees it.
class OpenTable : public analysis::rokt::device::ReceiverTable {
 public:
    using ReceiverTable::ForgetReceiver;
};

TEST_F(ReceiverRows, ForgettingAReceiverLeavesTheRowsOfOthers) {
    OpenTable rows;
    const auto filed = MakeReceiver(session);
    const auto gone = MakeReceiver(std::make_shared<MemoryTransport>());
    rows.AddReceiver("", "job", 0, filed);

    rows.ForgetReceiver("dropped meanwhile", 0, gone);
    rows.ForgetReceiver("job", 1, gone);
    rows.ForgetReceiver("job", 0, gone);

    EXPECT_EQ(rows.GetReceiver("job", 0), filed);
    rows.ForgetReceiver("job", 0, filed);
    EXPECT_EQ(rows.GetReceiver("job", 0), nullptr);
    EXPECT_FALSE(session->Closed());
}

}  // namespace
}  // namespace tiv::test
