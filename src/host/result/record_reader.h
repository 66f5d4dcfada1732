// Reads the records of a /proc sample file out of a byte stream.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace tiv::host {

// One sample as the daemon wrote it.
struct SampleRecord {
    uint64_t timeNs = 0;    // the device's raw monotonic clock
    uint32_t index = 0;     // counts the samples of the file from 0
    std::string_view data;  // the reading; valid during the call only
};

// Takes a stream apart, however it is cut into pieces:
//
//   TimeStamp:<ns>\nIndex:<n>\nDataLen:<bytes>\n<bytes of data>\n
//
// Bytes that belong to no record are skipped up to the next one and counted; nothing is guessed.
// Memory is bounded by the largest record that is accepted, 16 MiB. One thread.
class RecordReader {
 public:
    using TakeRecord = std::function<void(const SampleRecord& record)>;

    explicit RecordReader(TakeRecord take) : take_(std::move(take)) {}

    void Feed(std::string_view bytes);
    // The stream has ended: what is left is a record that was cut off.
    void Finish();

    [[nodiscard]] uint64_t Records() const { return records_; }
    [[nodiscard]] uint64_t UnreadableBytes() const { return unreadableBytes_; }
    // Places where the stream was unreadable.
    [[nodiscard]] uint64_t Gaps() const { return gaps_; }

 private:
    enum class Step { RECORD, NEED_MORE, BROKEN };
    Step ReadOne(std::string_view rest, size_t& used);
    size_t SkipToNext(std::string_view rest);
    void Consume();

    TakeRecord take_;
    std::string pending_;
    uint64_t records_ = 0;
    uint64_t unreadableBytes_ = 0;
    uint64_t gaps_ = 0;
    bool inGap_ = false;
};

}  // namespace tiv::host
