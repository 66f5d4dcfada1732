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

    TempDir directory_;
    const std::string path_ = directory_.Path("here.sock");
    pid_t peer_ = 0;
};

TEST_F(Listening, WithoutItsDirectoryThereIsNoSocket) {
    EXPECT_EQ(nullptr, ListeningSocket::Open(directory_.Path("absent"), path_));

    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Listening, RefusalsOfTheSystemAreTold) {
    for (const char* function : {"socket", "bind", "chmod"}) {
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

TEST_F(Listening, LockOfAnotherAloneKeepsThePath) {
    const FileDescriptor lock(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(0, flock(lock.Get(), LOCK_EX));

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(Listening, SocketOfAnotherTypeIsSomebodys) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    const FileDescriptor other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(0, bind(other.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(EADDRINUSE, errno);
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
