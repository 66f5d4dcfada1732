// From texts to the macros of man(7).
#include "host/commands/man_page.h"

#include <fmt/format.h>

namespace tiv::host {

namespace {

// No character of a text is a command of the formatter: neither a backslash, nor a dash, which
// would become a hyphen, nor a dot or a quote at the start of a line.
std::string Escaped(const std::string& text) {
    std::string escaped;
    bool atStart = true;
    for (const char c : text) {
        if (atStart && (c == '.' || c == '\'')) {
            escaped += "\\&";
        }
        if (c == '\\') {
            escaped += "\\e";
        } else if (c == '-') {
            escaped += "\\-";
        } else {
            escaped += c;
        }
        atStart = c == '\n';
    }
    return escaped;
}

// Each line of a text is a paragraph.
std::string Paragraphs(const std::string& text) {
    std::string paragraphs;
    for (const char c : Escaped(text)) {
        paragraphs += c == '\n' ? "\n.PP\n" : std::string(1, c);
    }
    return text.empty() ? "" : ".PP\n" + paragraphs + "\n";
}

std::string Item(const std::string& head, const std::string& text) {
    return fmt::format(".TP\n{}\n{}\n", head, Escaped(text));
}

std::string Head(const OptionText& option) {
    std::string names;
    for (const std::string& name : option.names) {
        names += (names.empty() ? "" : ", ") + fmt::format("\\fB{}\\fR", Escaped(name));
    }
    if (option.positional || !option.TakesValue()) {
        return names;
    }
    return fmt::format("{} \\fI{}\\fR", names, Escaped(option.value));
}

std::string OptionItem(const OptionText& option) {
    std::string text = option.text;
    if (!option.choices.empty()) {
        text += ":";
        for (const std::string& choice : option.choices) {
            text += " " + choice;
        }
    }
    if (!option.fallback.empty()) {
        text += fmt::format(" (without it {})", option.fallback);
    }
    return Item(Head(option), text);
}

std::string Usage(const CommandText& command) {
    std::string usage = fmt::format("\\fBtivctl {}\\fR", Escaped(command.name));
    for (const OptionText& option : command.options) {
        if (option.positional) {
            usage += fmt::format(" [\\fI{}\\fR]", Escaped(option.names.front()));
        }
    }
    usage += " [\\fIOPTIONS\\fR]";
    return usage + (command.takesProgram ? " [\\-\\- \\fICOMMAND ARGUMENTS\\fR]" : "");
}

std::string CommandSection(const CommandText& command) {
    std::string section = fmt::format(".SS {}\n{}\n.PP\n{}\n", Escaped(command.name),
                                      Usage(command), Escaped(command.text + "."));
    for (const OptionText& option : command.options) {
        section += OptionItem(option);
    }
    return section + Paragraphs(command.footer);
}

std::string Items(const std::vector<NamedText>& texts) {
    std::string items;
    for (const NamedText& text : texts) {
        items += Item(fmt::format("\\fB{}\\fR", text.name), text.text);
    }
    return items;
}

}  // namespace

std::string ManPage(const CommandText& program, const std::string& version) {
    std::string page = fmt::format(
        ".TH TIVCTL 1 \"\" \"tivctl {}\" \"User commands\"\n.SH NAME\ntivctl \\- {}\n.SH "
        "SYNOPSIS\n\\fBtivctl\\fR \\fICOMMAND\\fR [\\fIOPTIONS\\fR]\n.SH OPTIONS\n",
        version, Escaped(program.text));
    for (const OptionText& option : program.options) {
        page += OptionItem(option);
    }
    page += ".SH COMMANDS\n";
    for (const CommandText& command : program.commands) {
        page += CommandSection(command);
    }
    page += ".SH EXIT STATUS\n" + Items(ExitCodeTexts());
    page += ".SH ENVIRONMENT\n" + Items(EnvironmentTexts());
    return page + ".SH SEE ALSO\n.BR tiv (1)\n";
}

}  // namespace tiv::host
