// Tests of how end-to-end tests read what processes leave behind.
#include "e2e/child_process.h"

#include <gtest/gtest.h>

#include "support/temp_dir.h"

namespace tiv::e2e {
namespace {

using test::TempDir;

TEST(FileContent, HoldsEveryByte) {
    const TempDir directory;
    const std::string bytes("one\ntwo\0three\n", 14);

    EXPECT_EQ(FileContent(directory.Write("file", bytes)), bytes);
}

TEST(FileContent, IsEmptyWithoutFile) {
    const TempDir directory;

    EXPECT_EQ(FileContent(directory.Path("absent")), "");
}

// What /proc shows of a thread that has ended meanwhile opens, but cannot be read: so does this.
TEST(FileContent, IsEmptyWhenTheReadFails) {
    const TempDir directory;

    EXPECT_EQ(FileContent(directory.Path()), "");
}

}  // namespace
}  // namespace tiv::e2e
