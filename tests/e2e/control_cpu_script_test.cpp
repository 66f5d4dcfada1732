// The jobs that run the helper script, with the one that is installed.
#include <gtest/gtest.h>

#include <filesystem>

#include "e2e/control_cpu_fixture.h"
#include "host/result_summary.h"

namespace tiv::e2e {

namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

constexpr const char* PROFILE = "data/ai_ctrl_cpu.data";
constexpr const char* SECOND_FILE = "/var/log/npu/profiling/0/ai_ctrl_cpu.data.0.000002";
constexpr const char* NO_PERF = "prof_collect: no perf on this machine, install linux-perf\n";

class ControlCpuScript : public HelperScriptTest {
 protected:
    void SetUp() override {
        HelperScriptTest::SetUp();
        Place("packaging/prof_collect.sh");
    }
    void TearDown() override {
        EXPECT_TRUE(Shell("/var/prof_collect.sh --kill"));
        (void)Shell("umount -q /usr/local/sbin /usr/local/bin/perf /usr/sbin/perf /usr/bin/perf");
        DaemonTest::TearDown();
    }

    // The first place in which the script looks for programs is empty but for this one.
    static void UseDoubleOfPerf() {
        ASSERT_TRUE(
            Shell("mount -t tmpfs -o mode=0755 double /usr/local/sbin && cd /usr/local/sbin &&"
                  "mkdir -m 0777 perf.d && : >perf.d/calls && chmod 0666 perf.d/calls &&"
                  "install -m 0755 " TIV_SOURCE_DIR "/tests/packaging/perf_double.sh perf"));
    }
    // The script makes the text as another user.
    static bool HasOtherUsers() {
        return Shell("setpriv --reuid=nobody --regid=\"$(id -g nobody)\" --clear-groups true");
    }
    static bool Recorded() { return fs::exists(SECOND_FILE); }
};

}  // namespace

TEST_F(ControlCpuScript, EveryFileOfPerfArrivesAsText) {
    if (!HasOtherUsers()) {
        GTEST_SKIP() << "this namespace has no other users";
    }
    UseDoubleOfPerf();
    StartDaemon();

    const std::string result = CollectUntil(Recorded, {"--ctrl-cpu", "0x11,0x3c"});

    EXPECT_EQ(FileContent(result + "/device_0/" + PROFILE),
              "text of part 1\ntext of part 2\ntext of last part\n");
    EXPECT_FALSE(fs::exists("/var/log/npu/profiling/0"));
    EXPECT_FALSE(Shell("ls -d /run/prof_collect/recorder.* 2>/dev/null"));
}

TEST_F(ControlCpuScript, CacheCountsOfPerfArrive) {
    UseDoubleOfPerf();
    ConfigureDriver(R"({"chip_id": 0})");
    StartDaemon();

    const std::string result = CollectUntil(
        [] {
            return FileContent("/var/log/npu/profiling/0/llc.data.0").find("counted") !=
                   std::string::npos;
        },
        {"--llc", "read"});

    EXPECT_EQ(FileContent(result + "/device_0/data/llc.data"), "counted LLC-loads\nlast line\n");
}

TEST_F(ControlCpuScript, MachineWithoutPerfCollectsNothingAndSaysWhy) {
    ASSERT_TRUE(
        Shell("for perf in /usr/local/bin/perf /usr/sbin/perf /usr/bin/perf; do"
              "    [ ! -e $perf ] || mount --bind /dev/null $perf || exit 1; "
              "done"));
    StartDaemon();

    const std::string result =
        CollectUntil([this] { return daemon_->Errors().find(NO_PERF) != std::string::npos; },
                     {"--ctrl-cpu", "0x11,0x3c"});

    EXPECT_FALSE(fs::exists(result + "/device_0/" + PROFILE));
    EXPECT_NE(tivctl_->Output().find("data session: complete"), std::string::npos);
}

TEST_F(ControlCpuScript, RealPerfGivesSamplesOfThisMachine) {
    if (!HasOtherUsers() ||
        !Shell("perf record -q -a -B -N -e cpu-clock -o /run/tiv/probe -- true >/dev/null 2>&1")) {
        GTEST_SKIP() << "perf may not record here";
    }
    StartDaemon();

    const std::string result =
        CollectUntil(Recorded, {"--ctrl-cpu", "0x11,0x3c", "--interval", "20ms"});

    const auto samples = host::CountSamples(result + "/device_0/" + PROFILE);
    ASSERT_TRUE(samples.has_value());
    EXPECT_GT(*samples, 0u);
    const Texts row = Row(PROFILE);
    ASSERT_EQ(row.size(), 5u) << tivctl_->Output();
    EXPECT_EQ(row[2], std::to_string(*samples));
}

}  // namespace tiv::e2e
