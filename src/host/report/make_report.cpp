// Making a report for a person at a terminal.
#include "host/report/make_report.h"

#include <fmt/format.h>

#include <filesystem>

#include "host/console.h"
#include "host/exit_codes.h"
#include "host/report/report_page.h"
#include "host/result_files.h"
#include "host/stop_signal.h"
#include "host/work_progress.h"

namespace tiv::host {

namespace {

constexpr const char* PAGE_NAME = "report.html";

void TellProblems(const std::string& directory, const std::vector<std::string>& problems) {
    if (problems.empty()) {
        return;
    }
    std::string text =
        "tivctl: the result is INCOMPLETE, and the page says so: " + Printable(problems.front());
    if (problems.size() > 1) {
        text += fmt::format("; and {} more, see `tivctl info {}`", problems.size() - 1, directory);
    }
    Say(stderr, text + "\n");
}

}  // namespace

int MakeReport(const std::string& directory, const std::string& output, bool quiet,
               const std::string& label) {
    std::string error;
    const auto result = OpenResult(directory, error);
    if (!result.has_value()) {
        Say(stderr, fmt::format("tivctl: {}\n", error));
        return EXIT_USAGE;
    }
    const std::string path =
        output.empty() ? (std::filesystem::path(directory) / PAGE_NAME).string() : output;
    const StopSignal stop;
    WorkProgress progress("making the report", quiet);
    const ReportOutcome outcome = WriteReport(*result, path, [&](const ReadProgress& read) {
        progress.Show(read.bytes, read.total);
        return !stop.Asked();
    });
    progress.Clear();
    if (outcome.cancelled) {
        Say(stderr, "tivctl: left by Ctrl-C; no page was made\n");
        return EXIT_INTERRUPTED;
    }
    if (!outcome.error.empty()) {
        Say(stderr, fmt::format("tivctl: {}; choose another place with --output\n", outcome.error));
        return EXIT_LOCAL_ERROR;
    }
    TellProblems(directory, outcome.reading.problems);
    if (!quiet) {
        Say(stdout, label + path + "\n");
    }
    return EXIT_COMPLETE;
}

}  // namespace tiv::host
