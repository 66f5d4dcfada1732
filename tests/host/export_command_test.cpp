// tivctl export as a program.
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>

#include "host/export_bench.h"
#include "host/live_terminal.h"
#include "host/stepped_clock.h"
#include "host/tivctl_bench.h"
#include "host/work_progress.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

class ExportCommand : public TivctlTest {
 protected:
    int Export(const std::vector<std::string>& words) {
        std::vector<std::string> all = {"export"};
        all.insert(all.end(), words.begin(), words.end());
        tivctl_ = std::make_unique<TivctlRun>(directory_, all);
        return tivctl_->Wait();
    }
};

}  // namespace

TEST_F(ExportCommand, TellsWhereTheExportWent) {
    const std::string path = directory_.Path("x.sqlite");

    EXPECT_EQ(0, Export({Golden("complete"), "--to", "sqlite", "--output", path}));

    EXPECT_EQ(path + "\n", tivctl_->Output());
    EXPECT_EQ("", tivctl_->Errors());
    EXPECT_TRUE(std::filesystem::exists(path));
}

TEST_F(ExportCommand, WithoutAPlaceTheExportGoesIntoTheResult) {
    std::filesystem::copy(Golden("profile"), directory_.Path("r"),
                          std::filesystem::copy_options::recursive);
    for (const auto& [format, file] :
         {std::pair("csv", "csv/process.csv"), std::pair("sqlite", "result.sqlite"),
          std::pair("perfetto", "timeline.pftrace.gz"),
          std::pair("folded", "folded/cpu-clock.folded")}) {
        EXPECT_EQ(0, Export({directory_.Path("r"), "--to", format, "--quiet"})) << format;
        EXPECT_EQ("", tivctl_->Output());
        EXPECT_TRUE(std::filesystem::exists(directory_.Path("r/") + file)) << file;
    }
}

TEST_F(ExportCommand, ExportsInTheResultAreNoPartOfIt) {
    std::filesystem::copy(Golden("complete"), directory_.Path("r"),
                          std::filesystem::copy_options::recursive);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(0, Export({directory_.Path("r"), "--to", "csv"}));
        EXPECT_EQ("", tivctl_->Errors());
    }
}

TEST_F(ExportCommand, IncompleteResultIsExportedWithAWarning) {
    EXPECT_EQ(0, Export({Golden("incomplete"), "--to", "csv", "--output", directory_.Path("c")}));

    EXPECT_EQ(
        "tivctl: the result is INCOMPLETE, and so is its export:\n"
        "  device 0: the data session ended before the device had sent everything\n"
        "  device 0: the end of its data never arrived\n"
        "  device 0: nothing arrived from the sampler cpu\n",
        tivctl_->Errors());
}

TEST_F(ExportCommand, ManyProblemsAreCutShort) {
    (void)directory_.MakeDir("r/device_0/data");
    for (int i = 0; i < 9; ++i) {
        directory_.Write("r/device_0/data/" + std::to_string(i) + "-Memory.data", "\x1b[2J");
    }

    EXPECT_EQ(0, Export({directory_.Path("r"), "--to", "csv", "--output", directory_.Path("c")}));

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("and 5 more, see `tivctl info "));
    EXPECT_EQ(std::string::npos, tivctl_->Errors().find('\x1b'));
}

TEST_F(ExportCommand, WrongCommandLinesExit2) {
    for (const std::vector<std::string>& words :
         std::vector<std::vector<std::string>>{{},
                                               {Golden("complete")},
                                               {"--to", "csv"},
                                               {Golden("complete"), "--to", "xml"},
                                               {directory_.Path(), "--to", "csv"},
                                               {directory_.Path("none"), "--to", "csv"}}) {
        EXPECT_EQ(2, Export(words));
        EXPECT_NE("", tivctl_->Errors());
    }
}

TEST_F(ExportCommand, WhatIsNoResultIsToldWithWhatToName) {
    EXPECT_EQ(2, Export({directory_.MakeDir("empty"), "--to", "csv"}));

    EXPECT_NE(std::string::npos,
              tivctl_->Errors().find("name a directory that `tivctl collect` made"));
}

TEST_F(ExportCommand, FoldedStacksWithoutAProfileAreToldWithTheOptionToUse) {
    EXPECT_EQ(2, Export({Golden("complete"), "--to", "folded", "--output", directory_.Path("f")}));

    EXPECT_NE(std::string::npos, tivctl_->Errors().find("collect one with --ctrl-cpu"));
}

TEST_F(ExportCommand, PlaceThatCannotBeWrittenExits1) {
    EXPECT_EQ(1, Export({Golden("complete"), "--to", "perfetto", "--output",
                         directory_.Path("none/x.pftrace.gz")}));

    EXPECT_EQ("tivctl: cannot write " + directory_.Path("none/x.pftrace.gz") +
                  ": No such file or directory; choose another place with --output\n",
              tivctl_->Errors());
}

// A file named over a device would end the device for the whole machine.
TEST_F(ExportCommand, NothingIsNamedOverWhatIsNoFile) {
    const std::string pipe = directory_.Path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    std::filesystem::create_symlink(pipe, directory_.Path("link"));
    for (const std::string format : {"sqlite", "perfetto"}) {
        EXPECT_EQ(1,
                  Export({Golden("complete"), "--to", format, "--output", directory_.Path("link")}))
            << format;
        EXPECT_EQ("tivctl: cannot write " + directory_.Path("link") +
                      ": it is not a file; choose another place with --output\n",
                  tivctl_->Errors());
        EXPECT_TRUE(std::filesystem::is_symlink(directory_.Path("link")));
    }
}

TEST_F(ExportCommand, DirectoryInPlaceOfTheFileIsToldBeforeTheWork) {
    for (const std::string format : {"sqlite", "perfetto"}) {
        EXPECT_EQ(1, Export({Golden("complete"), "--to", format, "--output", directory_.Path()}));
        EXPECT_EQ("tivctl: cannot write " + directory_.Path() +
                      ": it is a directory; choose another place with --output\n",
                  tivctl_->Errors());
    }
}

TEST(ExportFormat, NamesAreThoseOfTheForms) {
    EXPECT_EQ(ExportFormat::CSV, ParseExportFormat("csv"));
    EXPECT_EQ(ExportFormat::SQLITE, ParseExportFormat("sqlite"));
    EXPECT_EQ(ExportFormat::PERFETTO, ParseExportFormat("perfetto"));
    EXPECT_EQ(ExportFormat::FOLDED, ParseExportFormat("folded"));
    EXPECT_EQ(std::nullopt, ParseExportFormat("xlsx"));
}

TEST(ExportResult, CancelledExportLeavesNothing) {
    const TempDir directory;
    ExportWatch whileReading;
    whileReading.onRead = [](const ReadProgress&) { return false; };
    ExportWatch whileFinishing;
    whileFinishing.onFinish = [] { return false; };

    for (const ExportFormat format :
         {ExportFormat::CSV, ExportFormat::SQLITE, ExportFormat::PERFETTO, ExportFormat::FOLDED}) {
        const std::string output = directory.MakeDir("out") + "/x";
        EXPECT_TRUE(ExportResult(Golden("profile"), format, output, whileReading).cancelled);
        if (format == ExportFormat::PERFETTO || format == ExportFormat::FOLDED) {
            EXPECT_TRUE(ExportResult(Golden("profile"), format, output, whileFinishing).cancelled);
        }
        EXPECT_TRUE(std::filesystem::is_empty(directory.Path("out"))) << static_cast<int>(format);
    }
}

TEST(ExportResult, CancelledExportLeavesTheDirectoryThatWasThere) {
    const TempDir directory;
    ExportWatch whileReading;
    whileReading.onRead = [](const ReadProgress&) { return false; };

    for (const ExportFormat format : {ExportFormat::CSV, ExportFormat::FOLDED}) {
        const std::string output = directory.MakeDir("out");
        EXPECT_TRUE(ExportResult(Golden("profile"), format, output, whileReading).cancelled);
        EXPECT_TRUE(std::filesystem::is_directory(output)) << static_cast<int>(format);
    }
}

TEST_F(ExportCommand, ProgressIsToldEveryFiveSecondsFromTheFirstOn) {
    const ScopedSteppedClock clock;

    EXPECT_EQ(0, Export({Golden("complete"), "--to", "csv", "--output", directory_.Path("c")}));

    const std::string told = tivctl_->Errors();
    // A sanitizer may look at the clock as well, so that lines and rates are not always the same.
    EXPECT_EQ(0u, told.find("exporting  3%  1.9 kB of 64.7 kB  ")) << told;
    EXPECT_LT(1, std::count(told.begin(), told.end(), '\n')) << told;
    EXPECT_GT(20, std::count(told.begin(), told.end(), '\n')) << told;
}

TEST_F(ExportCommand, ProgressOnATerminalIsOneLineThatFitsAndGoes) {
    const ScopedSteppedClock clock;
    TerminalRun run({"export", Golden("complete"), "--to", "csv", "--output", directory_.Path("c")},
                    40, 24);

    EXPECT_EQ(0, run.Wait());

    const std::string& bytes = run.Bytes();
    EXPECT_EQ(0u, bytes.find("\r\033[Kexporting  3%  1.9 kB of 64.7 kB  ")) << bytes;
    const size_t end = bytes.rfind("exporting  ");
    EXPECT_LT(end, bytes.rfind("\r\033[K")) << bytes;
    EXPECT_EQ(std::string::npos, bytes.find("left")) << "cut at the 40th column";
}

TEST_F(ExportCommand, QuietTellsNoProgress) {
    const ScopedSteppedClock clock;

    EXPECT_EQ(0, Export({Golden("complete"), "--to", "csv", "--output", directory_.Path("c"),
                         "--quiet"}));

    EXPECT_EQ("", tivctl_->Errors());
}

TEST(WorkProgress, LineTellsShareSizesRateAndRest) {
    const WorkProgress progress("exporting", true);

    EXPECT_EQ("exporting  25%  250.0 MB of 1.0 GB  125.0 MB/s  6.0s left",
              progress.Text(250000000, 1000000000, std::chrono::seconds(2)));
    EXPECT_EQ("exporting  100%  0 B of 0 B  0 B/s", progress.Text(0, 0, std::chrono::seconds(2)));
    EXPECT_EQ("exporting  100%  20 B of 20 B  20 B/s  0ms left",
              progress.Text(20, 10, std::chrono::seconds(1)));
}
