// The report configuration at its place in the system: the daemon leaves it unread.
#include <gtest/gtest.h>

#include <fstream>

#include "e2e/channel_job.h"
#include "e2e/control_cpu_fixture.h"

namespace tiv::e2e {

namespace {

constexpr uint64_t CHUNK = 4 * 1024 * 1024;
constexpr const char* PLACE = "/etc/prof.json";
// A directory that can be written over the machine's own, with links to all that is in that one.
constexpr const char* COVER_ETC =
    "mkdir /run/tiv/etc && mount --rbind /etc /run/tiv/etc && "
    "mount -t tmpfs -o mode=0755 etc /etc && ln -s /run/tiv/etc/* /etc";
constexpr const char* UNCOVER_ETC = "umount -l /etc /run/tiv/etc && rmdir /run/tiv/etc";

class InstalledReportConfig : public DaemonTest {
 protected:
    void SetUp() override {
        DaemonTest::SetUp();
        ASSERT_TRUE(Shell(COVER_ETC));
        ConfigureDriver(CounterConfig(1, R"(,"limit_bytes":9000000)"));
    }
    void TearDown() override {
        daemon_.reset();
        EXPECT_TRUE(Shell(UNCOVER_ETC));
        DaemonTest::TearDown();
    }

    // Starts the daemon where the file holds `members` for channel 8.
    void StartDaemonBeside(const std::string& members) {
        std::ofstream(PLACE) << R"({"device":{"channels":[{"channel":8,)" << members << "}]}}";
        StartDaemon();
        ASSERT_NE(FileContent("/proc/" + std::to_string(daemon_->Pid()) + "/root" + PLACE), "");
    }
};

}  // namespace

TEST_F(InstalledReportConfig, SwitchesNoChannelOff) {
    StartDaemonBeside(R"("prof_switch":"off","reporter_switch":"off")");
    ChannelJob job(link_, 0, "switches");

    ASSERT_TRUE(job.Start().Accepted());
    EXPECT_TRUE(job.sink.WaitForBytes(2 * CHUNK));

    EXPECT_TRUE(job.Stop().Accepted());
}

TEST_F(InstalledReportConfig, ChangesNoBufferAndNoPeriod) {
    StartDaemonBeside(R"("peroid":7,"channel_buffer_size":1048576)");
    ChannelJob job(link_, 0, "numbers");

    ASSERT_TRUE(job.Start().Accepted());
    ASSERT_TRUE(job.sink.WaitForBytes(2 * CHUNK));

    EXPECT_LE(job.sink.Chunks(), 3u);
    EXPECT_TRUE(daemon_->WaitForError("profChannel=8, profSamplePeriod=20ms"));
    EXPECT_TRUE(job.Stop().Accepted());
}

}  // namespace tiv::e2e
