// Reads a result's files and turns them into rows.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "host/result/channel_parser.h"
#include "host/result/file_parser.h"
#include "host/result/memory_parser.h"
#include "host/result/process_lives.h"
#include "host/result/result_directory.h"
#include "host/result/tables.h"

namespace tiv::host {

// How far the reading is.
struct ReadProgress {
    uint64_t bytes = 0;
    uint64_t total = 0;
};

// Called for every block that was read. False ends the reading early.
using OnReadProgress = std::function<bool(const ReadProgress& progress)>;

// Reads every file of a result once, front to back, and gives its rows to a visitor. Memory does
// not grow with the files; what a hostile file could make grow has bounds of its own, and what is
// beyond them counts as unreadable. One object per reading, one thread.
class ResultReader {
 public:
    // Both outlive the reader.
    ResultReader(const ResultDirectory& result, TableVisitor& visitor)
        : result_(result), visitor_(visitor) {}

    // Blocks until everything is read. Never fails: what cannot be read is a problem of the
    // outcome, which the visitor's OnEnd has been given, too. An exception of the visitor passes
    // through.
    ReadOutcome Read(const OnReadProgress& onProgress = {});

 private:
    std::unique_ptr<FileParser> MakeParser(const FileFacts& file);
    void BeginProcess(const FileFacts& file);
    void EndProcess();
    bool ReadFile(const FileFacts& file);
    bool FeedAll(int fd, FileParser* parser, std::string& problem);
    void Report(const FileFacts& file, const FileParser* parser, uint64_t bytes,
                const std::string& problem);

    const ResultDirectory& result_;
    TableVisitor& visitor_;
    OnReadProgress onProgress_;
    std::string block_;
    ReadProgress progress_;
    ReadOutcome outcome_;
    TimeSpan span_;
    uint64_t lastProcess_ = 0;
    uint32_t lastChannel_ = 0;
    int keysOf_ = -1;  // the device whose keys are in memoryKeys_
    MemoryKeys memoryKeys_;
    const FileFacts* processOf_ = nullptr;  // a file of the process in hand
    std::unique_ptr<ProcessLives> lives_;
};

}  // namespace tiv::host
