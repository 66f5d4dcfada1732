// One option text for --help, the completion scripts and the manual page.
#include <cstdio>
#include <regex>
#include <set>
#include <sstream>
#include <utility>

#include "host/tivctl_bench.h"

namespace tiv::test {
namespace {

using Names = std::set<std::string>;

std::string Squeezed(const std::string& text) {
    return std::regex_replace(text, std::regex("\\s+"), " ");
}

class TivctlTexts : public TivctlTest {
 protected:
    std::string Output(const std::vector<std::string>& words) const {
        TivctlRun run(directory_, words);
        EXPECT_EQ(0, run.Wait()) << run.Errors();
        return run.Output();
    }
    // The commands that --help lists.
    Names Commands() const {
        const std::string help = Output({"--help"});
        return Found(help.substr(help.find("Subcommands:")), "\n  ([a-z]+) ");
    }
    Names Options(const std::string& command) const {
        return Found(Output({command, "--help"}), "(--[a-z][a-z-]*)(?= [A-Z]| {2,}|=)");
    }
    static Names Found(const std::string& text, const std::string& pattern) {
        Names names;
        const std::regex expression(pattern);
        for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it) {
            names.insert((*it)[1]);
        }
        return names;
    }
    // What bash completes at the end of `line`.
    Names Bash(const std::string& line) const {
        const std::string script = directory_.Write("tivctl.bash", Output({"completion", "bash"}));
        const std::string program =
            "source " + script + "; read -ra COMP_WORDS <<<'" + line + "'; [[ '" + line +
            "' == *' ' ]] && COMP_WORDS+=(''); "
            "COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _tivctl; printf ' %s\\n' \"${COMPREPLY[@]}\"";
        FILE* const bash = popen(("bash -c " + Quoted(program)).c_str(), "r");
        std::string output;
        for (int c = fgetc(bash); c != EOF; c = fgetc(bash)) {
            output += static_cast<char>(c);
        }
        EXPECT_EQ(0, pclose(bash));
        return Found(output, " ([^\n]+)\n");
    }
    static std::string Quoted(const std::string& text) {
        return "'" + std::regex_replace(text, std::regex("'"), "'\\''") + "'";
    }
    // The manual page as plain text with single blanks, by hand: no reader need be installed.
    std::string Manual() const {
        std::string page = Output({"man"});
        page = std::regex_replace(page, std::regex("\\\\f[BIR]"), "");
        page = std::regex_replace(page, std::regex("\n\\.(TP|PP)"), "");
        page = std::regex_replace(page, std::regex("\\\\&"), "");
        return Squeezed(std::regex_replace(page, std::regex("\\\\-"), "-"));
    }
};

TEST_F(TivctlTexts, ManualHoldsEveryLineOfTheHelp) {
    const std::string manual = Manual();
    for (const std::string& command : Commands()) {
        const std::string help = Output({command, "--help"});
        const Names texts = Found(help, "\n  -[^\n]* {2,}([^\n]+)");
        EXPECT_FALSE(texts.empty()) << command;
        for (const std::string& text : texts) {
            EXPECT_NE(std::string::npos, manual.find(Squeezed(text))) << command << ": " << text;
        }
        for (const std::string& option : Options(command)) {
            EXPECT_NE(std::string::npos, manual.find(option)) << command;
        }
    }
}

TEST_F(TivctlTexts, ManualAndHelpTellTheSameExitCodesAndVariables) {
    const std::string manual = Manual();
    const std::string help = Output({"--help"});
    for (const std::string& text : Found(help, "\n  (?:[0-9]+ +|[A-Z_]+: )([^\n]+)")) {
        EXPECT_NE(std::string::npos, manual.find(text)) << text;
    }
    EXPECT_EQ((Names{"0", "1", "2", "3", "4", "130"}), Found(help, "\n  ([0-9]+) "));
}

TEST_F(TivctlTexts, HelpAndManualSayWhatTheOptionsLeaveOpen) {
    const std::string manual = Manual();
    const std::pair<const char*, const char*> told[] = {
        {"devices", "Exit code 0 when a device can be reached, 3 when none can."},
        {"check", "Exit code 0 when the job is good, 2 when it is refused."},
        {"collect", "Its exit status is told at the end and in the manifest"},
        {"top", "Keys: q or Ctrl-C quits and ends the job;"},
        {"info", "The exit code is 0 for a complete result and 4 for any other."},
        {"report", "The page is one file that opens without a network"},
        {"export", "An export of an incomplete result says so"},
        {"completion", "zsh: write it to a file _tivctl in a directory of $fpath."}};
    for (const auto& [command, text] : told) {
        EXPECT_NE(std::string::npos, Output({command, "--help"}).find(text)) << command;
        EXPECT_NE(std::string::npos, manual.find(text)) << command;
    }
}

TEST_F(TivctlTexts, ManualTellsHowEachCommandIsCalled) {
    const std::string page = Output({"man"});
    for (const std::string& command : Commands()) {
        EXPECT_NE(std::string::npos, page.find("\\fBtivctl " + command + "\\fR [")) << command;
    }
}

TEST_F(TivctlTexts, ManualIsWholeAndNoTextIsACommandOfTheFormatter) {
    const std::string page = Output({"man"});

    EXPECT_EQ(0u, page.find(".TH TIVCTL 1 "));
    const Names macros = Found("\n" + page, "\n([.'][^ \n]*)");
    EXPECT_EQ((Names{".BR", ".PP", ".SH", ".SS", ".TH", ".TP"}), macros);
    EXPECT_EQ((Names{"B", "I", "R"}), Found(page, "\\\\f(.)"));
}

TEST_F(TivctlTexts, BashCompletesCommandsOptionsAndValues) {
    Names commands = Commands();
    commands.insert({"--help", "--version", "-h"});
    EXPECT_EQ(commands, Bash("tivctl "));
    Names options = Options("collect");
    options.insert("-h");
    EXPECT_EQ(options, Bash("tivctl collect -"));
    EXPECT_EQ((Names{"--duration"}), Bash("tivctl collect --cpu --du"));
    EXPECT_EQ((Names{"bash", "fish", "zsh"}), Bash("tivctl completion "));
    EXPECT_EQ(Names{}, Bash("tivctl collect --output ")) << "left to file names";
    EXPECT_EQ(Names{}, Bash("tivctl collect -- prog --du")) << "not tivctl's own";
}

TEST_F(TivctlTexts, ZshAndFishNameEveryOptionOfEveryCommand) {
    const std::string zsh = Output({"completion", "zsh"});
    const std::string fish = Output({"completion", "fish"});
    EXPECT_EQ(0u, zsh.find("#compdef tivctl\n"));
    for (const std::string& command : Commands()) {
        EXPECT_NE(std::string::npos, zsh.find("        " + command + ")\n            _arguments"));
        for (const std::string& option : Options(command)) {
            EXPECT_NE(std::string::npos, zsh.find("'*" + option + "[")) << command << option;
            EXPECT_NE(std::string::npos, fish.find("__fish_seen_subcommand_from " + command +
                                                   "' -l " + option.substr(2) + " "))
                << command << option;
        }
    }
}

TEST_F(TivctlTexts, EveryLineOfTheFishScriptIsACompletionOfTivctl) {
    const std::regex completion(
        "complete -c tivctl -n (__fish_use_subcommand|'__fish_seen_subcommand_from [a-z]+')"
        "( -l [a-z-]+| -s [a-z])* -[frx]( -a ([a-z]+|'[a-z ]+'))?( -d '([^'\\\\]|\\\\')*')?");
    std::istringstream script(Output({"completion", "fish"}));
    size_t lines = 0;
    for (std::string line; std::getline(script, line); ++lines) {
        EXPECT_TRUE(lines == 0 || std::regex_match(line, completion)) << line;
    }
    EXPECT_LT(Commands().size(), lines);
}

TEST_F(TivctlTexts, UnknownShellIsRefusedWithTheKnownOnes) {
    TivctlRun run(directory_, {"completion", "tcsh"});

    EXPECT_EQ(2, run.Wait());

    EXPECT_NE(std::string::npos, run.Errors().find("bash"));
}

}  // namespace
}  // namespace tiv::test
