// tivctl info
#include <fmt/format.h>

#include <CLI/CLI.hpp>

#include "host/commands/command.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/result_info.h"

namespace tiv::host {

namespace {

constexpr const char* FOOTER =
    "Looks at the manifest and the sizes of the files, not into them; `tivctl report` and `tivctl "
    "export` tell what in them cannot be read. The exit code is 0 for a complete result and 4 for "
    "any other.";

class InfoCommand : public Command {
 public:
    CLI::App* Declare(CLI::App& app) override;
    int Run() override;

 private:
    std::string directory_;
    bool json_ = false;
};

CLI::App* InfoCommand::Declare(CLI::App& app) {
    CLI::App* command =
        app.add_subcommand("info", "Tell what a result holds, and what of it is missing");
    command->add_option("DIR", directory_, "The result directory")->required();
    command->add_flag("--json", json_, "For programs: one JSON object");
    command->footer(FOOTER);
    return command;
}

int InfoCommand::Run() {
    std::string error;
    const auto result = OpenResult(directory_, error);
    if (!result.has_value()) {
        Say(stderr, fmt::format("tivctl: {}\n", error));
        return EXIT_USAGE;
    }
    Say(stdout, json_ ? InfoJson(*result) : InfoText(*result));
    return IsWhole(*result) ? EXIT_COMPLETE : EXIT_INCOMPLETE;
}

}  // namespace

std::unique_ptr<Command> MakeInfoCommand() { return std::make_unique<InfoCommand>(); }

}  // namespace tiv::host
