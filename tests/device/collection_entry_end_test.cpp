// Tests of the end of the collection entry, and of sessions that open during it.
#include <thread>

#include "device/handshake_fixture.h"
#include "device/receiver.h"

namespace tiv::test {
namespace {

using analysis::rokt::device::Receiver;
using analysis::rokt::message::StatusInfo;
using analysis::rokt::transport::Uploader;

class EntryEnd : public HandshakeTest {
 protected:
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
};

TEST_F(EntryEnd, UninitEndsLiveSessionsOfBothKinds) {
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

TEST_F(EntryEnd, SecondUninitEndsNothing) {
    entry.Uninit();
    const Session data = FileUploader("job");

    EXPECT_EQ(entry.Uninit(), 0);

    EXPECT_NE(FindUploader("job"), nullptr);
    EXPECT_EQ(log.Count('I', "uinit Collection Entry."), 2u);
}

TEST_F(EntryEnd, HandshakeDuringTheEndIsRefusedLikeOneBeforeTheStart) {
    std::thread end = HoldTheEnd();

    const Session late = NewSession();
    EXPECT_EQ(OpenControl(late, "late", "system-wide"), -1);
    session->HoldSends(false);
    end.join();

    EXPECT_TRUE(log.Has('E', "Collection Entry was not inited."));
    EXPECT_TRUE(late->Sent().empty());
}

TEST_F(EntryEnd, ControlSessionThatPassedBeforeTheEndIsNotFiled) {
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

TEST_F(EntryEnd, DataSessionThatPassedBeforeTheEndIsNotKept) {
    std::thread end = HoldTheEnd();

    const auto uploader = std::make_shared<Uploader>(NewSession());
    EXPECT_EQ(entry.HandleDataSession(uploader, *DataHandshake("late", ""), 2), 0);

    EXPECT_EQ(FindUploader("late"), nullptr);
    session->HoldSends(false);
    end.join();
}

}  // namespace
}  // namespace tiv::test
