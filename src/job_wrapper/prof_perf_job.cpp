// The start and the end of the recorder and of the task behind it.
#include "job_wrapper/prof_perf_job.h"

#include <cstdio>
#include <exception>

#include "common/utils.h"
#include "config/config_manager.h"
#include "config/param_validation.h"
#include "config/platform.h"
#include "job_wrapper/perf_script.h"
#include "job_wrapper/prof_comm_job.h"
#include "message/prof_params.h"
#include "platform/log.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::thread::PERF_SCRIPT_THREAD_NAME;
using analysis::rokt::common::utils::Utils;
using analysis::rokt::common::validation::ParamValidation;
using Common::Config::ConfigManager;

namespace {

constexpr int32_t INTERVAL_DEFAULT = 10;  // ms
constexpr int32_t MS_PER_SECOND = 1000;
constexpr size_t EVENT_PREFIX_LENGTH = 2;  // the "0x" of an event
constexpr const char* RECORD_COMMAND = "sudo /var/prof_collect.sh --record ";
constexpr const char* RECORD_NAME = "/ai_ctrl_cpu.data.";
constexpr const char* RECORDER_OUTPUT = "/perf.log";

std::string PerfDataDir(int32_t devId) {
    return ConfigManager::Instance().GetPerfDataDir(static_cast<uint32_t>(devId));
}

// Hz with at least four digits; an interval above one second gives zeros.
std::string FrequencyText(int32_t sampleInterval) {
    const int32_t interval = sampleInterval > 0 ? sampleInterval : INTERVAL_DEFAULT;
    char text[16] = {};
    (void)snprintf(text, sizeof(text), "%04d", MS_PER_SECOND / interval);
    return text;
}

// "0x11", "0x2a" becomes "{r11,r2a}". The first two characters go, whatever they are: the check
// wants the "0x" somewhere in each event.
std::string RecordEvents(const std::vector<std::string>& events) {
    std::vector<std::string> raw;
    raw.reserve(events.size());
    for (const std::string& event : events) {
        raw.push_back("r" + event.substr(EVENT_PREFIX_LENGTH));
    }
    return "{" + Utils::Join(raw, ",") + "}";
}

}  // namespace

int ProfCtrlcpuJob::Init(const std::shared_ptr<CollectionJobCfg>& cfg) {
    const tiv::MutexLock lock(jobMutex);
    if (!HasEvents(cfg)) {
        TIV_LOGI("Job check event param not pass");
        return -1;
    }
    if (cfg->comParams->params->hostProfiling) {
        return -1;
    }
    if (!Common::Platform::Platform::Instance().IsDeviceSide()) {
        TIV_LOGI("Not in device Side, aiCtrlcpu Profiling not enabled");
        return -1;
    }
    collectionJobCfg = cfg;
    CollectionJobCommonParams& common = *cfg->comParams;
    common.tmpResultDir = PerfDataDir(common.devId);
    const int ret = Utils::CreateDir(common.tmpResultDir);
    if (ret != 0) {
        TIV_LOGE("Creating dir failed: %s", common.tmpResultDir.c_str());
        return ret;
    }
    return MakeTask();
}

int ProfCtrlcpuJob::MakeTask() {
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    try {
        perfExtraTask_ = std::make_shared<PerfExtraTask>(PERF_BUFFER_BYTES, common.tmpResultDir,
                                                         common.jobCtx, common.params);
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return -1;
    }
    return 0;
}

std::string ProfCtrlcpuJob::RecordCommand(const std::vector<std::string>& events) const {
    if (events.empty() || !ParamValidation::Instance().CheckCtrlCpuEventIsValid(events)) {
        return "";
    }
    const std::string path = PrepareDataFile();
    if (path.empty()) {
        return "";
    }
    const int32_t interval = collectionJobCfg->comParams->params->cpu_sampling_interval;
    return RECORD_COMMAND + path + " " + FrequencyText(interval) + " " + RecordEvents(events);
}

// The empty file tells that recording was asked for; the recorder's own files carry a number more.
std::string ProfCtrlcpuJob::PrepareDataFile() const {
    const CollectionJobCommonParams& common = *collectionJobCfg->comParams;
    const std::string dir = PerfDataDir(common.devId);
    const std::string path = dir + RECORD_NAME + std::to_string(common.devIdOnHost);
    const PerfFile made = MakePerfFile(dir, path);
    if (made == PerfFile::NO_FILE) {
        TIV_LOGE("Failed to open %s, dev_id=%d", path.c_str(), common.devIdOnHost);
    }
    return made == PerfFile::MADE ? path : "";
}

int ProfCtrlcpuJob::Process() {
    const tiv::MutexLock lock(jobMutex);
    if (!HasCommonParams(collectionJobCfg)) {
        TIV_LOGI("Job check comm param failed");
        return -1;
    }
    const JobEventList events = EventsOf(*collectionJobCfg);
    const std::string command = events == nullptr ? "" : RecordCommand(*events);
    if (command.empty()) {
        return 0;
    }
    TIV_LOGI("start profiling ctrl cpu, cmd=%s", command.c_str());
    const std::vector<std::string> params = Utils::Split(command, ' ');
    if (params.empty()) {
        TIV_LOGE("ProfCtrlcpuJob params empty");
        return -1;
    }
    const int ret = StartRecorder(params);
    return ret == 0 ? StartTask() : ret;
}

int ProfCtrlcpuJob::StartRecorder(const std::vector<std::string>& command) {
    TIV_LOGI("Begin to start profiling ctrl cpu");
    ctrlCpuPid = -1;
    const std::string output = PerfDataDir(collectionJobCfg->comParams->devId) + RECORDER_OUTPUT;
    const int ret = StartPerfCommand(command, PERF_PATH_ENTRY, output, ctrlCpuPid);
    TIV_LOGI("start profiling ctrl cpu, pid=%u, ret=%d", static_cast<uint32_t>(ctrlCpuPid), ret);
    if (ret != 0) {
        TIV_LOGE("Function ret check failed");
    }
    return ret;
}

int ProfCtrlcpuJob::StartTask() {
    if (perfExtraTask_ == nullptr || perfExtraTask_->Init() != 0) {
        return 0;
    }
    perfExtraTask_->SetJobCtx(collectionJobCfg->comParams->jobCtx);
    perfExtraTask_->SetThreadName(PERF_SCRIPT_THREAD_NAME);
    const int ret = perfExtraTask_->Start();
    if (ret != 0) {
        TIV_LOGE("[ProfCtrlcpuJob::Process]Failed to start perfExtraTask_ thread, ret=%d", ret);
    }
    return ret;
}

int ProfCtrlcpuJob::Uninit() {
    const tiv::MutexLock lock(jobMutex);
    int ret = KillPerf();
    if (ctrlCpuPid > 0) {
        ret = EndRecorder();
    }
    if (collectionJobCfg != nullptr) {
        StoreEvents(*collectionJobCfg, nullptr);
    }
    return ret;
}

int ProfCtrlcpuJob::EndRecorder() {
    bool isExited = false;
    int exitCode = 0;
    const auto pid = static_cast<uint32_t>(ctrlCpuPid);
    const int ret = Utils::WaitProcess(ctrlCpuPid, isExited, exitCode, true);
    if (ret != 0) {
        TIV_LOGE("Failed to wait process %u, ret=%d", pid, ret);
    } else {
        TIV_LOGI("Process %u exited, exit code=%d", pid, exitCode);
    }
    ctrlCpuPid = -1;
    if (perfExtraTask_ != nullptr) {
        (void)perfExtraTask_->Stop();
        (void)perfExtraTask_->Uninit();
    }
    return ret;
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
