// tivctl collect
#include <CLI/CLI.hpp>
#include <exception>

#include "host/collector.h"
#include "host/commands/command.h"
#include "host/console.h"
#include "host/duration.h"
#include "host/exit_codes.h"
#include "host/job_plan.h"
#include "host/result_summary.h"

namespace tiv::host {

namespace {

// CLI11 wants its own error texts from a validator; an empty one means good.
std::string CheckDuration(std::string& text) {
    return ParseDuration(text).has_value()
               ? ""
               : "\"" + text + "\" is no duration: write 10s, 500ms, 5m or 1h";
}

class CollectCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override;

 private:
    void DeclareSamplers(CLI::App& collect);
    void DeclareCourse(CLI::App& collect);
    int Collect();

    CollectOptions options_;
    std::string duration_ = "10s";
    std::string interval_ = "100ms";
    std::string wait_ = "0s";
    bool quiet_ = false;
};

CLI::App* CollectCommand::Declare(CLI::App& app) {
    CLI::App* collect = app.add_subcommand(
        "collect", "Collect samples from one or more devices into a result directory");
    collect->add_option("--device", options_.devices, "Device number (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->capture_default_str();
    collect->add_option("--duration", duration_, "How long to collect: 10s, 500ms, 5m, 1h")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    DeclareSamplers(*collect);
    DeclareCourse(*collect);
    collect->footer("Without a choice of samplers, --cpu, --memory and --processes are collected.");
    return collect;
}

void CollectCommand::DeclareSamplers(CLI::App& collect) {
    collect.add_flag("--cpu", options_.cpu, "Sample the system's CPU use");
    collect.add_flag("--memory", options_.memory,
                     "Sample the system's memory; brings the CPU use along");
    collect.add_flag("--processes", options_.processes, "Sample CPU and memory of every process");
    collect
        .add_option("--llc", options_.llcEvents,
                    "Read the device's channel of last-level cache events: read or write")
        ->type_name("EVENT")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    collect
        .add_option("--ctrl-cpu", options_.ctrlCpuEvents,
                    "Record the control CPU at these raw events: 0x11,0x3c (at most 8)")
        ->delimiter(',')
        ->expected(1, 64)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void CollectCommand::DeclareCourse(CLI::App& collect) {
    collect
        .add_option("--interval", interval_,
                    "Time between two samples: 100ms to 4294ms; with --ctrl-cpu 1s at most, and "
                    "from 1ms on when it is alone")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    collect.add_option("--output", options_.output, "Where the result directory is made")
        ->capture_default_str();
    collect.add_option("--wait", wait_, "How long to wait for a daemon that is not up yet")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    collect.add_flag("--quiet", quiet_, "No progress and no summary");
}

int CollectCommand::Collect() {
    options_.duration = *ParseDuration(duration_);
    options_.interval = *ParseDuration(interval_);
    options_.wait = *ParseDuration(wait_);
    JobPlan plan = MakeJobPlan(options_, MakeJobIdBase());
    if (!plan.error.empty()) {
        Say(stderr, "tivctl: " + plan.error + "\n");
        return EXIT_USAGE;
    }
    Collector collector(std::move(plan), options_, quiet_);
    const int exitCode = collector.Run();
    if (!quiet_ && !collector.ResultDirectory().empty()) {
        PrintSummary(collector.ResultDirectory(), collector.Runs());
    }
    return exitCode;
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
