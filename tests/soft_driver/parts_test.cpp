// What the driver's parts do at their edges, each on its own.
#include "driver_bench.h"
#include "soft_driver/file_descriptor.h"
#include "soft_driver/hdc_message.h"
#include "soft_driver/hdc_session.h"
#include "soft_driver/notices.h"
#include "soft_driver/perf_source.h"
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

TEST(CacheSource, HasNoPeriodBeforeItsStart) {
    EXPECT_EQ(0u, PerfSource(ChannelSettings()).Describe().periodMs);
}

}  // namespace
}  // namespace tiv::test
