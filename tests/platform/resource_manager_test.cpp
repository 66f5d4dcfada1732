// When the platform's resource manager calls itself ready.
#include "platform/resource_manager.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <string>

#include "support/failing_new.h"
#include "support/temp_dir.h"

namespace tiv::test {
namespace {

int32_t ReadyWith(const std::string& configuration) {
    const TempDir directory;
    setenv("TIV_DRIVER_CONFIG", directory.Write("driver.json", configuration).c_str(), 1);
    return IAMResMgrReady();
}

TEST(ResourceManager, IsNotReadyWhenTheDriversFileSaysSo) {
    EXPECT_EQ(1, ReadyWith(R"({"resource_manager_ready": false})"));
}

TEST(ResourceManager, IsReadyWhenTheDriversFileSaysNothingElse) {
    EXPECT_EQ(0, ReadyWith(R"({"resource_manager_ready": true})"));
    EXPECT_EQ(0, ReadyWith(R"({"devices": [{"resource_manager_ready": false}]})"));
}

TEST(ResourceManager, LeavesABadFileToTheDriver) {
    EXPECT_EQ(0, ReadyWith("{"));
    EXPECT_EQ(0, ReadyWith(R"({"resource_manager_ready": 0})"));
    EXPECT_EQ(0, ReadyWith(std::string(2000000, '[')));
}

TEST(ResourceManager, IsNotReadyWithoutMemoryForTheFile) {
    const TempDir directory;
    setenv("TIV_DRIVER_CONFIG", directory.Write("driver.json", R"({"devices": 1})").c_str(), 1);
    const FailingNew failing;

    EXPECT_EQ(1, IAMResMgrReady());

    EXPECT_EQ(1U, failing.Failed());
}

TEST(ResourceManager, IsReadyWhenTheFileIsMissing) {
    setenv("TIV_DRIVER_CONFIG", "/nonexistent/driver.json", 1);

    EXPECT_EQ(0, IAMResMgrReady());
}

}  // namespace
}  // namespace tiv::test
