// The bytes of a link: framing, and what ends a session, seen from a far end without a driver.
#include <sys/socket.h>
#include <unistd.h>

#include "driver_bench.h"

namespace tiv::test {
namespace {

constexpr uint32_t SEGMENT = 524288;

// Raw bytes at the host's end instead of the driver.
class RawLink : public LinkBench {
 protected:
    void OpenRaw() {
        ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
        raw_ = RawConnect(SocketOf(0));
        ASSERT_EQ(0, drvHdcSessionAccept(server_, &card_));
    }
    // True when the far end has closed.
    bool RawIsClosed() const {
        char byte = 0;
        return recv(raw_, &byte, 1, 0) <= 0;
    }

    int raw_ = -1;
};

TEST_F(RawLink, OneByteAtATimeIsTheSameMessage) {
    OpenRaw();
    const std::string bytes = Frame("slow") + Frame("link");
    Worker sender([&] {
        for (const char byte : bytes) {
            RawSend(raw_, std::string(1, byte));
        }
    });

    EXPECT_EQ((Received{0, "slow"}), ReceiveText(card_));
    EXPECT_EQ((Received{0, "link"}), ReceiveText(card_));
}

TEST_F(RawLink, EmptyMessageIsReceivedWithLength0) {
    OpenRaw();
    RawSend(raw_, Frame("") + Frame("next"));

    EXPECT_EQ((Received{0, ""}), ReceiveText(card_));
    EXPECT_EQ((Received{0, "next"}), ReceiveText(card_));
}

TEST_F(RawLink, NothingIsSentButLengthAndMessage) {
    OpenRaw();
    ASSERT_EQ(0, SendText(card_, "abc"));
    ASSERT_EQ(0, drvHdcSessionClose(card_));

    char bytes[16] = {};
    EXPECT_EQ(7, recv(raw_, bytes, sizeof(bytes), MSG_WAITALL));
    EXPECT_EQ(Frame("abc"), std::string(bytes, 7));
}

TEST_F(RawLink, DeclaredLengthAboveTheSegmentClosesTheSession) {
    OpenRaw();
    const uint32_t length = SEGMENT + 1;
    RawSend(raw_, Frame("good") + std::string(reinterpret_cast<const char*>(&length), 4));
    ::testing::internal::CaptureStderr();

    EXPECT_EQ((Received{0, "good"}), ReceiveText(card_));
    EXPECT_EQ(25, ReceiveText(card_).result);

    EXPECT_TRUE(RawIsClosed());
    EXPECT_EQ(-1, SendText(card_, "no more"));
    EXPECT_EQ(
        "tiv_driver: warning: session closed: device=0: the far end declared a message of "
        "524289 bytes, segment is 524288\n",
        ::testing::internal::GetCapturedStderr());
}

TEST_F(RawLink, LargestDeclaredLengthClosesTheSession) {
    OpenRaw();
    RawSend(raw_, "\xFF\xFF\xFF\xFF");
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(25, ReceiveText(card_).result);

    EXPECT_NE("", ::testing::internal::GetCapturedStderr());
}

TEST_F(RawLink, EndOfFileReads25AfterTheWholeMessages) {
    OpenRaw();
    RawSend(raw_, Frame("whole"));
    close(raw_);

    EXPECT_EQ((Received{0, "whole"}), ReceiveText(card_));
    EXPECT_EQ(25, ReceiveText(card_).result);
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(RawLink, CutMessageReads25AfterTheWholeMessages) {
    OpenRaw();
    RawSend(raw_, Frame("whole") + Frame("cut in two").substr(0, 9));
    close(raw_);

    EXPECT_EQ((Received{0, "whole"}), ReceiveText(card_));
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(RawLink, CutLengthReads25) {
    OpenRaw();
    RawSend(raw_, "\x05");
    close(raw_);

    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(RawLink, ResetReads25AfterTheWholeMessages) {
    OpenRaw();
    ASSERT_EQ(0, SendText(card_, "never read by the far end"));
    RawSend(raw_, Frame("whole"));
    close(raw_);  // with bytes unread: the kernel reports a reset

    EXPECT_EQ((Received{0, "whole"}), ReceiveText(card_));
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(RawLink, ReceiveThatDoesNotWaitGives36UntilTheMessageIsWhole) {
    OpenRaw();
    const std::string bytes = Frame("pieces");

    EXPECT_EQ(36, ReceiveText(card_, HDC_FLAG_NO_WAIT).result);
    RawSend(raw_, bytes.substr(0, 2));
    EXPECT_EQ(36, ReceiveText(card_, HDC_FLAG_NO_WAIT).result);
    RawSend(raw_, bytes.substr(2, 5));
    EXPECT_EQ(36, ReceiveText(card_, HDC_FLAG_NO_WAIT).result);
    RawSend(raw_, bytes.substr(7));
    EXPECT_EQ((Received{0, "pieces"}), ReceiveText(card_, HDC_FLAG_NO_WAIT));
    EXPECT_EQ(36, ReceiveText(card_, HDC_FLAG_NO_WAIT).result);
}

}  // namespace
}  // namespace tiv::test
