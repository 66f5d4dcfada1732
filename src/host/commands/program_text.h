// Every text of the command line as data, taken from the parser that prints --help.
#pragma once

#include <string>
#include <vector>

namespace CLI {
class App;
}  // namespace CLI

namespace tiv::host {

struct OptionText {
    std::vector<std::string> names;  // "--device", "-h"; a positional has one without dashes
    bool positional = false;
    std::string value;                 // the name of its value; empty for a flag
    std::vector<std::string> choices;  // the only values that it takes; empty: no such list
    std::string fallback;              // the value without the option; empty: none to tell
    std::string text;

    [[nodiscard]] bool TakesValue() const { return !value.empty(); }
};

struct CommandText {
    std::string name;
    std::string text;
    std::string footer;
    bool takesProgram = false;  // words behind "--"
    std::vector<OptionText> options;
    std::vector<CommandText> commands;
};

// What `app` and its subcommands print with --help. The subcommands in `takingProgram` are told
// apart by their names.
[[nodiscard]] CommandText TextOf(const CLI::App& app,
                                 const std::vector<std::string>& takingProgram = {});

// A fact that --help and the manual page tell alike.
struct NamedText {
    const char* name;
    const char* text;
};

[[nodiscard]] const std::vector<NamedText>& ExitCodeTexts();
[[nodiscard]] const std::vector<NamedText>& EnvironmentTexts();
// Both of them, for the end of --help.
[[nodiscard]] std::string ProgramFooter();

}  // namespace tiv::host
