// What the tests of the three system jobs share: a device side, a job that asks for all of them,
// and a look into a job.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>

#include "config/platform.h"
#include "job_wrapper/prof_sys_info_job.h"
#include "job_wrapper/sample_job.h"
#include "support/fake_driver.h"
#include "transport/uploader_mgr.h"

namespace Analysis::Rokt::JobWrapper {

template <class Job>
class OpenJob : public Job {
 public:
    std::shared_ptr<CollectionJobCfg> Cfg() {
        const tiv::MutexLock lock(this->jobMutex);
        return this->collectionJobCfg;
    }
    bool HoldsUploader() {
        const tiv::MutexLock lock(this->jobMutex);
        return this->upLoader_ != nullptr;
    }
    uint64_t Interval() {
        const tiv::MutexLock lock(this->jobMutex);
        return this->sampleIntervalNs;
    }
};

using StatJob = OpenJob<ProfSysStatJob>;
using MemJob = OpenJob<ProfSysMemJob>;
using PidsJob = OpenJob<ProfAllPidsJob>;

// A device side with an uploader for the job and all three switches on.
class SysInfoJob : public ::testing::Test {
 protected:
    SysInfoJob() {
        tiv::test::FakeDriver::Instance().drvGetPlatformInfo = [](uint32_t* info) {
            *info = 0;
            return 0;
        };
        EXPECT_EQ(Common::Platform::Platform::Instance().InitRunSide(), 0);
        common->devId = 1;
        common->devIdOnHost = 6;
        common->params = params;
        common->jobCtx = tiv::test::MakeJobContext();
        cfg->comParams = common;
        params->job_id = "job7";
        params->sys_profiling = "on";
        params->pid_profiling = "on";
        analysis::rokt::transport::UploaderMgr::Instance().AddUploader("job7", collector.Get());
        log.Clear();
        tiv::test::FakeMm::Instance().calls.ClearCalls();
    }
    ~SysInfoJob() override {
        analysis::rokt::transport::UploaderMgr::Instance().DelUploader("job7");
    }

    static void MoveToSide(uint32_t side) {
        tiv::test::FakeDriver::Instance().drvGetPlatformInfo = [side](uint32_t* info) {
            *info = side;
            return 0;
        };
        EXPECT_EQ(Common::Platform::Platform::Instance().InitRunSide(), 0);
        tiv::test::RecordedLog::Instance().Clear();
    }
    uint64_t PeriodOf(int tag) {
        std::shared_ptr<analysis::rokt::transport::Uploader> uploader;
        return ProfTimerJobCommonInit(cfg, uploader, tag);
    }
    template <class Job>
    int InitOf() {
        Job job;
        return job.Init(cfg);
    }
    template <class Job>
    void RunFor(size_t ticks) {
        Job job;
        ASSERT_EQ(job.Init(cfg), 0);
        ASSERT_EQ(job.Process(), 0);
        // The timer may tick before it has the job's handler.
        const size_t before = tiv::test::FakeMm::Instance().calls.Count("mmSleep");
        ASSERT_TRUE(tiv::test::FakeMm::Instance().calls.WaitForCalls("mmSleep", before + ticks));
        ASSERT_EQ(job.Uninit(), 0);
    }

    tiv::test::RecordedLog& log = tiv::test::RecordedLog::Instance();
    tiv::test::ChunkCollector collector;
    std::shared_ptr<analysis::rokt::message::ProfileParams> params =
        std::make_shared<analysis::rokt::message::ProfileParams>();
    std::shared_ptr<CollectionJobCommonParams> common =
        std::make_shared<CollectionJobCommonParams>();
    std::shared_ptr<CollectionJobCfg> cfg = std::make_shared<CollectionJobCfg>();
};

}  // namespace Analysis::Rokt::JobWrapper
