// The reader of one driver channel.
#include "transport/prof_channel.h"

#include <exception>
#include <limits>

#include "common/utils.h"
#include "config/json_parser.h"
#include "driver/ai_drv_prof_api.h"
#include "platform/log.h"
#include "transport/uploader_mgr.h"

namespace analysis::rokt::transport {
namespace {

using Analysis::Rokt::Common::Statistics::CHANNEL_READER_SPEED_ALL_NAME;
using Analysis::Rokt::Common::Statistics::CHANNEL_READER_SPEED_NAME;
using analysis::rokt::common::utils::Utils;
using analysis::rokt::driver::DrvChannelRead;
using analysis::rokt::driver::DrvProfFlush;
using analysis::rokt::message::JobContext;
using Zelnarer::Parser::JsonParser;

// Below this, what an empty channel left in the buffer waits for more.
constexpr uint32_t UPLOAD_SIZE_MIN = 1048576;
// A channel that has given more in one Execute makes room for the others of its worker.
constexpr int64_t EXECUTE_BYTES_MAX = 33554431;
constexpr uint32_t SCHEDULE_LIMIT = 2;

// The channels whose data the driver may hold back.
constexpr bool HasDriverFlush(int32_t channelId) { return channelId == 44 || channelId == 45; }

uint32_t BufferSizeOf(int32_t channelId) {
    const uint32_t configured =
        JsonParser::Instance().GetChannelBufferSize(static_cast<uint32_t>(channelId));
    return configured != 0 ? configured : CHANNEL_BUFFER_SIZE;
}

}  // namespace

ChannelReader::ChannelReader(int32_t device, int32_t channel, const std::string& fileName,
                             const std::shared_ptr<JobContext>& context)
    : deviceId(device),
      channelId(channel),
      relativeFileName(fileName),
      bufSize(BufferSizeOf(channel)),
      buffer(CHANNEL_BUFFER_SIZE, '\0'),
      jobCtx(context) {
    ProfChannelBuffers::Instance().Attach();
    TIV_LOGI("Channel reader %s, buffer size : %d", relativeFileName.c_str(),
             static_cast<int>(bufSize));
}

ChannelReader::~ChannelReader() { ProfChannelBuffers::Instance().Detach(); }

int ChannelReader::Init() {
    hashId = static_cast<int64_t>(channelId) + deviceId;
    try {
        speedPerfCount = std::make_shared<PerfCount>(CHANNEL_READER_SPEED_NAME);
        speedAllPerfCount = std::make_shared<PerfCount>(CHANNEL_READER_SPEED_ALL_NAME);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return -1;
    }
    tiv::MutexLock lock(uploadMutex);
    lastEndRawTime = 0;
    isInited = true;
    readCount = 0;
    return 0;
}

void ChannelReader::Uninit() {
    TIV_EVENT(
        "device id %d, channel: %d, total_size_channel: %lld bytes, file:%s, "
        "job_id:%s,drvChannelReadCont:%lld",
        deviceId, channelId, static_cast<long long>(totalSize.load()), relativeFileName.c_str(),
        JobId().c_str(), static_cast<long long>(readCount.load()));
    OutPerfInfo();
    isInited = false;
    {
        tiv::MutexLock lock(flushMutex);
        EndFlush();
    }
    try {
        FlushBuffToUpload();
    } catch (const std::exception& error) {
        TIV_LOGE("Upload of the rest failed, channel=%d: %s", channelId, error.what());
    }
}

int ChannelReader::Execute() {
    tiv::MutexLock lock(uploadMutex);
    TIV_LOGI("ChannelReader::Execute buffer size %zu.", buffer.capacity());
    try {
        DrainChannel();
    } catch (const std::exception& error) {
        TIV_LOGE("Reading failed, device=%d channel=%d: %s", deviceId, channelId, error.what());
    }
    SetSchedulingStatus(false);
    return 0;
}

long ChannelReader::GetBindId() { return static_cast<long>(hashId); }

void ChannelReader::SetChannelStopped() {
    isChannelStopped = true;
    tiv::MutexLock lock(flushMutex);
    EndFlush();
}

bool ChannelReader::IsBeyondScheduleLimit() const { return schedulingCount > SCHEDULE_LIMIT; }

void ChannelReader::SetSchedulingStatus(bool scheduled) {
    if (scheduled) {
        ++schedulingCount;
        return;
    }
    uint32_t count = schedulingCount.load();
    while (count != 0 && !schedulingCount.compare_exchange_weak(count, count - 1)) {
    }
}

void ChannelReader::FlushDrvBuff() {
    if (FlushesDriver() && WaitForDrvFlush()) {
        FlushBuffToUpload();
    }
}

void ChannelReader::FlushBuffToUpload() {
    tiv::MutexLock lock(uploadMutex);
    UploadData();
}

void ChannelReader::DrainChannel() {
    int64_t executeBytes = 0;
    while (ReadRound(executeBytes)) {
    }
}

// False when this Execute is over.
bool ChannelReader::ReadRound(int64_t& executeBytes) {
    ++readCount;
    if (!Reads()) {
        return false;
    }
    if (dataSize >= CHANNEL_BUFFER_SIZE) {
        UploadData();
    }
    spaceSize = bufSize - dataSize;
    const uint64_t startTime = Utils::GetClockMonotonicRaw();
    const int length = ReadChannel();
    if (length < 0) {
        TIV_LOGE("read device %d, channel:%d, ret=%d", deviceId, channelId, length);
    }
    if (length <= 0) {
        if (dataSize >= UPLOAD_SIZE_MIN) {
            UploadData();
        }
        return false;
    }
    CountRead(startTime, length);
    executeBytes += length;
    return executeBytes <= EXECUTE_BYTES_MAX;
}

int ChannelReader::ReadChannel() {
    if (buffer.size() < bufSize) {
        buffer.resize(bufSize);  // the room is reserved; a used buffer has its length already
    }
    int length = 0;
    {
        tiv::MutexLock lock(flushMutex);
        length = DrvChannelRead(static_cast<uint32_t>(deviceId), static_cast<uint32_t>(channelId),
                                &buffer[dataSize], spaceSize);
        if (length > 0 && static_cast<uint32_t>(length) > spaceSize) {
            length = -1;  // the driver claims more than it had room for
        }
        AccountFlush(length);
    }
    TIV_LOGD("deviceId:%d, channelId:%d fileName:%s, bufSize:%u, currLen:%d, spaceSize:%u",
             deviceId, channelId, relativeFileName.c_str(), bufSize, length, spaceSize);
    return length;
}

void ChannelReader::CountRead(uint64_t startTime, int length) {
    const uint64_t endTime = Utils::GetClockMonotonicRaw();
    const uint64_t bytes = static_cast<uint64_t>(length);
    speedPerfCount->UpdatePerfInfo(startTime, endTime, bytes);
    if (lastEndRawTime != 0) {
        speedAllPerfCount->UpdatePerfInfo(lastEndRawTime, endTime, bytes);
    }
    lastEndRawTime = endTime;
    totalSize += length;
    dataSize += static_cast<uint32_t>(length);
}

void ChannelReader::UploadData() {
    if (dataSize == 0) {
        return;
    }
    const std::shared_ptr<ProfileFileChunk> chunk = MakeChunk();
    if (chunk == nullptr) {
        return;
    }
    chunk->chunkSize = dataSize;  // its text keeps the buffer's length: nothing to clear next time
    chunk->chunk.swap(buffer);
    dataSize = 0;
    if (UploaderMgr::Instance().UploadData(JobId(), chunk) == -1) {
        TIV_LOGE("Upload data failed, jobId: %s", JobId().c_str());
    }
}

// Everything but the data; null when memory is short, and the data stays where it is.
std::shared_ptr<ProfileFileChunk> ChannelReader::MakeChunk() const {
    try {
        std::shared_ptr<ProfileFileChunk> chunk = ProfChannelBuffers::Instance().MakeChunk();
        chunk->isLastChunk = false;
        chunk->chunkModule = PROFILING_IS_FROM_DEVICE;
        chunk->offset = -1;
        chunk->fileName = relativeFileName + ".null";
        chunk->extraInfo = JobId() + "." + DevId();
        return chunk;
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return nullptr;
    }
}

// False when there is nothing to upload.
bool ChannelReader::WaitForDrvFlush() {
    tiv::MutexLock lock(flushMutex);
    uint32_t size = 0;
    const int ret =
        DrvProfFlush(static_cast<uint32_t>(deviceId), static_cast<uint32_t>(channelId), &size);
    if (ret != 0) {
        TIV_LOGE("DrvProfFlush failed, deviceId:%d, channelId:%d, ret:%d", deviceId, channelId,
                 ret);
        return false;
    }
    TIV_LOGI("Flush deviceId:%d, channelId:%d, flushSize:%d", deviceId, channelId,
             static_cast<int>(size));
    if (size == 0) {
        TIV_LOGI("No drv data need flush.");
        return false;
    }
    isFlushing = true;
    flushBufSize = size;
    // A reader that stopped reads no more: nobody would end the wait.
    while (isFlushing && Reads()) {
        flushCond.Wait(flushMutex);
    }
    EndFlush();
    return true;
}

void ChannelReader::AccountFlush(int length) {
    if (!FlushesDriver() || !isFlushing) {
        return;
    }
    if (length > 0) {
        const uint32_t bytes = static_cast<uint32_t>(length);
        if (bytes <= std::numeric_limits<uint32_t>::max() - flushedSize) {
            flushedSize += bytes;
            if (flushBufSize > flushedSize) {
                return;
            }
        }
    }
    EndFlush();
}

void ChannelReader::EndFlush() {
    isFlushing = false;
    flushedSize = 0;
    flushBufSize = 0;
    flushCond.NotifyAll();
}

void ChannelReader::OutPerfInfo() const {
    if (speedPerfCount == nullptr || speedAllPerfCount == nullptr) {
        return;
    }
    const std::string tag =
        "[" + JobId() + " : " + std::to_string(deviceId) + " : " + std::to_string(channelId) + "]";
    speedPerfCount->OutPerfInfo(CHANNEL_READER_SPEED_NAME + tag);
    speedAllPerfCount->OutPerfInfo(CHANNEL_READER_SPEED_ALL_NAME + tag);
}

bool ChannelReader::FlushesDriver() const { return HasDriverFlush(channelId); }

bool ChannelReader::Reads() const { return isInited && !isChannelStopped; }

std::string ChannelReader::JobId() const { return jobCtx == nullptr ? "" : jobCtx->job_id; }

std::string ChannelReader::DevId() const { return jobCtx == nullptr ? "" : jobCtx->dev_id; }

}  // namespace analysis::rokt::transport
