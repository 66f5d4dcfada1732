// Tests of the checks on hardware events and cores.
#include "config/param_validation.h"
#include "support/recorded_log_test.h"

namespace analysis::rokt::common::validation {

class EventCheck : public tiv::test::RecordedLogTest {
 protected:
    const ParamValidation& check = ParamValidation::Instance();
};

using Texts = std::vector<std::string>;

TEST_F(EventCheck, AtMost50CoresAreValid) {
    EXPECT_TRUE(check.CheckCoresSizeIsValid(50));
    EXPECT_FALSE(check.CheckCoresSizeIsValid(51));
    EXPECT_TRUE(check.CheckCoresSizeIsValid(-1));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(EventCheck, EmptyEventTextIsValid) {
    EXPECT_EQ(check.CheckEventsSize(""), 0);

    EXPECT_EQ(log.Texts('I'), Texts{"events is empty"});
}

TEST_F(EventCheck, EventTextHasAtMost8Parts) {
    EXPECT_EQ(check.CheckEventsSize("1,2,3,4,5,6,7,8"), 0);
    EXPECT_TRUE(log.Lines().empty());

    EXPECT_EQ(check.CheckEventsSize("1,2,3,4,5,6,7,8,9"), -1);
    EXPECT_EQ(log.Texts('E'), Texts{"events Size is incorrect. 1,2,3,4,5,6,7,8,9"});
}

TEST_F(EventCheck, TwentySixL2EventsAreAllowed) {
    EXPECT_TRUE(check.CheckL2CacheEventsIsValid(
        {"0x59", "0x5b", "0x5c", "0x62", "0x6a", "0x6c", "0x71", "0x74"}));
    EXPECT_TRUE(check.CheckL2CacheEventsIsValid(
        {"0x77", "0x78", "0x79", "0x7c", "0x7d", "0x7e", "0xfb", "0xfc"}));
    EXPECT_TRUE(check.CheckL2CacheEventsIsValid(
        {"0x9a", "0xf6", "0xfd", "0xfe", "0x9c", "0x9d", "0x90", "0x91"}));
    EXPECT_TRUE(check.CheckL2CacheEventsIsValid({"0x96", "0xbf"}));
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(EventCheck, L2EventIsLoweredAndTrimmed) {
    EXPECT_TRUE(check.CheckL2CacheEventsIsValid({"0xF6 ", "  0XFB"}));

    EXPECT_TRUE(log.Has('D', "l2Cacheevents:0xF6 "));
    EXPECT_TRUE(log.Has('D', "l2Cacheevent:0xf6"));
    EXPECT_TRUE(log.Has('D', "l2Cacheevent:0xfb"));
}

TEST_F(EventCheck, FirstBadL2EventEndsTheCheck) {
    EXPECT_FALSE(check.CheckL2CacheEventsIsValid({"0xf6", "0x5a", "0x5d"}));

    EXPECT_EQ(log.Texts('E'), Texts{"l2Cacheevent:0x5a is invalid"});
    EXPECT_FALSE(log.Contains('D', "0x5d"));
}

TEST_F(EventCheck, EmptyL2EventIsBad) {
    EXPECT_FALSE(check.CheckL2CacheEventsIsValid({""}));
    EXPECT_TRUE(check.CheckL2CacheEventsIsValid({}));
}

TEST_F(EventCheck, NineL2EventsAreRefusedForTheirNumber) {
    EXPECT_FALSE(check.CheckL2CacheEventsIsValid(std::vector<std::string>(9, "bad")));

    EXPECT_EQ(log.Texts('E'), Texts{"L2Cache events size(9) is bigger than 8"});
}

TEST_F(EventCheck, AiCoreEventMayBe1To50E) {
    EXPECT_TRUE(check.CheckAiCoreEventsIsValid({"0x1", "0x50E", "50e"}));
    EXPECT_TRUE(log.Lines().empty());
}

TEST_F(EventCheck, AiCoreEventOutsideIsRefused) {
    EXPECT_FALSE(check.CheckAiCoreEventsIsValid({"0x50F"}));
    EXPECT_FALSE(check.CheckAiCoreEventsIsValid({"0"}));
    EXPECT_FALSE(check.CheckAiCoreEventsIsValid({"0x1", "zz"}));
    EXPECT_FALSE(check.CheckAiCoreEventsIsValid({"-1"}));

    EXPECT_EQ(log.Texts('E'),
              Texts(4, "ai core event out of range, which should be in 1-1294(0x1-0x50E)"));
}

TEST_F(EventCheck, AtMost10AiCoreEventsAreValid) {
    EXPECT_TRUE(check.CheckAiCoreEventsIsValid(std::vector<std::string>(10, "0x1")));
    EXPECT_FALSE(check.CheckAiCoreEventsIsValid(std::vector<std::string>(11, "0x1")));

    EXPECT_EQ(log.Texts('E'), Texts{"ai core events size(11) is bigger than 10"});
}

TEST_F(EventCheck, VectorCoreEventsFollowTheSameRule) {
    EXPECT_TRUE(check.CheckAiVectorCoreEventsIsValid({"0x50E"}));
    EXPECT_FALSE(check.CheckAiVectorCoreEventsIsValid({"0x50F"}));
}

TEST_F(EventCheck, AtMost50CoreNumbersAreValid) {
    EXPECT_TRUE(check.CheckAiCoreEventCoresIsValid(std::vector<int32_t>(50, 0)));
    EXPECT_FALSE(check.CheckAiCoreEventCoresIsValid(std::vector<int32_t>(51, 0)));

    EXPECT_EQ(log.Texts('E'), Texts{"ai core events cores size(51) is bigger than 50"});
}

TEST_F(EventCheck, NegativeCoreIsRefusedSilently) {
    EXPECT_FALSE(check.CheckAiCoreEventCoresIsValid({1, -1}));

    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(EventCheck, VectorCoresFollowTheSameRule) {
    EXPECT_TRUE(check.CheckAiVectorCoreEventCoresIsValid({0, 1}));
    EXPECT_FALSE(check.CheckAiVectorCoreEventCoresIsValid({-1}));
}

TEST_F(EventCheck, MasterIdMakesADdrListValid) {
    EXPECT_TRUE(check.CheckDdrEventsIsValid({"bad", "master_id"}));
    EXPECT_FALSE(check.CheckDdrEventsIsValid({"bad"}));
    EXPECT_TRUE(check.CheckDdrEventsIsValid({"read", "write"}));
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(EventCheck, NineDdrEventsAreRefusedForTheirNumber) {
    EXPECT_FALSE(check.CheckDdrEventsIsValid(std::vector<std::string>(9, "master_id")));

    EXPECT_EQ(log.Texts('E'), Texts{"ddr events size(9) is bigger than 8"});
}

TEST_F(EventCheck, HbmEventIsReadOrWrite) {
    EXPECT_TRUE(check.CheckHbmEventsIsValid({"read", "write"}));
    EXPECT_FALSE(check.CheckHbmEventsIsValid({"read", "Write"}));
    EXPECT_FALSE(check.CheckHbmEventsIsValid({"master_id"}));
    EXPECT_TRUE(log.Texts('E').empty());
}

TEST_F(EventCheck, NineHbmEventsAreRefusedForTheirNumber) {
    EXPECT_FALSE(check.CheckHbmEventsIsValid(std::vector<std::string>(9, "read")));

    EXPECT_EQ(log.Texts('E'), Texts{"hbm events size(9) is bigger than 8"});
}

}  // namespace analysis::rokt::common::validation
