// What the screen does with the signals that it takes.
#include <gtest/gtest.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include "host/live_screen_process.h"
#include "host/live_terminal_calls.h"

namespace tiv::test {
namespace {

using host::Screen;

volatile std::sig_atomic_t taken = 0;
volatile std::sig_atomic_t value = 0;

void Take(int signal) { taken = signal; }
void TakeValue(int signal, siginfo_t* info, void* /*context*/) {
    taken = signal;
    value = info->si_value.sival_int;
}
void TakeSigterm() { (void)std::signal(SIGTERM, Take); }

// Nothing that is called next finds zeros by chance.
[[gnu::noinline]] void SoilTheStack() {
    volatile unsigned char bytes[4096];
    for (volatile unsigned char& byte : bytes) {
        byte = 0xff;
    }
}

constexpr char FRAME[] = "a frame";

bool Holds(std::string_view bytes, const char* text) {
    return bytes.find(text) != std::string_view::npos;
}

bool IsLeft(const Screen& screen) {
    return screen.IsLeft() && (ModeOf(STDIN_FILENO).c_lflag & ICANON) != 0;
}

// The process calls `signal` upon itself and gives the screen up.
CourseOfScreen AfterASignal(int signal) {
    return [signal](std::unique_ptr<Screen> screen) {
        (void)raise(signal);
        const bool isLeft = IsLeft(*screen);
        screen.reset();
        return taken != SIGTERM ? NOT_PASSED_ON : isLeft ? AS_IT_SHOULD_BE : NOT_LEFT;
    };
}

// A thread is in the middle of writing a frame when the signal comes on another one. The frame is
// written when somebody waits for it, or has left the screen without.
enum Frame { NONE, BEGUN, AWAITED, OVERTAKEN, WRITTEN };
std::atomic<Frame> frame{NONE};

void WaitWhile(Frame state) {
    while (frame == state) {
        RealYield();
    }
}

ssize_t WriteInTheMiddle(int fd, std::string_view bytes) {
    const bool isFrame = Holds(bytes, FRAME);
    if (isFrame) {
        frame = BEGUN;
        WaitWhile(BEGUN);
    }
    const ssize_t written = RealWrite(fd, bytes);
    if (isFrame) {
        frame = WRITTEN;
    } else if (frame == BEGUN && Holds(bytes, LEAVE)) {
        frame = OVERTAKEN;
    }
    return written;
}

// A yield that lasts until the frame is written.
void AwaitFrame() {
    Frame begun = BEGUN;
    (void)frame.compare_exchange_strong(begun, AWAITED);
    WaitWhile(AWAITED);
}

Course InsideAFrame(std::unique_ptr<Screen> screen, const std::function<void()>& yield) {
    Calls().write = WriteInTheMiddle;
    Calls().yield = yield;
    bool isShown = false;
    std::thread painter([&] {
        Screen::BlockSignals();
        isShown = screen->Show({FRAME});
    });
    WaitWhile(NONE);
    (void)raise(SIGTERM);
    painter.join();
    return isShown ? AfterASignal(SIGTERM)(std::move(screen)) : NOT_SHOWN;
}

// One signal is in the middle of leaving when another one comes on another thread.
Course InsideALeave(std::unique_ptr<Screen> screen) {
    std::atomic<int> leaves{0};
    std::atomic<bool> isPassedOn{false};
    Calls().write = [&](int fd, std::string_view bytes) {
        if (Holds(bytes, LEAVE) && leaves++ == 0) {
            while (!isPassedOn) {
                RealYield();
            }
        }
        return RealWrite(fd, bytes);
    };
    std::thread first([] { (void)raise(SIGTERM); });
    while (leaves == 0) {
        RealYield();
    }
    (void)raise(SIGTERM);
    const bool isLeft = IsLeft(*screen);
    isPassedOn = true;
    first.join();
    return isLeft ? AS_IT_SHOULD_BE : NOT_LEFT;
}

Course UnderAHandlerThatCameLater(std::unique_ptr<Screen> screen) {
    (void)std::signal(SIGHUP, Take);
    screen.reset();
    struct sigaction handler = {};
    (void)sigaction(SIGTERM, nullptr, &handler);
    (void)raise(SIGHUP);
    return taken == SIGHUP && handler.sa_handler == Take ? AS_IT_SHOULD_BE : NOT_PASSED_ON;
}

}  // namespace

TEST(Screen, ThreadThatBlocksItsSignalsBlocksThoseOfTheTerminalAlone) {
    std::set<int> blocked;
    std::thread([&] {
        sigset_t set;
        (void)sigemptyset(&set);
        (void)pthread_sigmask(SIG_SETMASK, &set, nullptr);
        SoilTheStack();

        Screen::BlockSignals();

        (void)pthread_sigmask(SIG_BLOCK, nullptr, &set);
        for (int signal = 1; signal < NSIG; ++signal) {
            if (sigismember(&set, signal) == 1) {
                blocked.insert(signal);
            }
        }
    }).join();

    EXPECT_EQ(blocked, (std::set<int>{SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGTSTP, SIGWINCH}));
}

TEST(Screen, SignalGoesOnToAHandlerThatTakesItsNumberOnly) {
    ScreenProcess process(AfterASignal(SIGTERM), TakeSigterm);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.terminal.HasFoundMode());
    EXPECT_EQ(1u, Count(process.terminal.Bytes(), LEAVE)) << "what is left is not left again";
}

TEST(Screen, SignalGoesOnWithWhatItBrought) {
    ScreenProcess process(
        [](std::unique_ptr<Screen> screen) {
            union sigval sent = {};
            sent.sival_int = 42;
            (void)sigqueue(getpid(), SIGTERM, sent);
            while (taken == 0) {
                RealYield();
            }
            return taken != SIGTERM || value != 42 ? NOT_PASSED_ON
                   : IsLeft(*screen)               ? AS_IT_SHOULD_BE
                                                   : NOT_LEFT;
        },
        [] {
            struct sigaction action = {};
            action.sa_sigaction = TakeValue;
            action.sa_flags = SA_SIGINFO;
            (void)sigaction(SIGTERM, &action, nullptr);
        });

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

TEST(Screen, SignalThatEndsTheProcessLeavesTheScreenFirst) {
    ScreenProcess process(AfterASignal(SIGHUP));

    EXPECT_EQ(128 + SIGHUP, process.Wait());
    EXPECT_TRUE(process.terminal.HasFoundMode());
    EXPECT_EQ(1u, Count(process.terminal.Bytes(), LEAVE));
}

TEST(Screen, SignalThatIsIgnoredLeavesTheScreenAlone) {
    ScreenProcess process(
        [](std::unique_ptr<Screen> screen) {
            (void)raise(SIGHUP);
            return IsLeft(*screen) ? LEFT : AS_IT_SHOULD_BE;
        },
        [] { (void)std::signal(SIGHUP, SIG_IGN); });

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

TEST(Screen, SignalThatEndsAStoppedProgramLeavesTheTerminalAsItWas) {
    ScreenProcess process(AfterASignal(SIGTSTP), TakeSigterm);
    ASSERT_TRUE(process.WaitForStop());
    EXPECT_TRUE(process.terminal.HasFoundMode());

    process.Signal(SIGTERM);  // comes when it goes on
    process.Signal(SIGCONT);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.terminal.HasFoundMode());
    const std::string bytes = process.terminal.Bytes();
    EXPECT_EQ(bytes.size() - std::strlen(LEAVE), bytes.rfind(LEAVE)) << "the last that was written";
}

TEST(Screen, NothingIsSuspendedBehindTheEnd) {
    ScreenProcess process(
        [](std::unique_ptr<Screen> screen) {
            (void)raise(SIGTERM);
            (void)raise(SIGTSTP);
            return IsLeft(*screen) ? AS_IT_SHOULD_BE : NOT_LEFT;
        },
        TakeSigterm);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait()) << "-1 is a process that was stopped";
    EXPECT_EQ(1u, Count(process.terminal.Bytes(), LEAVE));
}

TEST(Screen, SignalWaitsForTheFrameThatAnotherThreadIsWriting) {
    ScreenProcess process([](auto screen) { return InsideAFrame(std::move(screen), AwaitFrame); },
                          TakeSigterm);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    const std::string bytes = process.terminal.Bytes();
    ASSERT_NE(std::string::npos, bytes.find(FRAME));
    EXPECT_LT(bytes.find(FRAME), bytes.find(LEAVE));
}

TEST(Screen, FrameThatNeverEndsIsOvertaken) {
    // However long somebody waits, the frame does not end.
    ScreenProcess process([](auto screen) { return InsideAFrame(std::move(screen), [] {}); },
                          TakeSigterm);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.terminal.HasFoundMode());
}

TEST(Screen, SecondSignalLeavesTheScreenThatTheFirstHasNotLeftYet) {
    ScreenProcess process(InsideALeave, TakeSigterm);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

TEST(Screen, SignalsAreGivenBackUnlessSomebodyHasTakenThem) {
    ScreenProcess process(UnderAHandlerThatCameLater, TakeSigterm);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

}  // namespace tiv::test
