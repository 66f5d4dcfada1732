// Double of a transport: keeps what it is asked to send.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "hdc/i_transport.h"
#include "platform/mutex.h"

namespace tiv::test {

// Sends every chunk at once into a list. Thread-safe.
class RecordingTransport : public analysis::rokt::transport::ITransport {
 public:
    // Without it, chunks are listed with an empty text.
    explicit RecordingTransport(bool withData = true) : withData_(withData) {}

    int SendBuffer(const void*, int length) override { return length; }

    int SendBuffer(const std::shared_ptr<analysis::rokt::ProfileFileChunk>& chunk) override {
        analysis::rokt::ProfileFileChunk copy;
        copy.isLastChunk = chunk->isLastChunk;
        copy.chunkModule = chunk->chunkModule;
        copy.chunkSize = chunk->chunkSize;
        copy.offset = chunk->offset;
        copy.chunk = withData_ ? chunk->chunk.substr(0, chunk->chunkSize) : "";
        copy.fileName = chunk->fileName;
        copy.extraInfo = chunk->extraInfo;
        MutexLock lock(mutex_);
        chunks_.push_back(std::move(copy));
        sent_.NotifyAll();
        return 0;
    }

    int CloseSession() override { return 0; }
    void Hook0() override {}

    // False when not `count` chunks came within ten seconds.
    bool WaitForChunks(size_t count) EXCLUDES(mutex_) {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        MutexLock lock(mutex_);
        while (chunks_.size() < count) {
            if (!sent_.WaitUntil(mutex_, deadline)) {
                return chunks_.size() >= count;
            }
        }
        return true;
    }

    std::vector<analysis::rokt::ProfileFileChunk> Chunks() const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        return chunks_;
    }

    std::vector<uint64_t> Sizes() const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        std::vector<uint64_t> sizes;
        for (const auto& chunk : chunks_) {
            sizes.push_back(chunk.chunkSize);
        }
        return sizes;
    }

    std::string AllData() const EXCLUDES(mutex_) {
        MutexLock lock(mutex_);
        std::string data;
        for (const auto& chunk : chunks_) {
            data += chunk.chunk;
        }
        return data;
    }

 private:
    const bool withData_;
    mutable Mutex mutex_;
    CondVar sent_;
    std::vector<analysis::rokt::ProfileFileChunk> chunks_ GUARDED_BY(mutex_);
};

}  // namespace tiv::test
