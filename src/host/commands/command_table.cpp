// The table of subcommands.
#include "host/commands/command.h"

namespace tiv::host {

namespace {

using MakeCommand = std::unique_ptr<Command> (*)();

constexpr MakeCommand COMMANDS[] = {
    MakeDevicesCommand, MakeCheckCommand,  MakeCollectCommand,    MakeTopCommand, MakeInfoCommand,
    MakeReportCommand,  MakeExportCommand, MakeCompletionCommand, MakeManCommand,
};

}  // namespace

std::vector<std::unique_ptr<Command>> MakeCommands() {
    std::vector<std::unique_ptr<Command>> commands;
    for (const MakeCommand make : COMMANDS) {
        commands.push_back(make());
    }
    return commands;
}

}  // namespace tiv::host
