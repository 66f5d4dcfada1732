// Entry of the host tool.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "host/commands/command.h"
#include "host/commands/program_text.h"
#include "host/console.h"
#include "host/exit_codes.h"
#include "host/result_files.h"
#include "host/version.h"

namespace {

using namespace tiv::host;

using Declared = std::vector<std::pair<CLI::App*, Command*>>;

// Hands the words behind the first "--" to a command that takes a program and cuts them off the
// command line: they are not tivctl's to read.
void CutProgramOff(std::vector<std::string>& words, const Declared& commands) {
    const auto separator = std::find(words.begin(), words.end(), "--");
    if (separator == words.end()) {
        return;
    }
    for (const auto& [app, command] : commands) {
        if (words.front() == app->get_name() &&
            command->TakeProgram({separator + 1, words.end()})) {
            words.erase(separator, words.end());
            return;
        }
    }
}

// Says so when the first word is meant as a command and is none. The parser would only tell that
// one is missing.
bool NamesNoCommand(const std::vector<std::string>& words, const Declared& commands) {
    if (words.empty() || words.front().empty() || words.front().front() == '-') {
        return false;
    }
    std::string names;
    for (const auto& [app, command] : commands) {
        if (words.front() == app->get_name()) {
            return false;
        }
        names.append(names.empty() ? "" : ", ").append(app->get_name());
    }
    Say(stderr, "tivctl: there is no command \"" + Printable(words.front()) +
                    "\"; the commands are " + names + "; run tivctl --help for more\n");
    return true;
}

// Runs the one command that the command line named: the parser lets none pass that names no
// command.
int RunCommand(const Declared& commands) {
    const auto named = std::find_if(commands.begin(), commands.end(),
                                    [](const auto& entry) { return entry.first->parsed(); });
    try {
        return named->second->Run();
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
    app.footer(ProgramFooter());
    app.require_subcommand(1);
    const auto commands = MakeCommands();
    Declared declared;
    for (const auto& command : commands) {
        declared.emplace_back(command->Declare(app), command.get());
    }
    std::vector<std::string> words(argv + 1, argv + argc);
    if (NamesNoCommand(words, declared)) {
        return EXIT_USAGE;
    }
    CutProgramOff(words, declared);
    std::reverse(words.begin(), words.end());  // the parser takes them from the back
    try {
        app.parse(std::move(words));
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? EXIT_COMPLETE : EXIT_USAGE;
    }
    return RunCommand(declared);
}
