// tivctl check
#include <CLI/CLI.hpp>

#include "host/commands/command.h"
#include "host/commands/job_options.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/plan_report.h"

namespace tiv::host {

namespace {

class CheckCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    bool TakeProgram(const std::vector<std::string>& words) override {
        job_.SetProgram(words);
        return true;
    }
    int Run() override;

 private:
    int Refuse(const JobPlan& plan) const;

    JobOptions job_;
    bool json_ = false;
    bool quiet_ = false;
};

CLI::App* CheckCommand::Declare(CLI::App& app) {
    CLI::App* check = app.add_subcommand(
        "check", "Check a job and tell what it would do, without starting anything");
    job_.Declare(*check);
    check->add_flag("--json", json_, "The plan, or what is refused, as JSON");
    check->add_flag("--quiet", quiet_, "No plan: the exit code tells, and what is refused");
    check->footer(
        "Takes the same words as `tivctl collect`. Exit code 0 when the job is good, 2 when it is "
        "refused. No daemon is asked: one may still refuse, because another job runs.\n" +
        JobOptions::Footer());
    return check;
}

int CheckCommand::Refuse(const JobPlan& plan) const {
    if (json_) {
        Say(stdout, PlanJson(plan, {}, {}));
        return EXIT_USAGE;
    }
    for (const Refusal& refusal : plan.refusals) {
        Say(stderr, "tivctl: " + refusal.message + "\n");
    }
    return EXIT_USAGE;
}

int CheckCommand::Run() {
    std::string error;
    const std::optional<CollectOptions> options = job_.Read(error);
    if (!options.has_value()) {
        JobPlan plan;
        plan.refusals.push_back({"JOB", "a job file as docs/job.schema.json describes it", error});
        return Refuse(plan);
    }
    const JobPlan plan = MakeJobPlan(*options, MakeJobIdBase());
    if (!plan.Good()) {
        return Refuse(plan);
    }
    if (json_) {
        Say(stdout, PlanJson(plan, *options, MeasureSamples()));
    } else if (!quiet_) {
        Say(stdout, PlanText(plan, *options, MeasureSamples()));
    }
    return EXIT_COMPLETE;
}

}  // namespace

std::unique_ptr<Command> MakeCheckCommand() { return std::make_unique<CheckCommand>(); }

}  // namespace tiv::host
