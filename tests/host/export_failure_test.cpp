// Exports that fail on the way: a full disk, and places that something else takes.
#include <sys/resource.h>
#include <sys/stat.h>

#include <filesystem>
#include <optional>

#include "host/export/csv_exporter.h"
#include "host/export/folded_exporter.h"
#include "host/export_bench.h"
#include "support/scoped_limit.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

constexpr const char* WAY_OUT = "; choose another place with --output";

// Makes a directory at `path` while the result is read.
ExportWatch TakingPlace(const std::string& path) {
    ExportWatch watch;
    watch.onRead = [path](const ReadProgress&) {
        std::filesystem::create_directories(path);
        return true;
    };
    return watch;
}

}  // namespace

TEST(ExportFailure, FullDiskIsToldAndLeavesNothing) {
    for (const ExportFormat format :
         {ExportFormat::CSV, ExportFormat::PERFETTO, ExportFormat::FOLDED}) {
        const TempDir directory;
        const std::string output = directory.Path("x");
        const ScopedLimit small(RLIMIT_FSIZE, 64);

        const ExportReport report = ExportResult(Golden("profile"), format, output);

        EXPECT_EQ(0u, report.error.find("cannot write " + output)) << report.error;
        EXPECT_NE(std::string::npos, report.error.find(std::string(": File too large") + WAY_OUT));
        EXPECT_TRUE(report.outputs.empty());
        EXPECT_TRUE(std::filesystem::is_empty(directory.Path())) << static_cast<int>(format);
    }
}

TEST(ExportFailure, DatabaseOfADiskThatIsFullAtTheEndIsToldAndLeavesNothing) {
    const TempDir directory;
    const std::string output = directory.Path("x");
    std::optional<ScopedLimit> full;  // behind the beginning, which writes the tables
    ExportWatch watch;
    watch.onRead = [&](const ReadProgress&) {
        if (!full.has_value()) {
            full.emplace(RLIMIT_FSIZE, 64);
        }
        return true;
    };

    const ExportReport report =
        ExportResult(Golden("complete"), ExportFormat::SQLITE, output, watch);

    EXPECT_EQ("cannot write the database: disk I/O error: file " + output + ".new" + WAY_OUT,
              report.error);
    EXPECT_TRUE(report.outputs.empty());
    EXPECT_TRUE(std::filesystem::is_empty(directory.Path()));
}

TEST(ExportFailure, PlaceThatIsTakenMeanwhileIsToldAndStays) {
    for (const ExportFormat format : {ExportFormat::SQLITE, ExportFormat::PERFETTO}) {
        const TempDir directory;
        const std::string output = directory.Path("x");

        const ExportReport report =
            ExportResult(Golden("complete"), format, output, TakingPlace(output));

        EXPECT_EQ("cannot name " + output + ": Is a directory" + WAY_OUT, report.error);
        EXPECT_TRUE(report.outputs.empty());
        EXPECT_TRUE(std::filesystem::is_directory(output));
        EXPECT_FALSE(std::filesystem::exists(output + ".new"));
    }
}

TEST(ExportFailure, FileOfADirectoryWhosePlaceIsTakenMeanwhileIsTold) {
    const TempDir directory;
    const std::string taken = directory.Path("x/system_cpu.csv");

    const ExportReport report = ExportResult(Golden("complete"), ExportFormat::CSV,
                                             directory.Path("x"), TakingPlace(taken));

    EXPECT_EQ("cannot name " + taken + ": Is a directory" + WAY_OUT, report.error);
}

TEST(ExportFailure, FileOfFoldedStacksWhosePlaceIsTakenIsTold) {
    const TempDir directory;
    ResultDirectory result;
    FoldedExporter exporter(directory.Path("x"));
    ASSERT_TRUE(exporter.Open());
    exporter.OnBegin(result);
    exporter.OnProfileSample({0, 1, 0, std::nullopt, 7, "command", "r11", 1, {}});
    exporter.OnEnd({});
    (void)directory.MakeDir("x/r11.folded");

    EXPECT_FALSE(exporter.Commit());

    EXPECT_EQ("cannot name " + directory.Path("x/r11.folded") + ": Is a directory",
              exporter.Error());
}

TEST(ExportFailure, TableWhoseFileCannotBeMadeIsTold) {
    const TempDir directory;
    (void)directory.MakeDir("x/memory.csv.new");

    {
        CsvExporter exporter(directory.Path("x"));

        EXPECT_FALSE(exporter.Open());

        EXPECT_EQ("cannot write " + directory.Path("x/memory.csv") + ": Is a directory",
                  exporter.Error());
    }
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(directory.Path("x")), {}));
}

TEST(ExportFailure, TablesOfADiskThatIsFullBeforeTheEndAreNotNamed) {
    const TempDir directory;
    ResultDirectory result;
    const std::string name(512 << 10, 'x');  // more than is held in memory
    CsvExporter exporter(directory.Path("x"));
    ASSERT_TRUE(exporter.Open());
    exporter.OnBegin(result);
    {
        const ScopedLimit small(RLIMIT_FSIZE, 64);
        exporter.OnMemoryKey({0, 0, name, true});
    }
    exporter.OnEnd({});

    EXPECT_FALSE(exporter.Commit());

    EXPECT_EQ("cannot write " + directory.Path("x/memory_key.csv") + ": File too large",
              exporter.Error());
    for (const auto& file : std::filesystem::directory_iterator(directory.Path("x"))) {
        EXPECT_EQ(".new", file.path().extension());
    }
}

TEST(ExportFailure, LinkInPlaceOfTheScratchFileIsNotFollowed) {
    for (const ExportFormat format : {ExportFormat::SQLITE, ExportFormat::PERFETTO}) {
        const TempDir directory;
        const std::string victim = directory.Write("victim", "somebody's notes");
        std::filesystem::create_symlink(victim, directory.Path("x.new"));

        const ExportReport report = ExportResult(Golden("complete"), format, directory.Path("x"));

        EXPECT_EQ("somebody's notes", directory.Read("victim"));
        EXPECT_EQ(format == ExportFormat::PERFETTO, !report.error.empty()) << report.error;
    }
}

TEST(ExportFailure, DirectoryInPlaceOfTheScratchFileIsTold) {
    for (const ExportFormat format : {ExportFormat::SQLITE, ExportFormat::PERFETTO}) {
        const TempDir directory;
        (void)directory.MakeDir("x.new");

        const ExportReport report = ExportResult(Golden("complete"), format, directory.Path("x"));

        EXPECT_EQ(0u, report.error.find("cannot write " + directory.Path("x"))) << report.error;
        EXPECT_NE(std::string::npos, report.error.find(": Is a directory"));
        EXPECT_TRUE(std::filesystem::is_directory(directory.Path("x.new")));
    }
}
