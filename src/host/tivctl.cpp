// Entry of the host tool.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>

#include "host/collector.h"
#include "host/console.h"
#include "host/duration.h"
#include "host/exit_codes.h"
#include "host/job_plan.h"
#include "host/result_summary.h"
#include "host/version.h"

namespace {

using namespace tiv::host;

constexpr const char* FOOTER =
    "Exit codes: 0 complete; 1 a file could not be written here; 2 wrong usage; 3 no daemon "
    "answered "
    "or it refused the job; 4 the result is incomplete, what arrived is kept; 130 left by Ctrl-C "
    "before the collection began, or at once by a second one.\n"
    "Environment: TIV_RUNTIME_DIR, the directory with the daemon's sockets; TIV_LOG_LEVEL, how "
    "much "
    "the libraries log (error, warning, info, debug).";

// CLI11 wants its own error texts from a validator; an empty one means good.
std::string CheckDuration(std::string& text) {
    return ParseDuration(text).has_value()
               ? ""
               : "\"" + text + "\" is no duration: write 10s, 500ms, 5m or 1h";
}

struct CollectCommand {
    CollectOptions options;
    std::string duration = "10s";
    std::string interval = "100ms";
    std::string wait = "0s";
    bool quiet = false;
};

void AddCollect(CLI::App& app, CollectCommand& command) {
    CLI::App* collect = app.add_subcommand(
        "collect", "Collect samples from one or more devices into a result directory");
    collect->add_option("--device", command.options.devices, "Device number (repeatable)")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
        ->capture_default_str();
    collect->add_option("--duration", command.duration, "How long to collect: 10s, 500ms, 5m, 1h")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    collect->add_flag("--cpu", command.options.cpu, "Sample the system's CPU use");
    collect->add_flag("--memory", command.options.memory,
                      "Sample the system's memory; brings the CPU use along");
    collect->add_flag("--processes", command.options.processes,
                      "Sample CPU and memory of every process");
    collect
        ->add_option("--llc", command.options.llcEvents,
                     "Read the device's channel of last-level cache events: read or write")
        ->type_name("EVENT")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    collect
        ->add_option("--ctrl-cpu", command.options.ctrlCpuEvents,
                     "Record the control CPU at these raw events: 0x11,0x3c (at most 8)")
        ->delimiter(',')
        ->expected(1, 64)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    collect->add_option("--interval", command.interval, "Time between two samples: 100ms to 4294ms")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    collect->add_option("--output", command.options.output, "Where the result directory is made")
        ->capture_default_str();
    collect->add_option("--wait", command.wait, "How long to wait for a daemon that is not up yet")
        ->check(CLI::Validator(CheckDuration, ""))
        ->capture_default_str();
    collect->add_flag("--quiet", command.quiet, "No progress and no summary");
    collect->footer("Without a choice of samplers, --cpu, --memory and --processes are collected.");
}

int RunCollect(CollectCommand& command) {
    command.options.duration = *ParseDuration(command.duration);
    command.options.interval = *ParseDuration(command.interval);
    command.options.wait = *ParseDuration(command.wait);
    JobPlan plan = MakeJobPlan(command.options, MakeJobIdBase());
    if (!plan.error.empty()) {
        Say(stderr, "tivctl: " + plan.error + "\n");
        return EXIT_USAGE;
    }
    Collector collector(std::move(plan), command.options, command.quiet);
    const int exitCode = collector.Run();
    if (!command.quiet && !collector.ResultDirectory().empty()) {
        PrintSummary(collector.ResultDirectory(), collector.Runs());
    }
    return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    // What the libraries warn of, such as a session that ends, tivctl says in words of its own.
    (void)setenv("TIV_LOG_LEVEL", "error", 0);
    (void)std::signal(SIGPIPE, SIG_IGN);  // a reader of the messages that goes ends nothing
    CLI::App app("Profiles the devices that a tiv daemon serves", "tivctl");
    app.option_defaults()->take_last();
    app.set_version_flag("--version", std::string("tivctl ") + VERSION);
    app.footer(FOOTER);
    app.require_subcommand(1);
    CollectCommand collect;
    AddCollect(app, collect);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_COMPLETE : EXIT_USAGE;
    }
    try {
        return RunCollect(collect);
    } catch (const std::exception& error) {
        Say(stderr, std::string("tivctl: cannot go on: ") + error.what() +
                        "; raise the limits of memory and threads, or name fewer devices\n");
        return EXIT_LOCAL_ERROR;
    }
}
