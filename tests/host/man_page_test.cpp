// Texts as the macros of a manual page.
#include "host/commands/man_page.h"

#include <gtest/gtest.h>

#include <string>

namespace tiv::host {
namespace {

// The page of a program with one command, whose footer is `text`.
std::string PageWith(const std::string& text) {
    CommandText command;
    command.name = "run";
    command.text = "Run it";
    command.footer = text;
    CommandText program;
    program.commands.push_back(command);
    return ManPage(program, "1");
}

}  // namespace

TEST(ManPage, LineOfATextIsNeverACommandOfTheFormatter) {
    const std::string page = PageWith(".so /etc/passwd\n'br\nit's 1.5");

    EXPECT_NE(std::string::npos, page.find(".PP\n\\&.so /etc/passwd\n.PP\n\\&'br\n.PP\nit's 1.5\n"))
        << page;
}

TEST(ManPage, BackslashAndDashAreThemselves) {
    EXPECT_NE(std::string::npos, PageWith("C:\\fB --x").find("C:\\efB \\-\\-x\n"));
}

}  // namespace tiv::host
