// Reading of the parser, and the texts that belong to the whole program.
#include "host/commands/program_text.h"

#include <CLI/CLI.hpp>
#include <algorithm>

namespace tiv::host {

namespace {

// The name of a value may carry a list of the values behind a colon: "FORMAT:{csv,sqlite}". Without
// a name of its own it is "VALUE".
void SplitValueName(const std::string& valueName, OptionText& option) {
    const std::string name = valueName.substr(0, valueName.find(':'));
    option.value = name.empty() ? "VALUE" : name;
    const size_t open = valueName.find('{');
    if (open != std::string::npos) {
        const size_t close = valueName.rfind('}');
        option.choices = CLI::detail::split(valueName.substr(open + 1, close - open - 1), ',');
    }
}

OptionText TextOf(const CLI::Option& parsed) {
    OptionText option;
    option.positional = parsed.get_positional() && !parsed.nonpositional();
    for (const std::string& name : parsed.get_lnames()) {
        option.names.push_back("--" + name);
    }
    for (const std::string& name : parsed.get_snames()) {
        option.names.push_back("-" + name);
    }
    if (option.positional) {
        option.names = {parsed.get_name(true, false)};
    }
    option.text = parsed.get_description();
    if (option.positional || parsed.get_expected_max() > 0) {
        SplitValueName(parsed.get_type_name(), option);
        option.fallback = parsed.get_default_str();
    }
    return option;
}

}  // namespace

CommandText TextOf(const CLI::App& app, const std::vector<std::string>& takingProgram) {
    CommandText command;
    command.name = app.get_name();
    command.text = app.get_description();
    command.footer = app.get_footer();
    command.takesProgram =
        std::find(takingProgram.begin(), takingProgram.end(), command.name) != takingProgram.end();
    for (const CLI::Option* option : app.get_options()) {
        command.options.push_back(TextOf(*option));
    }
    for (const CLI::App* subcommand : app.get_subcommands([](const CLI::App*) { return true; })) {
        command.commands.push_back(TextOf(*subcommand, takingProgram));
    }
    return command;
}

const std::vector<NamedText>& ExitCodeTexts() {
    static const std::vector<NamedText> TEXTS = {
        {"0", "complete: the job ran and every byte of it arrived; or what was asked for is done"},
        {"1", "a file could not be read or written here"},
        {"2", "the command line or the job file asks for something that cannot be done"},
        {"3", "no daemon answered, or it refused the job: nothing was collected"},
        {"4", "the result is incomplete; what arrived is kept"},
        {"130", "left by Ctrl-C before the collection began, or at once by a second one"},
    };
    return TEXTS;
}

const std::vector<NamedText>& EnvironmentTexts() {
    static const std::vector<NamedText> TEXTS = {
        {"TIV_RUNTIME_DIR", "the directory with the daemon's sockets"},
        {"TIV_DRIVER_CONFIG", "the configuration file of the software driver"},
        {"TIV_LOG_LEVEL", "how much the libraries log: error (the default), warning, info, debug"},
        {"NO_COLOR", "when it is set and not empty, nothing is coloured"},
    };
    return TEXTS;
}

std::string ProgramFooter() {
    std::string text = "Exit codes:";
    for (const NamedText& code : ExitCodeTexts()) {
        text.append("\n  ").append(code.name).append(5 - std::string(code.name).size(), ' ');
        text.append(code.text);
    }
    text += "\nEnvironment:";
    for (const NamedText& variable : EnvironmentTexts()) {
        text.append("\n  ").append(variable.name).append(": ").append(variable.text);
    }
    return text;
}

}  // namespace tiv::host
