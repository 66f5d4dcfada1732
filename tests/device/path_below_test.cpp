// Tests of the rule that keeps a job's directory inside the working directory.
#include "device/path_below.h"

#include <gtest/gtest.h>

namespace {

using analysis::rokt::device::PathIsBelow;

constexpr const char* DIRECTORY = "/var/log/npu/profiling/";

std::string InDirectory(const std::string& jobId) { return DIRECTORY + jobId; }

TEST(PathBelow, DirectoryItselfIsInside) {
    EXPECT_TRUE(PathIsBelow(InDirectory(""), DIRECTORY));
    EXPECT_TRUE(PathIsBelow(InDirectory("."), DIRECTORY));
    EXPECT_TRUE(PathIsBelow(InDirectory("a/.."), DIRECTORY));
}

TEST(PathBelow, EveryDescendantIsInside) {
    EXPECT_TRUE(PathIsBelow(InDirectory("job"), DIRECTORY));
    EXPECT_TRUE(PathIsBelow(InDirectory("a//b/./c"), DIRECTORY));
    EXPECT_TRUE(PathIsBelow(InDirectory("..job"), DIRECTORY));
}

TEST(PathBelow, DetourThatComesBackIsInside) {
    EXPECT_TRUE(PathIsBelow(InDirectory("../profiling/job"), DIRECTORY));
}

TEST(PathBelow, EveryWayOutIsOutside) {
    EXPECT_FALSE(PathIsBelow(InDirectory(".."), DIRECTORY));
    EXPECT_FALSE(PathIsBelow(InDirectory("../profiling2"), DIRECTORY));
    EXPECT_FALSE(PathIsBelow(InDirectory("a/../../b"), DIRECTORY));
    EXPECT_FALSE(PathIsBelow(InDirectory("../../../../etc"), DIRECTORY));
}

TEST(PathBelow, PathEndsAtItsFirstZeroByte) {
    EXPECT_FALSE(PathIsBelow(InDirectory(std::string("..\0", 3)), DIRECTORY));
    EXPECT_FALSE(PathIsBelow(InDirectory(std::string("..\0/../profiling/job", 21)), DIRECTORY));
    EXPECT_TRUE(PathIsBelow(InDirectory(std::string("job\0/../../etc", 14)), DIRECTORY));
}

TEST(PathBelow, ClimbingAboveTheRootStaysAtTheRoot) {
    EXPECT_FALSE(PathIsBelow(InDirectory("../../../../../../etc"), DIRECTORY));
    EXPECT_TRUE(PathIsBelow(InDirectory("../../../../../../var/log/npu/profiling/a"), DIRECTORY));
}

TEST(PathBelow, HalfAMillionComponentsAreWalked) {
    std::string jobId;
    for (int i = 0; i < 500000; ++i) {
        jobId += "a/";
    }

    EXPECT_TRUE(PathIsBelow(InDirectory(jobId), DIRECTORY));
}

}  // namespace
