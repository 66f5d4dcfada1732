// Tests of the relation between the host's device numbers and the card's.
#include "device/task_relationship_mgr.h"

#include <gtest/gtest.h>

#include "support/recorded_log.h"

namespace {

using tiv::test::RecordedLog;

using Analysis::Rokt::TaskHandle::TaskRelationshipMgr;

TEST(TaskRelationship, NumberNeverRelatedStandsForItself) {
    auto& relations = TaskRelationshipMgr::Instance();

    EXPECT_EQ(relations.GetDevIdByHostId(7), 7);
    EXPECT_EQ(relations.GetHostIdByDevId(9), 9);
}

TEST(TaskRelationship, LaterDeviceOfAHostNumberCounts) {
    auto& relations = TaskRelationshipMgr::Instance();

    relations.AddRelation(1, 2);
    relations.AddRelation(1, 3);

    EXPECT_EQ(relations.GetDevIdByHostId(1), 3);
    EXPECT_TRUE(
        RecordedLog::Instance().Has('I', "hostId: 1, devId: 3 Entering HostId DeviceId Map..."));
}

TEST(TaskRelationship, SmallestHostNumberOfADeviceIsGiven) {
    auto& relations = TaskRelationshipMgr::Instance();

    relations.AddRelation(5, 9);
    relations.AddRelation(2, 9);

    EXPECT_EQ(relations.GetHostIdByDevId(9), 2);
}

TEST(TaskRelationship, HostNumberOfAnotherDeviceIsPassedOver) {
    auto& relations = TaskRelationshipMgr::Instance();

    relations.AddRelation(2, 8);
    relations.AddRelation(5, 9);

    EXPECT_EQ(relations.GetHostIdByDevId(9), 5);
}

TEST(TaskRelationship, ResetForgetsEveryRelation) {
    auto& relations = TaskRelationshipMgr::Instance();
    relations.AddRelation(5, 9);

    relations.ResetRelation();

    EXPECT_EQ(relations.GetDevIdByHostId(5), 5);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Reset host id - device id relationship"));
}

TEST(TaskRelationship, JobThatFlushesLocallyKeepsTheDeviceNumber) {
    auto& relations = TaskRelationshipMgr::Instance();
    relations.AddRelation(4, 1);

    relations.AddFlushLocalJob("job");

    EXPECT_EQ(relations.GetFlushDevId("job", 1), 1);
    EXPECT_EQ(relations.GetFlushDevId("other", 1), 4);
    EXPECT_TRUE(RecordedLog::Instance().Has('I', "Job job should flush locally"));
}

TEST(TaskRelationship, RemovedJobDeliversUnderTheHostNumberAgain) {
    auto& relations = TaskRelationshipMgr::Instance();
    relations.AddRelation(4, 1);
    relations.AddFlushLocalJob("job");

    relations.RemoveFlushLocalJob("job");

    EXPECT_EQ(relations.GetFlushDevId("job", 1), 4);
}

}  // namespace
