// The period, the record format and the buffering of samples.
#include "job_wrapper/proc_timer_handler.h"

#include <exception>

#include "common/utils.h"
#include "hdc/file_chunk.h"
#include "platform/bounds_checked.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace Analysis {
namespace Rokt {
namespace JobWrapper {

using analysis::rokt::ProfileFileChunk;
using analysis::rokt::common::utils::Utils;
using analysis::rokt::message::JobContext;
using analysis::rokt::message::ProfileParams;
using analysis::rokt::transport::Uploader;

namespace {

constexpr int64_t MAX_PROC_FILE_BYTES = 536870912;
constexpr uint32_t RECORD_HEADER_ROOM = 100;
constexpr uint64_t FLUSH_SHARE = 4;  // a buffer with a quarter or less of its room left is sent
constexpr uint32_t FIRST_PROC_MODULE_TAG = 3;
constexpr uint32_t LAST_PROC_MODULE_TAG = 5;

uint32_t ChunkModuleOf(uint32_t tag) {
    const bool isProcTag = tag >= FIRST_PROC_MODULE_TAG && tag <= LAST_PROC_MODULE_TAG;
    return isProcTag ? analysis::rokt::PROFILING_IS_FROM_DEVICE_PROC
                     : analysis::rokt::PROFILING_IS_FROM_DEVICE;
}

}  // namespace

ProcTimerHandler::ProcTimerHandler(uint32_t handlerTag, uint32_t /*devId*/, uint32_t bufSize,
                                   uint32_t sampleIntervalNsArg, const std::string& procFile,
                                   const std::string& resultFile,
                                   const std::shared_ptr<ProfileParams>& paramsArg,
                                   const std::shared_ptr<JobContext>& jobCtxArg,
                                   const std::shared_ptr<Uploader>& upLoader)
    : TimerHandler(handlerTag),
      buf(bufSize),
      sampleIntervalNs(sampleIntervalNsArg),
      procFileName(procFile),
      retFileName("data/" + resultFile),
      params(paramsArg),
      jobCtx(jobCtxArg),
      upLoader_(upLoader) {}

int ProcTimerHandler::Init() {
    if (isInited_) {
        TIV_LOGE("The Handler is inited");
        return -1;
    }
    if (!buf.Init()) {
        TIV_LOGE("Buf init failed");
        return -1;
    }
    prevTimeStamp = 0;
    isInited_ = true;
    return 0;
}

int ProcTimerHandler::Uninit() {
    if (isInited_) {
        FlushBuf();
        upLoader_.reset();
        buf.Uninit();
        isInited_ = false;
    }
    return 0;
}

int ProcTimerHandler::Execute() {
    if (!isInited_) {
        TIV_LOGE("ProcTimerHandler is not inited: %s", retFileName.c_str());
        return 0;
    }
    const uint64_t now = Utils::GetClockMonotonicRaw();
    if (now - prevTimeStamp < sampleIntervalNs && prevTimeStamp != 0) {
        return 0;
    }
    prevTimeStamp = now;
    std::string sample;
    if (TakeSample(sample)) {
        StoreData(sample);
        ++index;
    }
    return 0;
}

bool ProcTimerHandler::TakeSample(std::string& sample) {
    if (procFileName.empty()) {
        (void)ParseProcFile(file, sample);
        return true;
    }
    if (!CheckProcFileSize(procFileName)) {
        return false;
    }
    if (!OpenAfresh(file, procFileName)) {
        TIV_LOGW("Open file %s failed", procFileName.c_str());
        return false;
    }
    std::string reading;
    (void)ParseProcFile(file, reading);
    file.close();
    PackData(sample, reading, RECORD_HEADER_ROOM);
    return true;
}

bool ProcTimerHandler::OpenAfresh(std::ifstream& source, const std::string& path) {
    if (source.is_open()) {
        source.close();
    }
    source.open(path);
    return source.is_open();
}

bool ProcTimerHandler::CheckProcFileSize(const std::string& path) {
    // A file that has just gone keeps the size 0 of all /proc files: the open tells that it is
    // gone.
    uint64_t bytes = 0;
    (void)mmGetFileSize(path.c_str(), &bytes);
    const auto size = static_cast<int64_t>(bytes);
    if (size < 0 || size > MAX_PROC_FILE_BYTES) {
        TIV_LOGW("[ProcTimerHandler] Proc file(%s) size(%lld)", path.c_str(),
                 static_cast<long long>(size));
        return false;
    }
    return true;
}

void ProcTimerHandler::PackData(std::string& out, const std::string& data, uint32_t headerRoom) {
    if (data.empty()) {
        TIV_LOGW("data is empty, fileName:%s", procFileName.c_str());
        return;
    }
    out.reserve(data.size() + headerRoom);
    out.append("TimeStamp:").append(std::to_string(prevTimeStamp));
    out.append("\nIndex:").append(std::to_string(index));
    out.append("\nDataLen:").append(std::to_string(data.size()));
    out.append("\n").append(data).append("\n");
}

void ProcTimerHandler::StoreData(const std::string& data) {
    if (data.empty()) {
        return;
    }
    if (buf.GetFreeSize() < data.size() && buf.GetUsedSize() != 0) {
        TIV_LOGD("StoreData %d", static_cast<int>(buf.GetUsedSize()));
        SendBuffered();
    }
    if (buf.GetFreeSize() < data.size()) {
        SendData(data.data(), static_cast<uint32_t>(data.size()));
        return;
    }
    if (AppendToBuf(data) && buf.GetFreeSize() <= buf.GetBufferSize() / FLUSH_SHARE) {
        SendBuffered();
    }
}

bool ProcTimerHandler::AppendToBuf(const std::string& data) {
    if (buf.GetBuffer() == nullptr) {
        return false;
    }
    char* end = static_cast<char*>(buf.GetBuffer()) + buf.GetUsedSize();
    const int32_t result = memcpy_s(end, buf.GetFreeSize(), data.data(), data.size());
    if (result != 0) {
        TIV_LOGE("memcpy stat data failed: %d", result);
    } else {
        buf.SetUsedSize(buf.GetUsedSize() + data.size());
    }
    return true;
}

void ProcTimerHandler::SendBuffered() {
    SendData(buf.GetBuffer(), static_cast<uint32_t>(buf.GetUsedSize()));
    buf.SetUsedSize(0);
}

void ProcTimerHandler::FlushBuf() {
    TIV_LOGI("FlushBuf %s, the total index :%lu", retFileName.c_str(),
             static_cast<unsigned long>(index));
    TIV_LOGI("FlushBuf, isInited_:%d, bufUsedSize:%d", static_cast<int>(isInited_),
             static_cast<int>(buf.GetUsedSize()));
    if (isInited_ && buf.GetUsedSize() != 0) {
        const auto usedSize = static_cast<int>(buf.GetUsedSize());
        SendBuffered();
        TIV_LOGI("FlushBuf running %d", usedSize);
    }
}

std::shared_ptr<ProfileFileChunk> ProcTimerHandler::MakeChunk(const void* data,
                                                              uint32_t len) const {
    try {
        auto chunk = std::make_shared<ProfileFileChunk>();
        chunk->fileName = retFileName + "." + jobCtx->tag;
        chunk->offset = -1;
        chunk->chunk.assign(static_cast<const char*>(data), len);
        chunk->chunkSize = len;
        chunk->isLastChunk = false;
        chunk->extraInfo = jobCtx->job_id + "." + jobCtx->dev_id;
        chunk->chunkModule = ChunkModuleOf(GetTag());
        return chunk;
    } catch (const std::exception& e) {
        TIV_LOGE("make shared failed, message: %s", e.what());
        return nullptr;
    }
}

void ProcTimerHandler::SendData(const void* data, uint32_t len) {
    if (data == nullptr) {
        TIV_LOGE("buf to be sent is nullptr");
        return;
    }
    const std::shared_ptr<ProfileFileChunk> chunk = MakeChunk(data, len);
    if (chunk == nullptr) {
        return;
    }
    if (upLoader_ == nullptr) {
        TIV_LOGE("[ProcTimerHandler::SendData] upLoader_ is null");
    } else if (upLoader_->UploadData(chunk) != 0) {
        TIV_LOGE("[ProcTimerHandler::SendData] Upload Data Failed");
    }
}

}  // namespace JobWrapper
}  // namespace Rokt
}  // namespace Analysis
