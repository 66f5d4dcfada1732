// The queue in front of the live view.
#include "host/live/live_feed.h"

#include <algorithm>
#include <exception>

#include "host/host_clock.h"
#include "host/result/result_directory.h"

namespace tiv::host {

namespace {

constexpr size_t MAX_STREAMS = 64;
constexpr size_t MAX_GAPS = 65536;

bool IsRead(FileKind kind) { return kind != FileKind::OTHER && kind != FileKind::CPU_PROFILE; }

// What a stream is called on the screen.
std::string StreamName(FileKind kind, const std::string& fileName) {
    switch (kind) {
        case FileKind::SYSTEM_CPU:
            return "CPU of the system";
        case FileKind::MEMORY:
            return "memory of the system";
        case FileKind::PROCESS_CPU:
            return "CPU of processes";
        case FileKind::PROCESS_MEMORY:
            return "memory of processes";
        case FileKind::CPU_PROFILE:
            return "CPU profile";
        default:
            break;
    }
    return fileName.substr(fileName.rfind('/') + 1);
}

}  // namespace

void LiveFeed::Count(const LiveChunk& chunk, uint64_t bytes) {
    ++counts_.chunks;
    counts_.bytes += bytes;
    StreamId id(chunk.deviceId, {chunk.kind, StreamName(chunk.kind, chunk.fileName)});
    if (streams_.size() >= MAX_STREAMS && streams_.find(id) == streams_.end()) {
        id = {chunk.deviceId, {FileKind::OTHER, "other files"}};
    }
    StreamCount& stream = streams_[id];
    stream.deviceId = id.first;
    stream.kind = id.second.first;
    stream.name = id.second.second;
    stream.bytes += bytes;
    ++stream.chunks;
}

bool LiveFeed::HasRoom(size_t bytes) const {
    return bytes <= MAX_CHUNK_BYTES && waiting_.size() < MAX_WAITING_CHUNKS &&
           counts_.waitingBytes + bytes <= MAX_WAITING_BYTES;
}

void LiveFeed::Skip(LiveChunk chunk) {
    ++counts_.skipped;
    if (gaps_.size() < MAX_GAPS) {
        gaps_.emplace(chunk.deviceId, std::move(chunk.fileName));
    } else {
        gapEverywhere_ = true;
    }
}

void LiveFeed::Offer(int deviceId, const ReceivedChunk& chunk, uint64_t arrivalNs) noexcept {
    try {
        LiveChunk copy;
        copy.deviceId = deviceId;
        copy.fileName = chunk.fileName;
        copy.kind = KindOfFile(copy.fileName, copy.pid);
        copy.arrivalNs = arrivalNs;
        MutexLock lock(mutex_);
        Count(copy, chunk.data.size());
        if (!IsRead(copy.kind)) {
            return;
        }
        if (!HasRoom(chunk.data.size())) {
            Skip(std::move(copy));
            return;
        }
        copy.data = chunk.data;
        copy.afterGap = gaps_.erase({deviceId, copy.fileName}) > 0 || gapEverywhere_;
        counts_.waitingBytes += copy.data.size();
        waiting_.push_back(std::move(copy));
        counts_.mostWaiting = std::max<uint64_t>(counts_.mostWaiting, waiting_.size());
    } catch (const std::exception&) {
        // There was no memory for the copy; what the view misses, the files still get.
        MutexLock lock(mutex_);
        gapEverywhere_ = true;
        ++counts_.skipped;
    }
}

std::vector<LiveChunk> LiveFeed::Take() {
    std::vector<LiveChunk> taken;
    MutexLock lock(mutex_);
    taken.swap(waiting_);
    counts_.waitingBytes = 0;
    return taken;
}

FeedCounts LiveFeed::Counts() {
    MutexLock lock(mutex_);
    FeedCounts counts = counts_;
    counts.waiting = waiting_.size();
    for (const auto& [id, stream] : streams_) {
        counts.streams.push_back(stream);
    }
    return counts;
}

bool LiveTap::OnChunk(const ReceivedChunk& chunk) {
    feed_.Offer(deviceId_, chunk, RawClockNs());
    return files_ == nullptr || files_->OnChunk(chunk);
}

}  // namespace tiv::host
