// The upload thread and the stopping of it.
#include "transport/uploader.h"

#include <exception>
#include <string>

#include "common/error_manager.h"
#include "platform/log.h"
#include "platform/mm_api.h"

namespace analysis {
namespace rokt {
namespace transport {

using Analysis::Rokt::ZelnarErrMgr::ZelnarErrorManager;

namespace {

constexpr uint32_t FLUSH_PAUSE_MS = 100;
constexpr const char* QUEUE_NAME = "UploaderQueue";

std::shared_ptr<ProfileFileChunk> WrapMessage(const void* data, int len) {
    try {
        auto chunk = std::make_shared<ProfileFileChunk>();
        const auto size = static_cast<size_t>(len > 0 ? len : 0);
        chunk->chunk.assign(static_cast<const char*>(data), size);
        chunk->chunkSize = size;
        chunk->chunkModule = PROFILING_IS_CTRL_DATA;
        return chunk;
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return nullptr;
    }
}

}  // namespace

Uploader::Uploader(const std::shared_ptr<ITransport>& dataTransport) : transport(dataTransport) {}

Uploader::~Uploader() {
    Uninit();
    // A thread started without Init has returned by itself and is still to be joined.
    (void)Thread::Stop();
}

int Uploader::Init(size_t capacity) {
    try {
        queue = std::make_shared<ChunkQueue>(capacity);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return -1;
    }
    queue->SetQueueName(QUEUE_NAME);
    isInited = true;
    return 0;
}

int Uploader::UploadData(const void* data, int len) {
    if (!isInited) {
        TIV_LOGE("Uploader was not inited.");
        return -1;
    }
    if (data == nullptr) {
        TIV_LOGE("[Uploader::UploadData]data is nullptr.");
        return -1;
    }
    const std::shared_ptr<ProfileFileChunk> chunk = WrapMessage(data, len);
    return chunk == nullptr ? -1 : UploadData(chunk);
}

int Uploader::UploadData(const std::shared_ptr<ProfileFileChunk>& chunk) {
    if (!isInited) {
        TIV_LOGE("Uploader was not inited.");
        return -1;
    }
    if (chunk == nullptr) {
        TIV_LOGE("[Uploader::UploadData]data is nullptr.");
        return -1;
    }
    if (!Enqueue(chunk)) {
        TIV_LOGE("[Uploader::UploadData]Push data failed.");
        return -1;
    }
    return 0;
}

bool Uploader::Enqueue(const std::shared_ptr<ProfileFileChunk>& chunk) {
    try {
        return queue->Push(chunk);
    } catch (const std::exception& error) {
        TIV_LOGE("make shared failed, message: %s", error.what());
        return false;
    }
}

void Uploader::Flush() {
    if (!isInited) {
        return;
    }
    while (queue->Size() != 0 && !HasRunEnded()) {
        mmSleep(FLUSH_PAUSE_MS);
    }
}

void Uploader::Run(const common::thread::ErrorContext& threadContext) {
    ZelnarErrorManager::Instance().SetErrorContext(threadContext);
    if (isInited) {
        SendQueued();
    } else {
        TIV_LOGE("Uploader was not inited.");
    }
    tiv::MutexLock lock(stateMutex);
    runEnded = true;
    runEndedCondition.NotifyAll();
}

void Uploader::SendQueued() {
    const std::shared_ptr<ITransport> sender = GetTransport();
    while (true) {
        // Lives for one round: the chunk dies as soon as it is sent.
        std::shared_ptr<ProfileFileChunk> chunk;
        if (!queue->TryPop(chunk)) {
            // Quitting comes behind the queue: a stop without force sends all that is queued.
            if (IsQuit()) {
                break;
            }
            queue->Pop(chunk);
        }
        if (chunk != nullptr) {
            SendOne(sender, chunk);
        }
        if (forceQuit) {
            break;
        }
    }
    TIV_LOGI("queue size remaining: %zu, force_quit:%d", queue->Size(),
             static_cast<int>(forceQuit.load()));
}

// What a transport throws ends this chunk and not the thread.
void Uploader::SendOne(const std::shared_ptr<ITransport>& sender,
                       const std::shared_ptr<ProfileFileChunk>& chunk) {
    if (sender == nullptr) {
        TIV_LOGE("Failed to upload data");
        return;
    }
    try {
        Upload(*sender, chunk);
    } catch (const std::exception& error) {
        TIV_LOGE("Failed to upload data, exception: %s", error.what());
    }
}

void Uploader::Upload(ITransport& sender, const std::shared_ptr<ProfileFileChunk>& chunk) {
    if (chunk->chunkModule != PROFILING_IS_CTRL_DATA) {
        if (sender.SendBuffer(chunk) != 0) {
            TIV_LOGE("Failed to upload data");
        }
        return;
    }
    const auto size = static_cast<size_t>(chunk->chunkSize);
    const int sent = sender.SendBuffer(chunk->chunk.data(), static_cast<int>(size));
    if (sent < 0 || static_cast<size_t>(sent) != size) {
        TIV_LOGE("Failed to upload data, data_len=%zu bytes, sent len=%d bytes", size, sent);
    }
}

int Uploader::Stop(bool force) {
    if (!isInited || isStopped.exchange(true)) {
        return 0;
    }
    forceQuit = force;
    TIV_LOGI("Stopping uploader, force_quit:%d.", static_cast<int>(force));
    queue->Quit();
    if (force && IsStarted()) {
        WaitForEnd();
    }
    if (Thread::Stop() != 0) {
        TIV_LOGE("Failed to stop uploader");
    }
    return 0;
}

// The chunk in hand may be the last message of the job, so that the session is closed under it only
// when its send outlives the limit.
void Uploader::WaitForEnd() {
    if (RunEndsInTime()) {
        return;
    }
    TIV_LOGE("Uploader is blocked in a send, close its session, thread=%s",
             GetThreadName().c_str());
    const std::shared_ptr<ITransport> blocked = GetTransport();
    if (blocked != nullptr) {
        blocked->CloseSession();
    }
}

bool Uploader::RunEndsInTime() {
    const auto deadline = std::chrono::steady_clock::now() + stopLimit;
    tiv::MutexLock lock(stateMutex);
    while (!runEnded) {
        if (!runEndedCondition.WaitUntil(stateMutex, deadline)) {
            return runEnded;
        }
    }
    return true;
}

bool Uploader::HasRunEnded() {
    tiv::MutexLock lock(stateMutex);
    return runEnded;
}

void Uploader::Uninit() {
    if (!isInited) {
        return;
    }
    (void)Stop(true);
    std::shared_ptr<ITransport> released;
    {
        tiv::MutexLock lock(stateMutex);
        released.swap(transport);
    }
    isInited = false;
}

std::shared_ptr<ITransport> Uploader::GetTransport() {
    tiv::MutexLock lock(stateMutex);
    return transport;
}

}  // namespace transport
}  // namespace rokt
}  // namespace analysis
