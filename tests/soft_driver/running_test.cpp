// What becomes of a channel when something fails while it starts or runs.
#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "channel_bench.h"
#include "refused_calls.h"
#include "soft_driver/channel.h"
#include "soft_driver/channel_table.h"
#include "soft_driver/exports.h"
#include "soft_driver/settings.h"
#include "support/failing_new.h"

namespace tiv::test {
namespace {

using soft_driver::Channel;
using soft_driver::ChannelSettings;
using soft_driver::ChannelTable;
using soft_driver::DeviceSettings;
using soft_driver::ReadySet;
using soft_driver::SourceKind;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

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
        while (all.size() < bytes && ready_.Poll(&pair, 1, std::chrono::seconds(30)) > 0) {
            const int32_t count = channel.Read(buffer, sizeof(buffer));
            all.append(buffer, static_cast<size_t>(std::max(count, 0)));
        }
        return all;
    }

    // Lets each of them fail in turn: the channel doesn't run after any such start.
    static size_t AllocationsOfAStart(const DeviceSettings& device) {
        ChannelTable& table = ChannelTable::Instance();
        for (size_t count = 0; count < 200; ++count) {
            const FailingNew failing(count);
            try {
                EXPECT_EQ(0, table.Start(device, 8, {}));
                EXPECT_EQ(0, table.Stop(0, 8));
                return count;
            } catch (const std::bad_alloc&) {
                EXPECT_EQ(nullptr, table.Find(0, 8)) << count;
            }
        }
        ADD_FAILURE() << "no start went through";
        return 0;
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

// The mask of blocked signals of the thread of this name; no value when there is none.
std::optional<uint64_t> BlockedSignalsOf(const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        std::ifstream status(task.path() / "status");
        std::string line;
        bool isIt = false;
        while (std::getline(status, line)) {
            isIt = isIt || line == "Name:\t" + name;
            if (isIt && line.rfind("SigBlk:\t", 0) == 0) {
                return std::strtoull(line.c_str() + 8, nullptr, 16);
            }
        }
    }
    return std::nullopt;
}

TEST_F(Running, SignalsAreForTheThreadsOfTheProgram) {
    sigset_t before;
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, nullptr, &before));
    ChannelSettings settings = Replay(directory_.Write("data", "bytes"));
    settings.source.bytesPerSecond = 1;
    Channel channel(0, settings, ready_);
    ASSERT_TRUE(channel.Prepare({}));
    channel.Open();
    channel.Begin();
    std::optional<uint64_t> blocked;
    while (!(blocked = BlockedSignalsOf("tiv_drv_chan")).has_value()) {
        std::this_thread::yield();
    }

    sigset_t behind;
    ASSERT_EQ(0, pthread_sigmask(SIG_SETMASK, nullptr, &behind));
    for (const int signal : {SIGHUP, SIGINT, SIGTERM, SIGCHLD, SIGPROF, SIGRTMAX}) {
        EXPECT_EQ(1u, *blocked >> (signal - 1) & 1) << signal;
        EXPECT_EQ(sigismember(&before, signal), sigismember(&behind, signal)) << signal;
    }
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
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));

    EXPECT_LT(0u, AllocationsOfAStart(device));
}

TEST_F(Running, ChannelThatDoesNotBeginIsStoppedForThoseWhoFoundIt) {
    ChannelTable& table = ChannelTable::Instance();
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));
    const size_t allocations = AllocationsOfAStart(device);
    ASSERT_LT(0u, allocations);
    std::shared_ptr<Channel> found;
    {
        // The last memory is that of the channel's thread.
        const FailingNew failing(allocations - 1, 1, [&] { found = table.Find(0, 8); });
        EXPECT_THROW((void)table.Start(device, 8, {}), std::bad_alloc);
    }

    ASSERT_NE(nullptr, found);
    char byte = 0;
    EXPECT_EQ(PROF_STOPPED_ALREADY, found->Read(&byte, 1));
}

TEST_F(Running, ChannelThatIsStillBeingStartedIsStoppedAlreadyAndCannotBeStarted) {
    ChannelTable& table = ChannelTable::Instance();
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));
    const size_t allocations = AllocationsOfAStart(device);
    ASSERT_LT(1u, allocations);
    int32_t stopped = 0;
    int32_t second = 0;
    {
        // The last memory but one is that of the open channel's account.
        const FailingNew failing(allocations - 2, 1, [&] {
            stopped = table.Stop(0, 8);
            second = table.Start(device, 8, {});
            EXPECT_EQ(EALREADY, errno);
        });
        EXPECT_THROW((void)table.Start(device, 8, {}), std::bad_alloc);
    }

    EXPECT_EQ(PROF_STOPPED_ALREADY, stopped);
    EXPECT_EQ(-1, second);
    EXPECT_EQ(0, table.Start(device, 8, {}));
    EXPECT_EQ(0, table.Stop(0, 8));
}

// Starts the channel, which is stopped before its thread cannot be made.
void StopAStartThatFails(const DeviceSettings& device, size_t allocations,
                         const std::function<void()>& afterTheStop) {
    ChannelTable& table = ChannelTable::Instance();
    std::unique_ptr<Worker> stopper;
    // The last memory is that of the channel's thread.
    const FailingNew failing(allocations - 1, 1, [&] {
        stopper = std::make_unique<Worker>([&] { EXPECT_EQ(0, table.Stop(0, 8)); });
        while (table.Find(0, 8) != nullptr) {
            std::this_thread::yield();
        }
        afterTheStop();
    });
    EXPECT_THROW((void)table.Start(device, 8, {}), std::bad_alloc);
}

TEST_F(Running, StartThatFailsBehindItsStopLeavesTheChannelFree) {
    ChannelTable& table = ChannelTable::Instance();
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));
    const size_t allocations = AllocationsOfAStart(device);
    ASSERT_LT(0u, allocations);

    StopAStartThatFails(device, allocations, [] {});

    EXPECT_EQ(0, table.Start(device, 8, {}));
    EXPECT_EQ(0, table.Stop(0, 8));
}

TEST_F(Running, StartThatFailsBehindItsStopLeavesTheNextStartAlone) {
    ChannelTable& table = ChannelTable::Instance();
    const DeviceSettings device = DeviceWith(Replay(directory_.Write("data", "bytes")));
    const size_t allocations = AllocationsOfAStart(device);
    ASSERT_LT(0u, allocations);
    std::shared_ptr<Channel> next;

    StopAStartThatFails(device, allocations, [&] {
        EXPECT_EQ(0, table.Start(device, 8, {}));
        next = table.Find(0, 8);
    });

    EXPECT_EQ(next, table.Find(0, 8));
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
