// tivctl top
#include <CLI/CLI.hpp>

#include "host/commands/command.h"
#include "host/console.h"
#include "host/duration.h"
#include "host/exit_codes.h"
#include "host/job_plan.h"
#include "host/live/live_view.h"
#include "host/live/screen.h"
#include "host/live/top_run.h"
#include "host/progress_line.h"

namespace tiv::host {

namespace {

constexpr const char* FOOTER =
    "Without a choice of samplers, --cpu, --memory and --processes are shown. Nothing is kept.\n"
    "Keys: q or Ctrl-C quits and ends the job; c, m and p order the processes by CPU, memory and "
    "process id; space holds the picture.\n"
    "\"-\" stands for what was not measured. The daemon sends its readings in buffers: each panel "
    "tells how old its newest one is, and a shorter --interval fills buffers sooner.";

// CLI11 wants its own error texts from a validator; an empty one means good.
std::string CheckDuration(std::string& text) {
    return ParseDuration(text).has_value() ? ""
                                           : "\"" + text + "\" is no duration: write 500ms or 1s";
}

class TopCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override;

 private:
    CollectOptions options_;
    std::string interval_ = "100ms";
    std::string wait_ = "0s";
    std::string drainTimeout_ = "60s";
};

CLI::App* TopCommand::Declare(CLI::App& app) {
    CLI::App* top = app.add_subcommand("top", "Show live what the devices do, on a full screen");
    top->add_option("--device", options_.devices, "Device number (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->capture_default_str();
    top->add_flag("--cpu", options_.cpu, "Show the system's CPU use");
    top->add_flag("--memory", options_.memory, "Show the system's memory");
    top->add_flag("--processes", options_.processes, "Show CPU and memory of every process");
    top->add_option("--llc", options_.llcEvents,
                    "Read the device's channel of last-level cache events: read or write")
        ->type_name("EVENT")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    top->add_option("--interval", interval_, "Time between two samples: 100ms to 4294ms")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    top->add_option("--page-size", options_.pageBytes,
                    "Bytes of a memory page on the card; its samples count in pages")
        ->type_name("BYTES")
        ->capture_default_str();
    top->add_option("--tick-rate", options_.ticksPerSecond,
                    "CPU ticks per second on the card; its samples count in ticks")
        ->type_name("HZ")
        ->capture_default_str();
    top->add_option("--wait", wait_, "How long to wait for a daemon that is not up yet")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    top->add_option("--drain-timeout", drainTimeout_,
                    "How long a device may send nothing after the stop, 1s to 720h, until its end "
                    "is not waited for any more")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    top->footer(FOOTER);
    return top;
}

int TopCommand::Run() {
    const std::string whyNot = Screen::WhyNot();
    if (!whyNot.empty()) {
        Say(stderr, "tivctl: " + whyNot + "\n");
        return EXIT_USAGE;
    }
    options_.interval = *ParseDuration(interval_);
    options_.wait = *ParseDuration(wait_);
    options_.drainTimeout = *ParseDuration(drainTimeout_);
    if (!options_.cpu && !options_.memory && !options_.processes) {
        options_.cpu = options_.memory = options_.processes = true;
    }
    const JobPlan plan = MakeJobPlan(options_, MakeJobIdBase());
    for (const Refusal& refusal : plan.refusals) {
        Say(stderr, "tivctl: " + refusal.message + "\n");
    }
    if (!plan.Good()) {
        return EXIT_USAGE;
    }
    LiveOptions live = MakeLiveOptions("tivctl top", plan.jobs, options_);
    live.keepsFiles = false;
    ProgressLine silent(true);
    LiveView view(std::move(live), silent);
    return TopRun(plan.jobs, options_, view).Run();
}

}  // namespace

std::unique_ptr<Command> MakeTopCommand() { return std::make_unique<TopCommand>(); }

}  // namespace tiv::host
