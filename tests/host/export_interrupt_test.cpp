// Exports that the person at the terminal ends.
#include <filesystem>

#include "host/channel_bytes.h"
#include "host/export_bench.h"
#include "host/held_stream.h"
#include "host/stepped_clock.h"
#include "host/tivctl_bench.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

// A result of `rows` counts, which keep a database at work behind the last row.
std::string MakeLongResult(const TempDir& directory, uint64_t rows) {
    std::string bytes = PerfHeader();
    for (uint64_t i = 0; i < rows; ++i) {
        bytes += Count(i + 1, 0, 0, i);
    }
    (void)directory.MakeDir("long/device_0/data");
    directory.Write("long/device_0/data/llc.data", bytes);
    return directory.Path("long");
}

class ExportInterrupt : public TivctlTest {
 protected:
    void Start(const std::string& result, const std::string& format) {
        tivctl_ = std::make_unique<TivctlRun>(
            directory_,
            std::vector<std::string>{"export", result, "--to", format, "--output",
                                     directory_.MakeDir("to") + "/x"},
            errors_.End());
    }
    // Nothing of the export is left, and the program says so.
    void ExpectLeft() {
        EXPECT_EQ("tivctl: left by Ctrl-C; nothing was written\n", errors_.Last());
        EXPECT_EQ(130, tivctl_->Wait());
        EXPECT_EQ("", tivctl_->Output());
        EXPECT_TRUE(std::filesystem::is_empty(directory_.Path("to")));
    }

    const ScopedSteppedClock clock_;
    HeldStream errors_;
};

}  // namespace

TEST_F(ExportInterrupt, CtrlCWhileReadingLeavesNothing) {
    Start(Golden("complete"), "csv");
    ASSERT_TRUE(tivctl_->WaitForHandler());

    tivctl_->Interrupt();

    ExpectLeft();
}

TEST_F(ExportInterrupt, CtrlCWhileFinishingLeavesNothing) {
    Start(MakeLongResult(directory_, 150000), "sqlite");
    ASSERT_TRUE(errors_.TakeUntil("exporting  finishing"));

    tivctl_->Interrupt();

    ExpectLeft();
}

TEST(ExportResult, CancelledWhileIndexesAreMadeLeavesNothing) {
    const TempDir directory;
    ExportWatch watch;
    watch.onFinish = [] { return false; };

    const ExportReport report = ExportResult(MakeLongResult(directory, 50000), ExportFormat::SQLITE,
                                             directory.MakeDir("to") + "/x", watch);

    EXPECT_TRUE(report.cancelled);
    EXPECT_EQ("", report.error);
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path("to")));
}
