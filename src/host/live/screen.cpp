// Control of the terminal.
#include "host/live/screen.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sched.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "host/terminal.h"

namespace tiv::host {

namespace {

// The alternate screen, without cursor and without lines that go on in the next row.
constexpr char ENTER[] = "\033[?1049h\033[?25l\033[?7l\033[2J";
// CAN ends a sequence that was cut off in the middle.
constexpr char LEAVE[] = "\030\033[m\033[?7h\033[?25h\033[?1049l";
constexpr size_t DEFAULT_COLUMNS = 80;
constexpr size_t DEFAULT_ROWS = 24;
constexpr int LEAVE_PATIENCE_MS = 100;
constexpr int MOST_YIELDS = 10000;

constexpr std::array<int, 11> SIGNALS = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGABRT, SIGSEGV,
                                         SIGBUS, SIGFPE,  SIGILL, SIGTSTP, SIGWINCH};

// Touched by the signal handlers: written before they are installed and after they are gone, or
// lock-free atomics.
std::atomic<int> screenFd{-1};
std::atomic<int> wakeFd{-1};
std::atomic<bool> isLeft{false};     // for good
std::atomic<bool> isRestored{true};  // the terminal is as it was found
std::atomic<bool> isAway{false};     // left, or suspended: nobody but a handler may write
std::atomic<bool> isWriting{false};
std::atomic<bool> isRepaintNeeded{false};
struct termios foundMode;
struct termios screenMode;
std::array<struct sigaction, SIGNALS.size()> foundActions;

// Async-signal-safe, as everything up to OnSignal. False when the terminal did not take all of it.
template <size_t N>
bool WriteNow(const char (&text)[N]) {
    return write(screenFd, text, N - 1) == static_cast<ssize_t>(N - 1);
}

// Handlers run on other threads than the painting one, which is in the middle of a write for a few
// microseconds at most.
void LeaveNow() {
    isAway = true;
    for (int i = 0; i < MOST_YIELDS && isWriting; ++i) {
        (void)sched_yield();
    }
    if (!WriteNow(LEAVE)) {
        // Nobody reads: what waits in the terminal gives way to this.
        (void)tcflush(screenFd, TCOFLUSH);
        (void)WriteNow(LEAVE);
    }
    (void)tcsetattr(screenFd, TCSANOW, &foundMode);
    isRestored = true;
}

// Whoever comes second must not end the process while the first is not done: it leaves as well.
void LeaveForGood() {
    if (!isLeft.exchange(true) || !isRestored) {
        LeaveNow();
    }
}

void EnterNow() {
    isRestored = false;
    (void)tcsetattr(screenFd, TCSANOW, &screenMode);
    (void)WriteNow(ENTER);
    isRepaintNeeded = true;
    isAway = false;
}

void Wake() {
    const uint64_t one = 1;
    const ssize_t written = write(wakeFd, &one, sizeof(one));
    (void)written;  // it is awake already when the counter is full
}

void Suspend() {
    LeaveNow();
    (void)raise(SIGSTOP);
    EnterNow();
    if (isLeft) {
        LeaveNow();  // another signal has left the screen meanwhile, and was overtaken
    }
    Wake();
}

// What the signal, one of SIGNALS that was not ignored, did before the screen came.
void PassOn(int signal, siginfo_t* info, void* context) {
    size_t i = 0;
    while (SIGNALS[i] != signal) {
        ++i;
    }
    const struct sigaction& found = foundActions[i];
    if (found.sa_handler == SIG_DFL) {
        (void)sigaction(signal, &found, nullptr);
        (void)raise(signal);  // comes when this handler returns
    } else if ((found.sa_flags & SA_SIGINFO) != 0) {
        found.sa_sigaction(signal, info, context);
    } else {
        found.sa_handler(signal);
    }
}

void OnSignal(int signal, siginfo_t* info, void* context) {
    const int savedErrno = errno;
    if (signal == SIGWINCH) {
        Wake();
    } else if (signal == SIGTSTP) {
        if (!isLeft) {
            Suspend();
        }
    } else {
        LeaveForGood();
        PassOn(signal, info, context);
    }
    errno = savedErrno;
}

void TakeSignals() {
    struct sigaction action {};
    action.sa_sigaction = OnSignal;
    action.sa_flags = SA_RESTART | SA_SIGINFO;
    (void)sigemptyset(&action.sa_mask);
    for (size_t i = 0; i < SIGNALS.size(); ++i) {
        (void)sigaction(SIGNALS[i], nullptr, &foundActions[i]);
        // A signal that was ignored from the start, as under nohup, stays so.
        if (foundActions[i].sa_handler != SIG_IGN) {
            (void)sigaction(SIGNALS[i], &action, nullptr);
        }
    }
}

// Handlers that came later stay.
void GiveSignalsBack() {
    for (size_t i = 0; i < SIGNALS.size(); ++i) {
        struct sigaction present {};
        (void)sigaction(SIGNALS[i], nullptr, &present);
        if (present.sa_sigaction == OnSignal) {
            (void)sigaction(SIGNALS[i], &foundActions[i], nullptr);
        }
    }
}

// Another open file on the terminal of standard output; -1 when there is none.
int OpenAgain() {
    constexpr int FLAGS = O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC;
    std::array<char, 256> name = {};
    if (ttyname_r(STDOUT_FILENO, name.data(), name.size()) == 0) {
        const int fd = open(name.data(), FLAGS);
        if (fd >= 0) {
            return fd;
        }
    }
    return open("/proc/self/fd/1", FLAGS);
}

// -1, and `error` says what to do, when this is no terminal for a screen.
int OpenTerminal(std::string& error) {
    if (isatty(STDIN_FILENO) != 1 || isatty(STDOUT_FILENO) != 1) {
        error =
            "a live view needs a terminal on standard input and output: run it in one, without "
            "redirection, or record with `tivctl collect` and read the result with `tivctl report`";
        return -1;
    }
    if (!IsPaintableTerminal(STDOUT_FILENO)) {
        error =
            "a live view needs a terminal that knows control sequences, and TERM calls this one "
            "dumb: set TERM, or record with `tivctl collect`";
        return -1;
    }
    const int fd = OpenAgain();
    if (fd < 0) {
        error = fmt::format(
            "the terminal cannot be opened: {}; a live view needs one of the same user: log in as "
            "that user, or record with `tivctl collect`",
            std::strerror(errno));
    }
    return fd;
}

// Keys one by one and unseen; Ctrl-C, Ctrl-Z and Ctrl-\ stay signals.
struct termios ModeOfScreen(const struct termios& found) {
    struct termios mode = found;
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_cc[VMIN] = 0;
    mode.c_cc[VTIME] = 0;
    return mode;
}

}  // namespace

std::string Screen::WhyNot() {
    std::string error;
    const int fd = OpenTerminal(error);
    if (fd >= 0) {
        close(fd);
    }
    return error;
}

std::unique_ptr<Screen> Screen::Open(std::string& error) {
    const int fd = OpenTerminal(error);
    if (fd < 0) {
        return nullptr;
    }
    if (tcgetattr(fd, &foundMode) != 0) {
        error = fmt::format("the terminal cannot be set: {}", std::strerror(errno));
        close(fd);
        return nullptr;
    }
    return std::unique_ptr<Screen>(new Screen(fd));
}

Screen::Screen(int fd) : fd_(fd) {
    screenMode = ModeOfScreen(foundMode);
    wakeFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    screenFd = fd_;
    isLeft = false;
    TakeSignals();
    EnterNow();
}

Screen::~Screen() {
    Leave();
    GiveSignalsBack();
    screenFd = -1;
    close(wakeFd.exchange(-1));
    close(fd_);
}

void Screen::Leave() {
    Flush();
    if (IsBehind() && !isAway) {
        struct pollfd writable = {fd_, POLLOUT, 0};
        (void)poll(&writable, 1, LEAVE_PATIENCE_MS);
        Flush();
    }
    LeaveForGood();
}

bool Screen::IsLeft() const { return isLeft || isGone_; }

void Screen::BlockSignals() {
    sigset_t set;
    (void)sigemptyset(&set);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGWINCH}) {
        (void)sigaddset(&set, signal);
    }
    (void)pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

ScreenSize Screen::Size() const {
    struct winsize size {};
    (void)ioctl(fd_, TIOCGWINSZ, &size);
    ScreenSize result;
    result.columns = size.ws_col == 0 ? DEFAULT_COLUMNS : size.ws_col;
    result.rows = size.ws_row == 0 ? DEFAULT_ROWS : size.ws_row;
    return result;
}

bool Screen::Show(const std::vector<std::string>& lines) {
    Flush();
    if (IsBehind() || isAway) {
        return false;
    }
    const ScreenSize size = Size();
    const bool isAnew = isRepaintNeeded.exchange(false) || size.columns != shownSize_.columns ||
                        size.rows != shownSize_.rows || lines.size() != shown_.size();
    if (isAnew) {
        pending_ = "\033[2J";
    }
    for (size_t row = 0; row < lines.size(); ++row) {
        if (isAnew || lines[row] != shown_[row]) {
            // Erased first: behind a full line the cursor still stands on its last column.
            pending_ += fmt::format("\033[{};1H\033[2K{}", row + 1, lines[row]);
        }
    }
    shown_ = lines;
    shownSize_ = size;
    Flush();
    return true;
}

void Screen::Flush() {
    ssize_t written = 1;
    while (!pending_.empty() && written > 0) {
        isWriting = true;
        written = isAway ? 0 : write(fd_, pending_.data(), pending_.size());
        isWriting = false;
        pending_.erase(0, static_cast<size_t>(std::max<ssize_t>(written, 0)));
    }
}

std::string Screen::Keys() {
    std::string keys(64, '\0');
    const ssize_t got = read(fd_, keys.data(), keys.size());
    keys.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return keys;
}

void Screen::Wait(int otherFd, int timeoutMs) {
    std::array<struct pollfd, 3> waiters = {
        {{fd_, POLLIN, 0}, {wakeFd, POLLIN, 0}, {otherFd, POLLIN, 0}}};
    if (IsBehind()) {
        waiters[0].events |= POLLOUT;
    }
    (void)poll(waiters.data(), waiters.size(), timeoutMs);
    if ((waiters[0].revents & (POLLHUP | POLLERR)) != 0) {
        isGone_ = true;
    }
    uint64_t ignored = 0;
    const ssize_t got = read(wakeFd, &ignored, sizeof(ignored));
    (void)got;
}

}  // namespace tiv::host
