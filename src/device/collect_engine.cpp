// One job's collection: directories, channels, the job table and their end.
#include "device/collect_engine.h"

#include <exception>

#include "common/utils.h"
#include "config/config_manager.h"
#include "config/param_validation.h"
#include "device/data_session_end.h"
#include "device/path_below.h"
#include "driver/drv_channels_mgr.h"
#include "job_wrapper/collection_register.h"
#include "job_wrapper/prof_channel_manager.h"
#include "job_wrapper/prof_hardware_mem_job.h"
#include "job_wrapper/prof_mini_llc_job.h"
#include "job_wrapper/prof_perf_job.h"
#include "job_wrapper/prof_sys_info_job.h"
#include "message/job_context.h"
#include "message/prof_params.h"
#include "platform/log.h"
#include "platform/mutex.h"

namespace analysis::rokt::device {
namespace {

using Analysis::Rokt::Common::Config::ConfigManager;
using common::utils::Utils;
using common::validation::ParamValidation;
namespace jobs = Analysis::Rokt::JobWrapper;

// Guards the making and removing of the working directories of all engines.
tiv::Mutex directoryMutex;

// Null, with an error, when memory ran out.
template <class T>
std::shared_ptr<T> MakeOrNull() {
    try {
        return std::make_shared<T>();
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

template <class Job>
std::shared_ptr<jobs::ICollectionJob> MakeJob() {
    return MakeOrNull<Job>();
}

struct JobMaker {
    int32_t tag;
    std::shared_ptr<jobs::ICollectionJob> (*make)();
};

// The jobs of every engine, in the order in which they are made.
constexpr JobMaker JOB_MAKERS[] = {
    {jobs::PROF_JOB_CTRL_CPU, MakeJob<jobs::ProfCtrlcpuJob>},
    {jobs::PROF_JOB_SYS_STAT, MakeJob<jobs::ProfSysStatJob>},
    {jobs::PROF_JOB_SYS_MEM, MakeJob<jobs::ProfSysMemJob>},
    {jobs::PROF_JOB_ALL_PIDS, MakeJob<jobs::ProfAllPidsJob>},
    {jobs::PROF_JOB_LLC, MakeJob<jobs::ProfLlcJob>},
    {jobs::PROF_JOB_MINI_LLC, MakeJob<jobs::ProfMiniLlcJob>},
};

int MakeDir(const std::string& dir) {
    const int ret = Utils::CreateDir(dir);
    if (ret != 0) {
        TIV_LOGE("Creating dir failed: %s", dir.c_str());
        return ret;
    }
    TIV_LOGI("Creating dir: \"%s\", ret=%d", dir.c_str(), ret);
    return 0;
}

// A job that cannot even be asked is one that does not run.
int AskJob(const CollectionJobEntry& entry, int32_t tag) {
    try {
        return entry.job->Init(entry.cfg);
    } catch (const std::exception& e) {
        TIV_LOGE("Init of a collection job failed, jobTag=%d: %s", tag, e.what());
        return -1;
    }
}

void RemoveWholeDir(const std::string& dir) {
    TIV_LOGI("Removing collected data: \"%s\"", dir.c_str());
    Utils::RemoveDir(dir, true);
}

}  // namespace

CollectEngine::~CollectEngine() { Uninit(); }

int CollectEngine::Init(int32_t devIndex) {
    isInited = true;
    commonParams = MakeOrNull<CommonParams>();
    if (commonParams == nullptr) {
        return -1;
    }
    commonParams->devId = devIndex;
    CreateCollectionJobArray();
    return 0;
}

void CollectEngine::CreateCollectionJobArray() {
    if (!CreateJobs()) {
        return;
    }
    TIV_LOGI("CreateCollectionJobArray to set jobCfg");
    for (int32_t tag = 0; tag < jobs::JOB_TAG_COUNT; ++tag) {
        CollectionJobEntry& entry = jobTable[static_cast<size_t>(tag)];
        if (entry.job == nullptr) {
            continue;
        }
        entry.cfg = MakeOrNull<CollectionJobCfg>();
        if (entry.cfg == nullptr) {
            return;
        }
        entry.tag = tag;
        entry.cfg->jobTag = tag;
        entry.cfg->comParams = commonParams;
    }
}

bool CollectEngine::CreateJobs() {
    for (const JobMaker& maker : JOB_MAKERS) {
        CollectionJobEntry& entry = jobTable[static_cast<size_t>(maker.tag)];
        entry.job = maker.make();
        if (entry.job == nullptr) {
            return false;
        }
    }
    return true;
}

void CollectEngine::SetDevIdOnHost(int32_t id) {
    if (commonParams != nullptr) {
        TIV_LOGI("SetDevIdOnHost devId :%d", commonParams->devIdOnHost);
        commonParams->devIdOnHost = id;
        commonParams->devIdFlush = id;
    }
}

std::string CollectEngine::SampleJobId() const {
    const bool known = commonParams != nullptr && commonParams->params != nullptr;
    return known ? commonParams->params->job_id : std::string();
}

int CollectEngine::CollectStart(const std::string& config, message::StatusInfo& status) {
    status.status = 1;
    int ret = -1;
    if (!isInited || commonParams == nullptr) {
        status.info = "Collection engine was not initialized.";
    } else if (PrepareCollect(config, status) == 0) {
        TIV_LOGI("Collection started, sample config:%s", config.c_str());
        ret = OpenChannels();
    }
    if (ret != 0) {
        RemoveCollectedData();
        return ret;
    }
    isStarted = true;
    status.status = 0;
    return 0;
}

int CollectEngine::PrepareCollect(const std::string& config, message::StatusInfo& status) {
    isStarted = false;
    isFinished = false;
    sampleConfig = config;
    commonParams->params = MakeOrNull<message::ProfileParams>();
    if (commonParams->params == nullptr) {
        return -1;
    }
    if (!commonParams->params->FromString(sampleConfig)) {
        TIV_LOGE("Failed to parse sampleConfig: \"%s\".", sampleConfig.c_str());
        status.info = "invalid sample configuration";
        return -1;
    }
    TIV_LOGI("parse sampleConfig: \"%s\".", sampleConfig.c_str());
    if (CreateTmpRootResultDir(tmpRootResultDir) != 0) {
        status.info = "Failed to create tmp root result directory.";
        return -1;
    }
    return 0;
}

// A failure gives the use of the poller back, which CollectStop would do for a job that started.
int CollectEngine::OpenChannels() {
    auto& channels = jobs::ProfChannelManager::Instance();
    if (channels.Init() != 0) {
        TIV_LOGE("[CollectEngine::CollectStart]Failed to init channel poll");
        channels.UnInit(false);
        return -1;
    }
    if (driver::DrvChannelsMgr::Instance().GetAllChannels(commonParams->devId) != 0) {
        TIV_LOGE("[CollectEngine::CollectStart]Failed to GetAllChannels");
        channels.UnInit(false);
        return -1;
    }
    return 0;
}

int CollectEngine::CreateTmpRootResultDir(std::string& dir) {
    const std::string inotifyDir = ConfigManager::Instance().GetInotifyDir();
    if (inotifyDir.empty()) {
        TIV_LOGE("GetInotifyDir failed");
        return -1;
    }
    const std::string jobDir = inotifyDir + SampleJobId();
    if (!PathIsBelow(jobDir, inotifyDir)) {
        TIV_LOGE("Job directory not made, it lies outside the working directory: job_id=%s",
                 SampleJobId().c_str());
        return -1;
    }
    dir = jobDir;
    tiv::MutexLock lock(directoryMutex);
    const int ret = MakeDir(dir);
    if (ret != 0) {
        return ret;
    }
    const std::string perfDataDir =
        ConfigManager::Instance().GetPerfDataDir(static_cast<uint32_t>(commonParams->devId));
    if (perfDataDir.empty()) {
        TIV_LOGE("GetPerfDataDir failed");
        return -1;
    }
    return MakeDir(perfDataDir);
}

// After a failed parse the job id is empty, and what goes is the working directory of all jobs.
void CollectEngine::RemoveCollectedData() {
    if (commonParams == nullptr || commonParams->params == nullptr) {
        return;
    }
    const std::string inotifyDir = ConfigManager::Instance().GetInotifyDir();
    if (inotifyDir.empty()) {
        TIV_LOGE("GetInotifyDir failed");
        return;
    }
    const std::string jobDir = inotifyDir + SampleJobId();
    if (!PathIsBelow(jobDir, inotifyDir)) {
        TIV_LOGE("Job directory not removed, it lies outside the working directory: job_id=%s",
                 SampleJobId().c_str());
        return;
    }
    tiv::MutexLock lock(directoryMutex);
    RemoveWholeDir(jobDir);
    const std::string perfDataDir =
        ConfigManager::Instance().GetPerfDataDir(static_cast<uint32_t>(commonParams->devId));
    if (perfDataDir.empty()) {
        TIV_LOGE("GetPerfDataDir failed");
        return;
    }
    RemoveWholeDir(perfDataDir);
    tmpRootResultDir.clear();
}

int CollectEngine::CheckPmuEventIsValid(const EventList& ctrlEvents,
                                        const EventList& llcEvents) const {
    const auto& validation = ParamValidation::Instance();
    if (ctrlEvents != nullptr && !validation.CheckCtrlCpuEventIsValid(*ctrlEvents)) {
        TIV_LOGE("[CheckPmuEventIsValid]ctrlCpuEvent is not valid!");
        return -1;
    }
    if (llcEvents != nullptr && !validation.CheckLlcEventsIsValid(Utils::Join(*llcEvents, ","))) {
        TIV_LOGE("[CheckPmuEventIsValid]llcEvent is not valid!");
        return -1;
    }
    return 0;
}

int CollectEngine::ReplayStart(const EventList& ctrlEvents, message::StatusInfo& status,
                               const EventList& llcEvents) {
    status.status = 1;
    if (!isStarted || commonParams == nullptr) {
        status.info = "collection engine has not been started";
        return -1;
    }
    if (CheckPmuEventIsValid(ctrlEvents, llcEvents) != 0) {
        status.info = "[CollectStart] pmu event is not valid.";
        TIV_LOGE("[CollectStart] pmu event is not valid.");
        return -1;
    }
    if (CreateJobContext() != 0) {
        return -1;
    }
    SetEvents(ctrlEvents, llcEvents);
    return CollectionJobRegisterAndRun(status);
}

int CollectEngine::CreateJobContext() {
    commonParams->jobCtx = MakeOrNull<message::JobContext>();
    if (commonParams->jobCtx == nullptr) {
        return -1;
    }
    commonParams->jobCtx->dev_id = std::to_string(commonParams->devIdFlush);
    commonParams->jobCtx->job_id = SampleJobId();
    return 0;
}

void CollectEngine::SetEvents(const EventList& ctrlEvents, const EventList& llcEvents) {
    const std::pair<int32_t, const EventList&> rows[] = {{jobs::PROF_JOB_CTRL_CPU, ctrlEvents},
                                                         {jobs::PROF_JOB_LLC, llcEvents},
                                                         {jobs::PROF_JOB_MINI_LLC, llcEvents}};
    for (const auto& row : rows) {
        const CollectionJobEntry& entry = jobTable[static_cast<size_t>(row.first)];
        if (entry.cfg != nullptr) {
            jobs::StoreEvents(*entry.cfg, row.second);
        }
    }
}

bool CollectEngine::RunJob(const CollectionJobEntry& entry, int32_t tag, int32_t failCount) {
    TIV_LOGI("CollectRegister Start jobId %d ", tag);
    int ret = AskJob(entry, tag);
    if (ret == 0) {
        TIV_LOGD("Collection Job %d Register", tag);
        ret = jobs::CollectionRegisterMgr::Instance().RegisterCollectionJob(commonParams->devId,
                                                                            tag, entry.job);
    }
    if (ret != 0) {
        TIV_LOGD("Collection Job %d No Run; Total: %d", tag, failCount);
    }
    return ret == 0;
}

int CollectEngine::CollectionJobRegisterAndRun(message::StatusInfo& status) {
    TIV_LOGI("Start to register collction job:%s", SampleJobId().c_str());
    int32_t failCount = 0;
    std::vector<std::string> running;
    for (int32_t tag = 0; tag < jobs::JOB_TAG_COUNT; ++tag) {
        const CollectionJobEntry& entry = jobTable[static_cast<size_t>(tag)];
        if (entry.job == nullptr) {
            continue;
        }
        if (RunJob(entry, tag, failCount)) {
            running.push_back(std::to_string(tag));
        } else {
            ++failCount;
        }
    }
    TIV_LOGI("Total count of job registered: %s", Utils::Join(running, ",").c_str());
    if (running.empty()) {
        TIV_LOGE("CollectionJobRegisterAndRun failed, fail_cnt:%d", failCount);
        status.status = 1;
        return -1;
    }
    status.status = 0;
    return 0;
}

int CollectEngine::StopJobs(message::StatusInfo& status) {
    status.status = 1;
    TIV_LOGI("Stop Job");
    if (!isStarted || commonParams == nullptr) {
        status.info = "collection engine has not been started";
        return -1;
    }
    for (int32_t tag = 0; tag < jobs::JOB_TAG_COUNT; ++tag) {
        const CollectionJobEntry& entry = jobTable[static_cast<size_t>(tag)];
        if (entry.job == nullptr) {
            continue;
        }
        const int ret = jobs::CollectionRegisterMgr::Instance().UnregisterCollectionJob(
            commonParams->devId, tag);
        if (entry.cfg != nullptr) {
            jobs::StoreEvents(*entry.cfg, nullptr);
            entry.cfg->eventSets[0].cores.reset();
        }
        if (ret != 0) {
            TIV_LOGD("Device %d Collection Job %d Unregister", commonParams->devIdOnHost, tag);
        }
    }
    return 0;
}

int CollectEngine::ReplayStop(message::StatusInfo& status) {
    status.status = 1;
    TIV_LOGI("Stop");
    if (StopJobs(status) != 0) {
        return -1;
    }
    commonParams->jobCtx.reset();
    status.status = 0;
    return 0;
}

int CollectEngine::CollectStop(message::StatusInfo& status) {
    status.status = 0;
    if (commonParams == nullptr) {
        status.status = 1;
        TIV_LOGE("[CollectStop]Config is null");
        return -1;
    }
    if (isStarted) {
        TIV_LOGI("stop collect ...");
        if (ReplayStop(status) != 0) {
            status.status = 1;
            TIV_LOGE("[CollectStop]Collect stop failed");
        }
        TIV_LOGI("Data collection finished under agent mode.");
    }
    RemoveCollectedData();
    if (FinishDataSession(commonParams->devIdFlush, SampleJobId()) != 0) {
        status.status = 1;
        TIV_LOGE("[CollectStop]FinishCollection failed");
    }
    jobs::ProfChannelManager::Instance().UnInit(false);
    isStarted = false;
    isFinished = true;
    if (status.status == 1) {
        status.info = "Stop profiling failed, please check it or see log for more info";
        return -1;
    }
    return 0;
}

void CollectEngine::Uninit() {
    if (!isInited) {
        return;
    }
    isInited = false;
    try {
        message::StatusInfo status;
        if (isStarted && CollectStop(status) != 0) {
            TIV_LOGD("[CollectEngine]Collect stop failed.");
            return;
        }
    } catch (const std::exception&) {
        TIV_LOGD("[CollectEngine]Uinit failed.");
        return;
    }
    commonParams.reset();
}

}  // namespace analysis::rokt::device
