// The jobs that sample CPU, memory and processes of the whole system.
#pragma once

#include <cstdint>
#include <memory>

#include "job_wrapper/collection_job.h"
#include "job_wrapper/timer_handler.h"
#include "message/prof_params.h"
#include "platform/mutex.h"
#include "transport/uploader.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

// The timer tags of the three jobs, which are their handlers' tags too.
enum SysInfoTimerTag : int32_t {
    PROF_SYS_STAT_TIMER = 0,
    PROF_SYS_MEM_TIMER = 1,
    PROF_ALL_PIDS_TIMER = 2,
};

// Finds the uploader of the job and works out the period for a timer tag: the tag's own interval,
// 100 ms at least. Returns the period in nanoseconds, 0 when the job has no uploader, or all bits
// set when the configuration is incomplete, which callers have checked before.
[[nodiscard]] uint64_t ProfTimerJobCommonInit(
    const std::shared_ptr<CollectionJobCfg>& cfg,
    std::shared_ptr<analysis::rokt::transport::Uploader>& uploader, int timerTag);

// What the three jobs have in common: they run on the device side only, once for the whole system,
// and put one handler each on the timer.
//
// A job that declines says so at info level at most, since not being asked for is the normal case.
// Uninit stops the timer whether or not Process came to start it: the pairing is the caller's.
class ProfSysInfoBase : public ICollectionJob {
 protected:
    using Uploader = analysis::rokt::transport::Uploader;
    using ProfileParams = analysis::rokt::message::ProfileParams;

    // What tells one job's Init from another's.
    struct InitRule {
        int timerTag;
        const char* notOnDevice;  // message when the process is not the device side
        bool (*isSwitchOn)(const ProfileParams& params);
        const char* switchOff;  // message when the switch does not hold
    };

    [[nodiscard]] int InitByRule(const std::shared_ptr<CollectionJobCfg>& cfg, const InitRule& rule)
        REQUIRES(jobMutex);
    [[nodiscard]] bool CheckCommonParams() const REQUIRES(jobMutex);
    // Inits the handler and gives it to the timer, its only owner from then on. `name` is the
    // handler's name in messages. 0 or -1.
    [[nodiscard]] int StartHandler(const std::shared_ptr<TimerHandler>& handler, const char* name)
        REQUIRES(jobMutex);
    int StopHandler(int timerTag) REQUIRES(jobMutex);

    std::shared_ptr<CollectionJobCfg> collectionJobCfg GUARDED_BY(jobMutex);
    std::shared_ptr<Uploader> upLoader_ GUARDED_BY(jobMutex);
    uint64_t sampleIntervalNs GUARDED_BY(jobMutex) = 0;
};

// System CPU usage. Its switch is sys_profiling, its period cpu_sampling_interval.
class ProfSysStatJob : public ProfSysInfoBase {
 public:
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int Process() override EXCLUDES(jobMutex);
    int Uninit() override EXCLUDES(jobMutex);
    bool IsGlobalJobLevel() override { return true; }
};

// System memory. Runs with sys_profiling, unless the host tool itself reports memory ("zelnar").
class ProfSysMemJob : public ProfSysInfoBase {
 public:
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int Process() override EXCLUDES(jobMutex);
    int Uninit() override EXCLUDES(jobMutex);
    bool IsGlobalJobLevel() override { return true; }
};

// CPU and memory of every process.
class ProfAllPidsJob : public ProfSysInfoBase {
 public:
    [[nodiscard]] int Init(const std::shared_ptr<CollectionJobCfg>& cfg) override
        EXCLUDES(jobMutex);
    [[nodiscard]] int Process() override EXCLUDES(jobMutex);
    int Uninit() override EXCLUDES(jobMutex);
    bool IsGlobalJobLevel() override { return true; }
};

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
