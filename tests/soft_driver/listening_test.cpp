// A server's listening socket: whose path it is, and what becomes of connections.
#include <sys/file.h>
#include <sys/socket.h>

#include "driver_bench.h"
#include "refused_calls.h"
#include "soft_driver/file_descriptor.h"
#include "soft_driver/link_socket.h"
#include "soft_driver/listening_socket.h"
#include "soft_driver/settings.h"

namespace tiv::test {
namespace {

using soft_driver::ConnectTo;
using soft_driver::FileDescriptor;
using soft_driver::ListeningSocket;
using soft_driver::Settings;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class Listening : public ::testing::Test {
 protected:
    std::unique_ptr<ListeningSocket> Open() {
        return ListeningSocket::Open(directory_.Path("."), path_);
    }
    // A socket at the path at which nobody listens.
    FileDescriptor BoundSocket(int type) const {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
        FileDescriptor bound(socket(AF_UNIX, type | SOCK_CLOEXEC, 0));
        EXPECT_EQ(0, bind(bound.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));
        return bound;
    }

    TempDir directory_;
    const std::string path_ = directory_.Path("here.sock");
    pid_t peer_ = 0;
};

TEST_F(Listening, WithoutItsDirectoryThereIsNoSocket) {
    EXPECT_EQ(nullptr, ListeningSocket::Open(directory_.Path("absent"), path_));

    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Listening, RefusalsOfTheSystemAreTold) {
    for (const char* function : {"socket", "flock", "bind", "chmod", "listen"}) {
        const RefusedCall refused(function, EACCES);
        EXPECT_EQ(nullptr, Open()) << function;
        EXPECT_EQ(EACCES, errno) << function;
    }

    EXPECT_NE(nullptr, Open());
}

TEST_F(Listening, GroupThatCannotBeSetIsAWarning) {
    const RefusedCall refused("lchown", EPERM);
    CaptureStderr();

    const auto listener = Open();

    ASSERT_NE(nullptr, listener);
    EXPECT_EQ("tiv_driver: warning: group of the socket cannot be set: path=" + path_ +
                  ": Operation not permitted\n",
              GetCapturedStderr());
    EXPECT_LE(0, RawConnect(path_));
}

TEST_F(Listening, FailedAcceptIsTold) {
    const auto listener = Open();
    const RefusedCall refused("accept4", EPERM);

    EXPECT_FALSE(listener->Accept(&peer_).IsOpen());

    EXPECT_EQ(EPERM, errno);
}

TEST_F(Listening, ConnectionThatWasGivenUpIsPassedOver) {
    const auto listener = Open();
    ASSERT_LE(0, RawConnect(path_));
    const RefusedCall refused("accept4", ECONNABORTED);

    EXPECT_TRUE(listener->Accept(&peer_).IsOpen());

    EXPECT_EQ(getpid(), peer_);
}

TEST_F(Listening, PeerWithoutCredentialsIsClosedAndTheWaitGoesOn) {
    const auto listener = Open();
    const int stranger = RawConnect(path_);
    ASSERT_LE(0, RawConnect(path_));
    const RefusedCall refused("getsockopt", ENOTCONN);
    CaptureStderr();

    const FileDescriptor accepted = listener->Accept(&peer_);

    EXPECT_TRUE(accepted.IsOpen());
    EXPECT_EQ(getpid(), peer_);
    EXPECT_EQ("tiv_driver: warning: connection refused: path=" + path_ +
                  ": no credentials: Transport endpoint is not connected\n",
              GetCapturedStderr());
    char byte = 0;
    EXPECT_EQ(0, recv(stranger, &byte, 1, 0));
}

TEST_F(Listening, ShortageThatLastsPausesBetweenTheTries) {
    const auto listener = Open();
    ASSERT_LE(0, RawConnect(path_));
    const RefusedCall refused("accept4", EMFILE, 8);
    CaptureStderr();

    EXPECT_TRUE(listener->Accept(&peer_).IsOpen());

    EXPECT_EQ((std::vector<int>{10, 10}), Pauses());
    EXPECT_EQ(
        "tiv_driver: warning: connections are dropped: path=" + path_ + ": Too many open files\n",
        GetCapturedStderr());
}

TEST_F(Listening, EveryShortageDropsTheConnectionAndTheWaitGoesOn) {
    const auto listener = Open();
    for (const int shortage : {EMFILE, ENFILE, ENOBUFS, ENOMEM}) {
        const FileDescriptor dropped(RawConnect(path_));
        const FileDescriptor next(RawConnect(path_));
        const RefusedCall refused("accept4", shortage, 2);
        CaptureStderr();

        EXPECT_TRUE(listener->Accept(&peer_).IsOpen());

        EXPECT_EQ("tiv_driver: warning: connections are dropped: path=" + path_ + ": " +
                      strerror(shortage) + "\n",
                  GetCapturedStderr());
        char byte = 0;
        EXPECT_EQ(0, recv(dropped.Get(), &byte, 1, MSG_DONTWAIT));
    }
    EXPECT_TRUE(Pauses().empty());
}

TEST_F(Listening, ShortageWithoutAConnectionToDropPauses) {
    const auto listener = Open();
    const RefusedCall refused("accept4", EMFILE, 2);
    const TimeOfPolls time([] {});
    FileDescriptor connected;
    Worker client([&] {
        const auto deadline = std::chrono::system_clock::now() + std::chrono::seconds(10);
        while (Pauses().empty() && std::chrono::system_clock::now() < deadline) {
            std::this_thread::yield();
        }
        connected = FileDescriptor(RawConnect(path_));
    });

    EXPECT_TRUE(listener->Accept(&peer_).IsOpen());

    EXPECT_EQ(std::vector<int>{10}, Pauses());
    EXPECT_EQ(std::vector<int>{-1}, TimeOfPolls::Taken());
}

TEST_F(Listening, ConnectionThatComesWithTheCloseIsClosed) {
    const auto listener = Open();
    const FileDescriptor late(RawConnect(path_));
    listener->Close();

    EXPECT_FALSE(listener->Accept(&peer_).IsOpen());

    EXPECT_EQ(EBADF, errno);
    char byte = 0;
    EXPECT_EQ(0, recv(late.Get(), &byte, 1, MSG_DONTWAIT));
    EXPECT_EQ(0, peer_);
}

TEST_F(Listening, LockOfAnotherAloneKeepsThePath) {
    const FileDescriptor lock(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(0, flock(lock.Get(), LOCK_EX));

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(Listening, LockIsNoLinkToAnotherFile) {
    const std::string target = directory_.Path("target");
    ASSERT_EQ(0, symlink(target.c_str(), (path_ + ".lock").c_str()));

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(ELOOP, errno);
    EXPECT_NE(0, access(target.c_str(), F_OK));
}

TEST_F(Listening, DeadSocketThatCannotBeReplacedIsAnError) {
    const FileDescriptor dead = BoundSocket(SOCK_STREAM);
    {
        const RefusedCall refused("lstat", EACCES);
        EXPECT_EQ(nullptr, Open());
        EXPECT_EQ(EADDRINUSE, errno);
        EXPECT_EQ(0, access(path_.c_str(), F_OK));
    }
    {
        const RefusedCall refused("unlink", EROFS);
        EXPECT_EQ(nullptr, Open());
        EXPECT_EQ(EROFS, errno);
    }
    const RefusedCall refused("bind", ENOSPC, 1, 1);
    EXPECT_EQ(nullptr, Open());
    EXPECT_EQ(ENOSPC, errno);

    EXPECT_NE(nullptr, Open());
}

TEST_F(Listening, SocketOfAnotherTypeIsSomebodys) {
    const FileDescriptor other = BoundSocket(SOCK_DGRAM);

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(Listening, CloseLeavesWhatTookThePlaceOfItsSocket) {
    const auto listener = Open();
    ASSERT_EQ(0, unlink(path_.c_str()));
    (void)directory_.Write("here.sock", "somebody's notes");

    listener->Close();

    EXPECT_EQ("somebody's notes", directory_.Read("here.sock"));
}

TEST_F(Listening, CloseLeavesASocketThatItNeverSaw) {
    RefusedCall refused("lstat", EACCES);
    const auto listener = Open();
    ASSERT_NE(nullptr, listener);
    EXPECT_EQ(1, RefusedCall::Count());

    listener->Close();

    EXPECT_EQ(0, access(path_.c_str(), F_OK));
}

TEST_F(Listening, CloseLeavesTheErrorAlone) {
    const auto listener = Open();
    ASSERT_EQ(0, unlink(path_.c_str()));
    errno = EPERM;

    listener->Close();

    EXPECT_EQ(EPERM, errno);
}

TEST_F(Listening, ConnectedSocketHasNoSendTimeout) {
    const auto listener = Open();

    const FileDescriptor connected = ConnectTo(path_, Settings());

    timeval limit{1, 1};
    socklen_t bytes = sizeof(limit);
    ASSERT_EQ(0, getsockopt(connected.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, &bytes));
    EXPECT_EQ(0, limit.tv_sec);
    EXPECT_EQ(0, limit.tv_usec);
}

}  // namespace
}  // namespace tiv::test
