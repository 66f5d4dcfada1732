// The subcommands of tivctl.
#pragma once

#include <memory>
#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace tiv::host {

// One subcommand: what it is called, what options it takes, and what it does. Declare is called
// once, before the command line is read; Run at most once, when the command line asks for it.
class Command {
 public:
    Command() = default;
    virtual ~Command() = default;
    Command(const Command&) = delete;
    Command& operator=(const Command&) = delete;

    // Adds the subcommand and its options, which write into this object. Returns it; `app` owns it.
    virtual CLI::App* Declare(CLI::App& app) = 0;
    // Takes the words behind "--", a program and its arguments. False from a command that runs
    // none.
    [[nodiscard]] virtual bool TakeProgram(const std::vector<std::string>& /*words*/) {
        return false;
    }
    // Does the work and returns the exit code. Says what went wrong itself.
    [[nodiscard]] virtual int Run() = 0;
};

// All of them, in the order of the help text. A command lies in a file of its own, which ends with
// its Make function; the table in command_table.cpp holds a line for each.
[[nodiscard]] std::vector<std::unique_ptr<Command>> MakeCommands();

std::unique_ptr<Command> MakeCheckCommand();
std::unique_ptr<Command> MakeCollectCommand();
std::unique_ptr<Command> MakeTopCommand();
std::unique_ptr<Command> MakeCompletionCommand();
std::unique_ptr<Command> MakeDevicesCommand();
std::unique_ptr<Command> MakeManCommand();
std::unique_ptr<Command> MakeExportCommand();
std::unique_ptr<Command> MakeInfoCommand();
std::unique_ptr<Command> MakeReportCommand();

}  // namespace tiv::host
