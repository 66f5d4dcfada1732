// Tests of the job interface's defaults, the tag table and the registry of running jobs.
#include "job_wrapper/collection_register.h"

#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "support/failing_new.h"
#include "support/recorded_log.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using tiv::test::RecordedLog;

// Counts what the registry does with it.
class FakeJob : public ICollectionJob {
 public:
    explicit FakeJob(bool global = false, int processResult = 0, int uninitResult = 0)
        : global_(global), processResult_(processResult), uninitResult_(uninitResult) {}

    int Init(const std::shared_ptr<CollectionJobCfg>&) override { return 0; }
    int Process() override {
        ++processes;
        if (onCall) {
            onCall();
        }
        return processResult_;
    }
    int Uninit() override {
        ++uninits;
        if (onCall) {
            onCall();
        }
        return uninitResult_;
    }
    bool IsGlobalJobLevel() override { return global_; }

    int processes = 0;
    int uninits = 0;
    std::function<void()> onCall;  // in Process and Uninit

 private:
    bool global_;
    int processResult_;
    int uninitResult_;
};

class PlainJob : public ICollectionJob {
 public:
    int Init(const std::shared_ptr<CollectionJobCfg>&) override { return 0; }
    int Process() override { return 0; }
    int Uninit() override { return 0; }
};

// Opens the inner steps, which expect the mutex to be held.
class OpenRegister : public CollectionRegisterMgr {
 public:
    OpenRegister() = default;

    bool IsFree(int& devId, int tag) {
        const tiv::MutexLock lock(mutex);
        return IsJobSlotFree(devId, tag);
    }
    bool Insert(int devId, int tag, const std::shared_ptr<ICollectionJob>& job) {
        const tiv::MutexLock lock(mutex);
        return InsertCollectionJob(devId, tag, job);
    }
    bool Take(int devId, int tag, std::shared_ptr<ICollectionJob>& job) {
        const tiv::MutexLock lock(mutex);
        return TakeCollectionJob(devId, tag, job);
    }
    void PutNull(int devId, int tag) {
        const tiv::MutexLock lock(mutex);
        registry[devId][tag] = nullptr;
    }
    size_t Rows() {
        const tiv::MutexLock lock(mutex);
        return registry.size();
    }
    // Whether some thread is inside the table.
    bool IsBusy() NO_THREAD_SAFETY_ANALYSIS {
        bool busy = true;
        std::thread([&]() NO_THREAD_SAFETY_ANALYSIS {
            if (mutex.try_lock()) {
                mutex.unlock();
                busy = false;
            }
        }).join();
        return busy;
    }
    size_t JobsOf(int devId) {
        const tiv::MutexLock lock(mutex);
        return registry[devId].size();
    }
};

class CollectionRegister : public ::testing::Test {
 protected:
    CollectionRegister() {
        log.SetLevel(DLOG_DEBUG);
        log.Clear();
    }

    RecordedLog& log = RecordedLog::Instance();
    OpenRegister table;
};

TEST(CollectionJob, FreshJobHasTagZeroNoNameAndIsNotGlobal) {
    PlainJob job;

    EXPECT_EQ(job.GetJobTag(), 0);
    EXPECT_EQ(job.GetJobName(), "");
    EXPECT_FALSE(job.IsGlobalJobLevel());
}

TEST(CollectionJob, FreshConfigurationIsEmpty) {
    const CollectionJobCfg cfg;

    EXPECT_EQ(cfg.jobTag, 0);
    EXPECT_EQ(cfg.dataFile, "");
    EXPECT_EQ(cfg.comParams, nullptr);
    ASSERT_EQ(cfg.eventSets.size(), 2U);
    EXPECT_EQ(cfg.eventSets[0].cores, nullptr);
    EXPECT_EQ(cfg.eventSets[0].events, nullptr);
    EXPECT_EQ(cfg.eventSets[1].events, nullptr);
}

TEST(CollectionJob, FreshCommonParametersHaveDeviceZero) {
    const CollectionJobCommonParams params;

    EXPECT_EQ(params.devId, 0);
    EXPECT_EQ(params.devIdOnHost, 0);
    EXPECT_EQ(params.devIdFlush, 0);
    EXPECT_EQ(params.tmpResultDir, "");
    EXPECT_EQ(params.params, nullptr);
    EXPECT_EQ(params.jobCtx, nullptr);
}

TEST(CollectionJob, TagsInUseHaveTheirNumbers) {
    EXPECT_EQ(PROF_JOB_LLC, 2);
    EXPECT_EQ(PROF_JOB_MINI_LLC, 3);
    EXPECT_EQ(PROF_JOB_CTRL_CPU, 29);
    EXPECT_EQ(PROF_JOB_SYS_STAT, 30);
    EXPECT_EQ(PROF_JOB_SYS_MEM, 31);
    EXPECT_EQ(PROF_JOB_ALL_PIDS, 32);
    EXPECT_EQ(JOB_TAG_COUNT, 39);
}

TEST(CollectionJob, TableNamesTheDataFileOfEachTag) {
    const std::vector<std::string> expected = {"data/ddr.data",
                                               "data/hbm.data",
                                               "data/llc.data",
                                               "data/llc.data",
                                               "data/vimg.data",
                                               "data/nic.data",
                                               "data/pcie.data",
                                               "data/vmlk.data",
                                               "data/roce.data",
                                               "data/npu_mem.app",
                                               "data/npu_mem.data",
                                               "data/npu_module_mem.data",
                                               "data/lpmFreqConv.data",
                                               "data/tscpu.data",
                                               "data/ts_track.data",
                                               "data/ts_track.aiv_data",
                                               "data/aicore.data",
                                               "data/aicore.data",
                                               "data/aiVectorCore.data",
                                               "data/aiVectorCore.data",
                                               "data/hwts.data",
                                               "data/hwts.aiv_data",
                                               "data/training_trace.data",
                                               "data/l2_cache.data",
                                               "data/stars_soc.data",
                                               "data/stars_block.data",
                                               "data/stars_soc_profile.data",
                                               "data/ffts_profile.data",
                                               "data/instr",
                                               "data/ai_ctrl_cpu.data",
                                               "",
                                               "",
                                               "",
                                               "",
                                               "",
                                               "",
                                               "",
                                               "",
                                               ""};

    EXPECT_EQ(std::vector<std::string>(JOB_DATA_FILES.begin(), JOB_DATA_FILES.end()), expected);
}

TEST_F(CollectionRegister, RegisterStartsTheJobAndGivesItsResult) {
    const auto job = std::make_shared<FakeJob>(false, 7);

    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, job), 7);

    EXPECT_EQ(job->processes, 1);
    EXPECT_TRUE(log.Has('D', "Collection Job Registeter, devId:1 jobTag:2"));
}

TEST_F(CollectionRegister, UnregisterStopsTheJobAndGivesItsResult) {
    const auto job = std::make_shared<FakeJob>(false, 0, 5);
    ASSERT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, job), 0);

    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_LLC), 5);

    EXPECT_EQ(job->uninits, 1);
    EXPECT_TRUE(log.Has('D', "Collection Job Unregisteter, devId:1 jobTag:2"));
    EXPECT_EQ(job.use_count(), 1);
}

TEST_F(CollectionRegister, JobWhoseProcessFailedStaysAndIsStopped) {
    const auto job = std::make_shared<FakeJob>(false, -1);
    ASSERT_EQ(table.RegisterCollectionJob(0, PROF_JOB_LLC, job), -1);

    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_LLC), 0);

    EXPECT_EQ(job->uninits, 1);
}

TEST_F(CollectionRegister, StartAndStopOfAJobKeepTheTableBusy) {
    const auto job = std::make_shared<FakeJob>();
    std::vector<bool> busy;
    job->onCall = [&] { busy.push_back(table.IsBusy()); };

    EXPECT_EQ(table.RegisterCollectionJob(0, PROF_JOB_LLC, job), 0);
    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_LLC), 0);

    EXPECT_EQ(busy, (std::vector<bool>{true, true}));
    EXPECT_FALSE(table.IsBusy());
}

TEST_F(CollectionRegister, JobThatThrowsAtItsStartStaysLikeOneThatFails) {
    const auto job = std::make_shared<FakeJob>();
    job->onCall = [] { throw std::bad_alloc(); };

    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, job), -1);

    EXPECT_TRUE(
        log.Has('E', "Start of a collection job failed, devId=1, jobTag=2: std::bad_alloc"));
    job->onCall = {};
    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_LLC), 0);
    EXPECT_EQ(job->uninits, 1);
}

TEST_F(CollectionRegister, JobThatThrowsAtItsStopIsGoneAllTheSame) {
    const auto job = std::make_shared<FakeJob>();
    ASSERT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, job), 0);
    job->onCall = [] { throw std::bad_alloc(); };

    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_LLC), -1);

    EXPECT_TRUE(log.Has('E', "Stop of a collection job failed, devId=1, jobTag=2: std::bad_alloc"));
    EXPECT_EQ(job.use_count(), 1);
}

TEST_F(CollectionRegister, RowThatDoesNotFitInMemoryRefusesTheJob) {
    const auto job = std::make_shared<FakeJob>();
    log.SetLevel(DLOG_ERROR);
    {
        const tiv::test::FailingNew failing(0);
        EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, job), -1);
    }

    EXPECT_EQ(job->processes, 0);
    EXPECT_EQ(job.use_count(), 1);
}

TEST_F(CollectionRegister, GlobalJobIsRefusedOnASecondDevice) {
    const auto first = std::make_shared<FakeJob>(true);
    const auto second = std::make_shared<FakeJob>(true);
    ASSERT_EQ(table.RegisterCollectionJob(0, PROF_JOB_SYS_STAT, first), 0);

    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_SYS_STAT, second), -1);

    EXPECT_EQ(second->processes, 0);
    EXPECT_EQ(log.Count('W', "IsGlobalJobLevel, devId:0 jobTag:30"), 1U);
}

TEST_F(CollectionRegister, StopOfTheRefusedGlobalJobLeavesTheFirst) {
    const auto first = std::make_shared<FakeJob>(true);
    ASSERT_EQ(table.RegisterCollectionJob(0, PROF_JOB_SYS_STAT, first), 0);

    EXPECT_EQ(table.UnregisterCollectionJob(1, PROF_JOB_SYS_STAT), -1);

    EXPECT_EQ(first->uninits, 0);
    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_SYS_STAT), 0);
    EXPECT_EQ(first->uninits, 1);
}

TEST_F(CollectionRegister, StopOfAGlobalJobWarnsOfItsOwnDevice) {
    ASSERT_EQ(table.RegisterCollectionJob(3, PROF_JOB_SYS_STAT, std::make_shared<FakeJob>(true)),
              0);

    EXPECT_EQ(table.UnregisterCollectionJob(3, PROF_JOB_SYS_STAT), 0);

    EXPECT_EQ(log.OwnTexts('W'), std::vector<std::string>{"IsGlobalJobLevel, devId:3 jobTag:30"});
}

TEST_F(CollectionRegister, OtherTagsRunBesideAGlobalJob) {
    ASSERT_EQ(table.RegisterCollectionJob(0, PROF_JOB_SYS_STAT, std::make_shared<FakeJob>(true)),
              0);

    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_SYS_MEM, std::make_shared<FakeJob>(true)), 0);
}

TEST_F(CollectionRegister, StopOfAnotherTaskOnTheSameDeviceStopsTheJob) {
    const auto job = std::make_shared<FakeJob>(true);
    ASSERT_EQ(table.RegisterCollectionJob(0, PROF_JOB_SYS_STAT, job), 0);

    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_SYS_STAT), 0);

    EXPECT_EQ(job->uninits, 1);
}

TEST_F(CollectionRegister, DeviceJobIsRefusedTwiceOnOneDevice) {
    const auto first = std::make_shared<FakeJob>();
    ASSERT_EQ(table.RegisterCollectionJob(0, PROF_JOB_LLC, first), 0);

    EXPECT_EQ(table.RegisterCollectionJob(0, PROF_JOB_LLC, std::make_shared<FakeJob>()), -1);

    EXPECT_EQ(log.CountOf('W'), 0U);
    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_LLC), 0);
    EXPECT_EQ(first->uninits, 1);
}

TEST_F(CollectionRegister, DeviceJobRunsOnTwoDevices) {
    EXPECT_EQ(table.RegisterCollectionJob(0, PROF_JOB_LLC, std::make_shared<FakeJob>()), 0);
    EXPECT_EQ(table.RegisterCollectionJob(1, PROF_JOB_LLC, std::make_shared<FakeJob>()), 0);
}

TEST_F(CollectionRegister, Tag38IsAcceptedAndTag39Refused) {
    const auto job = std::make_shared<FakeJob>();
    int devId = 0;

    EXPECT_EQ(table.RegisterCollectionJob(0, 38, job), 0);
    EXPECT_EQ(table.RegisterCollectionJob(0, 39, job), -1);
    EXPECT_EQ(table.UnregisterCollectionJob(0, 39), -1);
    EXPECT_FALSE(table.IsFree(devId, 39));
    EXPECT_FALSE(table.Insert(0, 39, job));

    EXPECT_EQ(job->processes, 1);
    EXPECT_EQ(job->uninits, 0);
}

TEST_F(CollectionRegister, TakeRefusesTag39) {
    std::shared_ptr<ICollectionJob> job;

    EXPECT_FALSE(table.Take(0, 39, job));
    EXPECT_EQ(job, nullptr);
}

TEST_F(CollectionRegister, NegativeTagIsNotRefused) {
    const auto job = std::make_shared<FakeJob>();
    std::shared_ptr<ICollectionJob> taken;

    EXPECT_EQ(table.RegisterCollectionJob(0, -1, job), 0);
    EXPECT_TRUE(table.Take(0, -1, taken));
    EXPECT_EQ(taken, job);
}

TEST_F(CollectionRegister, NegativeDeviceIsRefusedByAllOperations) {
    const auto job = std::make_shared<FakeJob>();
    std::shared_ptr<ICollectionJob> taken;
    int devId = -1;

    EXPECT_EQ(table.RegisterCollectionJob(-1, PROF_JOB_LLC, job), -1);
    EXPECT_EQ(table.UnregisterCollectionJob(-1, PROF_JOB_LLC), -1);
    EXPECT_FALSE(table.IsFree(devId, PROF_JOB_LLC));
    EXPECT_FALSE(table.Insert(-1, PROF_JOB_LLC, job));
    EXPECT_FALSE(table.Take(-1, PROF_JOB_LLC, taken));

    EXPECT_EQ(job->processes, 0);
    EXPECT_EQ(table.Rows(), 0U);
}

TEST_F(CollectionRegister, NullJobIsRefused) {
    EXPECT_EQ(table.RegisterCollectionJob(0, PROF_JOB_LLC, nullptr), -1);
    EXPECT_FALSE(table.Insert(0, PROF_JOB_LLC, nullptr));

    EXPECT_EQ(table.Rows(), 0U);
}

TEST_F(CollectionRegister, UnregisterOfAnUnknownJobFails) {
    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_LLC), -1);

    EXPECT_EQ(log.CountOf('D'), 0U);
}

TEST_F(CollectionRegister, EmptiedDeviceRowRemains) {
    ASSERT_EQ(table.RegisterCollectionJob(4, PROF_JOB_LLC, std::make_shared<FakeJob>()), 0);

    ASSERT_EQ(table.UnregisterCollectionJob(4, PROF_JOB_LLC), 0);

    EXPECT_EQ(table.Rows(), 1U);
    EXPECT_EQ(table.JobsOf(4), 0U);
}

TEST_F(CollectionRegister, SlotTestNamesTheDeviceOfTheGlobalJob) {
    ASSERT_TRUE(table.Insert(2, PROF_JOB_ALL_PIDS, std::make_shared<FakeJob>(true)));
    int devId = 6;

    EXPECT_FALSE(table.IsFree(devId, PROF_JOB_ALL_PIDS));

    EXPECT_EQ(devId, 2);
    EXPECT_TRUE(log.Has('W', "IsGlobalJobLevel, devId:2 jobTag:32"));
}

TEST_F(CollectionRegister, SlotTestLeavesTheDeviceOfATakenOrFreeSlot) {
    ASSERT_TRUE(table.Insert(2, PROF_JOB_LLC, std::make_shared<FakeJob>()));
    int taken = 2;
    int noRow = 3;

    EXPECT_FALSE(table.IsFree(taken, PROF_JOB_LLC));
    EXPECT_TRUE(table.IsFree(noRow, PROF_JOB_LLC));
    EXPECT_TRUE(table.IsFree(taken, PROF_JOB_MINI_LLC));

    EXPECT_EQ(taken, 2);
    EXPECT_EQ(noRow, 3);
}

TEST_F(CollectionRegister, NullEntryCountsAsFree) {
    table.PutNull(0, PROF_JOB_LLC);
    int devId = 0;

    EXPECT_TRUE(table.IsFree(devId, PROF_JOB_LLC));
    EXPECT_EQ(table.UnregisterCollectionJob(0, PROF_JOB_LLC), -1);
}

TEST_F(CollectionRegister, TableIsOneForTheProcess) {
    EXPECT_EQ(&CollectionRegisterMgr::Instance(), &CollectionRegisterMgr::Instance());
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
