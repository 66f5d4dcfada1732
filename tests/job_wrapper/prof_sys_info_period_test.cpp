// Tests of periods that do not fit into 32 bits of nanoseconds, from the job to its samples.
#include "config/platform.h"
#include "job_wrapper/prof_sys_info_job.h"
#include "job_wrapper/sample_job.h"
#include "support/fake_driver.h"
#include "transport/uploader_mgr.h"

namespace Analysis::Rokt::JobWrapper {
namespace {

using analysis::rokt::transport::UploaderMgr;
using tiv::test::FakeDriver;

// Every job asks for five seconds. The ticks of the timer leave the clock to the test.
class SysInfoLongPeriod : public tiv::test::SampleTest {
 protected:
    SysInfoLongPeriod() {
        tiv::test::MmFunctions platform;
        platform.ForwardToPlatform();
        mm.mmSleep = platform.mmSleep;
        FakeDriver::Instance().SetPlatformInfo(0);
        EXPECT_EQ(Common::Platform::Platform::Instance().InitRunSide(), 0);
        params->job_id = "job7";
        params->sys_profiling = "on";
        params->pid_profiling = "on";
        params->cpu_sampling_interval = 5000;
        params->sys_sampling_interval = 5000;
        params->pid_sampling_interval = 5000;
        cfg->comParams = std::make_shared<CollectionJobCommonParams>();
        cfg->comParams->params = params;
        cfg->comParams->jobCtx = jobCtx;
        UploaderMgr::Instance().AddUploader("job7", collector.Get());
    }
    ~SysInfoLongPeriod() override { UploaderMgr::Instance().DelUploader("job7"); }

    // How often `call` came, once a tick that begins after this is over.
    size_t CountBehindATick(const std::string& call) {
        EXPECT_TRUE(mm.calls.WaitForCalls("mmSleep", mm.calls.Count("mmSleep") + 2));
        return mm.calls.Count(call);
    }
    // `call` is one that the handler makes once at each sample.
    template <class Job>
    void ExpectASampleEach705032704Nanoseconds(const std::string& call) {
        Job job;
        ASSERT_EQ(job.Init(cfg), 0);
        ASSERT_EQ(job.Process(), 0);
        const size_t first = CountBehindATick(call);

        mm.AdvanceClock(705032703);
        EXPECT_EQ(CountBehindATick(call), first);
        mm.AdvanceClock(1);
        EXPECT_EQ(CountBehindATick(call), first + 1);

        ASSERT_EQ(job.Uninit(), 0);
    }

    std::shared_ptr<CollectionJobCfg> cfg = std::make_shared<CollectionJobCfg>();
};

TEST_F(SysInfoLongPeriod, SystemCpuIsSampledAtTheLow32Bits) {
    ExpectASampleEach705032704Nanoseconds<ProfSysStatJob>("mmGetFileSize");
}

TEST_F(SysInfoLongPeriod, SystemMemoryIsSampledAtTheLow32Bits) {
    ExpectASampleEach705032704Nanoseconds<ProfSysMemJob>("mmGetFileSize");
}

TEST_F(SysInfoLongPeriod, ProcessesAreSampledAtTheLow32Bits) {
    ExpectASampleEach705032704Nanoseconds<ProfAllPidsJob>("mmScandir");
}

}  // namespace
}  // namespace Analysis::Rokt::JobWrapper
