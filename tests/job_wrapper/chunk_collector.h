// An uploader whose chunks stay in memory.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "hdc/i_transport.h"
#include "platform/mutex.h"
#include "support/recorded_log.h"
#include "transport/uploader.h"

namespace tiv::test {

// Takes every chunk and keeps it.
class RecordingTransport : public analysis::rokt::transport::ITransport {
 public:
    using Chunk = analysis::rokt::ProfileFileChunk;

    int SendBuffer(const void*, int length) override { return length; }
    int SendBuffer(const std::shared_ptr<Chunk>& chunk) override EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        chunks_.push_back(*chunk);
        return 0;
    }
    int CloseSession() override { return 0; }
    void Hook0() override {}

    std::vector<Chunk> Chunks() EXCLUDES(mutex_) {
        const MutexLock lock(mutex_);
        return chunks_;
    }

 private:
    Mutex mutex_;
    std::vector<Chunk> chunks_ GUARDED_BY(mutex_);
};

// A running uploader on a RecordingTransport. Its thread writes nothing more to the log until
// Finish.
class ChunkCollector {
 public:
    using Uploader = analysis::rokt::transport::Uploader;
    using Chunk = analysis::rokt::ProfileFileChunk;

    ChunkCollector()
        : transport_(std::make_shared<RecordingTransport>()),
          uploader_(std::make_shared<Uploader>(transport_)) {
        uploader_->SetThreadName("collector");
        started_ = uploader_->Init(512) == 0 && uploader_->Start() == 0 &&
                   RecordedLog::Instance().WaitFor('I', "New thread collector begins to run");
    }

    const std::shared_ptr<Uploader>& Get() const { return uploader_; }

    // Ends the uploader behind the last queued chunk. Later uploads fail.
    std::vector<Chunk> Finish() {
        EXPECT_TRUE(started_);
        uploader_->Stop(false);
        return transport_->Chunks();
    }

    // Payloads in the order in which they went out.
    std::vector<std::string> Payloads() {
        std::vector<std::string> payloads;
        for (const Chunk& chunk : Finish()) {
            payloads.push_back(chunk.chunk);
        }
        return payloads;
    }

 private:
    std::shared_ptr<RecordingTransport> transport_;
    std::shared_ptr<Uploader> uploader_;
    bool started_ = false;
};

}  // namespace tiv::test
