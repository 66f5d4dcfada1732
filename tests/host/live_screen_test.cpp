// What the screen does with the signals that it takes.
#include "host/live/screen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <string>
#include <utility>

namespace tiv::host {
namespace {

volatile std::sig_atomic_t taken = 0;

void Take(int signal) { taken = signal; }

enum Course { AS_IT_SHOULD_BE = 1, NO_SCREEN, NOT_PASSED_ON, NOT_LEFT };

// A terminal, and a process that has a screen on it: a screen takes the terminal and the signals of
// its process.
class ScreenProcess {
 public:
    // The process calls `signal` upon itself, gives the screen up and tells how it went.
    explicit ScreenProcess(int signal) : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        (void)grantpt(master_);
        (void)unlockpt(master_);
        terminal_ = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        (void)tcgetattr(terminal_, &found_);
        (void)fflush(nullptr);  // a sanitizer's end of the process writes out what is buffered
        child_ = fork();
        if (child_ == 0) {
            Raise(signal);
        }
    }
    ~ScreenProcess() {
        if (child_ > 0) {
            (void)kill(child_, SIGKILL);
            (void)waitpid(child_, nullptr, 0);
        }
        close(terminal_);
        close(master_);
    }
    ScreenProcess(const ScreenProcess&) = delete;
    ScreenProcess& operator=(const ScreenProcess&) = delete;

    [[nodiscard]] bool WaitForStop() const {
        int status = 0;
        return waitpid(child_, &status, WUNTRACED) == child_ && WIFSTOPPED(status);
    }
    void Signal(int signal) const { (void)kill(child_, signal); }
    // -1 when the process did not end by itself.
    int Wait() {
        int status = 0;
        const pid_t ended = waitpid(std::exchange(child_, -1), &status, 0);
        return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }
    // All that was written to the terminal.
    [[nodiscard]] std::string Bytes() const {
        std::string bytes(4096, '\0');
        (void)fcntl(master_, F_SETFL, O_NONBLOCK);
        const ssize_t got = read(master_, bytes.data(), bytes.size());
        bytes.resize(got > 0 ? static_cast<size_t>(got) : 0);
        return bytes;
    }
    [[nodiscard]] bool HasFoundMode() const {
        struct termios mode = {};
        (void)tcgetattr(terminal_, &mode);
        return mode.c_lflag == found_.c_lflag;
    }

 private:
    [[noreturn]] void Raise(int signal) const {
        (void)dup2(terminal_, STDIN_FILENO);
        (void)dup2(terminal_, STDOUT_FILENO);
        (void)setenv("TERM", "xterm", 1);
        (void)std::signal(SIGTERM, Take);
        (void)std::signal(SIGTSTP, SIG_DFL);
        sigset_t none;
        (void)sigemptyset(&none);
        (void)sigprocmask(SIG_SETMASK, &none, nullptr);
        std::string error;
        auto screen = Screen::Open(error);
        if (screen == nullptr) {
            _exit(NO_SCREEN);
        }
        (void)raise(signal);
        const bool isLeft = screen->IsLeft() && HasFoundMode();
        screen.reset();
        _exit(taken != SIGTERM ? NOT_PASSED_ON : isLeft ? AS_IT_SHOULD_BE : NOT_LEFT);
    }

    const int master_;
    int terminal_ = -1;
    pid_t child_ = -1;
    struct termios found_ = {};
};

}  // namespace

TEST(Screen, SignalGoesOnToAHandlerThatTakesItsNumberOnly) {
    ScreenProcess process(SIGTERM);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.HasFoundMode());
}

TEST(Screen, SignalThatEndsAStoppedProgramLeavesTheTerminalAsItWas) {
    ScreenProcess process(SIGTSTP);
    ASSERT_TRUE(process.WaitForStop());
    EXPECT_TRUE(process.HasFoundMode());

    process.Signal(SIGTERM);  // comes when it goes on
    process.Signal(SIGCONT);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.HasFoundMode());
    const std::string bytes = process.Bytes();
    const std::string leave = "\033[?1049l";
    EXPECT_EQ(bytes.size() - leave.size(), bytes.rfind(leave)) << "the last that was written";
}

}  // namespace tiv::host
