// The text of a collection's progress line.
#include "host/progress_line.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "host/live_screen_process.h"

namespace tiv::host {
namespace {

using namespace std::chrono_literals;

constexpr ProgressLine::Clock::time_point START{1h};

Progress Collected(uint64_t bytes) {
    Progress progress;
    progress.phase = "collecting";
    progress.elapsed = 1500ms;
    progress.bytes = bytes;
    progress.files = 3;
    return progress;
}

// All that was written to the terminal. What is written comes through it a moment later, in order.
std::string Written(const test::Terminal& terminal) {
    constexpr char END = '|';
    EXPECT_EQ(1, write(terminal.Fd(), &END, 1));
    std::string bytes;
    struct pollfd come = {terminal.Master(), POLLIN, 0};
    while ((bytes.empty() || bytes.back() != END) && poll(&come, 1, 10000) == 1) {
        bytes += terminal.Bytes();
    }
    return bytes.substr(0, bytes.find(END));
}

}  // namespace

TEST(ProgressLineText, RateIsThatOfTheLastHalfSecond) {
    ProgressLine line(true);

    EXPECT_EQ("collecting  1.5s  1.0 kB  0 B/s  3 files", line.Text(Collected(1000), START));
    EXPECT_EQ("collecting  1.5s  5.0 kB  0 B/s  3 files",
              line.Text(Collected(5000), START + 499ms));
    EXPECT_EQ("collecting  1.5s  6.0 kB  10.0 kB/s  3 files",
              line.Text(Collected(6000), START + 500ms));
    EXPECT_EQ("collecting  1.5s  7.0 kB  10.0 kB/s  3 files",
              line.Text(Collected(7000), START + 600ms));
    EXPECT_EQ("collecting  1.5s  8.0 kB  2.0 kB/s  3 files",
              line.Text(Collected(8000), START + 1500ms));
}

TEST(ProgressLineText, KnownEndIsTold) {
    ProgressLine line(true);
    Progress progress = Collected(0);
    progress.total = 10s;

    EXPECT_EQ("collecting  1.5s of 10.0s  0 B  0 B/s  3 files", line.Text(progress, START));
}

TEST(ProgressLine, LineIsErasedBeforeEachPaintingAndOnceBehindTheLast) {
    test::Terminal terminal;
    (void)setenv("TERM", "xterm", 1);
    const int errors = dup(STDERR_FILENO);
    (void)dup2(terminal.Fd(), STDERR_FILENO);
    ProgressLine line(false);

    line.Show(Collected(1000));
    line.Clear();
    line.Clear();

    (void)dup2(errors, STDERR_FILENO);
    close(errors);
    EXPECT_EQ("\r\033[Kcollecting  1.5s  1.0 kB  0 B/s  3 files\r\033[K", Written(terminal));
}

}  // namespace tiv::host
