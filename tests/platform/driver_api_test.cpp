// Tests of the numbers that the daemon shares with the card's driver library.
#include "platform/driver_api.h"

#include <gtest/gtest.h>

TEST(DriverNumbers, ResultsAreThoseOfTheLibrary) {
    EXPECT_EQ(23, HDC_ERR_BUSY);
    EXPECT_EQ(25, HDC_ERR_CLOSED);
    EXPECT_EQ(34, HDC_ERR_NOT_READY);
    EXPECT_EQ(36, HDC_ERR_NO_DATA);
    EXPECT_EQ(-4, PROF_STOPPED_ALREADY);
    EXPECT_EQ(65534, DRV_NOT_SUPPORTED);
}

TEST(DriverNumbers, FlagsAndAttributesAreThoseOfTheLibrary) {
    EXPECT_EQ(0, HDC_FLAG_WAIT);
    EXPECT_EQ(1, HDC_FLAG_NO_WAIT);
    EXPECT_EQ(0, HDC_ATTR_DEVICE_ID);
    EXPECT_EQ(3, HDC_ATTR_VF_ID);
    EXPECT_EQ(160, PROF_CHANNEL_NUM_MAX);
}
