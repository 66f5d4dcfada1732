// What the driver makes of refusals of the kernel.
#include <sys/uio.h>

#include "driver_bench.h"
#include "refused_calls.h"
#include "soft_driver/exports.h"
#include "soft_driver/hdc_message.h"
#include "soft_driver/hdc_session.h"
#include "soft_driver/link_socket.h"
#include "soft_driver/listening_socket.h"
#include "soft_driver/peer_check.h"
#include "soft_driver/settings.h"
#include "support/failing_malloc.h"

namespace tiv::test {
namespace {

using soft_driver::ClientSlot;
using soft_driver::ConnectTo;
using soft_driver::FileDescriptor;
using soft_driver::Guarded;
using soft_driver::HdcMessage;
using soft_driver::HdcSession;
using soft_driver::LinkSocket;
using soft_driver::ListeningSocket;
using soft_driver::PeerIdentity;
using soft_driver::PeerIsAllowed;
using soft_driver::SendOutcome;
using soft_driver::SessionAttributes;
using soft_driver::Settings;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST(Guards, ExceptionsBecomeErrorNumbers) {
    EXPECT_EQ(-1, Guarded([]() -> int32_t { throw std::bad_alloc(); }));
    EXPECT_EQ(ENOMEM, errno);
    EXPECT_EQ(-1, Guarded([]() -> int32_t {
        throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
    }));
    EXPECT_EQ(EAGAIN, errno);
    EXPECT_EQ(-1, Guarded([]() -> int32_t { throw std::runtime_error("anything else"); }));
    EXPECT_EQ(EIO, errno);
}

// Two connected sockets, of which the driver has the first.
class Link : public ::testing::Test {
 protected:
    Link() {
        EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends_));
        link_ = std::make_unique<LinkSocket>(FileDescriptor(ends_[0]));
    }
    ~Link() override { close(ends_[1]); }

    SendOutcome Send(bool wait = true) {
        iovec part{text_.data(), text_.size()};
        return link_->Send(&part, 1, wait, 5000);
    }
    void Fill() const {
        const std::string filling(PIECE, 'x');
        while (send(ends_[0], filling.data(), filling.size(), MSG_DONTWAIT) > 0) {
        }
    }
    // The far end reads so many pieces of the filling, at most all.
    void Take(size_t pieces) const {
        std::string piece(PIECE, '\0');
        while (pieces-- > 0 && recv(ends_[1], piece.data(), piece.size(), MSG_DONTWAIT) > 0) {
        }
    }
    std::string Arrived() const {
        std::string bytes(64, '\0');
        const ssize_t count = recv(ends_[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        return bytes.substr(0, count < 0 ? 0 : static_cast<size_t>(count));
    }

    static constexpr size_t PIECE = 4096;
    int ends_[2] = {-1, -1};
    std::unique_ptr<LinkSocket> link_;
    std::string text_ = "over the link";
};

TEST_F(Link, SendsOnAfterASignal) {
    const RefusedCall refused("sendmsg", EINTR);

    EXPECT_EQ(SendOutcome::SENT, Send(false));

    EXPECT_EQ(text_, Arrived());
}

TEST_F(Link, FailedSendKeepsItsReason) {
    const RefusedCall refused("sendmsg", ENOBUFS);

    EXPECT_EQ(SendOutcome::FAILED, Send());

    EXPECT_EQ(ENOBUFS, errno);
    EXPECT_EQ("", Arrived());
}

TEST_F(Link, FailedWaitForRoomFailsTheSend) {
    Fill();
    const RefusedCall refused("poll", ENOMEM);

    EXPECT_EQ(SendOutcome::FAILED, Send());

    EXPECT_EQ(ENOMEM, errno);
}

TEST_F(Link, WaitForRoomGoesOnAfterASignal) {
    Fill();
    const RefusedCall refused("poll", EINTR);
    Worker reader([&] {
        EXPECT_TRUE(RefusedCall::WaitForOne());
        std::string room(100000, '\0');
        while (recv(ends_[1], room.data(), room.size(), 0) > 0 &&
               room.find(text_) == std::string::npos) {
        }
    });

    EXPECT_EQ(SendOutcome::SENT, Send());

    link_->ShutDown();
}

TEST_F(Link, FarEndThatReadsSlowlyIsNotGivenUp) {
    Fill();
    int rounds = 0;
    const TimeOfPolls time([&] { Take(++rounds < 4 ? 1 : SIZE_MAX); });

    EXPECT_EQ(SendOutcome::SENT, Send());

    EXPECT_EQ((std::vector<int>{5000, 5000, 5000, 5000}), TimeOfPolls::Taken());
    EXPECT_EQ(text_, Arrived());
}

TEST_F(Link, FarEndThatStopsReadingIsGivenUpAfterTheLimit) {
    Fill();
    int rounds = 0;
    const TimeOfPolls time([&] { Take(++rounds < 3 ? 1 : 0); });

    EXPECT_EQ(SendOutcome::FAILED, Send());

    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ((std::vector<int>{5000, 5000, 5000}), TimeOfPolls::Taken());
}

TEST_F(Link, ReceivesOnAfterASignal) {
    ASSERT_EQ(5, send(ends_[1], "bytes", 5, 0));
    char bytes[8] = {};
    iovec part{bytes, sizeof(bytes)};
    const RefusedCall refused("recvmsg", EINTR);

    EXPECT_EQ(5, link_->Receive(&part, 1, false));

    EXPECT_STREQ("bytes", bytes);
    EXPECT_EQ(1, RefusedCall::Count());
}

TEST_F(Link, EndIsNoInterruptionWhateverErrnoWasBefore) {
    ASSERT_EQ(0, shutdown(ends_[1], SHUT_WR));
    char byte = 0;
    iovec part{&byte, 1};
    errno = EINTR;

    EXPECT_EQ(0, link_->Receive(&part, 1, true));
}

TEST_F(Link, BuffersOfTheSystemsLimitGoWhereLargerOnesAreRefused) {
    Settings settings;
    settings.sendBufferBytes = 8192;
    settings.receiveBufferBytes = 16384;
    const RefusedCall refused("setsockopt", EPERM);

    SetSocketBuffers(ends_[0], settings);

    int bytes = 0;
    socklen_t length = sizeof(bytes);
    EXPECT_EQ(0, getsockopt(ends_[0], SOL_SOCKET, SO_SNDBUF, &bytes, &length));
    EXPECT_EQ(2 * 8192, bytes);  // the kernel doubles what it is asked for
    EXPECT_EQ(1, RefusedCall::Count());
}

TEST(Receiving, MessageWithoutMemoryIsThereForTheNextReceive) {
    int ends[2] = {-1, -1};
    ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM, 0, ends));
    HdcSession session(FileDescriptor(ends[0]), SessionAttributes{}, 1024, 30, ClientSlot());
    HdcMessage message(session.Shelf());
    const std::string text(500, 'm');
    RawSend(ends[1], Frame(text));
    char* data = nullptr;
    int32_t bytes = 0;
    {
        const FailingMalloc failing(500);
        EXPECT_EQ(-1, session.Receive(message, true));
        EXPECT_EQ(ENOMEM, errno);
    }
    EXPECT_FALSE(message.Get(&data, &bytes));

    EXPECT_EQ(0, session.Receive(message, true));

    ASSERT_TRUE(message.Get(&data, &bytes));
    EXPECT_EQ(text, std::string(data, static_cast<size_t>(bytes)));
    close(ends[1]);
}

TEST(Connecting, PathThatIsTooLongIsToldAndRefused) {
    const std::string path = "/" + std::string(120, 'd');
    CaptureStderr();

    EXPECT_FALSE(ConnectTo(path, Settings()).IsOpen());

    EXPECT_EQ(ENAMETOOLONG, errno);
    EXPECT_EQ("tiv_driver: warning: socket path is too long: path=" + path + "\n",
              GetCapturedStderr());
}

TEST(Connecting, WithoutASocketThereIsNoConnection) {
    const RefusedCall refused("socket", EMFILE);

    EXPECT_FALSE(ConnectTo("/nowhere", Settings()).IsOpen());

    EXPECT_EQ(EMFILE, errno);
}

TEST(Connecting, SignalDoesNotEndTheTry) {
    TempDir directory;
    const auto listener = ListeningSocket::Open(directory.Path("."), directory.Path("s"));
    const RefusedCall refused("connect", EINTR);

    Settings settings;
    settings.stallLimitMs = 1250;
    EXPECT_TRUE(ConnectTo(directory.Path("s"), settings).IsOpen());

    EXPECT_EQ((std::vector<int64_t>{1250000, 0}), SendTimeouts());

    EXPECT_EQ(1, RefusedCall::Count());
}

constexpr PeerIdentity SOMEBODY{1, 4242, 4242};

TEST(PeerGroups, LongListIsAskedForAgain) {
    std::vector<uint32_t> groups(100, 7);
    groups.back() = 99;
    const GroupsOfPeers peers(groups);

    EXPECT_TRUE(PeerIsAllowed(-1, SOMEBODY, 99));
    EXPECT_FALSE(PeerIsAllowed(-1, SOMEBODY, 98));
}

TEST(PeerGroups, ListThatCannotBeReadAdmitsNobody) {
    const GroupsOfPeers peers({99});
    const RefusedCall refused("getsockopt", ENOPROTOOPT);

    EXPECT_FALSE(PeerIsAllowed(-1, SOMEBODY, 99));
}

TEST(PeerGroups, ShortListThatDoesNotFitAdmitsNobody) {
    const GroupsOfPeers peers({99});
    const RefusedCall refused("getsockopt", ERANGE);

    EXPECT_FALSE(PeerIsAllowed(-1, SOMEBODY, 99));
}

TEST(PeerGroups, GroupOfAllThatHaveNoMappingAdmitsNobody) {
    const GroupsOfPeers peers({65534});

    EXPECT_FALSE(PeerIsAllowed(-1, {1, 4242, 65534}, 65534));
}

TEST(PeerGroups, FirstGroupOfThePeerCountsToo) {
    const GroupsOfPeers peers({});

    EXPECT_TRUE(PeerIsAllowed(-1, SOMEBODY, SOMEBODY.gid));
    EXPECT_FALSE(PeerIsAllowed(-1, SOMEBODY, SOMEBODY.gid + 1));
}

TEST(PeerGroups, RootAndTheSameUserNeedNoGroup) {
    const GroupsOfPeers peers({});
    const uid_t before = geteuid();
    if (before == 0 && seteuid(SOMEBODY.uid) != 0) {
        GTEST_SKIP() << "this namespace has one user only";
    }

    EXPECT_TRUE(PeerIsAllowed(-1, {1, 0, 4243}, 99));
    EXPECT_TRUE(PeerIsAllowed(-1, {1, geteuid(), 4243}, 99));
    EXPECT_FALSE(PeerIsAllowed(-1, {1, geteuid() + 1, 4243}, 99));

    EXPECT_EQ(0, seteuid(before));
}

TEST(PeerGroups, NamespaceThatCannotBeReadIsAContainer) {
    EXPECT_EQ(0, soft_driver::VirtualFunctionOf(getpid()));
    EXPECT_EQ(1, soft_driver::VirtualFunctionOf(0));
    {
        const RefusedCall refused("readlink", EACCES);
        EXPECT_EQ(1, soft_driver::VirtualFunctionOf(getpid()));
    }
    const RefusedCall refused("readlink", EACCES, 2);
    EXPECT_EQ(1, soft_driver::VirtualFunctionOf(getpid()));
}

}  // namespace
}  // namespace tiv::test
