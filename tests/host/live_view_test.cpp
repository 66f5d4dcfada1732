// The live view with a screen, without one, and when it loses it.
#include "host/live/live_view.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <functional>
#include <string>
#include <vector>

#include "host/live_screen_process.h"
#include "host/live_terminal_calls.h"
#include "support/failing_new.h"

namespace tiv::test {
namespace {

using host::LiveOptions;
using host::LiveView;
using host::Progress;

// Keeps what it is to show.
class OtherView : public host::CollectionView {
 public:
    void Show(const Progress& progress) override { shown.push_back(progress.phase); }
    void Clear() override { shown.emplace_back("cleared"); }

    std::vector<std::string> shown;
};

volatile std::sig_atomic_t taken = 0;

void Take(int signal) { taken = signal; }
void TakeSigint() {
    taken = 0;
    (void)std::signal(SIGINT, Take);
}

Progress Phase(const std::string& phase) {
    Progress progress;
    progress.phase = phase;
    return progress;
}

LiveOptions Keeping(bool keepsFiles) {
    LiveOptions options;
    options.title = "tivctl test";
    options.keepsFiles = keepsFiles;
    return options;
}

std::atomic<bool> hasEnded{false};

// Lives on a thread until its end.
struct EndOfThread {
    ~EndOfThread() { hasEnded = true; }
};

// False when the painter does not end within ten seconds.
bool WaitForPainter() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!hasEnded && std::chrono::steady_clock::now() < end) {
        RealYield();
    }
    RealYield();  // for the signal that it may have sent
    return hasEnded;
}

// Shows the view until its painter, which does `onWait` when it waits, ends by itself: the process
// has got the signal then, or none.
Course UntilThePainterEnds(
    bool keepsFiles, int signal, const std::function<void()>& onWait = [] {}) {
    TakeSigint();
    Calls().beforePoll = [&] {
        thread_local EndOfThread end;
        onWait();
    };
    OtherView other;
    LiveView view(Keeping(keepsFiles), other);
    view.Show(Phase("collecting"));
    if (!WaitForPainter() || !other.shown.empty()) {
        return NOT_LEFT;
    }
    return taken == signal ? AS_IT_SHOULD_BE : NOT_PASSED_ON;
}

Course ShownAndCleared() {
    OtherView other;
    LiveView view(Keeping(true), other);
    view.Show(Phase("collecting"));
    view.Clear();
    view.Show(Phase("draining"));
    return other.shown == std::vector<std::string>{"cleared", "draining"} ? AS_IT_SHOULD_BE
                                                                          : NOT_SHOWN;
}

// Begins a view without memory for its allocation number `skip`. LEFT when it has no such one.
Course BegunWithoutMemory(bool keepsFiles, size_t skip) {
    TakeSigint();
    OtherView other;
    LiveView view(Keeping(keepsFiles), other);
    const Progress progress = Phase("collecting");
    testing::internal::CaptureStderr();
    size_t failed = 0;
    {
        FailingNew failing(skip);
        view.Show(progress);
        failed = failing.Failed();
    }
    if (failed == 0) {
        return LEFT;
    }
    const bool isTold =
        testing::internal::GetCapturedStderr() == "tivctl: no live view: std::bad_alloc\n";
    if ((ModeOf(STDIN_FILENO).c_lflag & ICANON) == 0) {
        return NOT_LEFT;
    }
    if (!isTold || other.shown != std::vector<std::string>{"collecting"}) {
        return NOT_SHOWN;
    }
    return taken == (keepsFiles ? 0 : SIGINT) ? AS_IT_SHOULD_BE : NOT_PASSED_ON;
}

// What a view without a terminal says.
std::string ErrorsWithoutATerminal(bool keepsFiles, OtherView& other) {
    const int file = open("/dev/null", O_RDWR | O_CLOEXEC);
    testing::internal::CaptureStderr();
    {
        const Standard standard(file, file);
        LiveView view(Keeping(keepsFiles), other);
        view.Show(Phase("collecting"));
        view.Show(Phase("draining"));
    }
    close(file);
    return testing::internal::GetCapturedStderr();
}

}  // namespace

TEST(LiveView, WithoutAScreenTheOtherViewShows) {
    TakeSigint();
    OtherView other;

    const std::string errors = ErrorsWithoutATerminal(true, other);

    EXPECT_EQ((std::vector<std::string>{"collecting", "draining", "cleared"}), other.shown);
    EXPECT_EQ(0u, errors.find("tivctl: no live view: a live view needs a terminal on standard "
                              "input and output: "));
    EXPECT_EQ(errors.size() - 1, errors.find('\n')) << "it is said once";
    EXPECT_EQ(0, taken);
}

TEST(LiveView, WithoutAScreenAJobThatKeepsNothingEnds) {
    TakeSigint();
    OtherView other;

    (void)ErrorsWithoutATerminal(false, other);

    EXPECT_EQ(SIGINT, taken);
}

TEST(LiveView, WithoutMemoryToBeginTheOtherViewShows) {
    for (const bool keepsFiles : {true, false}) {
        int course = AS_IT_SHOULD_BE;
        size_t allocations = 0;
        for (; course == AS_IT_SHOULD_BE; ++allocations) {
            ScreenProcess process([&] { return BegunWithoutMemory(keepsFiles, allocations); });
            course = process.Wait();
            EXPECT_TRUE(process.terminal.HasFoundMode()) << allocations;
        }

        EXPECT_EQ(LEFT, course) << "without allocation " << allocations - 1;
        EXPECT_GT(allocations, 1u);
    }
}

TEST(LiveView, BehindTheScreenTheOtherViewShows) {
    ScreenProcess process(ShownAndCleared);

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.terminal.HasFoundMode());
}

TEST(LiveView, TerminalThatHangsUpEndsAJobThatKeepsNothing) {
    ScreenProcess process([] { return UntilThePainterEnds(false, SIGINT); });
    ASSERT_TRUE(process.WaitForScreen());

    process.terminal.HangUp();

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

TEST(LiveView, TerminalThatHangsUpEndsNoJobThatKeepsFiles) {
    ScreenProcess process([] { return UntilThePainterEnds(true, 0); });
    ASSERT_TRUE(process.WaitForScreen());

    process.terminal.HangUp();

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
}

TEST(LiveView, WithoutMemoryForAFrameTheJobGoesOnWithoutAPicture) {
    ScreenProcess process(
        [] { return UntilThePainterEnds(false, 0, [] { FailNextNewOfAtLeast(1000); }); });

    EXPECT_EQ(AS_IT_SHOULD_BE, process.Wait());
    EXPECT_TRUE(process.terminal.HasFoundMode());
}

}  // namespace tiv::test
