// The way of a chunk from the session that reads it to the view that shows it.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/chunk_sink.h"
#include "host/result/tables.h"
#include "platform/mutex.h"

namespace tiv::host {

// A copy of a chunk that the view is to read.
struct LiveChunk {
    int deviceId = 0;
    FileKind kind = FileKind::OTHER;
    uint32_t pid = 0;  // of the kinds that belong to a process
    std::string fileName;
    std::string data;
    uint64_t arrivalNs = 0;
    bool afterGap = false;  // chunks of this file were skipped before
};

// What arrived under one name. The files of processes share a stream.
struct StreamCount {
    int deviceId = 0;
    FileKind kind = FileKind::OTHER;
    std::string name;
    uint64_t bytes = 0;
    uint64_t chunks = 0;
};

// What became of everything that was offered.
struct FeedCounts {
    uint64_t bytes = 0;
    uint64_t chunks = 0;
    uint64_t skipped = 0;  // chunks that the view would have read and for which there was no room
    uint64_t waiting = 0;  // chunks in the queue
    uint64_t waitingBytes = 0;
    uint64_t mostWaiting = 0;
    std::vector<StreamCount> streams;  // by device, kind and name
};

// A bounded queue between the sessions and the view. Offer never waits for the view: a chunk that
// is large or finds no room is counted and skipped, and the next one of its file tells of the gap.
// The lock is held for the copy of a small chunk or the exchange of two vectors.
class LiveFeed {
 public:
    static constexpr size_t MAX_CHUNK_BYTES = 64 << 10;
    static constexpr size_t MAX_WAITING_CHUNKS = 8192;
    static constexpr size_t MAX_WAITING_BYTES = 4 << 20;

    // Any thread. Never throws.
    void Offer(int deviceId, const ReceivedChunk& chunk, uint64_t arrivalNs) noexcept;

    // Everything that waits, in the order of its arrival; empties the queue.
    [[nodiscard]] std::vector<LiveChunk> Take();
    [[nodiscard]] FeedCounts Counts();

 private:
    using FileId = std::pair<int, std::string>;
    using StreamId = std::pair<int, std::pair<FileKind, std::string>>;

    void Count(const LiveChunk& chunk, uint64_t bytes) REQUIRES(mutex_);
    void Skip(LiveChunk chunk) REQUIRES(mutex_);
    [[nodiscard]] bool HasRoom(size_t bytes) const REQUIRES(mutex_);

    Mutex mutex_;
    std::vector<LiveChunk> waiting_ GUARDED_BY(mutex_);
    FeedCounts counts_ GUARDED_BY(mutex_);  // without streams
    std::map<StreamId, StreamCount> streams_ GUARDED_BY(mutex_);
    std::set<FileId> gaps_ GUARDED_BY(mutex_);
    bool gapEverywhere_ GUARDED_BY(mutex_) = false;  // too many files have gaps to keep them apart
};

// Stands in front of a device's files: passes every chunk on and offers it to the feed.
class LiveTap : public ChunkSink {
 public:
    // Both are borrowed. Without `files` nothing is kept.
    LiveTap(LiveFeed& feed, int deviceId, ChunkSink* files)
        : feed_(feed), deviceId_(deviceId), files_(files) {}

    // What the files say; the feed has no say in it.
    bool OnChunk(const ReceivedChunk& chunk) override;
    bool OnFinish() override { return files_ == nullptr || files_->OnFinish(); }

 private:
    LiveFeed& feed_;
    const int deviceId_;
    ChunkSink* const files_;
};

}  // namespace tiv::host
