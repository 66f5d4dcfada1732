// What the driver library tells of devices, against its double.
#include "host/device_list.h"

#include <gtest/gtest.h>

#include "support/fake_driver.h"

namespace tiv::host {
namespace {

using test::FakeDriver;

constexpr const char* NOT_TOLD =
    "the driver library does not tell its devices; if it said above what is wrong with its "
    "configuration, mend the file that TIV_DRIVER_CONFIG names, else name devices with --device";

}  // namespace

TEST(KnownDevices, AreThoseOfTheDriver) {
    FakeDriver::Instance().SetDevices({2, 5});
    std::string error;

    EXPECT_EQ((std::vector<int>{2, 5}), KnownDevices(error));
}

TEST(KnownDevices, MachineWithoutAnyIsNoFailure) {
    FakeDriver::Instance().SetDevices({});
    std::string error;

    EXPECT_EQ(std::vector<int>{}, KnownDevices(error));

    EXPECT_EQ("", error);
}

TEST(KnownDevices, NumberWithoutItsListIsAFailure) {
    FakeDriver::Instance().calls.Return("drvGetDevIDs", -1);
    std::string error;

    EXPECT_EQ(std::nullopt, KnownDevices(error));

    EXPECT_EQ(NOT_TOLD, error);
}

TEST(KnownDevices, NumberThatIsNotToldIsAFailure) {
    FakeDriver::Instance().calls.Return("drvGetDevNum", -1);
    std::string error;

    EXPECT_EQ(std::nullopt, KnownDevices(error));

    EXPECT_EQ(NOT_TOLD, error);
}

}  // namespace tiv::host
