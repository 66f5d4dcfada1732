// Tests of the identity and event checks.
#include "config/param_validation.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::common::validation {

class IdentityCheck : public tiv::test::RecordedLogTest {
 protected:
    const ParamValidation& check = ParamValidation::Instance();
};

using Texts = std::vector<std::string>;

TEST_F(IdentityCheck, AtMost8EventsAreValid) {
    EXPECT_TRUE(check.CheckEventSizeIsValid(0));
    EXPECT_TRUE(check.CheckEventSizeIsValid(8));
    EXPECT_FALSE(check.CheckEventSizeIsValid(9));
    const Texts lines = {"eventSize: 0", "eventSize: 8", "eventSize: 9"};
    EXPECT_EQ(log.Texts('D'), lines);
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(IdentityCheck, NegativeSizeIsValid) { EXPECT_TRUE(check.CheckEventSizeIsValid(-1)); }

TEST_F(IdentityCheck, CpuEventHolds0xAnywhere) {
    EXPECT_TRUE(check.CheckCtrlCpuEventIsValid({"0x11", "a0x", "x 0x"}));
    EXPECT_TRUE(check.CheckCtrlCpuEventIsValid({}));
}

TEST_F(IdentityCheck, CpuEventWithout0xIsRefusedSilently) {
    EXPECT_FALSE(check.CheckCtrlCpuEventIsValid({"0x11", "11"}));
    EXPECT_FALSE(check.CheckCtrlCpuEventIsValid({"0X11"}));

    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(IdentityCheck, NineCpuEventsAreRefusedForTheirNumber) {
    EXPECT_FALSE(check.CheckCtrlCpuEventIsValid(std::vector<std::string>(9, "0x11")));

    EXPECT_EQ(log.Texts('E'), Texts{"cpu events size(9) is bigger than 8"});
}

TEST_F(IdentityCheck, EightCpuEventsAreValid) {
    EXPECT_TRUE(check.CheckCtrlCpuEventIsValid(std::vector<std::string>(8, "0x11")));
}

TEST_F(IdentityCheck, LlcTextOfAllowedCharactersIsValid) {
    EXPECT_TRUE(check.CheckLlcEventsIsValid("a/b_c,d e"));
    EXPECT_TRUE(check.CheckLlcEventsIsValid("azAZ09"));
    const Texts lines = {"llc events is a/b_c,d e", "llc events is azAZ09"};
    EXPECT_EQ(log.Texts('D'), lines);
}

TEST_F(IdentityCheck, EmptyLlcTextIsValid) { EXPECT_TRUE(check.CheckLlcEventsIsValid("")); }

TEST_F(IdentityCheck, LlcTextWithAnotherCharacterIsRefused) {
    EXPECT_FALSE(check.CheckLlcEventsIsValid("a.b"));
    EXPECT_FALSE(check.CheckLlcEventsIsValid("a-b"));
    EXPECT_FALSE(check.CheckLlcEventsIsValid("a\tb"));
    EXPECT_FALSE(check.CheckLlcEventsIsValid("\xc3\xa4"));

    EXPECT_EQ(log.Texts('E')[0], "llc events is invalid.a.b");
    EXPECT_EQ(log.Texts('E').size(), 4U);
    EXPECT_TRUE(log.Texts('D').empty());
}

TEST_F(IdentityCheck, DeviceIdMayBe0To63) {
    EXPECT_TRUE(check.CheckDeviceIdIsValid("0"));
    EXPECT_TRUE(check.CheckDeviceIdIsValid("63"));
    EXPECT_TRUE(check.CheckDeviceIdIsValid("063"));
    EXPECT_TRUE(check.CheckDeviceIdIsValid("0000000063"));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(IdentityCheck, DeviceIdAbove63IsAWarning) {
    EXPECT_FALSE(check.CheckDeviceIdIsValid("64"));

    EXPECT_EQ(log.Lines().size(), 1U);
    EXPECT_TRUE(log.Has('W', "devId(64) is over limited."));
}

TEST_F(IdentityCheck, DeviceIdThatIsNoNumberFailsAtTheNumber) {
    EXPECT_FALSE(check.CheckDeviceIdIsValid("-1"));
    EXPECT_FALSE(check.CheckDeviceIdIsValid("1a"));

    const Texts errors = {
        "[Utils::CheckStringIsNonNegativeIntNum]numberStr(-1) is not a number",
        "devId(-1) is not valid.",
        "[Utils::CheckStringIsNonNegativeIntNum]numberStr(1a) is not a number",
        "devId(1a) is not valid.",
    };
    EXPECT_EQ(log.Texts('E'), errors);
    EXPECT_TRUE(log.Texts('W').empty());
}

TEST_F(IdentityCheck, DeviceIdBeyondAnIntegerFailsAtTheNumber) {
    EXPECT_FALSE(check.CheckDeviceIdIsValid("2147483648"));
    EXPECT_FALSE(check.CheckDeviceIdIsValid("00000000063"));

    const Texts errors = {
        "[Utils::CheckStringIsNonNegativeIntNum]numberStr(2147483648) is over than 2147483647",
        "devId(2147483648) is not valid.",
        "[Utils::CheckStringIsNonNegativeIntNum]numberStr(00000000063) is too long",
        "devId(00000000063) is not valid.",
    };
    EXPECT_EQ(log.Texts('E'), errors);
}

TEST_F(IdentityCheck, EmptyDeviceIdIsRefused) {
    EXPECT_FALSE(check.CheckDeviceIdIsValid(""));

    EXPECT_TRUE(log.Has('E', "devId() is not valid."));
}

TEST_F(IdentityCheck, JobIdOf1To512CharactersIsValid) {
    EXPECT_TRUE(check.CheckJobIdIsValid("a"));
    EXPECT_TRUE(check.CheckJobIdIsValid(std::string(512, 'Z')));
    EXPECT_FALSE(check.CheckJobIdIsValid(""));
    EXPECT_FALSE(check.CheckJobIdIsValid(std::string(513, 'Z')));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(IdentityCheck, JobIdHasLettersDigitsAndHyphensOnly) {
    EXPECT_TRUE(check.CheckJobIdIsValid("azAZ09-"));
    EXPECT_FALSE(check.CheckJobIdIsValid("a_b"));
    EXPECT_FALSE(check.CheckJobIdIsValid("a b"));
    EXPECT_FALSE(check.CheckJobIdIsValid("../etc"));
    EXPECT_FALSE(check.CheckJobIdIsValid("\xc3\xa4"));
    EXPECT_FALSE(check.CheckJobIdIsValid(std::string("a\0b", 3)));
}

TEST_F(IdentityCheck, ThreeModesAreValid) {
    EXPECT_TRUE(check.CheckProfilingModeIsValid(""));
    EXPECT_TRUE(check.CheckProfilingModeIsValid("def_mode"));
    EXPECT_TRUE(check.CheckProfilingModeIsValid("system-wide"));
    EXPECT_FALSE(check.CheckProfilingModeIsValid("DEF_MODE"));
    EXPECT_FALSE(check.CheckProfilingModeIsValid("system_wide"));
    EXPECT_TRUE(log.Lines().empty());
}

}  // namespace analysis::rokt::common::validation
