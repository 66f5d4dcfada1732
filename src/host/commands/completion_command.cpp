// tivctl completion and tivctl man: the command line's texts for shells and for readers.
#include <CLI/CLI.hpp>

#include "host/commands/command.h"
#include "host/commands/man_page.h"
#include "host/commands/program_text.h"
#include "host/commands/shell_completion.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/version.h"

namespace tiv::host {

namespace {

const std::vector<std::string> TAKING_PROGRAM = {"check", "collect"};

class CompletionCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override;

 private:
    const CLI::App* program_ = nullptr;  // borrowed
    std::string shell_;
};

CLI::App* CompletionCommand::Declare(CLI::App& app) {
    program_ = &app;
    CLI::App* command =
        app.add_subcommand("completion", "Write a completion script of tivctl for a shell");
    command->add_option("SHELL", shell_, "Whose script")
        ->required()
        ->check(CLI::IsMember({"bash", "zsh", "fish"}))
        ->type_name("");
    command->footer(
        "bash: source <(tivctl completion bash). zsh: write it to a file _tivctl in a directory of "
        "$fpath. fish: tivctl completion fish >~/.config/fish/completions/tivctl.fish");
    return command;
}

int CompletionCommand::Run() {
    const CommandText program = TextOf(*program_, TAKING_PROGRAM);
    if (shell_ == "bash") {
        Say(stdout, BashCompletion(program));
    } else {
        Say(stdout, shell_ == "zsh" ? ZshCompletion(program) : FishCompletion(program));
    }
    return EXIT_COMPLETE;
}

class ManCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override {
        program_ = &app;
        return app.add_subcommand(
            "man", "Write the manual page of tivctl; read it with: tivctl man | man -l -");
    }
    int Run() override {
        Say(stdout, ManPage(TextOf(*program_, TAKING_PROGRAM), VERSION));
        return EXIT_COMPLETE;
    }

 private:
    const CLI::App* program_ = nullptr;  // borrowed
};

}  // namespace

std::unique_ptr<Command> MakeCompletionCommand() { return std::make_unique<CompletionCommand>(); }

std::unique_ptr<Command> MakeManCommand() { return std::make_unique<ManCommand>(); }

}  // namespace tiv::host
