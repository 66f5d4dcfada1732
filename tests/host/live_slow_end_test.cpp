// When the end of a job is called slow.
#include "host/live/slow_end.h"

#include <gtest/gtest.h>

namespace tiv::host {
namespace {

using namespace std::chrono_literals;

constexpr SlowEnd::Clock::time_point START{1h};

}  // namespace

TEST(SlowEnd, EndWithinASecondIsNoNews) {
    SlowEnd end;
    end.Begin(START);

    EXPECT_FALSE(end.IsNews(START));
    EXPECT_FALSE(end.IsNews(START + 1s));
}

TEST(SlowEnd, LongerEndIsNewsOnce) {
    SlowEnd end;
    end.Begin(START);

    EXPECT_TRUE(end.IsNews(START + 1s + 1ns));
    EXPECT_FALSE(end.IsNews(START + 2s));
}

}  // namespace tiv::host
