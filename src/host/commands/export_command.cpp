// tivctl export
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "host/commands/command.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/export/export_result.h"
#include "host/result_files.h"
#include "host/stop_signal.h"
#include "host/work_progress.h"

namespace tiv::host {

namespace {

constexpr size_t SHOWN_PROBLEMS = 5;

constexpr const char* FOOTER =
    "csv: a directory with one file per table. sqlite: one database file; docs/result_format.md "
    "describes its tables. perfetto: a timeline to be opened at https://ui.perfetto.dev. folded: a "
    "directory with the stacks of the CPU profile, one file per event, for flame graphs.\n"
    "An export of an incomplete result says so, on standard error and in what is written.";

class ExportCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override;

 private:
    void Tell(const ExportReport& report) const;

    std::string directory_;
    std::string format_;
    std::string output_;
    bool quiet_ = false;
};

CLI::App* ExportCommand::Declare(CLI::App& app) {
    CLI::App* command = app.add_subcommand(
        "export", "Write a result as CSV, as a SQLite database, as a timeline or as folded stacks");
    command->add_option("DIR", directory_, "The result directory")->required();
    command->add_option("--to", format_, "The form")
        ->required()
        ->check(CLI::IsMember(ExportFormatNames()))
        ->type_name("FORMAT");
    command->add_option("--output", output_,
                        "Where it goes; without it csv/, result.sqlite, timeline.pftrace.gz or "
                        "folded/ in the result directory");
    command->add_flag("--quiet", quiet_, "No progress and no list of what was written");
    command->footer(FOOTER);
    return command;
}

void ExportCommand::Tell(const ExportReport& report) const {
    if (!report.isWhole) {
        std::string text = "tivctl: the result is INCOMPLETE, and so is its export:\n";
        for (size_t i = 0; i < report.problems.size() && i < SHOWN_PROBLEMS; ++i) {
            text += fmt::format("  {}\n", Printable(report.problems[i]));
        }
        if (report.problems.size() > SHOWN_PROBLEMS) {
            text += fmt::format("  and {} more, see `tivctl info {}`\n",
                                report.problems.size() - SHOWN_PROBLEMS, directory_);
        }
        Say(stderr, text);
    }
    if (report.outputs.empty()) {
        Say(stderr, fmt::format("tivctl: nothing to write: {} holds no sample of a CPU profile; "
                                "collect one with --ctrl-cpu\n",
                                directory_));
    }
    if (!quiet_) {
        for (const std::string& path : report.outputs) {
            Say(stdout, path + "\n");
        }
    }
}

int ExportCommand::Run() {
    const ExportFormat format = *ParseExportFormat(format_);
    const std::string output = output_.empty() ? DefaultOutput(directory_, format) : output_;
    const StopSignal stop;
    WorkProgress progress("exporting", quiet_);
    ExportWatch watch;
    watch.onRead = [&](const ReadProgress& read) {
        progress.Show(read.bytes, read.total);
        return !stop.Asked();
    };
    watch.onFinish = [&] {
        progress.ShowFinishing();
        return !stop.Asked();
    };
    const ExportReport report = ExportResult(directory_, format, output, watch);
    progress.Clear();
    if (report.cancelled) {
        Say(stderr, "tivctl: left by Ctrl-C; nothing was written\n");
        return EXIT_INTERRUPTED;
    }
    if (!report.error.empty()) {
        Say(stderr, fmt::format("tivctl: {}\n", report.error));
        return report.isNoResult ? EXIT_USAGE : EXIT_LOCAL_ERROR;
    }
    Tell(report);
    return report.outputs.empty() ? EXIT_USAGE : EXIT_COMPLETE;
}

}  // namespace

std::unique_ptr<Command> MakeExportCommand() { return std::make_unique<ExportCommand>(); }

}  // namespace tiv::host
