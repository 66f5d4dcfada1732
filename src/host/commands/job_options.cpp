// The texts of a job's options and the way they go over a job file.
#include "host/commands/job_options.h"

#include <CLI/CLI.hpp>

#include "host/duration.h"
#include "host/job_file.h"
#include "host/setting_rules.h"

namespace tiv::host {

namespace {

constexpr const char* TIME = "TIME";

// CLI11 wants its own error texts from a validator; an empty one means good.
std::string CheckDuration(std::string& text) {
    return ParseDuration(text).has_value()
               ? ""
               : "\"" + text + "\" is no duration: write 10s, 500ms, 5m or 1h";
}

std::string CheckSetting(std::string& text) {
    const size_t equals = text.find('=');
    return equals != std::string::npos && equals > 0 ? "" : "\"" + text + "\" is not NAME=VALUE";
}

void AddTime(CLI::App& command, const char* name, std::string& value, const char* text) {
    command.add_option(name, value, text)
        ->type_name(TIME)
        ->check(CLI::Validator(CheckDuration, ""));
}

// One value each time the option is named.
void Repeatable(CLI::Option* option) {
    option->expected(1)->allow_extra_args(false)->multi_option_policy(
        CLI::MultiOptionPolicy::TakeAll);
}

}  // namespace

void JobOptions::Declare(CLI::App& command) {
    command_ = &command;
    command.add_option("JOB", jobFile_, "A job file; the options go before what it says")
        ->type_name("");
    Repeatable(command
                   .add_option("--device", given_.devices,
                               "Device number, 0 to 63 (repeatable; 0 when none is named)")
                   ->type_name("NUMBER"));
    DeclareCourse(command);
    DeclareSamplers(command);
    DeclareUnits(command);
    command.add_option("--output", given_.output, "Where the result directory is made")
        ->type_name("DIR")
        ->capture_default_str();
    AddTime(command, "--wait", wait_, "How long to wait for a daemon that is not up yet");
    AddTime(command, "--drain-timeout", drainTimeout_,
            "How long a device may send nothing after the stop, 1s to 720h, counted anew from "
            "each arrival of data; then the rest is given up and the result is incomplete (60s "
            "when it is left out)");
}

void JobOptions::DeclareCourse(CLI::App& command) {
    AddTime(command, "--duration", duration_,
            "How long to collect: 10s, 500ms, 5m, 1h; without it until Ctrl-C, or until the "
            "command behind -- ends");
    command.add_option("--repeat", given_.repeat, "Replays on the same job, each of --duration")
        ->type_name("N")
        ->capture_default_str();
    AddTime(command, "--every", every_,
            "From the start of a replay to the next one's; at once when it is left out");
    AddTime(command, "--interval", interval_,
            "Time between two samples: 100ms to 4294ms; with --ctrl-cpu 1s at most, and from 1ms "
            "on when it is alone (100ms when it is left out)");
}

void JobOptions::DeclareSamplers(CLI::App& command) {
    command.add_flag("--cpu", given_.cpu, "Sample the system's CPU use");
    command.add_flag("--memory", given_.memory,
                     "Sample the system's memory; brings the CPU use along");
    command.add_flag("--processes", given_.processes, "Sample CPU and memory of every process");
    command
        .add_option("--llc", given_.llcEvents,
                    "Read the device's channel of last-level cache events: read or write")
        ->type_name("EVENT")
        ->expected(1)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
    command
        .add_option("--ctrl-cpu", given_.ctrlCpuEvents,
                    "Record the control CPU at these raw events: 0x11,0x3c (at most 8)")
        ->type_name("EVENTS")
        ->delimiter(',')
        ->expected(1, 64)
        ->allow_extra_args(false)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
}

void JobOptions::DeclareUnits(CLI::App& command) {
    command
        .add_option("--page-size", given_.pageBytes,
                    "Bytes of a memory page on the card; its samples count in pages")
        ->type_name("BYTES")
        ->capture_default_str();
    command
        .add_option("--tick-rate", given_.ticksPerSecond,
                    "CPU ticks per second on the card; its samples count in ticks")
        ->type_name("HZ")
        ->capture_default_str();
    Repeatable(command
                   .add_option("--set", settings_,
                               "Set a field of the sample configuration that goes to the device "
                               "(repeatable)")
                   ->type_name("NAME=VALUE")
                   ->check(CLI::Validator(CheckSetting, "")));
}

bool JobOptions::Given(const char* option) const { return command_->count(option) > 0; }

// Naming one of the three samplers takes the place of the file's choice of them.
void JobOptions::TakeSamplers(CollectOptions& options) const {
    if (given_.cpu || given_.memory || given_.processes) {
        options.cpu = given_.cpu;
        options.memory = given_.memory;
        options.processes = given_.processes;
    }
    if (Given("--llc")) {
        options.llcEvents = given_.llcEvents;
    }
    if (Given("--ctrl-cpu")) {
        options.ctrlCpuEvents = given_.ctrlCpuEvents;
    }
}

void JobOptions::TakeCourse(CollectOptions& options) const {
    // A command on the command line takes the place of the file's course.
    if (program_.has_value()) {
        options.command = *program_;
        options.duration.reset();
        options.every.reset();
        options.repeat = 1;
    }
    if (Given("--duration")) {
        options.duration = ParseDuration(duration_);
    }
    if (Given("--repeat")) {
        options.repeat = given_.repeat;
    }
    if (Given("--every")) {
        options.every = ParseDuration(every_);
    }
    if (Given("--interval")) {
        options.interval = ParseDuration(interval_).value_or(options.interval);
    }
    if (Given("--wait")) {
        options.wait = ParseDuration(wait_).value_or(options.wait);
    }
    if (Given("--drain-timeout")) {
        options.drainTimeout = ParseDuration(drainTimeout_).value_or(options.drainTimeout);
    }
}

void JobOptions::TakeSettings(CollectOptions& options) const {
    for (const std::string& setting : settings_) {
        const size_t equals = setting.find('=');
        options.settings.emplace_back(setting.substr(0, equals), setting.substr(equals + 1));
    }
}

std::optional<CollectOptions> JobOptions::Read(std::string& error) const {
    CollectOptions options;
    if (program_.has_value() && program_->empty()) {
        error = "no command stands behind --: name one, or leave -- out";
        return std::nullopt;
    }
    if (!jobFile_.empty()) {
        error = ReadJobFile(jobFile_, options);
        if (!error.empty()) {
            return std::nullopt;
        }
    }
    if (Given("--device")) {
        options.devices = given_.devices;
    }
    TakeSamplers(options);
    TakeCourse(options);
    TakeSettings(options);
    if (Given("--page-size")) {
        options.pageBytes = given_.pageBytes;
    }
    if (Given("--tick-rate")) {
        options.ticksPerSecond = given_.ticksPerSecond;
    }
    if (Given("--output")) {
        options.output = given_.output;
    }
    return options;
}

// "A, B, C" of the rule "... [A|B|C]".
std::string JobOptions::MetricsNames() {
    const std::string rule = MetricsRule();
    std::string names;
    for (const char c : rule.substr(rule.find('[') + 1)) {
        names += c == '|' ? ", " : std::string(c == ']' ? 0 : 1, c);
    }
    return names;
}

std::string JobOptions::Footer() {
    return "Without a choice of samplers, --cpu, --memory and --processes are collected. They run "
           "once for the whole system and are asked of the first device named; --llc is asked of "
           "every device.\n"
           "--set: most fields are only carried to the device. ai_core_metrics is one of " +
           MetricsNames() + "; `tivctl devices` tells which of them a chip has.";
}

}  // namespace tiv::host
