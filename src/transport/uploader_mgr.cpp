// The tables of uploaders and of jobs by device and mode.
#include "transport/uploader_mgr.h"

#include <exception>
#include <utility>

#include "common/thread_names.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace analysis {
namespace rokt {
namespace transport {

namespace {

constexpr uint32_t DESTROY_PAUSE_MS = 20;
constexpr const char* DEFAULT_MODE = "def_mode";

std::string DevModeKey(uint32_t devId, const std::string& mode) {
    return std::to_string(devId) + "_" + (mode.empty() ? DEFAULT_MODE : mode);
}

void LogUpdate(const std::string& key, const std::string& jobId) {
    TIV_LOGI("devModeKey:%s, jobId:%s Entering UpdateDevModeJobMap...", key.c_str(), jobId.c_str());
}

void LogAdd(const std::string& id) { TIV_LOGI("id: %s Entering AddUploader...", id.c_str()); }

std::shared_ptr<Uploader> MakeUploader(const std::shared_ptr<ITransport>& transport) {
    try {
        return std::make_shared<Uploader>(transport);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return nullptr;
    }
}

std::shared_ptr<ProfileFileChunk> MakeCtrlFileChunk(const std::string& data,
                                                    const FileChunkInfo& info,
                                                    const message::JobContext& jobCtx) {
    try {
        auto chunk = std::make_shared<ProfileFileChunk>();
        chunk->fileName = info.fileName;
        chunk->offset = -1;
        chunk->chunk = data;
        chunk->chunkSize = data.size();
        chunk->isLastChunk = info.isLastChunk;
        chunk->chunkModule = info.chunkModule;
        chunk->extraInfo = jobCtx.job_id + "." + jobCtx.dev_id;
        return chunk;
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return nullptr;
    }
}

}  // namespace

UploaderMgr::~UploaderMgr() {
    TIV_LOGI("Begin to destroy UploaderMgr.");
    if (HasUploaders()) {
        mmSleep(DESTROY_PAUSE_MS);
    }
    Clear();
    TIV_LOGI("End to destroy UploaderMgr.");
}

int UploaderMgr::Init() { return 0; }

int UploaderMgr::Uninit() {
    Clear();
    return 0;
}

bool UploaderMgr::HasUploaders() {
    tiv::MutexLock lock(mutex_);
    return !uploaderMap_.empty();
}

// The uploaders end after unlocking: each joins a thread that may be inside a long send.
void UploaderMgr::Clear() {
    std::map<std::string, std::shared_ptr<Uploader>> ending;
    tiv::MutexLock lock(mutex_);
    ending.swap(uploaderMap_);
    devModeJobMap_.clear();
    lock.Unlock();
}

void UploaderMgr::UpdateDevModeJobMap(uint32_t devId, const std::string& mode,
                                      const std::string& jobId) {
    const std::string key = DevModeKey(devId, mode);
    LogUpdate(key, jobId);
    tiv::MutexLock lock(mutex_);
    PutJobId(key, jobId);
}

void UploaderMgr::PutJobId(const std::string& key, const std::string& jobId) {
    if (devModeJobMap_.count(key) != 0) {
        TIV_LOGI("Upadate devModeJobMap_");
    } else {
        TIV_LOGI("Add to devModeJobMap_");
    }
    devModeJobMap_[key] = jobId;
}

std::string UploaderMgr::GetJobId(uint32_t devId, const std::string& mode) {
    const std::string key = DevModeKey(devId, mode);
    TIV_LOGI("devModeKey:%s, Entering GetJobId...", key.c_str());
    tiv::MutexLock lock(mutex_);
    const auto found = devModeJobMap_.find(key);
    return found == devModeJobMap_.end() ? std::string() : found->second;
}

int UploaderMgr::CreateUploader(const std::string& id, const std::shared_ptr<ITransport>& transport,
                                size_t capacity) {
    if (transport == nullptr) {
        TIV_LOGE("Transport is invalid!");
        return -1;
    }
    const std::shared_ptr<Uploader> uploader = MakeUploader(transport);
    if (uploader == nullptr) {
        return -1;
    }
    int ret = uploader->Init(capacity);
    if (ret != 0) {
        TIV_LOGE("Failed to init uploader");
        return ret;
    }
    uploader->SetThreadName(std::string(common::thread::UPLOADER_THREAD_NAME) + "_" + id);
    ret = uploader->Start();
    if (ret != 0) {
        TIV_LOGE("Failed to start uploader thread");
        return ret;
    }
    AddUploader(id, uploader);
    return 0;
}

void UploaderMgr::AddUploader(const std::string& id, const std::shared_ptr<Uploader>& uploader) {
    LogAdd(id);
    std::shared_ptr<Uploader> replaced;
    tiv::MutexLock lock(mutex_);
    replaced = PutUploader(id, uploader);
    lock.Unlock();
}

std::shared_ptr<Uploader> UploaderMgr::PutUploader(const std::string& id,
                                                   const std::shared_ptr<Uploader>& uploader) {
    if (uploader == nullptr || id.empty()) {
        return nullptr;
    }
    return std::exchange(uploaderMap_[id], uploader);
}

void UploaderMgr::AnswerAndAdd(uint32_t devId, const std::string& mode, const std::string& jobId,
                               const std::shared_ptr<Uploader>& uploader,
                               const std::function<void()>& answer) {
    const std::string key = DevModeKey(devId, mode);
    std::shared_ptr<Uploader> replaced;
    tiv::MutexLock lock(mutex_);
    answer();
    LogUpdate(key, jobId);
    PutJobId(key, jobId);
    LogAdd(jobId);
    replaced = PutUploader(jobId, uploader);
    lock.Unlock();
}

void UploaderMgr::GetUploader(const std::string& id, std::shared_ptr<Uploader>& uploader) {
    TIV_LOGD("Get id %s uploader...", id.c_str());
    std::shared_ptr<Uploader> found;
    {
        tiv::MutexLock lock(mutex_);
        const auto entry = uploaderMap_.find(id);
        if (entry != uploaderMap_.end()) {
            found = entry->second;
        }
    }
    if (found != nullptr) {
        uploader = std::move(found);
    }
}

void UploaderMgr::DelUploader(const std::string& id) {
    TIV_LOGI("Del id %s uploader...", id.c_str());
    tiv::MutexLock lock(mutex_);
    uploaderMap_.erase(id);
}

int UploaderMgr::DelAllUploader() {
    TIV_LOGI("DelAllUploader");
    std::map<std::string, std::shared_ptr<Uploader>> ending;
    tiv::MutexLock lock(mutex_);
    ending.swap(uploaderMap_);
    lock.Unlock();
    return 0;
}

int UploaderMgr::UploadData(const std::string& id, const void* data, int len) {
    std::shared_ptr<Uploader> uploader;
    GetUploader(id, uploader);
    if (uploader == nullptr) {
        TIV_LOGE("Get id[%s] uploader failed, dataLen:%d bytes", id.c_str(), len);
        return -1;
    }
    return uploader->UploadData(data, len);
}

int UploaderMgr::UploadData(const std::string& id, const std::shared_ptr<ProfileFileChunk>& chunk) {
    TIV_LOGD("UploadData id[%s] uploader start", id.c_str());
    std::shared_ptr<Uploader> uploader;
    GetUploader(id, uploader);
    if (uploader == nullptr) {
        TIV_LOGE("Get id[%s] uploader failed", id.c_str());
        return -1;
    }
    return uploader->UploadData(chunk);
}

int UploaderMgr::UploadCtrlFileData(const std::string& id, const std::string& data,
                                    const FileChunkInfo& info,
                                    const std::shared_ptr<message::JobContext>& jobCtx) {
    TIV_LOGI("UploadCtrlFileData id[%s] uploader start", id.c_str());
    if (data.empty()) {
        TIV_LOGE("data is empty");
        return -1;
    }
    if (jobCtx == nullptr) {
        TIV_LOGE("jobCtx is null");
        return -1;
    }
    const std::shared_ptr<ProfileFileChunk> chunk = MakeCtrlFileChunk(data, info, *jobCtx);
    return chunk == nullptr ? -1 : UploadData(id, chunk);
}

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
