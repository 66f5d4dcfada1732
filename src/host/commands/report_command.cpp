// tivctl report
#include <CLI/CLI.hpp>

#include "host/commands/command.h"
#include "host/report/make_report.h"

namespace tiv::host {

namespace {

constexpr const char* FOOTER =
    "The page is one file that opens without a network in any browser of the last years. Long runs "
    "are thinned to the least, the mean and the greatest reading per interval; `tivctl export` "
    "writes every reading.";

class ReportCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override { return MakeReport(directory_, output_, quiet_); }

 private:
    std::string directory_;
    std::string output_;
    bool quiet_ = false;
};

CLI::App* ReportCommand::Declare(CLI::App& app) {
    CLI::App* command = app.add_subcommand("report", "Make one HTML page with plots of a result");
    command->add_option("DIR", directory_, "The result directory")->required();
    command->add_option("--output", output_,
                        "Where the page goes; without it report.html in the result directory");
    command->add_flag("--quiet", quiet_, "No progress and no path of the page");
    command->footer(FOOTER);
    return command;
}

}  // namespace

std::unique_ptr<Command> MakeReportCommand() { return std::make_unique<ReportCommand>(); }

}  // namespace tiv::host
