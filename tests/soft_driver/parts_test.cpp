// What the driver's parts do at their edges, each on its own.
#include <fcntl.h>

#include "driver_bench.h"
#include "soft_driver/channel_writer.h"
#include "soft_driver/counter_source.h"
#include "soft_driver/file_descriptor.h"
#include "soft_driver/hdc_message.h"
#include "soft_driver/hdc_session.h"
#include "soft_driver/notices.h"
#include "soft_driver/perf_source.h"
#include "soft_driver/ready_set.h"
#include "soft_driver/settings.h"

namespace tiv::test {
namespace {

using soft_driver::BufferShelf;
using soft_driver::ChannelSettings;
using soft_driver::ClientSlot;
using soft_driver::FileDescriptor;
using soft_driver::HdcClient;
using soft_driver::HdcMessage;
using soft_driver::HdcSession;
using soft_driver::PerfSource;
using soft_driver::ReadySet;
using soft_driver::SessionAttributes;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

TEST(Descriptor, LeavesTheErrorAloneWhenItsCloseFails) {
    FileDescriptor closedAlready(dup(STDERR_FILENO));
    ASSERT_EQ(0, close(closedAlready.Get()));
    errno = EPERM;

    closedAlready.Reset();

    EXPECT_EQ(EPERM, errno);
}

TEST(Descriptor, OfTheLowestNumberIsClosedToo) {
    const int kept = dup(STDIN_FILENO);
    FileDescriptor lowest(STDIN_FILENO);

    lowest.Reset();

    EXPECT_EQ(-1, fcntl(STDIN_FILENO, F_GETFD));
    EXPECT_EQ(STDIN_FILENO, dup2(kept, STDIN_FILENO));
    close(kept);
}

TEST(ReadyBytes, ThoseHeldBackAreUsedRoom) {
    ReadySet ready;
    const ReadySet::EntryPtr entry = ready.Open({0, 8}, 100);

    ready.Add(entry, 150);
    ready.Add(entry, 5);

    EXPECT_EQ(155u, ready.Used(entry));
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

TEST(Session, ClosedOneGivesItsPlaceBackOnce) {
    const auto client = std::make_shared<HdcClient>(SERVICE, 1);
    {
        HdcSession session(FileDescriptor(), SessionAttributes{}, 1024, 30, ClientSlot(client));
        session.Close();
    }

    EXPECT_TRUE(client->TakeSlot());
    EXPECT_FALSE(client->TakeSlot());
}

TEST(NumberSource, EndsAtItsLimitByItself) {
    soft_driver::SourceSettings settings;
    settings.limitBytes = 80;
    settings.bytesPerSecond = 1000000000;
    soft_driver::CounterSource source(settings);
    ReadySet ready;
    const ReadySet::EntryPtr entry = ready.Open({0, 8}, 0);
    soft_driver::ChannelRing ring(1024);
    soft_driver::ChannelWriter writer(ring, ready, entry);

    source.Run(writer);

    EXPECT_EQ(80u, ready.Used(entry));
}

TEST(CacheSource, HasNoPeriodBeforeItsStart) {
    EXPECT_EQ(0u, PerfSource(ChannelSettings()).Describe().periodMs);
}

}  // namespace
}  // namespace tiv::test
