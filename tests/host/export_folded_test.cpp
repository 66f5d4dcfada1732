// Results as folded stacks.
#include <algorithm>
#include <filesystem>
#include <sstream>

#include "host/export/folded_exporter.h"
#include "host/export_bench.h"

using namespace tiv::host;
using namespace tiv::test;

namespace {

const std::vector<StackFrame> STACK = {
    {1, "inner;most", 0, "/bin/a"}, {2, "", 0, "/lib/b.so"}, {3, "", 0, ""}};

ProfileSampleRow Sample(std::string_view command, std::string_view event,
                        const std::vector<StackFrame>& stack) {
    return {0, 1, 0, std::nullopt, 7, command, event, 1, stack};
}

class FoldedExport : public testing::Test {
 protected:
    // Exports rows that `give` hands over; `whole` says whether the result is complete.
    template <class Give>
    void Export(Give give, bool whole = true, size_t maxBytes = 1 << 20) {
        ResultDirectory result;
        result.complete = whole;
        ReadOutcome outcome;
        if (!whole) {
            outcome.problems = {"a reason\nwith a line end"};
        }
        FoldedExporter exporter(directory_.Path("folded"), maxBytes);
        ASSERT_TRUE(exporter.Open());
        exporter.OnBegin(result);
        give(exporter);
        exporter.OnEnd(outcome);
        ASSERT_TRUE(exporter.Commit()) << exporter.Error();
        outputs_ = exporter.Outputs();
    }
    std::string Read(const std::string& event) const {
        return directory_.Read("folded/" + event + ".folded");
    }

    TempDir directory_;
    std::vector<std::string> outputs_;
};

// The sum of the counts of a folded file.
uint64_t Sum(const std::string& text) {
    std::istringstream lines(text);
    uint64_t sum = 0;
    for (std::string line; std::getline(lines, line);) {
        sum += line[0] == '#' ? 0 : std::stoull(line.substr(line.rfind(' ') + 1));
    }
    return sum;
}

}  // namespace

TEST_F(FoldedExport, EqualStacksAreOneLine) {
    Export([](FoldedExporter& exporter) {
        exporter.OnProfileSample(Sample("sh", "cycles", STACK));
        exporter.OnProfileSample(Sample("a b;c\nd", "cycles", {}));
        exporter.OnProfileSample(Sample("sh", "cycles", STACK));
    });

    EXPECT_EQ("a b:c d 1\nsh;[unknown];[b.so];inner:most 2\n", Read("cycles"));
}

TEST_F(FoldedExport, EveryEventHasAFileWithAPlainName) {
    Export([](FoldedExporter& exporter) {
        exporter.OnProfileSample(Sample("sh", "cpu/event=0x11/", {}));
        exporter.OnProfileSample(Sample("sh", "../../etc/x", {}));
    });

    EXPECT_EQ("sh 1\n", Read("cpu_event_0x11_"));
    EXPECT_EQ("sh 1\n", Read("______etc_x"));
    EXPECT_EQ(2u, outputs_.size());
}

TEST_F(FoldedExport, FullMemorySplitsCountsThatStillAddUp) {
    Export(
        [](FoldedExporter& exporter) {
            for (int i = 0; i < 1000; ++i) {
                exporter.OnProfileSample(Sample("thread" + std::to_string(i % 50), "e", STACK));
            }
        },
        true, 1000);

    const std::string text = Read("e");
    EXPECT_EQ(1000u, Sum(text));
    EXPECT_GT(std::count(text.begin(), text.end(), '\n'), 50);
}

TEST_F(FoldedExport, IncompleteResultSaysSoInFront) {
    Export([](FoldedExporter& exporter) { exporter.OnProfileSample(Sample("sh", "e", {})); },
           false);

    EXPECT_EQ(
        "# INCOMPLETE: this profile is not everything that was asked for.\n"
        "# a reason with a line end.\nsh 1\n",
        Read("e"));
}

TEST_F(FoldedExport, EventsBeyondTheBoundAreLeftOutAndTold) {
    Export([](FoldedExporter& exporter) {
        for (int i = 0; i < 70; ++i) {
            exporter.OnProfileSample(Sample("sh", "e" + std::to_string(i), {}));
        }
    });

    EXPECT_EQ(64u, outputs_.size());
    EXPECT_EQ("# 6 samples of more than 64 events are left out.\nsh 1\n", Read("e0"));
}

TEST_F(FoldedExport, RecordedProfileHoldsEverySample) {
    const size_t samples = CountRows(RowsOf(Golden("profile")), "sample");
    const ExportReport report =
        ExportResult(Golden("profile"), ExportFormat::FOLDED, directory_.Path("folded"));

    ASSERT_EQ(1u, report.outputs.size()) << report.error;
    EXPECT_EQ(samples, Sum(Read("cpu-clock")));
    EXPECT_GT(samples, 0u);
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(directory_.Path("folded")), {}));
}

TEST_F(FoldedExport, ResultWithoutAProfileGivesNoFile) {
    const ExportReport report =
        ExportResult(Golden("complete"), ExportFormat::FOLDED, directory_.Path("folded"));

    EXPECT_EQ("", report.error);
    EXPECT_TRUE(report.outputs.empty());
}
