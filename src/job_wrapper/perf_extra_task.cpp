// Converting and uploading the recorder's files.
#include "job_wrapper/perf_extra_task.h"

#include <algorithm>
#include <exception>
#include <fstream>

#include "common/error_manager.h"
#include "common/utils.h"
#include "job_wrapper/job_tags.h"
#include "job_wrapper/perf_script.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::common::thread::ErrorContext;
using analysis::rokt::common::utils::Utils;
using ZelnarErrMgr::ZelnarErrorManager;

namespace {

constexpr uint32_t PASS_PAUSE_US = 1000000;
constexpr int64_t MAX_TEXT_BYTES = 536870912;
constexpr const char* RECORD_NAME_PART = "ai_ctrl_cpu.data.";
constexpr long RECORD_PATH_DOTS = 3;
constexpr const char* TEXT_SUFFIX = ".txt";

bool IsRecordFile(const std::string& path) {
    return path.find(RECORD_NAME_PART) != std::string::npos &&
           std::count(path.begin(), path.end(), '.') == RECORD_PATH_DOTS;
}

void LogUploadFailed(const std::string& jobId) {
    TIV_LOGE("Upload cpu data failed , jobId: %s", jobId.c_str());
}

}  // namespace

PerfExtraTask::PerfExtraTask(uint32_t bufferSize, const std::string& dir,
                             const std::shared_ptr<JobContext>& jobContext,
                             const std::shared_ptr<ProfileParams>& sampleParams)
    : retDir(dir), buf(bufferSize), jobCtx(jobContext), params(sampleParams) {}

PerfExtraTask::~PerfExtraTask() {
    (void)Thread::Stop();
    if (isInited) {
        Uninit();
    }
}

int PerfExtraTask::Init() {
    if (params == nullptr || params->hostProfiling) {
        return -1;
    }
    if (isInited) {
        TIV_LOGE("The PerfExtraTask is inited");
        return -1;
    }
    if (!buf.Init()) {
        TIV_LOGE("Buf init failed");
        return -1;
    }
    TIV_LOGI("PerfExtraTask init succ");
    isInited = true;
    return 0;
}

int PerfExtraTask::Uninit() {
    if (!isInited) {
        TIV_LOGI("PerfExtraTask is uninited");
        return 0;
    }
    buf.Uninit();
    isInited = false;
    return 0;
}

void PerfExtraTask::SetJobCtx(const std::shared_ptr<JobContext>& jobContext) {
    if (jobContext != nullptr) {
        jobCtx = jobContext;
    }
}

void PerfExtraTask::Run(const ErrorContext& threadContext) {
    ZelnarErrorManager::Instance().SetErrorContext(threadContext);
    while (!IsQuit()) {
        TIV_LOGI("PerfExtraTask running");
        Utils::SleepUs(PASS_PAUSE_US);
        RunPass();
    }
    RunPass();
    TIV_LOGI("PerfExtraTask the total data size: %lld", static_cast<long long>(dataSize));
}

// What goes wrong ends this pass and not the thread: the files that are left wait for the next.
void PerfExtraTask::RunPass() {
    try {
        ConvertFinishedFiles();
    } catch (const std::exception& error) {
        TIV_LOGE("PerfExtraTask pass failed, exception: %s", error.what());
    }
}

void PerfExtraTask::ConvertFinishedFiles() {
    const std::vector<std::string> files = RecordFiles();
    size_t next = 0;
    while (next + 1 < files.size()) {
        HandleFile(files[next++]);
    }
    while (IsQuit() && next < files.size()) {
        HandleFile(files[next++]);
    }
}

std::vector<std::string> PerfExtraTask::RecordFiles() const {
    std::vector<std::string> files = Utils::GetFiles(retDir);
    files.erase(std::remove_if(files.begin(), files.end(),
                               [](const std::string& file) { return !IsRecordFile(file); }),
                files.end());
    std::sort(files.begin(), files.end());
    return files;
}

void PerfExtraTask::HandleFile(const std::string& file) {
    const std::string textFile = file + TEXT_SUFFIX;
    TIV_LOGI("PerfExtraTask file: %s", file.c_str());
    ConvertFile(file, textFile);
    UploadFile(textFile);
    (void)mmUnlink(file.c_str());
    (void)mmUnlink(textFile.c_str());
}

void PerfExtraTask::ConvertFile(const std::string& file, const std::string& textFile) {
    int exitCode = 0;
    const int ret = RunPerfScript({"--script", file}, textFile, exitCode);
    TIV_LOGI("resolve ctrlcpu data:%s, ret=%d, exit_code=%d", file.c_str(), ret, exitCode);
}

void PerfExtraTask::UploadFile(const std::string& textFile) {
    if (!Utils::IsFileExist(textFile)) {
        TIV_LOGW("file:%s is not exist", textFile.c_str());
        return;
    }
    const int64_t size = Utils::GetFileSize(textFile);
    if (size < 1 || size > MAX_TEXT_BYTES) {
        TIV_LOGE("data file size is invalid");
        return;
    }
    std::ifstream text(textFile, std::ios::binary);
    auto* const buffer = static_cast<char*>(buf.GetBuffer());
    if (!text.is_open() || buffer == nullptr || jobCtx == nullptr) {
        return;
    }
    dataSize +=
        UploadSlices(text, buffer, static_cast<uint32_t>(buf.GetBufferSize()),
                     {JOB_DATA_FILES[PROF_JOB_CTRL_CPU], params->job_id, LogUploadFailed, jobCtx});
    text.close();
    TIV_LOGI("PerfExtraTask data size: %lld", static_cast<long long>(dataSize));
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
