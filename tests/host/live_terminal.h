// A terminal for the tests of full-screen programs: a pseudo-terminal, and the screen behind it.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace tiv::test {

// Understands what a full-screen program writes: absolute positions, erasing, the alternate screen.
class ScreenReader {
 public:
    void Take(const std::string& bytes) {
        text_ += bytes;
        size_t at = 0;
        while (at < text_.size()) {
            const size_t used = TakeOne(at);
            if (used == 0) {
                break;
            }
            at += used;
        }
        text_.erase(0, at);
    }
    // A row from 1 on, without the blanks at its end.
    [[nodiscard]] std::string Row(size_t row) const {
        std::string text;
        const auto& rows = isAlternate_ ? alternate_ : main_;
        for (size_t i = 0; row <= rows.size() && i < rows[row - 1].size(); ++i) {
            text += rows[row - 1][i];
        }
        text.erase(text.find_last_not_of(' ') + 1);
        return text;
    }
    [[nodiscard]] size_t Rows() const { return isAlternate_ ? alternate_.size() : main_.size(); }
    [[nodiscard]] std::string All() const {
        std::string all;
        for (size_t row = 1; row <= Rows(); ++row) {
            all += Row(row) + "\n";
        }
        return all;
    }
    [[nodiscard]] bool IsAlternate() const { return isAlternate_; }
    [[nodiscard]] bool HasCursor() const { return hasCursor_; }
    [[nodiscard]] bool Wraps() const { return wraps_; }

 private:
    using Lines = std::vector<std::vector<std::string>>;

    Lines& Shown() { return isAlternate_ ? alternate_ : main_; }

    // Bytes used at `at`; 0 when more are needed.
    size_t TakeOne(size_t at) {
        const auto lead = static_cast<unsigned char>(text_[at]);
        if (lead == 0x1b) {
            return TakeSequence(at);
        }
        if (lead == '\n') {
            ++row_;
        } else if (lead == '\r') {
            column_ = 1;
        } else if (lead >= 0x20) {
            const size_t length = lead < 0x80 ? 1 : lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
            if (at + length > text_.size()) {
                return 0;
            }
            Put(text_.substr(at, length));
            return length;
        }
        return 1;
    }
    void Put(const std::string& character) {
        Lines& lines = Shown();
        lines.resize(std::max(lines.size(), row_));
        lines[row_ - 1].resize(std::max(lines[row_ - 1].size(), column_), " ");
        lines[row_ - 1][column_++ - 1] = character;
    }
    size_t TakeSequence(size_t at) {
        const size_t end = text_.find_first_not_of("0123456789;?", at + 2);
        if (end == std::string::npos) {
            return 0;
        }
        const std::string values = text_.substr(at + 2, end - at - 2);
        Obey(text_[end], values);
        return end - at + 1;
    }
    void Obey(char command, const std::string& values) {
        if (command == 'H') {
            row_ = std::strtoul(values.c_str(), nullptr, 10);
            column_ = std::strtoul(values.c_str() + values.find(';') + 1, nullptr, 10);
        } else if (command == 'J') {
            Shown().clear();
        } else if (command == 'K' && row_ <= Shown().size()) {
            Shown()[row_ - 1].resize(values == "2" ? 0 : column_ - 1);
        } else if (values == "?1049") {
            isAlternate_ = command == 'h';
        } else if (values == "?25") {
            hasCursor_ = command == 'h';
        } else if (values == "?7") {
            wraps_ = command == 'h';
        }
    }

    std::string text_;
    Lines main_;
    Lines alternate_;
    size_t row_ = 1;
    size_t column_ = 1;
    bool isAlternate_ = false;
    bool hasCursor_ = true;
    bool wraps_ = true;
};

// A program on a pseudo-terminal that controls it, as a shell would have started it.
class TerminalRun {
 public:
    TerminalRun(std::vector<std::string> words, unsigned short columns, unsigned short rows)
        : master_(posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC)) {
        (void)grantpt(master_);
        (void)unlockpt(master_);
        const std::string name = ptsname(master_);
        const int slave = open(name.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
        Resize(columns, rows);
        (void)tcgetattr(slave, &found_);
        words.insert(words.begin(), TIVCTL_PROGRAM);
        std::vector<char*> argv;
        for (std::string& word : words) {
            argv.push_back(word.data());
        }
        argv.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            (void)setsid();
            // Whoever runs the tests may ignore them, or hold them back.
            for (const int signal : {SIGINT, SIGQUIT, SIGTSTP, SIGHUP, SIGTERM}) {
                (void)::signal(signal, SIG_DFL);
            }
            sigset_t none;
            (void)sigemptyset(&none);
            (void)sigprocmask(SIG_SETMASK, &none, nullptr);
            (void)ioctl(slave, TIOCSCTTY, 0);
            for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
                (void)dup2(slave, fd);
            }
            (void)execv(argv[0], argv.data());
            _exit(126);
        }
        slave_ = slave;  // kept: what the program wrote outlives it
    }
    ~TerminalRun() {
        if (pid_ > 0) {
            (void)kill(pid_, SIGKILL);
            (void)Wait();
        }
        close(master_);
        close(slave_);
    }
    TerminalRun(const TerminalRun&) = delete;
    TerminalRun& operator=(const TerminalRun&) = delete;

    void Resize(unsigned short columns, unsigned short rows) const {
        struct winsize size = {};
        size.ws_col = columns;
        size.ws_row = rows;
        (void)ioctl(master_, TIOCSWINSZ, &size);
    }
    void Press(const std::string& keys) const { (void)!write(master_, keys.data(), keys.size()); }
    void Signal(int signal) const { (void)kill(pid_, signal); }

    // Reads until the screen is as wanted; false when that does not come within half a minute.
    bool WaitFor(const std::function<bool(const ScreenReader&)>& isGood) {
        for (int i = 0; i < 3000 && !isGood(screen_); ++i) {
            ReadSome(10);
        }
        return isGood(screen_);
    }
    bool WaitForText(const std::string& text) {
        return WaitFor([&](const ScreenReader& screen) {
            return screen.All().find(text) != std::string::npos;
        });
    }
    // The exit code, or 128 + n for a program that signal n ended; reads what it wrote until then.
    int Wait() {
        int status = 0;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            ReadSome(10);
        }
        pid_ = -1;
        while (ReadSome(0)) {
        }
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    // Reads until the program is stopped; false when that does not come within half a minute.
    [[nodiscard]] bool WaitForStop() {
        int status = 0;
        for (int i = 0; i < 3000 && waitpid(pid_, &status, WNOHANG | WUNTRACED) == 0; ++i) {
            ReadSome(10);
        }
        while (ReadSome(0)) {
        }
        return WIFSTOPPED(status);
    }
    // Without reading anything.
    int WaitUnread() {
        int status = 0;
        (void)waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }

    [[nodiscard]] const ScreenReader& Screen() const { return screen_; }
    [[nodiscard]] const std::string& Bytes() const { return bytes_; }
    // The terminal's mode is the one that the program found.
    [[nodiscard]] bool HasFoundMode() const {
        struct termios mode = {};
        (void)tcgetattr(slave_, &mode);
        return mode.c_lflag == found_.c_lflag && mode.c_iflag == found_.c_iflag &&
               mode.c_oflag == found_.c_oflag && mode.c_cflag == found_.c_cflag &&
               std::equal(std::begin(mode.c_cc), std::end(mode.c_cc), std::begin(found_.c_cc));
    }
    // Everything is as it was found, and the ordinary screen is shown.
    [[nodiscard]] bool IsRestored() const {
        return HasFoundMode() && !screen_.IsAlternate() && screen_.HasCursor() && screen_.Wraps();
    }

 private:
    bool ReadSome(int timeoutMs) {
        struct pollfd waiter = {master_, POLLIN, 0};
        char block[4096];
        const bool isReady = poll(&waiter, 1, timeoutMs) > 0 && (waiter.revents & POLLIN) != 0;
        const ssize_t got = isReady ? read(master_, block, sizeof(block)) : 0;
        if (got > 0) {
            bytes_.append(block, static_cast<size_t>(got));
            screen_.Take(std::string(block, static_cast<size_t>(got)));
        }
        return got > 0;
    }

    int master_;
    int slave_ = -1;
    pid_t pid_ = -1;
    struct termios found_ = {};
    ScreenReader screen_;
    std::string bytes_;
};

}  // namespace tiv::test
