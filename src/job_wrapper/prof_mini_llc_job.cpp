// The start and the end of the cache statistic, and the upload of its file.
#include "job_wrapper/prof_mini_llc_job.h"

#include <exception>
#include <fstream>
#include <vector>

#include "common/utils.h"
#include "config/config_manager.h"
#include "config/param_validation.h"
#include "config/platform.h"
#include "job_wrapper/perf_script.h"
#include "message/prof_params.h"
#include "platform/log.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::utils::Utils;
using analysis::rokt::common::validation::ParamValidation;
using Common::Config::ConfigManager;

namespace {

constexpr int32_t INTERVAL_DEFAULT = 100;  // ms
constexpr const char* STAT_COMMAND = "sudo /var/prof_collect.sh --stat ";
constexpr const char* STAT_NAME = "/llc.data";
constexpr const char* SWITCH_ON = "on";

void LogUploadFailed(const std::string& jobId) {
    TIV_LOGE("Upload llc data failed , jobId: %s", jobId.c_str());
}

}  // namespace

int ProfMiniLlcJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!HasEvents(cfg)) {
        TIV_LOGI("Job check event param not pass");
        return -1;
    }
    if (cfg->comParams->params->hostProfiling) {
        return -1;
    }
    if (!Common::Platform::Platform::Instance().IsDeviceSide()) {
        TIV_LOGI("Not run in device Side, Mini LLC Profiling not enabled");
        return -1;
    }
    collectionJobCfg = cfg;
    jobCtx = cfg->comParams->jobCtx;
    if (cfg->comParams->params->zelnar_llc_profiling != SWITCH_ON ||
        ConfigManager::Instance().GetPlatformType() != 0) {
        TIV_LOGI("Mini LLC Profiling not enabled");
        return -1;
    }
    return 0;
}

std::string ProfMiniLlcJob::StatCommand() {
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    const std::string dir =
        ConfigManager::Instance().GetPerfDataDir(static_cast<uint32_t>(common.devId));
    collectionJobCfg->dataFile = dir + STAT_NAME;
    const std::string file = ResultFile();
    const PerfFile made = MakePerfFile(dir, file);
    if (made == PerfFile::NO_FILE) {
        TIV_LOGE("Failed to open %s, devId=%d, devIdOnHost:%d", file.c_str(), common.devId,
                 common.devIdOnHost);
    }
    if (made != PerfFile::MADE) {
        return "";
    }
    if (eventsStr.empty() || !ParamValidation::Instance().CheckLlcEventsIsValid(eventsStr)) {
        return "";
    }
    const int32_t asked = common.params->llc_interval;
    const int32_t interval = asked > 0 ? asked : INTERVAL_DEFAULT;
    return STAT_COMMAND + file + " " + eventsStr + " " + std::to_string(interval);
}

std::string ProfMiniLlcJob::ResultFile() const {
    return SuffixedName(collectionJobCfg->dataFile, collectionJobCfg->comParams->devIdOnHost);
}

int ProfMiniLlcJob::Process() {
    const tiv::MutexLock lock(jobMutex);
    if (!HasEvents(collectionJobCfg)) {
        TIV_LOGI("Job check event param not pass");
        return -1;
    }
    eventsStr = eventsText(EventsOf(*collectionJobCfg));
    const std::string command = StatCommand();
    TIV_LOGI("llc_event:%s, profLlcCmd:%s", eventsStr.c_str(), command.c_str());
    return command.empty() ? 0 : StartStatistic(command);
}

int ProfMiniLlcJob::StartStatistic(const std::string& command) {
    TIV_LOGI("Begin to start profiling llc, cmd=%s", command.c_str());
    const std::vector<std::string> params = Utils::Split(command, ' ');
    if (params.empty()) {
        TIV_LOGE("profLlcCmd empty");
        return -1;
    }
    llcPid = -1;
    const int ret = StartPerfCommand(params, PERF_STAT_PATH_ENTRY, "", llcPid);
    TIV_LOGI("start profiling llc, pid = %u, ret=%d", static_cast<uint32_t>(llcPid), ret);
    if (ret != 0) {
        TIV_LOGE("Function ret check failed");
    }
    return ret;
}

int ProfMiniLlcJob::Uninit() {
    const tiv::MutexLock lock(jobMutex);
    int ret = KillPerf();
    if (llcPid > 0) {
        ret = WaitForEnd();
    }
    UploadResult();
    return ret;
}

int ProfMiniLlcJob::WaitForEnd() {
    bool isExited = false;
    int exitCode = 0;
    const int ret = Utils::WaitProcess(llcPid, isExited, exitCode, true);
    if (ret != 0) {
        TIV_LOGE("Failed to wait process %d, ret=%d", llcPid, ret);
    } else {
        TIV_LOGI("Process %d exited, exit code=%d", llcPid, exitCode);
    }
    return ret;
}

void ProfMiniLlcJob::UploadResult() {
    if (!HasCommonParams(collectionJobCfg) || collectionJobCfg->dataFile.empty() ||
        jobCtx == nullptr) {
        return;
    }
    std::ifstream file(ResultFile(), std::ios::binary);
    if (!file.is_open()) {
        return;
    }
    try {
        std::vector<char> buffer(PERF_BUFFER_BYTES);
        (void)UploadSlices(file, buffer.data(), PERF_BUFFER_BYTES,
                           {JOB_DATA_FILES[PROF_JOB_MINI_LLC],
                            collectionJobCfg->comParams->params->job_id, LogUploadFailed, jobCtx});
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
    }
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
