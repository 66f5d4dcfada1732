// The text of a collection's progress line.
#include "host/progress_line.h"

#include <gtest/gtest.h>

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

}  // namespace tiv::host
