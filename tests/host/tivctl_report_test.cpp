// tivctl report and tivctl info as programs.
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "host/held_stream.h"
#include "host/report_decode.h"
#include "host/stepped_clock.h"
#include "host/tivctl_bench.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

std::string Golden(const std::string& name) { return std::string(TIV_GOLDEN_DIR) + "/" + name; }

std::string ReadFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The data of a page that was written.
DecodedPage DataOf(const std::string& path) {
    const std::string page = ReadFile(path);
    const std::string before = "<script id=\"data\" type=\"application/octet-stream\">";
    const size_t begin = page.find(before) + before.size();
    return DecodedPage(std::string_view(page).substr(begin, page.find('<', begin) - begin));
}

class ReportCommand : public TivctlTest {
 protected:
    int Run(const std::vector<std::string>& words) {
        tivctl_ = std::make_unique<TivctlRun>(directory_, words);
        return tivctl_->Wait();
    }
    // A copy of a golden result, which a test may change.
    std::string Copy(const std::string& name) {
        std::filesystem::copy(Golden(name), directory_.Path("r"),
                              std::filesystem::copy_options::recursive);
        return directory_.Path("r");
    }
};

}  // namespace

TEST_F(ReportCommand, TellsWhereThePageIs) {
    const std::string path = directory_.Path("page.html");

    EXPECT_EQ(0, Run({"report", Golden("complete"), "--output", path}));

    EXPECT_EQ(path + "\n", tivctl_->Output());
    EXPECT_EQ("", tivctl_->Errors());
    EXPECT_EQ("complete", DataOf(path).model["state"]);
}

TEST_F(ReportCommand, ProgressIsToldFromTheFirstSecondOn) {
    const ScopedSteppedClock clock;

    EXPECT_EQ(0, Run({"report", Golden("complete"), "--output", directory_.Path("page.html")}));

    const std::string told = tivctl_->Errors();
    EXPECT_EQ(0u, told.find("making the report  3%  1.9 kB of 64.7 kB  ")) << told;
}

TEST_F(ReportCommand, CtrlCLeavesNoPage) {
    const ScopedSteppedClock clock;
    HeldStream errors;
    const std::string path = directory_.MakeDir("to") + "/page.html";
    const std::vector<std::string> words = {"report", Golden("complete"), "--output", path};
    tivctl_ = std::make_unique<TivctlRun>(directory_, words, errors.End());
    ASSERT_TRUE(tivctl_->WaitForHandler());

    tivctl_->Interrupt();

    EXPECT_EQ("tivctl: left by Ctrl-C; no page was made\n", errors.Last());
    EXPECT_EQ(130, tivctl_->Wait());
    EXPECT_EQ("", tivctl_->Output());
    EXPECT_TRUE(std::filesystem::is_empty(directory_.Path("to")));
}

// A page named over a device would end the device for the whole machine.
TEST_F(ReportCommand, PageIsNotNamedOverWhatIsNoFile) {
    const std::string pipe = directory_.Path("pipe");
    ASSERT_EQ(0, mkfifo(pipe.c_str(), 0600));
    std::filesystem::create_symlink(pipe, directory_.Path("link"));

    EXPECT_EQ(1, Run({"report", Golden("complete"), "--output", directory_.Path("link")}));

    EXPECT_EQ("tivctl: cannot write " + directory_.Path("link") +
                  ": it is not a file; choose another place with --output\n",
              tivctl_->Errors());
    EXPECT_TRUE(std::filesystem::is_symlink(directory_.Path("link")));
}

TEST_F(ReportCommand, WithoutAPlaceThePageGoesIntoTheResultAndIsNoPartOfIt) {
    const std::string result = Copy("complete");

    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(0, Run({"report", result}));
        EXPECT_EQ(result + "/report.html\n", tivctl_->Output());
        EXPECT_EQ("", tivctl_->Errors());
    }
    EXPECT_EQ(0, Run({"info", result}));
}

TEST_F(ReportCommand, IncompleteResultIsToldAndShown) {
    const std::string path = directory_.Path("page.html");

    EXPECT_EQ(0, Run({"report", Golden("incomplete"), "--output", path, "--quiet"}));

    EXPECT_EQ(
        "tivctl: the result is INCOMPLETE, and the page says so: device 0: the data session ended "
        "before the device had sent everything; and 2 more, see `tivctl info " +
            Golden("incomplete") + "`\n",
        tivctl_->Errors());
    EXPECT_EQ("", tivctl_->Output());
    EXPECT_EQ("incomplete", DataOf(path).model["state"]);
    EXPECT_NE(0u, DataOf(path).model["missing"].size());
}

TEST_F(ReportCommand, OnlyProblemOfAResultIsTold) {
    const std::string result = Copy("complete");
    std::filesystem::remove(result + "/device_0/data/1-Memory.data");

    EXPECT_EQ(0, Run({"report", result, "--quiet"}));

    const std::string errors = tivctl_->Errors();
    EXPECT_NE(std::string::npos, errors.find("device_0/data/1-Memory.data")) << errors;
    EXPECT_EQ(std::string::npos, errors.find(" more, see")) << errors;
}

TEST_F(ReportCommand, ProfileOfAResultIsAFlameGraph) {
    const std::string path = directory_.Path("page.html");

    EXPECT_EQ(0, Run({"report", Golden("profile"), "--output", path}));

    const DecodedPage page = DataOf(path);
    EXPECT_EQ("flame", page.Section("flame-0")["kind"]);
    EXPECT_NE(0u, page.Section("functions-0")["rows"].size());
}

TEST_F(ReportCommand, DirectoryThatIsNoResultIsRefused) {
    EXPECT_EQ(2, Run({"report", directory_.Path("missing")}));
    EXPECT_EQ("tivctl: cannot read the result " + directory_.Path("missing") +
                  ": No such file or directory; name a directory that `tivctl collect` made\n",
              tivctl_->Errors());
    EXPECT_EQ(2, Run({"info", directory_.Path("missing")}));
    EXPECT_NE(std::string::npos, tivctl_->Errors().find("missing")) << tivctl_->Errors();
}

TEST_F(ReportCommand, PageThatCannotBeWrittenIsALocalError) {
    EXPECT_EQ(1, Run({"report", Golden("complete"), "--output", directory_.Path("no/page.html")}));

    EXPECT_EQ("tivctl: cannot write " + directory_.Path("no/page.html") +
                  ": No such file or directory; choose another place with --output\n",
              tivctl_->Errors());
}

TEST_F(ReportCommand, InfoOfACompleteResultSucceeds) {
    EXPECT_EQ(0, Run({"info", Golden("complete")}));
    EXPECT_NE(std::string::npos, tivctl_->Output().find("state      complete"))
        << tivctl_->Output();
}

TEST_F(ReportCommand, InfoOfAnIncompleteResultHasAnExitCodeOfItsOwn) {
    EXPECT_EQ(4, Run({"info", Golden("incomplete"), "--json"}));

    const auto info = nlohmann::json::parse(tivctl_->Output());
    EXPECT_FALSE(info["complete"].get<bool>());
    EXPECT_NE(0u, info["problems"].size());
}

TEST_F(ReportCommand, FileThatIsGoneIsMissingInInfo) {
    const std::string result = Copy("complete");
    std::filesystem::remove(result + "/device_0/data/SystemCpuUsage.data");

    EXPECT_EQ(4, Run({"info", result}));

    EXPECT_NE(std::string::npos, tivctl_->Output().find("SystemCpuUsage.data"))
        << tivctl_->Output();
}

TEST_F(ReportCommand, CollectionMakesItsPageAtTheEnd) {
    Listen(0);
    Collect({"--cpu", "--duration", "100ms", "--report"});
    Begin();
    const std::string reading = "cpu  1 0 0 0 0 0 0 0 0 0\n";
    data_->Send(ChunkMessage(
        "data/SystemCpuUsage.data",
        "TimeStamp:1\nIndex:0\nDataLen:" + std::to_string(reading.size()) + "\n" + reading + "\n"));
    End();

    EXPECT_EQ(0, tivctl_->Wait());

    const std::string last = "report: " + Result() + "/report.html\n";
    EXPECT_EQ(last, tivctl_->Output().substr(tivctl_->Output().rfind("report: ")));
    EXPECT_EQ("complete", DataOf(Result() + "/report.html").model["state"]);
}

TEST_F(ReportCommand, CollectionThatStaysIncompleteHasAPageThatSaysSo) {
    Listen(0);
    Collect({"--cpu", "--duration", "1h", "--report", "--quiet"});
    Begin();
    data_.reset();
    control_.reset();

    EXPECT_EQ(4, tivctl_->Wait());

    EXPECT_EQ("", tivctl_->Output());
    EXPECT_EQ("incomplete", DataOf(Result() + "/report.html").model["state"]);
}
