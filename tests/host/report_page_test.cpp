// Tests of the page around the data.
#include "host/report/report_page.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <regex>

#include "host/report/page_assets.h"
#include "host/report_decode.h"
#include "support/scoped_limit.h"
#include "support/temp_dir.h"

namespace tiv::host {
namespace {

namespace fs = std::filesystem;

size_t CountOf(const std::string& text, const std::string& part) {
    size_t count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) {
        ++count;
    }
    return count;
}

class ReportPageTest : public testing::Test {
 protected:
    ReportPageTest() {
        fs::create_directories(directory / "device_0" / "data");
        std::ofstream(directory / "manifest.json")
            << R"({"format":1,"state":"complete","complete":true,"devices":[{"device":0,)"
            << R"("directory":"device_0","jobId":"j","complete":true,"finishArrived":true,"files":[]}]})";
    }

    static std::string Read(const fs::path& path) {
        std::ifstream file(path, std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

    tiv::test::TempDir tempDir;
    const fs::path directory{tempDir.Path()};
};

TEST_F(ReportPageTest, PolicyAllowsNothingButTheHashesOfWhatIsInThePage) {
    const std::string page = MakePage("DATA");
    std::smatch found;
    const std::regex policy("http-equiv=\"Content-Security-Policy\" content=\"([^\"]*)\"");

    ASSERT_TRUE(std::regex_search(page.cbegin(), page.cbegin() + 1000, found, policy));

    const std::regex shape(
        "default-src 'none'; script-src 'sha256-[A-Za-z0-9+/]{43}=' 'sha256-[A-Za-z0-9+/]{43}='; "
        "style-src 'sha256-[A-Za-z0-9+/]{43}='");
    EXPECT_TRUE(std::regex_match(found[1].str(), shape)) << found[1];
}

TEST_F(ReportPageTest, PageHoldsTheDataAndNoPlaceThatIsNotFilled) {
    const std::string page = MakePage("QUJD");

    EXPECT_EQ(CountOf(page, ">QUJD</script>"), 1u);
    EXPECT_EQ(CountOf(page, "@DATA@") + CountOf(page, "@SCRIPT@") + CountOf(page, "@POLICY@"), 0u);
    EXPECT_EQ(CountOf(page, "</script>"), 3u);
    EXPECT_EQ(CountOf(page, "</style>"), 1u);
}

TEST_F(ReportPageTest, PageCarriesTheLicenceOfThePlottingLibrary) {
    EXPECT_NE(MakePage("").find("Permission is hereby granted, free of charge"), std::string::npos);
}

TEST_F(ReportPageTest, PageNamesNoOtherPlaceToLoadFrom) {
    const std::string page = MakePage("");

    EXPECT_EQ(CountOf(page, " src="), 0u);
    EXPECT_EQ(CountOf(page, "<link"), 0u);
    EXPECT_EQ(CountOf(page, "sourceMappingURL"), 0u);
}

TEST_F(ReportPageTest, ReportOfADirectoryIsWrittenWhole) {
    std::string error;
    const auto result = OpenResult(directory, error);
    ASSERT_TRUE(result.has_value()) << error;

    const ReportOutcome outcome = WriteReport(*result, directory / "report.html");

    EXPECT_EQ(outcome.error, "");
    EXPECT_NE(Read(directory / "report.html").find("</html>"), std::string::npos);
    EXPECT_FALSE(fs::exists(directory / "report.html.new"));
}

TEST_F(ReportPageTest, PageThatCannotBeWrittenIsToldWithItsPath) {
    std::string error;
    const auto result = OpenResult(directory, error);
    ASSERT_TRUE(result.has_value()) << error;

    const ReportOutcome outcome = WriteReport(*result, directory / "missing" / "report.html");

    EXPECT_EQ(outcome.error, "cannot write " + (directory / "missing" / "report.html").string() +
                                 ": No such file or directory");
}

TEST_F(ReportPageTest, FullDiskIsToldAndLeavesNoPage) {
    std::string error;
    const auto result = OpenResult(directory, error);
    ASSERT_TRUE(result.has_value()) << error;
    const tiv::test::ScopedLimit small(RLIMIT_FSIZE, 4096);

    const ReportOutcome outcome = WriteReport(*result, directory / "report.html");

    EXPECT_EQ(outcome.error,
              "cannot write " + (directory / "report.html").string() + ": File too large");
    EXPECT_FALSE(fs::exists(directory / "report.html"));
    EXPECT_FALSE(fs::exists(directory / "report.html.new"));
}

TEST_F(ReportPageTest, LinkInPlaceOfTheScratchFileIsNotFollowed) {
    std::string error;
    const auto result = OpenResult(directory, error);
    ASSERT_TRUE(result.has_value()) << error;
    std::ofstream(directory / "victim") << "somebody's notes";
    fs::create_symlink(directory / "victim", directory / "report.html.new");

    const ReportOutcome outcome = WriteReport(*result, directory / "report.html");

    EXPECT_EQ(outcome.error, "cannot write " + (directory / "report.html").string() +
                                 ": Too many levels of symbolic links");
    EXPECT_EQ(Read(directory / "victim"), "somebody's notes");
}

TEST_F(ReportPageTest, CancelledReadingLeavesNoPage) {
    std::ofstream(directory / "device_0" / "data" / "SystemCpuUsage.data")
        << "TimeStamp:1\nIndex:0\nDataLen:3\nabc\n";
    std::string error;
    const auto result = OpenResult(directory, error);
    ASSERT_TRUE(result.has_value()) << error;

    const ReportOutcome outcome =
        WriteReport(*result, directory / "report.html", [](const ReadProgress&) { return false; });

    EXPECT_TRUE(outcome.cancelled);
    EXPECT_FALSE(fs::exists(directory / "report.html"));
}

}  // namespace
}  // namespace tiv::host
