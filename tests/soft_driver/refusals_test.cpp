// What the driver makes of refusals of the kernel.
#include <sys/uio.h>

#include "channel_bench.h"
#include "refused_calls.h"
#include "soft_driver/channel.h"
#include "soft_driver/channel_table.h"
#include "soft_driver/exports.h"
#include "soft_driver/link_socket.h"
#include "soft_driver/listening_socket.h"
#include "soft_driver/peer_check.h"
#include "soft_driver/settings.h"
#include "support/failing_new.h"

namespace tiv::test {
namespace {

using soft_driver::Channel;
using soft_driver::ChannelSettings;
using soft_driver::ChannelTable;
using soft_driver::ConnectTo;
using soft_driver::DeviceSettings;
using soft_driver::FileDescriptor;
using soft_driver::Guarded;
using soft_driver::LinkSocket;
using soft_driver::ListeningSocket;
using soft_driver::PeerIdentity;
using soft_driver::PeerIsAllowed;
using soft_driver::ReadySet;
using soft_driver::SendOutcome;
using soft_driver::Settings;
using soft_driver::SourceKind;
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
        const std::string filling(100000, 'x');
        while (send(ends_[0], filling.data(), filling.size(), MSG_DONTWAIT) > 0) {
        }
    }
    std::string Arrived() const {
        std::string bytes(64, '\0');
        const ssize_t count = recv(ends_[1], bytes.data(), bytes.size(), MSG_DONTWAIT);
        return bytes.substr(0, count < 0 ? 0 : static_cast<size_t>(count));
    }

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

TEST_F(Link, ReceivesOnAfterASignal) {
    ASSERT_EQ(5, send(ends_[1], "bytes", 5, 0));
    char bytes[8] = {};
    iovec part{bytes, sizeof(bytes)};
    const RefusedCall refused("recvmsg", EINTR);

    EXPECT_EQ(5, link_->Receive(&part, 1, false));

    EXPECT_STREQ("bytes", bytes);
    EXPECT_EQ(1, RefusedCall::Count());
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

    EXPECT_TRUE(ConnectTo(directory.Path("s"), Settings()).IsOpen());

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

TEST(PeerGroups, NamespaceThatCannotBeReadIsAContainer) {
    EXPECT_EQ(0, soft_driver::VirtualFunctionOf(getpid()));
    {
        const RefusedCall refused("readlink", EACCES);
        EXPECT_EQ(1, soft_driver::VirtualFunctionOf(getpid()));
    }
    const RefusedCall refused("readlink", EACCES, 2);
    EXPECT_EQ(1, soft_driver::VirtualFunctionOf(getpid()));
}

class Running : public ::testing::Test {
 protected:
    static ChannelSettings Replay(const std::string& file) {
        ChannelSettings settings;
        settings.id = 8;
        settings.name = "replay";
        settings.source.kind = SourceKind::REPLAY;
        settings.source.file = file;
        return settings;
    }
    static DeviceSettings DeviceWith(const ChannelSettings& channel) {
        DeviceSettings device;
        device.channels = std::vector<ChannelSettings>{channel};
        return device;
    }
    // Waits until the channel has given so many bytes.
    std::string Take(Channel& channel, size_t bytes) {
        std::string all;
        char buffer[256];
        ProfPollPair pair{};
        while (all.size() < bytes && ready_.Poll(&pair, 1, std::chrono::seconds(5)) > 0) {
            const int32_t count = channel.Read(buffer, sizeof(buffer));
            all.append(buffer, static_cast<size_t>(std::max(count, 0)));
        }
        return all;
    }

    TempDir directory_;
    ReadySet ready_;
};

TEST_F(Running, ChannelThatWasStoppedEarlyNeverBegins) {
    Channel channel(0, Replay(directory_.Write("data", "bytes")), ready_);
    ASSERT_TRUE(channel.Prepare({}));
    channel.Open();
    CaptureStderr();

    channel.Stop();
    channel.Begin();
    channel.Stop();

    char byte = 0;
    uint32_t bytes = 0;
    EXPECT_EQ(PROF_STOPPED_ALREADY, channel.Read(&byte, 1));
    EXPECT_EQ(PROF_STOPPED_ALREADY, channel.Flush(&bytes));
    EXPECT_EQ(
        "tiv_driver: info: channel stopped: device=0 channel=8 source=replay header=72 "
        "delivered=0 lost=0 dropped=0\n",
        GetCapturedStderr());
}

TEST_F(Running, SignalDoesNotEndAReplay) {
    Channel channel(0, Replay(directory_.Write("data", "bytes")), ready_);
    ASSERT_TRUE(channel.Prepare({}));
    const RefusedCall refused("read", EINTR);
    channel.Open();
    channel.Begin();

    EXPECT_EQ("bytes", Take(channel, 77).substr(72));

    EXPECT_EQ(1, RefusedCall::Count());
}

TEST_F(Running, FileThatCannotBeReadEndsTheReplayWithAWarning) {
    const std::string file = directory_.Write("data", "bytes");
    Channel channel(0, Replay(file), ready_);
    ASSERT_TRUE(channel.Prepare({}));
    const RefusedCall refused("read", EIO);
    CaptureStderr();
    channel.Open();
    channel.Begin();

    EXPECT_TRUE(RefusedCall::WaitForOne());
    channel.Stop();

    EXPECT_EQ(0u, GetCapturedStderr().find("tiv_driver: warning: replay ended: file=" + file +
                                           ": Input/output error\n"));
}

TEST_F(Running, PacedReplayGoesOnBehindItsFirstPortion) {
    const std::string content(3000, 'x');
    ChannelSettings settings = Replay(directory_.Write("data", content));
    settings.source.bytesPerSecond = 100000;
    Channel channel(0, settings, ready_);
    ASSERT_TRUE(channel.Prepare({}));
    channel.Open();
    channel.Begin();

    EXPECT_EQ(content, Take(channel, 3072).substr(72));
}

TEST_F(Running, StartThatRunsOutOfMemoryLeavesTheChannelFree) {
    ChannelTable& table = ChannelTable::Instance();
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));
    bool started = false;
    size_t failures = 0;
    for (size_t skip = 0; !started && skip < 200; ++skip) {
        FailingNew failing(skip);
        try {
            started = table.Start(device, 8, {}) == 0;
        } catch (const std::bad_alloc&) {
            EXPECT_EQ(nullptr, table.Find(0, 8)) << skip;
        }
        failures += failing.Failed();
    }

    EXPECT_TRUE(started);
    EXPECT_LT(0u, failures);
    EXPECT_EQ(0, table.Stop(0, 8));
}

TEST_F(Running, RingThatDoesNotFitInMemoryStartsNothing) {
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));
    const RefusedCall refused("mmap", ENOMEM);

    EXPECT_THROW((void)ChannelTable::Instance().Start(device, 8, {}), std::bad_alloc);

    EXPECT_EQ(nullptr, ChannelTable::Instance().Find(0, 8));
}

}  // namespace
}  // namespace tiv::test
