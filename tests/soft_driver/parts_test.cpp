// What the driver's parts do at their edges, each on its own.
#include <sys/file.h>
#include <sys/socket.h>

#include "driver_bench.h"
#include "soft_driver/channel.h"
#include "soft_driver/file_descriptor.h"
#include "soft_driver/hdc_message.h"
#include "soft_driver/hdc_session.h"
#include "soft_driver/link_socket.h"
#include "soft_driver/listening_socket.h"
#include "soft_driver/notices.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/ready_set.h"
#include "soft_driver/settings.h"

namespace tiv::test {
namespace {

using soft_driver::BufferShelf;
using soft_driver::Channel;
using soft_driver::ChannelSettings;
using soft_driver::ClientSlot;
using soft_driver::ConnectTo;
using soft_driver::FileDescriptor;
using soft_driver::HdcClient;
using soft_driver::HdcMessage;
using soft_driver::HdcSession;
using soft_driver::ListeningSocket;
using soft_driver::PerfSource;
using soft_driver::ReadySet;
using soft_driver::SessionAttributes;
using soft_driver::Settings;
using soft_driver::SourceKind;
using soft_driver::StartRecord;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST(Descriptor, LeavesTheErrorAloneWhenItsCloseFails) {
    FileDescriptor closedAlready(dup(STDERR_FILENO));
    ASSERT_EQ(0, close(closedAlready.Get()));
    errno = EPERM;

    closedAlready.Reset();

    EXPECT_EQ(EPERM, errno);
}

TEST(Notices, LongLineIsCutTo1000BytesAndEndsLikeAnyOther) {
    CaptureStderr();

    soft_driver::Warn("%s", std::string(2000, 'x').c_str());

    const std::string head = "tiv_driver: warning: ";
    EXPECT_EQ(head + std::string(999 - head.size(), 'x') + "\n", GetCapturedStderr());
}

TEST(Message, HoldsNothingAtFirst) {
    const HdcMessage message(std::make_shared<BufferShelf>());

    EXPECT_FALSE(message.HasAdded());
    EXPECT_EQ(nullptr, message.AddedData());
    EXPECT_EQ(0, message.AddedBytes());
}

TEST(Session, ClosedOneGivesItsPlaceBackWhileCallsAreInside) {
    const auto client = std::make_shared<HdcClient>(SERVICE, 1);
    HdcSession session(FileDescriptor(), SessionAttributes{}, 1024, 30, ClientSlot(client));
    EXPECT_FALSE(client->TakeSlot());

    session.Close();

    EXPECT_TRUE(client->TakeSlot());
}

class ListeningPart : public ::testing::Test {
 protected:
    std::unique_ptr<ListeningSocket> Open() {
        return ListeningSocket::Open(directory_.Path("."), path_);
    }

    TempDir directory_;
    const std::string path_ = directory_.Path("here.sock");
};

TEST_F(ListeningPart, LockOfAnotherAloneKeepsThePath) {
    const FileDescriptor lock(open((path_ + ".lock").c_str(), O_RDWR | O_CREAT, 0600));
    ASSERT_EQ(0, flock(lock.Get(), LOCK_EX));

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(ListeningPart, SocketOfAnotherTypeIsSomebodys) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path_.c_str(), path_.size() + 1);
    const FileDescriptor other(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(0, bind(other.Get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)));

    EXPECT_EQ(nullptr, Open());

    EXPECT_EQ(EADDRINUSE, errno);
}

TEST_F(ListeningPart, CloseLeavesTheErrorAlone) {
    const auto listener = Open();
    ASSERT_EQ(0, unlink(path_.c_str()));
    errno = EPERM;

    listener->Close();

    EXPECT_EQ(EPERM, errno);
}

TEST_F(ListeningPart, ConnectedSocketHasNoSendTimeout) {
    const auto listener = Open();

    const FileDescriptor connected = ConnectTo(path_, Settings());

    timeval limit{1, 1};
    socklen_t bytes = sizeof(limit);
    ASSERT_EQ(0, getsockopt(connected.Get(), SOL_SOCKET, SO_SNDTIMEO, &limit, &bytes));
    EXPECT_EQ(0, limit.tv_sec);
    EXPECT_EQ(0, limit.tv_usec);
}

TEST(ChannelPart, StoppedBeforeItBeganMakesNothing) {
    ChannelSettings settings;
    settings.id = 8;
    settings.source.kind = SourceKind::COUNTER;
    settings.source.bytesPerSecond = 1000000;
    ReadySet ready;
    Channel channel(0, settings, ready);
    ASSERT_TRUE(channel.Prepare(StartRecord()));
    channel.Open();
    channel.Stop();
    CaptureStderr();

    channel.Begin();
    channel.Stop();

    char byte = 0;
    EXPECT_EQ(PROF_STOPPED_ALREADY, channel.Read(&byte, 1));
    EXPECT_EQ("", GetCapturedStderr());
}

// The event that a channel counts first when its start wants one side of the cache and the
// configuration names no events; told by the source, or by its warning where there is no counter.
std::string FirstEvent(uint32_t channel, uint32_t side) {
    ChannelSettings settings;
    settings.id = channel;
    settings.source.events = {"LLC-loads", "LLC-stores"};
    settings.source.eventsAreDefault = true;
    PerfSource source(settings);
    CaptureStderr();
    const bool works = source.Prepare(StartRecord{1, {0, side}});
    const std::string line = GetCapturedStderr();
    if (works) {
        return source.Describe().events.front();
    }
    const size_t start = line.find("event=") + 6;
    return line.substr(start, line.find(':', start) - start);
}

TEST(CacheSource, StartOfChannel8ChoosesReadsOrWrites) {
    EXPECT_EQ("LLC-loads", FirstEvent(8, 1));
    EXPECT_EQ("LLC-stores", FirstEvent(8, 2));
    EXPECT_EQ("LLC-loads", FirstEvent(8, 3));
    EXPECT_EQ("LLC-loads", FirstEvent(9, 2));
}

TEST(CacheSource, HasNoPeriodBeforeItsStart) {
    EXPECT_EQ(0u, PerfSource(ChannelSettings()).Describe().periodMs);
}

}  // namespace
}  // namespace tiv::test
