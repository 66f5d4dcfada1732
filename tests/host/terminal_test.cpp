// Asking a terminal.
#include "host/terminal.h"

#include <gtest/gtest.h>
#include <pty.h>
#include <unistd.h>

namespace tiv::host {
namespace {

// A terminal of so many columns; 0: one that does not tell.
class Terminal {
 public:
    explicit Terminal(unsigned short columns) {
        const struct winsize size = {24, columns, 0, 0};
        EXPECT_EQ(0, openpty(&master_, &slave_, nullptr, nullptr, &size));
    }
    ~Terminal() {
        close(slave_);
        close(master_);
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] int Fd() const { return slave_; }

 private:
    int master_ = -1;
    int slave_ = -1;
};

TEST(TerminalColumns, AreThoseOfTheTerminal) {
    EXPECT_EQ(132u, TerminalColumns(Terminal(132).Fd()));
}

TEST(TerminalColumns, Are80WhereItDoesNotTell) {
    EXPECT_EQ(80u, TerminalColumns(Terminal(0).Fd()));
    EXPECT_EQ(80u, TerminalColumns(-1));
}

}  // namespace
}  // namespace tiv::host
