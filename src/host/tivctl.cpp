// Entry of the host tool.
#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <utility>

#include "host/commands/command.h"
#include "host/console.h"
#include "host/exit_codes.h"
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

// Runs the one command that the command line named.
int RunCommand(const std::vector<std::pair<CLI::App*, Command*>>& commands) {
    try {
        for (const auto& [app, command] : commands) {
            if (app->parsed()) {
                return command->Run();
            }
        }
        return EXIT_USAGE;
    } catch (const std::exception& error) {
        Say(stderr, std::string("tivctl: cannot go on: ") + error.what() + "\n");
        return EXIT_LOCAL_ERROR;
    }
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
    const auto commands = MakeCommands();
    std::vector<std::pair<CLI::App*, Command*>> declared;
    for (const auto& command : commands) {
        declared.emplace_back(command->Declare(app), command.get());
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_COMPLETE : EXIT_USAGE;
    }
    return RunCommand(declared);
}
