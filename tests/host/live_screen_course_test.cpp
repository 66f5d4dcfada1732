// How a screen is opened and left, and terminals on which that is not so easy.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "host/live_screen_process.h"
#include "host/live_terminal_calls.h"

namespace tiv::test {
namespace {

using host::Screen;

constexpr char NO_TERMINAL[] =
    "a live view needs a terminal on standard input and output: run it in one, without "
    "redirection, or record with `tivctl collect` and read the result with `tivctl report`";

// Why there is no screen with these.
std::string WhyNot(int input, int output, const TerminalCalls& calls = {}) {
    const Standard standard(input, output);
    Calls() = calls;
    const std::string whyNot = Screen::WhyNot();
    Calls() = {};
    return whyNot;
}

// Why none is opened; what must not be is "opened".
std::string Refusal(int input, int output, const TerminalCalls& calls = {}) {
    const Standard standard(input, output);
    Calls() = calls;
    std::string error;
    const bool isOpened = Screen::Open(error) != nullptr;
    Calls() = {};
    return isOpened ? "opened" : error;
}

CourseOfScreen Shown() {
    return [](std::unique_ptr<Screen> screen) {
        return screen->Show({"a frame"}) ? AS_IT_SHOULD_BE : NOT_SHOWN;
    };
}

// Files below the directory are not opened.
void RefuseBelow(const char* directory) {
    Calls().refusesOpen = [directory](std::string_view path) { return path.find(directory) == 0; };
}

// A terminal that takes a part of a frame, and no more before somebody waits for it.
constexpr size_t PART = 10;

Course LeaveBehind(std::unique_ptr<Screen> screen) {
    bool isAwaited = false;
    size_t left = PART;
    Calls().beforePoll = [&] { isAwaited = true; };
    Calls().write = [&](int fd, std::string_view bytes) -> ssize_t {
        const size_t taken = isAwaited ? bytes.size() : std::min(left, bytes.size());
        left -= std::min(left, taken);
        errno = EAGAIN;
        return taken == 0 ? -1 : RealWrite(fd, bytes.substr(0, taken));
    };
    (void)screen->Show({"a frame that is longer", "than its first part"});
    const bool isBehind = screen->IsBehind();
    screen.reset();
    return isBehind ? AS_IT_SHOULD_BE : NOT_SHOWN;
}

void Resize(unsigned short columns, unsigned short rows) {
    struct winsize size = {};
    size.ws_col = columns;
    size.ws_row = rows;
    (void)ioctl(STDOUT_FILENO, TIOCSWINSZ, &size);
}

// The first line never changes.
Course ShownAgain(std::unique_ptr<Screen> screen) {
    Resize(80, 24);
    (void)screen->Show({"first", "second"});
    (void)screen->Show({"first", "other"});
    Resize(80, 30);
    (void)screen->Show({"first", "other"});
    Resize(90, 30);
    (void)screen->Show({"first", "other"});
    (void)screen->Show({"first"});
    return screen->IsBehind() ? NOT_SHOWN : AS_IT_SHOULD_BE;
}

Course HungUp(std::unique_ptr<Screen> screen) {
    while (!screen->IsGone()) {
        screen->Wait(-1, 1000);
    }
    return screen->IsLeft() ? AS_IT_SHOULD_BE : NOT_LEFT;
}

}  // namespace

TEST(ScreenOpening, NeedsATerminalOnBothSides) {
    const Terminal terminal;
    const int file = open("/dev/null", O_RDWR | O_CLOEXEC);

    EXPECT_EQ(NO_TERMINAL, WhyNot(file, terminal.Fd()));
    EXPECT_EQ(NO_TERMINAL, WhyNot(terminal.Fd(), file));
    EXPECT_EQ("", WhyNot(terminal.Fd(), terminal.Fd()));

    EXPECT_EQ(NO_TERMINAL, Refusal(file, terminal.Fd()));
    close(file);
}

TEST(ScreenOpening, TerminalThatMayNotBeOpenedIsRefused) {
    const Terminal terminal;
    TerminalCalls calls;
    calls.refusesOpen = [](std::string_view) { return true; };

    const std::string refusal =
        "the terminal cannot be opened: Permission denied; a live view needs one of the same user: "
        "log in as that user, or record with `tivctl collect`";
    EXPECT_EQ(refusal, WhyNot(terminal.Fd(), terminal.Fd(), calls));
    EXPECT_EQ(refusal, Refusal(terminal.Fd(), terminal.Fd(), calls));
    EXPECT_EQ("", terminal.Bytes());
}

TEST(ScreenOpening, TerminalIsOpenedByItsPathOrAsTheOneInHand) {
    for (const char* refused : {"/dev/", "/proc/"}) {
        ScreenProcess process(Shown(), [refused] { RefuseBelow(refused); });

        EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait()) << refused;
        EXPECT_NE(std::string::npos, process.terminal.Bytes().find("a frame"));
    }
}

TEST(ScreenOpening, TerminalThatCannotBeSetIsLeftAlone) {
    const Terminal terminal;
    TerminalCalls calls;
    calls.hasNoMode = true;
    struct sigaction before = {};
    (void)sigaction(SIGTERM, nullptr, &before);

    EXPECT_EQ("the terminal cannot be set: Input/output error",
              Refusal(terminal.Fd(), terminal.Fd(), calls));

    EXPECT_EQ("", terminal.Bytes());
    struct sigaction after = {};
    (void)sigaction(SIGTERM, nullptr, &after);
    EXPECT_EQ(before.sa_handler, after.sa_handler);
}

TEST(ScreenFrame, LinesAreWrittenWhenTheyChangeAndAllOfThemForANewSize) {
    ScreenProcess process(ShownAgain);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    const std::string bytes = process.terminal.Bytes();
    EXPECT_EQ(4u, Count(bytes, "first")) << "at first, and with each size and number of lines";
    EXPECT_EQ(1u, Count(bytes, "second"));
    EXPECT_EQ(3u, Count(bytes, "other"));
}

TEST(ScreenEnd, LastFrameIsWaitedFor) {
    ScreenProcess process(LeaveBehind);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    const std::string bytes = process.terminal.Bytes();
    EXPECT_NE(std::string::npos, bytes.find("\033[2;1H\033[2Kthan its first part\030")) << bytes;
    EXPECT_EQ(bytes.size() - std::strlen(LEAVE), bytes.rfind(LEAVE));
    EXPECT_TRUE(process.terminal.HasFoundMode());
}

TEST(ScreenEnd, TerminalThatHangsUpIsGone) {
    ScreenProcess process(HungUp);

    ASSERT_TRUE(process.WaitForScreen());
    process.terminal.HangUp();

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

}  // namespace tiv::test
