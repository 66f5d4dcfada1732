// What the screen does with the signals that it takes.
#include "host/live/screen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

namespace tiv::host {
namespace {

volatile std::sig_atomic_t taken = 0;

void Take(int signal) { taken = signal; }

enum Course { AS_IT_SHOULD_BE, NO_SCREEN, NOT_PASSED_ON, NOT_LEFT };

// In a process of its own, for a screen takes the terminal and the signals of its process.
[[noreturn]] void LoseTheScreenToASignal(const char* terminal) {
    const int fd = open(terminal, O_RDWR | O_NOCTTY);
    (void)dup2(fd, STDIN_FILENO);
    (void)dup2(fd, STDOUT_FILENO);
    (void)setenv("TERM", "xterm", 1);
    (void)std::signal(SIGTERM, Take);
    std::string error;
    const auto screen = Screen::Open(error);
    if (screen == nullptr) {
        _exit(NO_SCREEN);
    }
    (void)raise(SIGTERM);
    _exit(taken != SIGTERM ? NOT_PASSED_ON : screen->IsLeft() ? AS_IT_SHOULD_BE : NOT_LEFT);
}

}  // namespace

TEST(Screen, SignalGoesOnToAHandlerThatTakesItsNumberOnly) {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    ASSERT_EQ(0, grantpt(master));
    ASSERT_EQ(0, unlockpt(master));
    const pid_t child = fork();
    if (child == 0) {
        LoseTheScreenToASignal(ptsname(master));
    }
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));

    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(AS_IT_SHOULD_BE, WEXITSTATUS(status));
    close(master);
}

}  // namespace tiv::host
