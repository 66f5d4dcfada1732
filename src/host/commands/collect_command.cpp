// tivctl collect
#include <CLI/CLI.hpp>
#include <exception>

#include "host/collector.h"
#include "host/commands/command.h"
#include "host/commands/job_options.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/job_plan.h"
#include "host/live/live_view.h"
#include "host/live/screen.h"
#include "host/progress_line.h"
#include "host/report/make_report.h"
#include "host/result_summary.h"

namespace tiv::host {

namespace {

class CollectCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    bool TakeProgram(const std::vector<std::string>& words) override {
        job_.SetProgram(words);
        return true;
    }
    int Run() override;

 private:
    int Collect();
    int RunPlan(JobPlan plan, const CollectOptions& options, std::string& directory) const;
    std::unique_ptr<LiveView> MakeView(const JobPlan& plan, const CollectOptions& options,
                                       CollectionView& after) const;

    JobOptions job_;
    bool quiet_ = false;
    bool report_ = false;
    bool live_ = false;
};

CLI::App* CollectCommand::Declare(CLI::App& app) {
    CLI::App* collect = app.add_subcommand(
        "collect", "Collect samples from one or more devices into a result directory");
    job_.Declare(*collect);
    collect->add_flag("--report", report_,
                      "Make the page of the result at the end, report.html in it");
    collect->add_flag("--live", live_,
                      "Show what arrives on a full screen, as `tivctl top` does; what a command "
                      "prints goes to command.log in the result");
    collect->add_flag("--quiet", quiet_, "No progress and no summary");
    collect->footer(
        "tivctl collect [JOB] [OPTIONS] -- COMMAND [ARGUMENTS] starts the command when the devices "
        "collect and ends the job when it ends. Its exit status is told at the end and in the "
        "manifest; it does not become tivctl's own.\n" +
        JobOptions::Footer());
    return collect;
}

int CollectCommand::Collect() {
    const std::string whyNot = live_ ? Screen::WhyNot() : "";
    if (!whyNot.empty()) {
        Say(stderr, "tivctl: " + whyNot + "\n");
        return EXIT_USAGE;
    }
    std::string error;
    const std::optional<CollectOptions> options = job_.Read(error);
    if (!options.has_value()) {
        Say(stderr, "tivctl: " + error + "\n");
        return EXIT_USAGE;
    }
    JobPlan plan = MakeJobPlan(*options, MakeJobIdBase());
    for (const Refusal& refusal : plan.refusals) {
        Say(stderr, "tivctl: " + refusal.message + "\n");
    }
    if (!plan.Good()) {
        return EXIT_USAGE;
    }
    std::string directory;
    const int exitCode = RunPlan(std::move(plan), *options, directory);
    if (!report_ || directory.empty()) {
        return exitCode;
    }
    const int made = MakeReport(directory, "", quiet_, "report: ");
    return exitCode == EXIT_COMPLETE ? made : exitCode;
}

// Collects and tells of it. `directory` is the result; it stays empty when there is none.
int CollectCommand::RunPlan(JobPlan plan, const CollectOptions& options,
                            std::string& directory) const {
    ProgressLine line(quiet_);
    const std::unique_ptr<LiveView> view = MakeView(plan, options, line);
    Collector collector(std::move(plan), options, quiet_, view.get());
    const int exitCode = collector.Run();
    directory = collector.ResultDirectory();
    if (!quiet_ && !directory.empty()) {
        PrintSummary(directory, collector.Runs());
    }
    return exitCode;
}

// Null without --live. `after` takes over when the screen is left and outlives the view.
std::unique_ptr<LiveView> CollectCommand::MakeView(const JobPlan& plan,
                                                   const CollectOptions& options,
                                                   CollectionView& after) const {
    if (!live_) {
        return nullptr;
    }
    return std::make_unique<LiveView>(MakeLiveOptions("tivctl collect", plan.jobs, options), after);
}

int CollectCommand::Run() {
    try {
        return Collect();
    } catch (const std::exception& error) {
        Say(stderr, std::string("tivctl: cannot go on: ") + error.what() +
                        "; raise the limits of memory and threads, or name fewer devices\n");
        return EXIT_LOCAL_ERROR;
    }
}

}  // namespace

std::unique_ptr<Command> MakeCollectCommand() { return std::make_unique<CollectCommand>(); }

}  // namespace tiv::host
