// Where servers listen, and who may connect.
#include <fcntl.h>
#include <grp.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>

#include <memory>

#include "driver_bench.h"
#include "support/scoped_limit.h"

namespace tiv::test {
namespace {

class Rendezvous : public LinkBench {};

mode_t ModeOf(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 ? status.st_mode & 07777 : 0;
}

TEST_F(Rendezvous, DirectoryIs0750AndSocketIs0660WhateverTheUmask) {
    const mode_t before = umask(0077);
    EXPECT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    umask(before);

    EXPECT_EQ(0750u, ModeOf(Runtime()));
    EXPECT_EQ(0660u, ModeOf(SocketOf(0)));
}

TEST_F(Rendezvous, DirectoryThatIsThereKeepsItsMode) {
    ASSERT_EQ(0, mkdir(Runtime().c_str(), 0700));

    EXPECT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));

    EXPECT_EQ(0700u, ModeOf(Runtime()));
}

TEST_F(Rendezvous, SocketHasTheGroupOfTheDirectory) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "changing a group needs root";
    }
    ASSERT_EQ(0, mkdir(Runtime().c_str(), 0750));
    ASSERT_EQ(0, chown(Runtime().c_str(), 0, 4242));

    EXPECT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));

    struct stat status {};
    ASSERT_EQ(0, stat(SocketOf(0).c_str(), &status));
    EXPECT_EQ(4242u, status.st_gid);
}

TEST_F(Rendezvous, DirectoryThatCannotBeMadeIsAnError) {
    setenv("TIV_RUNTIME_DIR", directory_.Path("a/b").c_str(), 1);

    EXPECT_EQ(-1, drvHdcServerCreate(0, SERVICE, &server_));

    EXPECT_EQ(ENOENT, errno);
}

TEST_F(Rendezvous, PathThatIsTooLongIsAnError) {
    const std::string deep = directory_.MakeDir(std::string(100, 'd'));
    setenv("TIV_RUNTIME_DIR", deep.c_str(), 1);

    EXPECT_EQ(-1, drvHdcServerCreate(0, SERVICE, &server_));

    EXPECT_EQ(ENAMETOOLONG, errno);
}

TEST_F(Rendezvous, DeviceThatIsNotConfiguredHasNoServer) {
    EXPECT_EQ(-1, drvHdcServerCreate(1, SERVICE, &server_));

    EXPECT_EQ(ENODEV, errno);
}

TEST_F(Rendezvous, LiveServerOfThisProcessIsNotReplaced) {
    Open();
    HDC_SERVER second = nullptr;
    ::testing::internal::CaptureStderr();

    EXPECT_EQ(-1, drvHdcServerCreate(0, SERVICE, &second));

    EXPECT_EQ(EADDRINUSE, errno);
    EXPECT_EQ("tiv_driver: warning: server cannot listen: path=" + SocketOf(0) +
                  ": Address already in use\n",
              ::testing::internal::GetCapturedStderr());
    EXPECT_EQ(0, drvHdcSessionConnect(0, 0, client_, &host_));
}

TEST_F(Rendezvous, FileThatIsNoSocketIsNotReplaced) {
    ASSERT_EQ(0, mkdir(Runtime().c_str(), 0700));
    (void)directory_.Write("run/hdc_0_4.sock", "somebody's notes");

    EXPECT_EQ(-1, drvHdcServerCreate(0, SERVICE, &server_));

    EXPECT_EQ(EADDRINUSE, errno);
    EXPECT_EQ("somebody's notes", directory_.Read("run/hdc_0_4.sock"));
}

TEST_F(Rendezvous, LiveServerOfAnotherProcessIsNotReplaced) {
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));

    const int status = ExitStatusOf([] {
        HDC_SERVER other = nullptr;
        return drvHdcServerCreate(0, SERVICE, &other) == -1 && errno == EADDRINUSE ? 0 : 1;
    });

    EXPECT_EQ(0, status);
}

TEST_F(Rendezvous, SocketOfADeadProcessIsReplaced) {
    ASSERT_EQ(0, ExitStatusOf([] {
                  HDC_SERVER other = nullptr;
                  return drvHdcServerCreate(0, SERVICE, &other);
              }));
    ASSERT_EQ(0, access(SocketOf(0).c_str(), F_OK));

    Open();

    EXPECT_EQ(0, SendText(host_, "hello"));
    EXPECT_EQ((Received{0, "hello"}), ReceiveText(card_));
}

TEST_F(Rendezvous, ForwardedSocketThatAnswersIsNotReplaced) {
    ASSERT_EQ(0, mkdir(Runtime().c_str(), 0750));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, SocketOf(0).c_str(), SocketOf(0).size() + 1);
    const int forwarder = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, bind(forwarder, reinterpret_cast<sockaddr*>(&address), sizeof(address)));
    ASSERT_EQ(0, listen(forwarder, 1));

    EXPECT_EQ(-1, drvHdcServerCreate(0, SERVICE, &server_));

    EXPECT_EQ(EADDRINUSE, errno);
    close(forwarder);
}

TEST_F(Rendezvous, DestroyedServerFreesThePathAtOnce) {
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    Worker acceptor([this] {
        HDC_SESSION none = nullptr;
        EXPECT_EQ(-1, drvHdcSessionAccept(server_, &none));
        EXPECT_EQ(EBADF, errno);
    });
    acceptor.WaitUntilBlocked();

    EXPECT_EQ(0, drvHdcServerDestroy(server_));
    EXPECT_NE(0, access(SocketOf(0).c_str(), F_OK));

    HDC_SERVER next = nullptr;
    EXPECT_EQ(0, drvHdcServerCreate(0, SERVICE, &next));
    EXPECT_NE(server_, next);
}

TEST_F(Rendezvous, ConnectWithoutAServerFails) {
    ASSERT_EQ(0, drvHdcClientCreate(&client_, 96, SERVICE, 0));

    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, client_, &host_));
    EXPECT_EQ(ENOENT, errno);

    EXPECT_EQ(nullptr, host_);
}

TEST_F(Rendezvous, ServiceTypesHaveSocketsOfTheirOwn) {
    Open();
    HDC_SERVER other = nullptr;

    EXPECT_EQ(0, drvHdcServerCreate(0, 2, &other));

    EXPECT_EQ(0, access((Runtime() + "/hdc_0_2.sock").c_str(), F_OK));
}

// Connects as a stranger with one supplementary group; 0 when the far end closed at once, 1 when
// a frame got through.
int ConnectAs(gid_t group, const std::string& path) {
    if (setgroups(1, &group) != 0 || setgid(54321) != 0 || setuid(54321) != 0) {
        return 3;
    }
    const int fd = RawConnect(path);
    if (fd < 0) {
        return 4;
    }
    const std::string frame = Frame("let me in");
    if (send(fd, frame.data(), frame.size(), MSG_NOSIGNAL) < 0) {
        return 0;
    }
    char byte = 0;
    return recv(fd, &byte, 1, 0) == 1 ? 1 : 0;
}

// Opens the directory and the socket to everybody, so that only the peer check is left.
void OpenTheDoors(const std::string& base, const std::string& runtime, const std::string& path) {
    ASSERT_EQ(0, chmod(base.c_str(), 0755));
    ASSERT_EQ(0, chmod(runtime.c_str(), 0755));
    ASSERT_EQ(0, chmod(path.c_str(), 0666));
}

TEST_F(Rendezvous, StrangerIsClosedBeforeAByteIsReadWithOneWarning) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "becoming another user needs root";
    }
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    OpenTheDoors(directory_.Path(), Runtime(), SocketOf(0));
    ::testing::internal::CaptureStderr();
    Worker acceptor([this] { EXPECT_EQ(0, drvHdcSessionAccept(server_, &card_)); });

    EXPECT_EQ(0, ExitStatusOf([this] { return ConnectAs(54322, SocketOf(0)); }));
    ASSERT_EQ(0, drvHdcClientCreate(&client_, 96, SERVICE, 0));
    EXPECT_EQ(0, drvHdcSessionConnect(0, 0, client_, &host_));
    acceptor.Join();

    const std::string lines = ::testing::internal::GetCapturedStderr();
    const std::string head = "tiv_driver: warning: connection refused: path=" + SocketOf(0) +
                             " uid=54321 gid=54321 pid=";
    EXPECT_EQ(0u, lines.find(head)) << lines;
    EXPECT_EQ(lines.size() - 1, lines.find('\n')) << lines;
}

TEST_F(Rendezvous, MemberOfTheDirectorysGroupIsAdmitted) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "becoming another user needs root";
    }
    ASSERT_EQ(0, mkdir(Runtime().c_str(), 0750));
    ASSERT_EQ(0, chown(Runtime().c_str(), 0, 4242));
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    ASSERT_EQ(0, chmod(directory_.Path().c_str(), 0755));
    Worker acceptor([this] {
        EXPECT_EQ(0, drvHdcSessionAccept(server_, &card_));
        EXPECT_EQ((Received{0, "let me in"}), ReceiveText(card_));
        EXPECT_EQ(0, SendText(card_, "welcome"));
    });

    EXPECT_EQ(1, ExitStatusOf([this] { return ConnectAs(4242, SocketOf(0)); }));
}

TEST_F(Rendezvous, AttributesAreTheServersDeviceAndThisNamespace) {
    Configure(R"({"devices": 3})");
    Open(2);
    int32_t device = -1;
    int32_t function = -1;

    EXPECT_EQ(0, halHdcGetSessionAttr(card_, HDC_ATTR_DEVICE_ID, &device));
    EXPECT_EQ(2, device);
    EXPECT_EQ(0, halHdcGetSessionAttr(card_, HDC_ATTR_VF_ID, &function));
    EXPECT_EQ(0, function);
    EXPECT_EQ(0, halHdcGetSessionAttr(host_, HDC_ATTR_DEVICE_ID, &device));
    EXPECT_EQ(2, device);
    EXPECT_EQ(-1, halHdcGetSessionAttr(card_, 1, &device));
    EXPECT_EQ(ENOTSUP, errno);
    EXPECT_EQ(-1, halHdcGetSessionAttr(card_, HDC_ATTR_VF_ID, nullptr));
}

TEST_F(Rendezvous, PeerIsTheProcessAtTheOtherEnd) {
    Open();
    int32_t pid = -1;

    EXPECT_EQ(0, halHdcGetSessionAttr(host_, HDC_ATTR_PEER_PID, &pid));
    EXPECT_EQ(getpid(), pid);
    pid = -1;
    EXPECT_EQ(0, halHdcGetSessionAttr(card_, HDC_ATTR_PEER_PID, &pid));
    EXPECT_EQ(getpid(), pid);
}

TEST_F(Rendezvous, VirtualFunctionIdOfTheFileGoesBefore) {
    Configure(R"({"virtual_function_id": 6})");
    Open();
    int32_t function = -1;

    EXPECT_EQ(0, halHdcGetSessionAttr(card_, HDC_ATTR_VF_ID, &function));

    EXPECT_EQ(6, function);
}

// Connects from a PID namespace of its own and waits there until the far end has looked.
int ConnectFromContainer(const std::string& path) {
    if (unshare(CLONE_NEWPID) != 0) {
        return 3;
    }
    return ExitStatusOf([&path] {
        const int fd = RawConnect(path);
        char byte = 0;
        return recv(fd, &byte, 1, 0) == 1 ? 0 : 1;
    });
}

TEST_F(Rendezvous, PeerInAnotherPidNamespaceHasVirtualFunction1) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "a PID namespace needs root";
    }
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    int32_t function = -1;
    Worker acceptor([&] {
        EXPECT_EQ(0, drvHdcSessionAccept(server_, &card_));
        EXPECT_EQ(0, halHdcGetSessionAttr(card_, HDC_ATTR_VF_ID, &function));
        EXPECT_EQ(0, SendText(card_, "go"));
    });

    ASSERT_EQ(0, ExitStatusOf([this] { return ConnectFromContainer(SocketOf(0)); }));
    acceptor.Join();

    EXPECT_EQ(1, function);
}

size_t InheritedOnExec() {
    size_t count = 0;
    for (int fd = 0; fd < 1024; ++fd) {
        const int flags = fcntl(fd, F_GETFD);
        count += flags >= 0 && (flags & FD_CLOEXEC) == 0 ? 1 : 0;
    }
    return count;
}

TEST_F(Rendezvous, EveryDescriptorClosesOnExec) {
    const size_t before = OpenDescriptors();
    const size_t inherited = InheritedOnExec();

    Open();

    EXPECT_EQ(before + 5, OpenDescriptors());  // listener, lock, spare, two ends
    EXPECT_EQ(inherited, InheritedOnExec());
}

// While the limit lives, the process has no free descriptor.
std::unique_ptr<ScopedLimit> NoFreeDescriptor() {
    const int free = dup(STDIN_FILENO);
    close(free);
    return std::make_unique<ScopedLimit>(RLIMIT_NOFILE, static_cast<rlim_t>(free));
}

TEST_F(Rendezvous, WithoutDescriptorsAnIdleAcceptSleepsUntilTheServerGoes) {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer needs descriptors of its own to look at an object's type";
#endif
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    const HDC_SERVER server = server_;
    HDC_SESSION card = nullptr;
    std::atomic<bool> go{false};
    std::atomic<long> wakeUps{-1};
    Worker acceptor([&] {
        while (!go) {
            std::this_thread::yield();
        }
        rusage before{};
        rusage after{};
        getrusage(RUSAGE_THREAD, &before);
        EXPECT_NE(0, drvHdcSessionAccept(server, &card));
        getrusage(RUSAGE_THREAD, &after);
        wakeUps = after.ru_nvcsw - before.ru_nvcsw;
    });
    auto shortage = NoFreeDescriptor();
    go = true;
    (void)poll(nullptr, 0, 300);  // thirty rounds of a wait that polls
    EXPECT_EQ(0, drvHdcServerDestroy(server));
    acceptor.Join();
    shortage.reset();

    EXPECT_GE(5, wakeUps);
}

TEST_F(Rendezvous, WithoutDescriptorsTheConnectionIsDroppedAndTheWaitGoesOn) {
    Open();
    const int fd = RawConnect(SocketOf(0));
    std::atomic<bool> go{false};
    Worker acceptor([&] {
        while (!go) {
            std::this_thread::yield();
        }
        EXPECT_EQ(0, drvHdcSessionAccept(server_, &card_));
    });
    ::testing::internal::CaptureStderr();
    auto shortage = NoFreeDescriptor();
    go = true;

    char byte = 0;
    EXPECT_EQ(0, recv(fd, &byte, 1, 0));
    shortage.reset();
    const int next = RawConnect(SocketOf(0));
    acceptor.Join();

    RawSend(next, Frame("after"));
    EXPECT_EQ((Received{0, "after"}), ReceiveText(card_));
    EXPECT_EQ("tiv_driver: warning: connections are dropped: path=" + SocketOf(0) +
                  ": Too many open files\n",
              ::testing::internal::GetCapturedStderr());
}

TEST_F(Rendezvous, ClientIsRefusedTheSessionAfterItsMaximum) {
    Open();
    HDC_CLIENT small = nullptr;
    HDC_SESSION first = nullptr;
    HDC_SESSION second = nullptr;
    ASSERT_EQ(0, drvHdcClientCreate(&small, 1, SERVICE, 0));

    EXPECT_EQ(0, drvHdcSessionConnect(0, 0, small, &first));
    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, small, &second));
    EXPECT_EQ(EUSERS, errno);
    EXPECT_EQ(0, drvHdcSessionClose(first));
    EXPECT_EQ(0, halHdcSessionConnectEx(0, 0, 17, small, &second));
}

TEST_F(Rendezvous, FailedConnectTakesNoPlace) {
    HDC_SESSION session = nullptr;
    ASSERT_EQ(0, drvHdcClientCreate(&client_, 1, SERVICE, 0));
    ASSERT_EQ(-1, drvHdcSessionConnect(0, 0, client_, &session));
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));

    EXPECT_EQ(0, drvHdcSessionConnect(0, 0, client_, &session));
}

TEST_F(Rendezvous, BadArgumentsAreRefused) {
    HDC_SESSION session = nullptr;
    ASSERT_EQ(0, drvHdcClientCreate(&client_, 96, SERVICE, 0));

    EXPECT_EQ(-1, drvHdcClientCreate(nullptr, 96, SERVICE, 0));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_EQ(-1, drvHdcClientCreate(&client_, 0, SERVICE, 0));
    EXPECT_EQ(-1, drvHdcClientCreate(&client_, 96, SERVICE, 1));
    EXPECT_EQ(-1, drvHdcServerCreate(0, SERVICE, nullptr));
    EXPECT_EQ(-1, drvHdcServerCreate(-1, SERVICE, &server_));
    EXPECT_EQ(-1, drvHdcSessionConnect(1, 0, client_, &session));
    EXPECT_EQ(-1, drvHdcSessionConnect(0, -1, client_, &session));
    EXPECT_EQ(-1, halHdcSessionConnectEx(0, 0, -1, client_, &session));
    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, nullptr, &session));
    EXPECT_EQ(EBADF, errno);
}

TEST_F(Rendezvous, ServicesBelow0AreRefused) {
    EXPECT_EQ(-1, drvHdcClientCreate(&client_, 96, -1, 0));
    EXPECT_EQ(EINVAL, errno);
    errno = 0;
    EXPECT_EQ(-1, drvHdcServerCreate(0, -1, &server_));
    EXPECT_EQ(EINVAL, errno);

    EXPECT_EQ(nullptr, client_);
    EXPECT_EQ(nullptr, server_);
}

TEST_F(Rendezvous, WithoutAPlaceForItsHandleNoSessionIsMade) {
    ASSERT_EQ(0, drvHdcServerCreate(0, SERVICE, &server_));
    ASSERT_EQ(0, drvHdcClientCreate(&client_, 1, SERVICE, 0));

    EXPECT_EQ(-1, drvHdcSessionConnect(0, 0, client_, nullptr));
    EXPECT_EQ(EINVAL, errno);
    ASSERT_EQ(0, drvHdcSessionConnect(0, 0, client_, &host_));
    errno = 0;
    EXPECT_EQ(-1, drvHdcSessionAccept(server_, nullptr));
    EXPECT_EQ(EINVAL, errno);

    EXPECT_EQ(0, drvHdcSessionAccept(server_, &card_));
    EXPECT_EQ(0, SendText(host_, "still waiting"));
    EXPECT_EQ((Received{0, "still waiting"}), ReceiveText(card_));
}

}  // namespace
}  // namespace tiv::test
