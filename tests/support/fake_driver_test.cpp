// Tests of the driver double that works in memory.
#include "support/fake_driver.h"

#include <gtest/gtest.h>

#include <thread>

namespace {

using tiv::test::FakeDriver;

class FakeDriverTest : public testing::Test {
 protected:
    FakeDriverTest() { driver_.Reset(); }

    HDC_MSG NewMessage(HDC_SESSION session) {
        HDC_MSG msg = nullptr;
        EXPECT_EQ(0, drvHdcAllocMsg(session, &msg, 1));
        return msg;
    }
    int32_t Receive(HDC_SESSION session, HDC_MSG msg, uint64_t flag) {
        return halHdcRecv(session, msg, 0, flag, &count_, 0);
    }

    FakeDriver& driver_ = FakeDriver::Instance();
    int32_t count_ = -1;
};

TEST_F(FakeDriverTest, GivesScriptedMessagesBufferByBuffer) {
    const HDC_SESSION session = driver_.NewSession();
    driver_.PushBuffers(session, {std::string("ab"), std::nullopt});
    const HDC_MSG msg = NewMessage(session);
    char* bytes = nullptr;
    int32_t length = -1;

    ASSERT_EQ(0, Receive(session, msg, HDC_FLAG_WAIT));
    EXPECT_EQ(2, count_);
    ASSERT_EQ(0, drvHdcGetMsgBuffer(msg, 0, &bytes, &length));
    EXPECT_EQ("ab", std::string(bytes, static_cast<size_t>(length)));
    ASSERT_EQ(0, drvHdcGetMsgBuffer(msg, 1, &bytes, &length));
    EXPECT_EQ(nullptr, bytes);
    EXPECT_NE(0, drvHdcGetMsgBuffer(msg, 2, &bytes, &length));
}

TEST_F(FakeDriverTest, HasNoDataWhenNothingIsScripted) {
    const HDC_SESSION session = driver_.NewSession();

    EXPECT_EQ(HDC_ERR_NO_DATA, Receive(session, NewMessage(session), HDC_FLAG_NO_WAIT));
}

TEST_F(FakeDriverTest, IsClosedByThePeerAfterItsLastMessage) {
    const HDC_SESSION session = driver_.NewSession();
    driver_.PushMessage(session, "last");
    driver_.ClosePeer(session);
    const HDC_MSG msg = NewMessage(session);

    EXPECT_EQ(0, Receive(session, msg, HDC_FLAG_WAIT));
    EXPECT_EQ(HDC_ERR_CLOSED, Receive(session, msg, HDC_FLAG_WAIT));
}

TEST_F(FakeDriverTest, ACloseWakesABlockedReceive) {
    const HDC_SESSION session = driver_.NewSession();
    const HDC_MSG msg = NewMessage(session);
    int32_t result = -1;
    std::thread reader([&] { result = Receive(session, msg, HDC_FLAG_WAIT); });
    ASSERT_TRUE(driver_.calls.WaitForCalls("halHdcRecv", 1));

    EXPECT_EQ(0, drvHdcSessionClose(session));

    reader.join();
    EXPECT_EQ(HDC_ERR_CLOSED, result);
    EXPECT_NE(0, drvHdcSessionClose(session));
}

TEST_F(FakeDriverTest, RecordsWhatIsSentByteForByte) {
    const HDC_SESSION session = driver_.NewSession();
    const HDC_MSG msg = NewMessage(session);
    std::string bytes("a\0b", 3);
    ASSERT_EQ(0, drvHdcAddMsgBuffer(msg, bytes.data(), 3));

    ASSERT_EQ(0, halHdcSend(session, msg, HDC_FLAG_WAIT, 0));
    bytes = "xxx";

    EXPECT_EQ(std::vector<std::string>{std::string("a\0b", 3)}, driver_.Sent(session));
}

TEST_F(FakeDriverTest, RefusesAMessageAboveTheSegment) {
    const HDC_SESSION session = driver_.NewSession();
    const HDC_MSG msg = NewMessage(session);
    driver_.SetMaxSegment(2);
    char bytes[] = "abc";
    ASSERT_EQ(0, drvHdcAddMsgBuffer(msg, bytes, 3));

    EXPECT_NE(0, halHdcSend(session, msg, HDC_FLAG_WAIT, 0));
    EXPECT_TRUE(driver_.Sent(session).empty());
}

TEST_F(FakeDriverTest, StallsSendsUntilTheStallEnds) {
    const HDC_SESSION session = driver_.NewSession();
    const HDC_MSG msg = NewMessage(session);
    driver_.StallSends(true);
    std::thread writer([&] { EXPECT_EQ(0, halHdcSend(session, msg, HDC_FLAG_WAIT, 0)); });
    ASSERT_TRUE(driver_.calls.WaitForCalls("halHdcSend", 1));
    EXPECT_TRUE(driver_.Sent(session).empty());

    driver_.StallSends(false);

    writer.join();
    EXPECT_EQ(1U, driver_.Sent(session).size());
}

TEST_F(FakeDriverTest, AcceptsQueuedSessionsAndWakesOnDestroy) {
    HDC_SERVER server = nullptr;
    ASSERT_EQ(0, drvHdcServerCreate(0, 4, &server));
    const HDC_SESSION queued = driver_.QueueAccept(5, 1);
    HDC_SESSION accepted = nullptr;
    ASSERT_EQ(0, drvHdcSessionAccept(server, &accepted));
    EXPECT_EQ(queued, accepted);

    int32_t result = 0;
    std::thread waiter([&] { result = drvHdcSessionAccept(server, &accepted); });
    ASSERT_TRUE(driver_.calls.WaitForCalls("drvHdcSessionAccept", 2));
    EXPECT_EQ(0, drvHdcServerDestroy(server));
    waiter.join();

    EXPECT_NE(0, result);
    EXPECT_NE(0, drvHdcServerDestroy(server));
}

TEST_F(FakeDriverTest, AnswersTheAttributesOfASession) {
    const HDC_SESSION session = driver_.NewSession(5, 1);
    int32_t value = -1;

    EXPECT_EQ(0, halHdcGetSessionAttr(session, HDC_ATTR_DEVICE_ID, &value));
    EXPECT_EQ(5, value);
    EXPECT_EQ(0, halHdcGetSessionAttr(session, HDC_ATTR_VF_ID, &value));
    EXPECT_EQ(1, value);
}

TEST_F(FakeDriverTest, CountsWhatWasNotGivenBack) {
    const HDC_SESSION session = driver_.NewSession();
    const HDC_MSG msg = NewMessage(session);

    EXPECT_EQ(1U, driver_.OpenMessages());
    EXPECT_EQ(1U, driver_.OpenSessions());
    EXPECT_EQ(0, drvHdcFreeMsg(msg));
    EXPECT_EQ(0, drvHdcSessionClose(session));

    EXPECT_EQ(0U, driver_.OpenMessages());
    EXPECT_EQ(0U, driver_.OpenSessions());
}

TEST_F(FakeDriverTest, DoesNotSupportADeviceAnswerThatWasNotSet) {
    int64_t value = 77;

    EXPECT_EQ(DRV_NOT_SUPPORTED, halGetDeviceInfo(0, 2, 3, &value));
    EXPECT_EQ(77, value);
    EXPECT_EQ(0, halGetDeviceInfo(0, 0, 1, &value));
    EXPECT_EQ(5 << 8, value);
}

TEST_F(FakeDriverTest, ListsTheChannelsThatWereSet) {
    ProfDrvChannelList list = {};
    driver_.SetChannels(1, {3, 9});

    ASSERT_EQ(0, prof_drv_get_channels(1, &list));

    EXPECT_EQ(2U, list.channelNum);
    EXPECT_EQ(9U, list.channels[1].channelId);
}

class FakeDriverChannel : public FakeDriverTest {
 protected:
    void Start(uint32_t channel) {
        ProfStartPara para = {};
        ASSERT_EQ(0, prof_drv_start(0, channel, &para));
    }
    ProfPollPair pairs_[2] = {};
    char bytes_[8] = {};
};

TEST_F(FakeDriverChannel, PollHasStoppedWhileNoChannelIsOpen) {
    EXPECT_EQ(PROF_STOPPED_ALREADY, prof_channel_poll(pairs_, 2, 1));
}

TEST_F(FakeDriverChannel, IsReportedOnceBetweenTwoReads) {
    Start(8);
    driver_.PushChannelData(0, 8, "abcd");

    EXPECT_EQ(1, prof_channel_poll(pairs_, 2, 0));
    EXPECT_EQ(0, prof_channel_poll(pairs_, 2, 0));
    EXPECT_EQ(0, prof_channel_read(0, 8, bytes_, 0));
    EXPECT_EQ(1, prof_channel_poll(pairs_, 2, 0));
    EXPECT_EQ(4, prof_channel_read(0, 8, bytes_, 8));
    EXPECT_EQ(0, prof_channel_poll(pairs_, 2, 0));
}

TEST_F(FakeDriverChannel, LeavesUnreadBytesUnreadableAfterTheStop) {
    Start(8);
    driver_.PushChannelData(0, 8, "abcd");

    EXPECT_EQ(0, prof_stop(0, 8));

    EXPECT_EQ(PROF_STOPPED_ALREADY, prof_channel_read(0, 8, bytes_, 8));
    EXPECT_EQ(4U, driver_.PendingChannelBytes(0, 8));
}

TEST_F(FakeDriverChannel, AFlushMakesHeldBackBytesReadable) {
    Start(8);
    driver_.HoldBackChannelData(0, 8, "abc");
    uint32_t size = 0;
    EXPECT_EQ(0, prof_channel_read(0, 8, bytes_, 8));

    EXPECT_EQ(0, halProfDataFlush(0, 8, &size));

    EXPECT_EQ(3U, size);
    EXPECT_EQ(1, prof_channel_poll(pairs_, 2, 0));
    EXPECT_EQ(3, prof_channel_read(0, 8, bytes_, 8));
}

TEST_F(FakeDriverChannel, CopiesTheUserDataOfAStart) {
    char words[] = "words";
    ProfStartPara para = {};
    para.userData = words;
    para.userDataSize = 5;

    ASSERT_EQ(0, prof_drv_start(2, 8, &para));

    ASSERT_EQ(1U, driver_.Starts().size());
    EXPECT_EQ("words", driver_.Starts()[0].userData);
    EXPECT_EQ(2U, driver_.Starts()[0].devId);
}

TEST_F(FakeDriverTest, AFunctionCanBeReplaced) {
    driver_.prof_stop = [](uint32_t, uint32_t channel) { return static_cast<int32_t>(channel); };

    EXPECT_EQ(8, prof_stop(0, 8));
    EXPECT_EQ(1U, driver_.calls.Count("prof_stop"));
}

}  // namespace
