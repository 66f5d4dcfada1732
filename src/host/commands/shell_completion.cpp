// One writer per shell.
#include "host/commands/shell_completion.h"

#include <fmt/format.h>

namespace tiv::host {

namespace {

std::string Join(const std::vector<std::string>& words, const std::string& separator = " ") {
    std::string text;
    for (const std::string& word : words) {
        text += (text.empty() ? "" : separator) + word;
    }
    return text;
}

// In single quotes of a shell, each of `special` behind a backslash.
std::string Quoted(const std::string& text, const std::string& special = "",
                   const std::string& quote = "'\\''") {
    std::string quoted;
    for (const char c : text) {
        if (c == '\'') {
            quoted += quote;
        } else {
            quoted +=
                special.find(c) == std::string::npos ? std::string(1, c) : std::string("\\") + c;
        }
    }
    return "'" + quoted + "'";
}

std::vector<std::string> NamesOf(const CommandText& command) {
    std::vector<std::string> names;
    for (const OptionText& option : command.options) {
        if (!option.positional) {
            names.insert(names.end(), option.names.begin(), option.names.end());
        }
    }
    return names;
}

std::vector<std::string> CommandNames(const CommandText& program) {
    std::vector<std::string> names;
    for (const CommandText& command : program.commands) {
        names.push_back(command.name);
    }
    return names;
}

// "collect --device|collect --llc)" and what stands for the value of such an option.
std::string BashValues(const CommandText& command) {
    std::string text;
    for (const OptionText& option : command.options) {
        if (option.positional || !option.TakesValue()) {
            continue;
        }
        std::vector<std::string> patterns;
        for (const std::string& name : option.names) {
            patterns.push_back(fmt::format("'{} {}'", command.name, name));
        }
        const std::string reply =
            option.choices.empty()
                ? std::string("return")
                : fmt::format("_tivctl_reply {}; return", Quoted(Join(option.choices)));
        text += fmt::format("        {}) {} ;;\n", Join(patterns, "|"), reply);
    }
    return text;
}

// What may stand in place of a word without dashes: a list, or file names when there is none.
std::vector<std::string> PositionalChoices(const CommandText& command) {
    for (const OptionText& option : command.options) {
        if (option.positional && !option.choices.empty()) {
            return option.choices;
        }
    }
    return {};
}

std::string BashWords(const CommandText& command) {
    const std::vector<std::string> choices = PositionalChoices(command);
    const std::string others =
        choices.empty() ? "return" : fmt::format("_tivctl_reply {}", Quoted(Join(choices)));
    return fmt::format("        {}) if [[ $word == -* ]]; then _tivctl_reply {}; else {}; fi ;;\n",
                       command.name, Quoted(Join(NamesOf(command))), others);
}

std::string ZshValue(const OptionText& option) {
    if (!option.TakesValue()) {
        return "";
    }
    const std::string action =
        option.choices.empty() ? "_files" : fmt::format("({})", Join(option.choices));
    return fmt::format(":{}:{}", option.value, action);
}

std::string ZshArgument(const OptionText& option) {
    if (option.positional) {
        return Quoted(fmt::format(":{}{}", option.names.front(),
                                  option.choices.empty()
                                      ? std::string(":_files")
                                      : fmt::format(":({})", Join(option.choices))));
    }
    std::string text;
    for (const std::string& name : option.names) {
        std::string told;
        for (const char c : option.text) {
            told += std::string(":[]\\").find(c) == std::string::npos ? std::string(1, c)
                                                                      : std::string("\\") + c;
        }
        text += (text.empty() ? "" : " ") +
                Quoted(fmt::format("*{}[{}]{}", name, told, ZshValue(option)));
    }
    return text;
}

std::string FishOption(const std::string& condition, const OptionText& option) {
    std::string text = fmt::format("complete -c tivctl -n {}", condition);
    if (option.positional) {
        return option.choices.empty()
                   ? ""
                   : fmt::format("{} -f -a {}\n", text, Quoted(Join(option.choices), "\\", "\\'"));
    }
    for (const std::string& name : option.names) {
        const bool isLong = name.compare(0, 2, "--") == 0;
        text += fmt::format(" -{} {}", isLong ? 'l' : 's', name.substr(isLong ? 2 : 1));
    }
    if (!option.choices.empty()) {
        text += fmt::format(" -x -a {}", Quoted(Join(option.choices), "\\", "\\'"));
    } else {
        text += option.TakesValue() ? " -r" : " -f";
    }
    return fmt::format("{} -d {}\n", text, Quoted(option.text, "\\", "\\'"));
}

}  // namespace

std::string BashCompletion(const CommandText& program) {
    std::string values;
    std::string words;
    for (const CommandText& command : program.commands) {
        values += BashValues(command);
        words += BashWords(command);
    }
    const std::string commands = Join(CommandNames(program)) + " " + Join(NamesOf(program));
    return fmt::format(
        R"(# Completion of tivctl for bash, written by `tivctl completion bash`.
_tivctl_reply() {{
    mapfile -t COMPREPLY < <(compgen -W "$1" -- "$word")
}}
_tivctl() {{
    local word=${{COMP_WORDS[COMP_CWORD]}} previous=${{COMP_WORDS[COMP_CWORD - 1]}} i
    COMPREPLY=()
    if ((COMP_CWORD == 1)); then
        _tivctl_reply {}
        return
    fi
    for ((i = 2; i < COMP_CWORD; ++i)); do
        if [[ ${{COMP_WORDS[i]}} == -- ]]; then
            ((i == COMP_CWORD - 1)) && mapfile -t COMPREPLY < <(compgen -c -- "$word")
            return
        fi
    done
    case "${{COMP_WORDS[1]}} $previous" in
{}    esac
    case ${{COMP_WORDS[1]}} in
{}    esac
}}
complete -o default -F _tivctl tivctl
)",
        Quoted(commands), values, words);
}

std::string ZshCompletion(const CommandText& program) {
    std::string commands;
    std::string cases;
    for (const CommandText& command : program.commands) {
        commands +=
            fmt::format("        {}\n", Quoted(fmt::format("{}:{}", command.name, command.text)));
        cases += fmt::format("        {})\n            _arguments", command.name);
        for (const OptionText& option : command.options) {
            cases += " \\\n                " + ZshArgument(option);
        }
        cases += command.takesProgram ? " \\\n                '*::command:_normal' ;;\n" : " ;;\n";
    }
    return fmt::format(
        R"(#compdef tivctl
# Completion of tivctl for zsh, written by `tivctl completion zsh`.
_tivctl() {{
    local -a commands
    commands=(
{}    )
    if (( CURRENT == 2 )); then
        _describe command commands
        return
    fi
    shift words
    (( CURRENT-- ))
    case $words[1] in
{}    esac
}}
compdef _tivctl tivctl
)",
        commands, cases);
}

std::string FishCompletion(const CommandText& program) {
    std::string text =
        "# Completion of tivctl for fish, written by `tivctl completion fish`.\n"
        "complete -c tivctl -n __fish_use_subcommand -f\n";
    for (const OptionText& option : program.options) {
        text += FishOption("__fish_use_subcommand", option);
    }
    for (const CommandText& command : program.commands) {
        text += fmt::format("complete -c tivctl -n __fish_use_subcommand -f -a {} -d {}\n",
                            command.name, Quoted(command.text, "\\", "\\'"));
        const std::string condition = Quoted("__fish_seen_subcommand_from " + command.name);
        for (const OptionText& option : command.options) {
            text += FishOption(condition, option);
        }
    }
    return text;
}

}  // namespace tiv::host
