// When the system jobs run, and the handlers they put on the timer.
#include "job_wrapper/prof_sys_info_job.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <string>
#include <utility>

#include "config/platform.h"
#include "job_wrapper/proc_all_pids_handler.h"
#include "job_wrapper/proc_file_handlers.h"
#include "job_wrapper/timer_manager.h"
#include "platform/log.h"
#include "transport/uploader_mgr.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::message::ProfileParams;
using analysis::rokt::transport::Uploader;
using analysis::rokt::transport::UploaderMgr;

namespace {

constexpr int32_t MIN_SAMPLE_INTERVAL_MS = 100;
constexpr uint64_t NS_PER_MS = 1000000;
constexpr uint32_t STAT_BUF_BYTES = 8192;
constexpr uint32_t MEM_BUF_BYTES = 32768;
constexpr const char* SWITCH_ON = "on";

bool CheckContextParams(const std::shared_ptr<CollectionJobCfg>& cfg) {
    return cfg != nullptr && cfg->comParams != nullptr && cfg->comParams->jobCtx != nullptr &&
           cfg->comParams->params != nullptr;
}

int32_t SampleIntervalMsOf(const ProfileParams& params, int timerTag) {
    int32_t intervalMs = params.cpu_sampling_interval;
    if (timerTag == PROF_SYS_MEM_TIMER) {
        intervalMs = params.sys_sampling_interval;
    } else if (timerTag == PROF_ALL_PIDS_TIMER) {
        intervalMs = params.pid_sampling_interval;
    }
    return std::max(intervalMs, MIN_SAMPLE_INTERVAL_MS);
}

template <class Handler, class... Args>
std::shared_ptr<Handler> MakeHandler(Args&&... args) {
    try {
        return std::make_shared<Handler>(std::forward<Args>(args)...);
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

bool IsSysProfilingOn(const ProfileParams& params) { return params.sys_profiling == SWITCH_ON; }

bool IsSysMemProfilingOn(const ProfileParams& params) {
    return params.sys_profiling == SWITCH_ON && params.zelnar != SWITCH_ON;
}

bool IsPidProfilingOn(const ProfileParams& params) { return params.pid_profiling == SWITCH_ON; }

}  // namespace

uint64_t ProfTimerJobCommonInit(const std::shared_ptr<CollectionJobCfg>& cfg,
                                std::shared_ptr<Uploader>& uploader, int timerTag) {
    if (!CheckContextParams(cfg)) {
        TIV_LOGI("Job check context param failed");
        return std::numeric_limits<uint64_t>::max();
    }
    const CollectionJobCommonParams& common = *cfg->comParams;
    const int32_t sampleIntervalMs = SampleIntervalMsOf(*common.params, timerTag);
    // An uploader kept from an earlier replay is no answer: its session may have ended.
    std::shared_ptr<Uploader> found;
    UploaderMgr::Instance().GetUploader(common.params->job_id, found);
    uploader = found;
    if (uploader == nullptr) {
        TIV_LOGE("Failed to get devId(%d) upLoader, devIdOnHost : %d", common.devId,
                 common.devIdOnHost);
        return 0;
    }
    TIV_LOGI("[ProfTimerJobCommonInit]devId:%d, devIdOnHost:%d, timerTag:%d, sampleIntervalMs:%d",
             common.devId, common.devIdOnHost, timerTag, sampleIntervalMs);
    return static_cast<uint64_t>(sampleIntervalMs) * NS_PER_MS;
}

int ProfSysInfoBase::InitByRule(const std::shared_ptr<CollectionJobCfg>& cfg,
                                const InitRule& rule) {
    if (!CheckContextParams(cfg)) {
        TIV_LOGI("Job check context param failed");
        return -1;
    }
    if (cfg->comParams->params->hostProfiling) {
        return -1;
    }
    if (!Common::Platform::Platform::Instance().IsDeviceSide()) {
        TIV_LOGI("%s", rule.notOnDevice);
        return -1;
    }
    collectionJobCfg = cfg;
    if (!rule.isSwitchOn(*cfg->comParams->params)) {
        TIV_LOGI("%s", rule.switchOff);
        return -1;
    }
    sampleIntervalNs = ProfTimerJobCommonInit(cfg, upLoader_, rule.timerTag);
    return sampleIntervalNs == 0 ? -1 : 0;
}

bool ProfSysInfoBase::CheckCommonParams() const {
    if (collectionJobCfg == nullptr || collectionJobCfg->comParams == nullptr) {
        TIV_LOGI("Job check comm param failed");
        return false;
    }
    return true;
}

int ProfSysInfoBase::StartHandler(const std::shared_ptr<TimerHandler>& handler, const char* name) {
    if (handler == nullptr) {
        return -1;
    }
    if (handler->Init() != 0) {
        TIV_LOGE("%s Init Failed", name);
        return -1;
    }
    TIV_LOGI("%s Init succ, sampleIntervalNs_:%lu", name,
             static_cast<unsigned long>(sampleIntervalNs));
    TimerManager& timerManager = TimerManager::Instance();
    timerManager.StartProfTimer();
    timerManager.RegisterTimerHandler(handler->GetTag(), handler);
    return 0;
}

int ProfSysInfoBase::StopHandler(int timerTag) {
    TimerManager& timerManager = TimerManager::Instance();
    timerManager.RemoveTimerHandler(static_cast<uint32_t>(timerTag));
    timerManager.StopProfTimer();
    upLoader_.reset();
    return 0;
}

int ProfSysStatJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    return InitByRule(cfg,
                      {PROF_SYS_STAT_TIMER, "Not in device Side, SysStat Profiling not enabled",
                       IsSysProfilingOn, "sys_profiling not enabled"});
}

int ProfSysStatJob::Process() {
    const tiv::MutexLock lock(jobMutex);
    if (!CheckCommonParams()) {
        return -1;
    }
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    const auto handler = MakeHandler<ProcStatFileHandler>(
        static_cast<uint32_t>(PROF_SYS_STAT_TIMER), static_cast<uint32_t>(common.devId),
        STAT_BUF_BYTES, static_cast<uint32_t>(sampleIntervalNs), std::string(PROC_ROOT) + "/stat",
        "SystemCpuUsage.data", common.params, common.jobCtx, upLoader_);
    return StartHandler(handler, "statHandler");
}

int ProfSysStatJob::Uninit() {
    const tiv::MutexLock lock(jobMutex);
    return StopHandler(PROF_SYS_STAT_TIMER);
}

int ProfSysMemJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    return InitByRule(cfg, {PROF_SYS_MEM_TIMER, "Not in device Side, SysMem Profiling not enabled",
                            IsSysMemProfilingOn, "sys mem profiling not enabled"});
}

int ProfSysMemJob::Process() {
    const tiv::MutexLock lock(jobMutex);
    if (!CheckCommonParams()) {
        return -1;
    }
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    const auto handler = MakeHandler<ProcMemFileHandler>(
        static_cast<uint32_t>(PROF_SYS_MEM_TIMER), static_cast<uint32_t>(common.devId),
        MEM_BUF_BYTES, static_cast<uint32_t>(sampleIntervalNs), std::string(PROC_ROOT) + "/meminfo",
        "Memory.data", common.params, common.jobCtx, upLoader_);
    return StartHandler(handler, "memHandler");
}

int ProfSysMemJob::Uninit() {
    const tiv::MutexLock lock(jobMutex);
    return StopHandler(PROF_SYS_MEM_TIMER);
}

int ProfAllPidsJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    return InitByRule(cfg,
                      {PROF_ALL_PIDS_TIMER, "Not in device Side, AllPids Profiling not enabled",
                       IsPidProfilingOn, "pid_profiling not enabled"});
}

int ProfAllPidsJob::Process() {
    const tiv::MutexLock lock(jobMutex);
    if (!CheckCommonParams()) {
        return -1;
    }
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    const auto handler = MakeHandler<ProcAllPidsFileHandler>(
        static_cast<uint32_t>(PROF_ALL_PIDS_TIMER), static_cast<uint32_t>(common.devId),
        static_cast<uint32_t>(sampleIntervalNs), common.params, common.jobCtx, upLoader_);
    return StartHandler(handler, "pidsHandler");
}

int ProfAllPidsJob::Uninit() {
    const tiv::MutexLock lock(jobMutex);
    return StopHandler(PROF_ALL_PIDS_TIMER);
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
