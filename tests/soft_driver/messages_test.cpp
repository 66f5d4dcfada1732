// Messages on a session: framing, waiting, and the ends of a session.
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/time.h>

#include "driver_bench.h"

namespace tiv::test {
namespace {

constexpr size_t SEGMENT = 524288;

class Messages : public LinkBench {};

std::string Pattern(size_t bytes, size_t seed) {
    std::string text(bytes, '\0');
    for (size_t i = 0; i < bytes; ++i) {
        text[i] = static_cast<char>((i * 131 + seed * 17 + i / 251) & 0xFF);
    }
    return text;
}

TEST_F(Messages, TravelBothWaysWhole) {
    Open();

    EXPECT_EQ(0, SendText(host_, "to the card"));
    EXPECT_EQ(0, SendText(card_, "to the host"));

    EXPECT_EQ((Received{0, "to the card"}), ReceiveText(card_));
    EXPECT_EQ((Received{0, "to the host"}), ReceiveText(host_));
}

TEST_F(Messages, KeepTheirBordersAndTheirOrder) {
    Open();

    for (const char* text : {"a", "bc", "def"}) {
        EXPECT_EQ(0, SendText(host_, text));
    }

    EXPECT_EQ((Received{0, "a"}), ReceiveText(card_));
    EXPECT_EQ((Received{0, "bc"}), ReceiveText(card_));
    EXPECT_EQ((Received{0, "def"}), ReceiveText(card_));
}

TEST_F(Messages, CapacityIsTheSegmentOfTheFile) {
    Configure(R"({"segment_bytes": 1024})");
    HdcCapacity capacity{2, 0};

    EXPECT_EQ(0, drvHdcGetCapacity(&capacity));

    EXPECT_EQ(1024u, capacity.maxSegment);
    EXPECT_EQ(2u, capacity.chanType);
}

TEST_F(Messages, OfAWholeSegmentPass) {
    Open();
    Worker sender([this] {
        for (size_t i = 0; i < 32; ++i) {
            EXPECT_EQ(0, SendText(host_, Pattern(SEGMENT, i)));
        }
    });

    for (size_t i = 0; i < 32; ++i) {
        EXPECT_EQ((Received{0, Pattern(SEGMENT, i)}), ReceiveText(card_));
    }
}

TEST_F(Messages, LongerThanTheSegmentFailAndEndTheSession) {
    Open();

    EXPECT_EQ(-1, SendText(host_, std::string(SEGMENT + 1, 'x')));
    EXPECT_EQ(EMSGSIZE, errno);

    EXPECT_EQ(-1, SendText(host_, "later"));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(Messages, WithoutABufferCannotBeSentAndEndTheSession) {
    Open();
    HDC_MSG empty = nullptr;
    ASSERT_EQ(0, drvHdcAllocMsg(host_, &empty, 1));

    EXPECT_EQ(-1, halHdcSend(host_, empty, HDC_FLAG_WAIT, 0));

    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(Messages, OfAKilledProcessArriveBefore25) {
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    const pid_t child = fork();
    if (child == 0) {
        HDC_SESSION session = nullptr;
        (void)drvHdcClientCreate(&client_, 96, SERVICE, 0);
        (void)drvHdcSessionConnect(0, 0, client_, &session);
        (void)SendText(session, "last words");
        (void)kill(getpid(), SIGKILL);
    }
    ASSERT_EQ(0, drvHdcSessionAccept(server_, &card_));
    ASSERT_EQ(child, waitpid(child, nullptr, 0));

    EXPECT_EQ((Received{0, "last words"}), ReceiveText(card_));
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(Messages, ReceiveThatDoesNotWaitDoesNotWaitForAnotherReceiver) {
    Open();
    Worker receiver([this] { EXPECT_EQ((Received{0, "wake"}), ReceiveText(card_)); });
    receiver.WaitUntilBlocked();

    EXPECT_EQ(36, ReceiveText(card_, HDC_FLAG_NO_WAIT).result);

    EXPECT_EQ(0, SendText(host_, "wake"));
}

TEST_F(Messages, CloseWakesABlockedReceiveWith25) {
    Open();
    Worker receiver([this] { EXPECT_EQ(25, ReceiveText(card_).result); });
    receiver.WaitUntilBlocked();

    EXPECT_EQ(0, drvHdcSessionClose(card_));
}

// Sends until the driver refuses; the number of messages that went.
size_t SendUntilFailure(HDC_SESSION session) {
    size_t sent = 0;
    while (SendText(session, std::string(SEGMENT, 'f')) == 0) {
        ++sent;
    }
    return sent;
}

TEST_F(Messages, CloseWakesABlockedSendWithAnErrorAndWholeMessagesArrive) {
    Open();
    size_t sent = 0;
    Worker sender([&] { sent = SendUntilFailure(host_); });
    sender.WaitUntilBlocked();
    ASSERT_EQ(0, drvHdcSessionClose(host_));
    sender.Join();

    for (size_t i = 0; i < sent; ++i) {
        EXPECT_EQ((Received{0, std::string(SEGMENT, 'f')}), ReceiveText(card_));
    }
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(Messages, FarEndsCloseWakesABlockedSend) {
    Open();
    Worker sender([this] {
        EXPECT_LT(0u, SendUntilFailure(host_));
        EXPECT_EQ(EPIPE, errno);
    });
    sender.WaitUntilBlocked();

    EXPECT_EQ(0, drvHdcSessionClose(card_));
}

TEST_F(Messages, StalledSendFailsAndEndsTheSessionBothWays) {
    Configure(R"({"stall_limit_ms": 30})");
    Open();
    ASSERT_EQ(0, SendText(card_, "unread"));

    const size_t sent = SendUntilFailure(host_);

    EXPECT_EQ(-1, SendText(host_, "later"));
    EXPECT_EQ(EPIPE, errno);
    EXPECT_EQ(25, ReceiveText(host_).result);
    for (size_t i = 0; i < sent; ++i) {
        EXPECT_EQ(SEGMENT, ReceiveText(card_).text.size());
    }
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(Messages, StallIsReportedAsATimeOut) {
    Configure(R"({"stall_limit_ms": 30})");
    Open();

    (void)SendUntilFailure(host_);

    EXPECT_EQ(ETIMEDOUT, errno);
}

// Voluntary context switches of this thread.
long Switches() {
    rusage usage{};
    getrusage(RUSAGE_THREAD, &usage);
    return usage.ru_nvcsw;
}

TEST_F(Messages, StalledSendSleepsInTheKernelForTheWholeLimit) {
    Configure(R"({"stall_limit_ms": 500})");
    Open();
    const long before = Switches();

    (void)SendUntilFailure(host_);

    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_GE(10, Switches() - before);
}

TEST_F(Messages, SendThatDoesNotWaitGives36OnAFullLinkAndTheSessionLives) {
    Open();
    size_t sent = 0;
    while (SendText(host_, std::string(4096, 'n'), HDC_FLAG_NO_WAIT) == 0) {
        ++sent;
        if (sent > 4096) {
            break;
        }
    }
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(36, SendText(host_, std::string(4096, 'n'), HDC_FLAG_NO_WAIT));

    for (size_t i = 0; i < sent; ++i) {
        EXPECT_EQ(4096u, ReceiveText(card_).text.size());
    }
    EXPECT_EQ(0, SendText(host_, "room again"));
    EXPECT_EQ((Received{0, "room again"}), ReceiveText(card_));
}

TEST_F(Messages, SendThatDoesNotWaitDoesNotWaitForAnotherSender) {
    Open();
    Worker sender([this] { (void)SendUntilFailure(host_); });
    sender.WaitUntilBlocked();

    EXPECT_EQ(36, SendText(host_, "not now", HDC_FLAG_NO_WAIT));

    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(0, drvHdcSessionClose(host_));
}

TEST_F(Messages, MistakesOfASendThatDoesNotWaitLeaveTheSession) {
    Open();

    EXPECT_EQ(-1, SendText(host_, std::string(SEGMENT + 1, 'x'), HDC_FLAG_NO_WAIT));
    EXPECT_EQ(EMSGSIZE, errno);
    EXPECT_EQ(-1, halHdcSend(host_, nullptr, HDC_FLAG_NO_WAIT, 0));
    EXPECT_EQ(EINVAL, errno);

    EXPECT_EQ(0, SendText(host_, "unharmed"));
    EXPECT_EQ((Received{0, "unharmed"}), ReceiveText(card_));
}

TEST_F(Messages, MessageThatIsGoneCannotBeSentAndEndsTheSession) {
    Open();

    EXPECT_EQ(-1, halHdcSend(host_, nullptr, HDC_FLAG_WAIT, 0));

    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(25, ReceiveText(card_).result);
}

TEST_F(Messages, OfTwoSendersDoNotMix) {
    Open();
    const auto many = [this](char letter) {
        for (int i = 0; i < 40; ++i) {
            EXPECT_EQ(0, SendText(host_, std::string(300000, letter)));
        }
    };
    Worker first([&] { many('a'); });
    Worker second([&] { many('b'); });

    for (int i = 0; i < 80; ++i) {
        const std::string text = ReceiveText(card_).text;
        ASSERT_EQ(300000u, text.size());
        EXPECT_EQ(std::string::npos, text.find_first_not_of(text[0]));
    }
}

TEST_F(Messages, OfTwoReceiversDoNotMix) {
    Open();
    const auto many = [this] {
        for (int i = 0; i < 40; ++i) {
            const std::string text = ReceiveText(card_).text;
            ASSERT_EQ(300000u, text.size());
            EXPECT_EQ(std::string::npos, text.find_first_not_of(text[0]));
        }
    };
    Worker first(many);
    Worker second(many);

    for (int i = 0; i < 80; ++i) {
        EXPECT_EQ(0, SendText(host_, std::string(300000, static_cast<char>('0' + i))));
    }
}

TEST_F(Messages, SessionsLiveOnWithoutTheirServer) {
    Open();

    EXPECT_EQ(0, drvHdcServerDestroy(server_));
    EXPECT_EQ(0, drvHdcClientDestroy(client_));

    EXPECT_EQ(0, SendText(host_, "still here"));
    EXPECT_EQ((Received{0, "still here"}), ReceiveText(card_));
}

TEST_F(Messages, DrainedSessionOfADeadPeerGivesItsDescriptorBack) {
    Open();
    ASSERT_EQ(0, SendText(host_, "rest"));
    ASSERT_EQ(0, drvHdcSessionClose(host_));
    const size_t before = OpenDescriptors();

    EXPECT_EQ((Received{0, "rest"}), ReceiveText(card_));
    EXPECT_EQ(before, OpenDescriptors());
    EXPECT_EQ(25, ReceiveText(card_).result);

    EXPECT_EQ(before - 1, OpenDescriptors());
    EXPECT_EQ(-1, SendText(card_, "nobody"));
    EXPECT_EQ(0, drvHdcSessionClose(card_));
}

void* SendAndReceive(void* argument) {
    HDC_SESSION* ends = static_cast<HDC_SESSION*>(argument);
    EXPECT_EQ(0, SendText(ends[0], "small stack"));
    EXPECT_EQ((Received{0, "small stack"}), ReceiveText(ends[1]));
    return nullptr;
}

TEST_F(Messages, PassOnAStackOf128KiB) {
    Open();
    HDC_SESSION ends[2] = {host_, card_};
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 131072);
    pthread_t thread{};
    ASSERT_EQ(0, pthread_create(&thread, &attributes, SendAndReceive, ends));

    EXPECT_EQ(0, pthread_join(thread, nullptr));
    pthread_attr_destroy(&attributes);
}

}  // namespace
}  // namespace tiv::test
