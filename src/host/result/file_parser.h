// What the readers of all kinds of files have in common.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>

#include "host/result/tables.h"

namespace tiv::host {

// The span of the device's clock that readings were taken in.
struct TimeSpan {
    std::optional<uint64_t> firstNs;
    std::optional<uint64_t> lastNs;

    void Include(uint64_t timeNs) {
        firstNs = std::min(firstNs.value_or(timeNs), timeNs);
        lastNs = std::max(lastNs.value_or(timeNs), timeNs);
    }
};

// What a reader of a file is given. Everything outlives it.
struct ParseContext {
    int deviceId;
    TableVisitor& visitor;
    TimeSpan& span;
};

// Turns the bytes of one file into rows, however they are cut into pieces. What it cannot read it
// counts and skips. Memory is bounded, whatever the file holds. One thread.
class FileParser {
 public:
    explicit FileParser(const ParseContext& context) : context_(context) {}
    virtual ~FileParser() = default;
    FileParser(const FileParser&) = delete;
    FileParser& operator=(const FileParser&) = delete;

    virtual void Feed(std::string_view bytes) = 0;
    // The file has ended.
    virtual void Finish() = 0;

    [[nodiscard]] virtual uint64_t Records() const { return records_; }
    [[nodiscard]] virtual uint64_t UnreadableRecords() const { return unreadableRecords_; }
    [[nodiscard]] virtual uint64_t UnreadableBytes() const { return unreadableBytes_; }

 protected:
    [[nodiscard]] int DeviceId() const { return context_.deviceId; }
    [[nodiscard]] TableVisitor& Visitor() const { return context_.visitor; }
    void Saw(uint64_t timeNs) { context_.span.Include(timeNs); }
    void CountRecord() { ++records_; }
    void CountUnreadable(uint64_t bytes) {
        ++unreadableRecords_;
        unreadableBytes_ += bytes;
    }
    void CountUnreadableBytes(uint64_t bytes) { unreadableBytes_ += bytes; }

 private:
    const ParseContext context_;
    uint64_t records_ = 0;
    uint64_t unreadableRecords_ = 0;
    uint64_t unreadableBytes_ = 0;
};

}  // namespace tiv::host
