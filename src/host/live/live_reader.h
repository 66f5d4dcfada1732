// Reads the chunks of a running job into rows.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/live/live_feed.h"
#include "host/live/live_model.h"
#include "host/result/channel_parser.h"
#include "host/result/file_parser.h"
#include "host/result/memory_parser.h"
#include "host/result/process_lives.h"

namespace tiv::host {

// Keeps a parser for each file and gives its rows to the model. A file whose chunks were skipped is
// read anew from the next one on; a channel, which tells only at its start what it holds, is left
// alone until it starts anew. One thread.
class LiveReader {
 public:
    // `model` outlives the reader.
    LiveReader(LiveModel& model, uint64_t pageBytes, uint64_t ticksPerSecond)
        : model_(model), pageBytes_(pageBytes), ticksPerSecond_(ticksPerSecond) {}

    void Read(const LiveChunk& chunk);
    // Drops what belongs to files of processes that have not grown since `arrivalNs`.
    void Prune(uint64_t arrivalNs);

    // Records that could not be read.
    [[nodiscard]] uint64_t Unreadable() const;

 private:
    using FileId = std::pair<int, std::string>;
    using ProcessId = std::pair<int, uint32_t>;

    struct File {
        std::unique_ptr<TimeSpan> span;  // the parser's; its address must last
        std::unique_ptr<FileParser> parser;
        bool isOfProcess = false;
        uint64_t lastNs = 0;  // arrival of its newest chunk
    };
    struct ProcessFiles {
        TimeSpan span;
        std::unique_ptr<ProcessLives> lives;
        uint64_t lastNs = 0;
    };

    std::unique_ptr<FileParser> MakeParser(const LiveChunk& chunk, const std::string& name,
                                           TimeSpan& span);
    static std::unique_ptr<FileParser> MakeChannelParser(const LiveChunk& chunk,
                                                         const ParseContext& context,
                                                         const ChannelContext& channel);
    ProcessLives& LivesOf(const LiveChunk& chunk);
    void Drop(const File& file);

    LiveModel& model_;
    const uint64_t pageBytes_;
    const uint64_t ticksPerSecond_;
    std::map<int, MemoryKeys> memoryKeys_;
    std::map<ProcessId, ProcessFiles> processes_;
    std::map<FileId, File> files_;  // parsers borrow what stands above
    uint64_t lastProcess_ = 0;
    uint32_t lastChannel_ = 0;
    uint64_t unreadable_ = 0;  // of files that are dropped
};

}  // namespace tiv::host
