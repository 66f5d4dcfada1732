// The files of one device's result as they grow.
#pragma once

#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <string_view>

#include "host/chunk_sink.h"
#include "host/chunk_times.h"
#include "platform/mutex.h"

namespace tiv::host {

// What is known of one file.
struct FileSummary {
    uint64_t bytes = 0;
    uint64_t chunks = 0;
    int32_t dataModule = 0;
};

// Appends the chunks of a device to files below one directory.
//
// File names come from the wire and are not trusted: each component must be an ordinary name, links
// are not followed, and whatever would leave the directory is refused and counted. A bounded number
// of descriptors is open at a time, so that thousands of files per device work.
//
// OnChunk and OnFinish run on one thread; the summaries may be read from any.
class ResultFiles : public ChunkSink {
 public:
    // `directory` exists. The time of each chunk that is kept is written beside it; not for an
    // empty `directory`, into which nothing is written either.
    explicit ResultFiles(std::string directory);
    ~ResultFiles() override;
    ResultFiles(const ResultFiles&) = delete;
    ResultFiles& operator=(const ResultFiles&) = delete;

    // False when the file cannot be written: the disk is full or the directory is gone. A refused
    // name is not such a failure.
    bool OnChunk(const ReceivedChunk& chunk) override;

    // Closes every file. False when the system tells only now that it could not keep the data.
    bool OnFinish() override;

    [[nodiscard]] std::map<std::string, FileSummary> Summaries();
    [[nodiscard]] uint64_t FileCount();
    // Refused names, each once, made printable; and the number of chunks under them.
    [[nodiscard]] std::map<std::string, uint64_t> RefusedNames();
    // Why OnChunk or OnFinish gave false; empty otherwise.
    [[nodiscard]] std::string Error();

 private:
    struct OpenFile {
        std::string name;
        int fd;
    };

    enum class Written { KEPT, REFUSED, FAILED };

    int Descriptor(const std::string& name);
    int OpenNew(const std::string& name);
    bool CloseOldest();
    Written Write(const std::string& name, std::string_view data);
    void Fail(const std::string& name, int reason);
    void Count(const std::string& name, const ReceivedChunk& chunk);
    void Refuse(std::string_view name);

    const std::string directory_;
    ChunkTimes times_;          // the writing thread
    std::list<OpenFile> open_;  // most recently used first; the writing thread
    std::map<std::string, std::list<OpenFile>::iterator, std::less<>> openByName_;

    Mutex mutex_;
    std::map<std::string, FileSummary> summaries_ GUARDED_BY(mutex_);
    std::map<std::string, uint64_t> refused_ GUARDED_BY(mutex_);
    std::string error_ GUARDED_BY(mutex_);
};

// True for a relative path of ordinary names: no empty, "." or ".." component, no leading slash, no
// zero byte, each component of at most 255 bytes.
[[nodiscard]] bool IsSafeFileName(std::string_view name);

// `text` with control bytes and bytes outside ASCII as \xNN, for messages and the manifest.
std::string Printable(std::string_view text);

}  // namespace tiv::host
