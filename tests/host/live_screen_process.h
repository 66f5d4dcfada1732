// A process with a screen on a pseudo-terminal: a screen takes the terminal and the signals of its
// process.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <exception>
#include <functional>
#include <memory>
#include <string>
#include <utility>

#include "host/live/screen.h"

namespace tiv::test {

constexpr char LEAVE[] = "\033[?1049l";

inline struct termios ModeOf(int fd) {
    struct termios mode = {};
    (void)tcgetattr(fd, &mode);
    return mode;
}

// How often the text stands in the bytes.
inline size_t Count(const std::string& bytes, const char* text) {
    size_t count = 0;
    for (size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1)) {
        ++count;
    }
    return count;
}

// A pseudo-terminal whose screen nobody reads until Bytes.
class Terminal {
 public:
    Terminal() : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        (void)grantpt(master_);
        (void)unlockpt(master_);
        terminal_ = open(ptsname(master_), O_RDWR | O_NOCTTY | O_CLOEXEC);
        found_ = ModeOf(terminal_);
    }
    ~Terminal() {
        close(terminal_);
        HangUp();
    }
    Terminal(const Terminal&) = delete;
    Terminal& operator=(const Terminal&) = delete;

    [[nodiscard]] int Fd() const { return terminal_; }
    [[nodiscard]] int Master() const { return master_; }
    void HangUp() {
        if (master_ >= 0) {
            close(std::exchange(master_, -1));
        }
    }
    // All that was written to the terminal and not read yet.
    [[nodiscard]] std::string Bytes() const {
        std::string bytes;
        char block[4096];
        (void)fcntl(master_, F_SETFL, O_NONBLOCK);
        ssize_t got = read(master_, block, sizeof(block));
        while (got > 0) {  // one read gives what has come through the terminal so far
            bytes.append(block, static_cast<size_t>(got));
            got = read(master_, block, sizeof(block));
        }
        return bytes;
    }
    [[nodiscard]] bool HasFoundMode() const { return ModeOf(terminal_).c_lflag == found_.c_lflag; }

 private:
    int master_;
    int terminal_ = -1;
    struct termios found_ = {};
};

// The standard input and output of the test, while it lives.
class Standard {
 public:
    Standard(int input, int output) : input_(dup(STDIN_FILENO)), output_(dup(STDOUT_FILENO)) {
        (void)setenv("TERM", "xterm", 1);
        (void)fflush(stdout);
        (void)dup2(input, STDIN_FILENO);
        (void)dup2(output, STDOUT_FILENO);
    }
    ~Standard() {
        (void)dup2(input_, STDIN_FILENO);
        (void)dup2(output_, STDOUT_FILENO);
        close(input_);
        close(output_);
    }
    Standard(const Standard&) = delete;
    Standard& operator=(const Standard&) = delete;

 private:
    const int input_;
    const int output_;
};

// What becomes of a screen. No process ends with such a number for another reason.
enum Course { AS_IT_SHOULD_BE = 40, NO_SCREEN, NOT_PASSED_ON, NOT_LEFT, NOT_SHOWN, LEFT, THROWN };
using CourseOfScreen = std::function<Course(std::unique_ptr<host::Screen>)>;

// A process on a terminal of its own.
class ScreenProcess {
 public:
    // The process ends with what `course` gives. Its signals do what a shell leaves to them.
    explicit ScreenProcess(const std::function<Course()>& course) {
        (void)fflush(nullptr);  // a sanitizer's end of the process writes out what is buffered
        child_ = fork();
        if (child_ == 0) {
            TakeTerminal();
            _exit(WithoutExceptions(course));
        }
    }
    // The same with a screen, which is opened behind `before`.
    explicit ScreenProcess(
        const CourseOfScreen& course, const std::function<void()>& before = [] {})
        : ScreenProcess(std::function<Course()>([&] {
              before();
              return OnAScreen(course);
          })) {}
    ~ScreenProcess() {
        if (child_ > 0) {
            (void)kill(child_, SIGKILL);
            (void)waitpid(child_, nullptr, 0);
        }
    }
    ScreenProcess(const ScreenProcess&) = delete;
    ScreenProcess& operator=(const ScreenProcess&) = delete;

    // False when the screen is not shown within ten seconds.
    [[nodiscard]] bool WaitForScreen() const {
        struct pollfd shown = {terminal.Master(), POLLIN, 0};
        return poll(&shown, 1, 10000) == 1;
    }
    [[nodiscard]] bool WaitForStop() const {
        int status = 0;
        return waitpid(child_, &status, WUNTRACED) == child_ && WIFSTOPPED(status);
    }
    void Signal(int signal) const { (void)kill(child_, signal); }
    // What the process ended with, 128 + n when signal n ended it, -1 when it is stopped.
    int Wait() {
        int status = 0;
        (void)waitpid(child_, &status, WUNTRACED);
        if (WIFSTOPPED(status)) {
            return -1;
        }
        child_ = -1;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    Terminal terminal;

 private:
    static Course WithoutExceptions(const std::function<Course()>& course) {
        try {
            return course();
        } catch (const std::exception&) {
            return THROWN;
        }
    }
    static Course OnAScreen(const CourseOfScreen& course) {
        std::string error;
        auto screen = host::Screen::Open(error);
        return screen == nullptr ? NO_SCREEN : course(std::move(screen));
    }
    void TakeTerminal() const {
        close(terminal.Master());
        (void)dup2(terminal.Fd(), STDIN_FILENO);
        (void)dup2(terminal.Fd(), STDOUT_FILENO);
        (void)setenv("TERM", "xterm", 1);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP}) {
            (void)::signal(signal, SIG_DFL);
        }
        sigset_t none;
        (void)sigemptyset(&none);
        (void)sigprocmask(SIG_SETMASK, &none, nullptr);
    }

    pid_t child_ = -1;
};

}  // namespace tiv::test
