// Handles, and the buffers of the messages behind them.
#include "driver_bench.h"

namespace tiv::test {
namespace {

class Handles : public LinkBench {};

TEST_F(Handles, ReceivedMessageOutlivesItsSession) {
    Open();
    HDC_MSG message = nullptr;
    int32_t count = 0;
    ASSERT_EQ(0, drvHdcAllocMsg(card_, &message, 1));
    ASSERT_EQ(0, SendText(host_, "kept"));
    ASSERT_EQ(0, halHdcRecv(card_, message, 0, HDC_FLAG_WAIT, &count, 0));

    ASSERT_EQ(0, drvHdcSessionClose(card_));

    char* data = nullptr;
    int32_t bytes = 0;
    ASSERT_EQ(0, drvHdcGetMsgBuffer(message, 0, &data, &bytes));
    EXPECT_EQ("kept", std::string(data, static_cast<size_t>(bytes)));
    EXPECT_EQ(0, drvHdcReuseMsg(message));
    EXPECT_EQ(0, drvHdcFreeMsg(message));
}

TEST_F(Handles, ReuseEmptiesAMessageForTheNextBuffer) {
    Open();
    HDC_MSG message = nullptr;
    ASSERT_EQ(0, drvHdcAllocMsg(host_, &message, 1));
    char buffer[] = "12345678";

    EXPECT_EQ(0, drvHdcAddMsgBuffer(message, buffer, 3));
    EXPECT_EQ(-1, drvHdcAddMsgBuffer(message, buffer, 3));
    EXPECT_EQ(0, halHdcSend(host_, message, HDC_FLAG_WAIT, 0));
    buffer[0] = 'x';
    EXPECT_EQ(0, drvHdcReuseMsg(message));
    char* data = nullptr;
    int32_t bytes = 0;
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 0, &data, &bytes));
    EXPECT_EQ(0, drvHdcAddMsgBuffer(message, buffer, 2));
    EXPECT_EQ(0, halHdcSend(host_, message, HDC_FLAG_WAIT, 0));

    EXPECT_EQ((Received{0, "123"}), ReceiveText(card_));
    EXPECT_EQ((Received{0, "x2"}), ReceiveText(card_));
    EXPECT_EQ(0, drvHdcFreeMsg(message));
}

TEST_F(Handles, AddedBufferIsTheBufferOfTheMessage) {
    Open();
    HDC_MSG message = nullptr;
    ASSERT_EQ(0, drvHdcAllocMsg(host_, &message, 1));
    char buffer[] = "12345678";
    ASSERT_EQ(0, drvHdcAddMsgBuffer(message, buffer, 3));
    char* data = nullptr;
    int32_t bytes = 0;

    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 1, &data, &bytes));
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 0, nullptr, &bytes));
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 0, &data, nullptr));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(0, drvHdcGetMsgBuffer(message, 0, &data, &bytes));

    EXPECT_EQ(buffer, data);
    EXPECT_EQ(3, bytes);
}

TEST_F(Handles, ReceiveEmptiesAMessageFirst) {
    Open();
    HDC_MSG message = nullptr;
    int32_t count = 0;
    char buffer[] = "12345678";
    char* data = nullptr;
    int32_t bytes = 0;
    ASSERT_EQ(0, drvHdcAllocMsg(card_, &message, 1));
    ASSERT_EQ(0, drvHdcAddMsgBuffer(message, buffer, 3));

    EXPECT_EQ(36, halHdcRecv(card_, message, 0, HDC_FLAG_NO_WAIT, &count, 0));
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 0, &data, &bytes));

    ASSERT_EQ(0, SendText(host_, "come"));
    EXPECT_EQ(0, halHdcRecv(card_, message, 0, HDC_FLAG_WAIT, &count, 0));
    EXPECT_EQ(0, drvHdcGetMsgBuffer(message, 0, &data, &bytes));
    EXPECT_EQ("come", std::string(data, static_cast<size_t>(bytes)));
}

TEST_F(Handles, ReceivedMessageTakesNoBuffer) {
    Open();
    HDC_MSG message = nullptr;
    int32_t count = 0;
    char buffer[] = "12345678";
    ASSERT_EQ(0, drvHdcAllocMsg(card_, &message, 1));
    ASSERT_EQ(0, SendText(host_, "kept"));
    ASSERT_EQ(0, halHdcRecv(card_, message, 0, HDC_FLAG_WAIT, &count, 0));

    EXPECT_EQ(-1, drvHdcAddMsgBuffer(message, buffer, 3));
    EXPECT_EQ(EINVAL, errno);

    char* data = nullptr;
    int32_t bytes = 0;
    ASSERT_EQ(0, drvHdcGetMsgBuffer(message, 0, &data, &bytes));
    EXPECT_EQ("kept", std::string(data, static_cast<size_t>(bytes)));
}

TEST_F(Handles, OpenSessionMayBeReferredTo) {
    Open();

    EXPECT_EQ(0, drvHdcSetSessionReference(host_));

    EXPECT_EQ(0, SendText(host_, "unharmed"));
}

TEST_F(Handles, BadArgumentsAreRefused) {
    Open();
    HDC_MSG message = nullptr;
    char byte = 'b';
    char* data = nullptr;
    int32_t count = 0;

    EXPECT_EQ(-1, drvHdcAllocMsg(host_, nullptr, 1));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, drvHdcAllocMsg(host_, &message, 2));
    ASSERT_EQ(0, drvHdcAllocMsg(host_, &message, 1));
    EXPECT_EQ(-1, drvHdcAddMsgBuffer(message, nullptr, 1));
    EXPECT_EQ(-1, drvHdcAddMsgBuffer(message, &byte, 0));
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 0, nullptr, &count));
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 1, &data, &count));
    EXPECT_EQ(-1, halHdcRecv(host_, message, 0, 2, &count, 0));
    EXPECT_EQ(-1, halHdcRecv(host_, message, 0, HDC_FLAG_WAIT, nullptr, 0));
    EXPECT_EQ(-1, halHdcSend(host_, message, 2, 0));
    EXPECT_EQ(0, SendText(host_, "unharmed"));
}

TEST_F(Handles, StaleOnesGiveAnErrorFromEveryFunction) {
    Open();
    HDC_MSG message = nullptr;
    int32_t number = 0;
    char* data = nullptr;
    char byte = 'b';
    ASSERT_EQ(0, drvHdcAllocMsg(host_, &message, 1));
    ASSERT_EQ(0, drvHdcFreeMsg(message));
    EXPECT_EQ(-1, drvHdcFreeMsg(message));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, drvHdcReuseMsg(message));
    EXPECT_EQ(-1, drvHdcGetMsgBuffer(message, 0, &data, &number));
    EXPECT_EQ(-1, drvHdcAddMsgBuffer(message, &byte, 1));
    EXPECT_EQ(-1, halHdcRecv(host_, message, 0, 0, &number, 0));

    ASSERT_EQ(0, drvHdcSessionClose(host_));
    EXPECT_EQ(-1, drvHdcSessionClose(host_));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, drvHdcSetSessionReference(host_));
    EXPECT_EQ(-1, drvHdcAllocMsg(host_, &message, 1));
    EXPECT_EQ(-1, halHdcSend(host_, message, 0, 0));
    EXPECT_EQ(-1, halHdcGetSessionAttr(host_, 0, &number));
}

TEST_F(Handles, ReceiveOnASessionThatIsGoneLeavesMessageAndCount) {
    Open();
    HDC_MSG message = nullptr;
    int32_t count = 7;
    ASSERT_EQ(0, drvHdcAllocMsg(host_, &message, 1));
    ASSERT_EQ(0, drvHdcSessionClose(host_));

    EXPECT_EQ(-1, halHdcRecv(host_, message, 0, HDC_FLAG_WAIT, &count, 0));

    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(7, count);
}

TEST_F(Handles, StaleClientsAndServersGiveAnError) {
    Open();
    HDC_SESSION session = nullptr;
    ASSERT_EQ(0, drvHdcClientDestroy(client_));
    ASSERT_EQ(0, drvHdcServerDestroy(server_));

    EXPECT_EQ(-1, drvHdcClientDestroy(client_));
    EXPECT_EQ(EBADF, errno);
    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, client_, &session));
    EXPECT_EQ(-1, drvHdcServerDestroy(server_));
    EXPECT_EQ(-1, drvHdcSessionAccept(server_, &session));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(Handles, OfOneKindMeanNothingToAnother) {
    Open();

    EXPECT_EQ(-1, drvHdcSessionClose(server_));
    EXPECT_EQ(-1, drvHdcFreeMsg(host_));
    EXPECT_EQ(-1, drvHdcServerDestroy(client_));

    EXPECT_EQ(0, SendText(host_, "untouched"));
    EXPECT_EQ((Received{0, "untouched"}), ReceiveText(card_));
}

TEST_F(Handles, AreNeverReused) {
    Open();
    HDC_SESSION old = host_;
    ASSERT_EQ(0, drvHdcSessionClose(host_));
    ASSERT_EQ(0, drvHdcSessionConnect(0, 0, client_, &host_));

    EXPECT_LT(old, host_);
    EXPECT_EQ(-1, drvHdcSessionClose(old));
    EXPECT_EQ(0, SendText(host_, "alive"));
}

}  // namespace
}  // namespace tiv::test
