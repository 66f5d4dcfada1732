// Reads what a driver channel delivered.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/result/channel_header_view.h"
#include "host/result/file_parser.h"

namespace tiv::host {

// What the readers of channels need besides. Everything outlives them.
struct ChannelContext {
    std::string_view file;
    uint32_t& lastChannel;  // numbers the channels of the whole result
};

// Takes the starts of a channel apart. Each start begins with a header; a start that was cut off in
// the middle of a record may stand before it, so a header is looked for at every byte:
//
//   | header | record | record | rec| header | record | ...
//
// Memory is bounded by the largest header, the block in hand and the counters of one header.
class ChannelStartsParser : public FileParser {
 public:
    ChannelStartsParser(const ParseContext& context, const ChannelContext& channels)
        : FileParser(context), channels_(channels) {}

    void Feed(std::string_view bytes) override;
    void Finish() override;
    [[nodiscard]] uint64_t Records() const override { return records_; }

 private:
    using Series = std::pair<uint32_t, uint32_t>;  // event and core as they stand in the record

    size_t FindHeader(std::string_view rest, bool isEnd, ChannelHeaderView& header) const;
    void Consume(bool isEnd);
    void BeginStart(const ChannelHeaderView& header);
    void EndStart(size_t leftBytes);
    size_t TakeRecords(std::string_view bytes);
    void TakeCounts(std::string_view record);
    void TakeLoss(std::string_view record);
    void TakeNumber(uint64_t number);
    [[nodiscard]] bool IsTimely(uint64_t timeNs) const;
    [[nodiscard]] bool IsCount(std::string_view record) const;

    const ChannelContext channels_;
    std::string pending_;
    ChannelHeaderView start_;  // without source before the first header
    uint64_t records_ = 0;
    std::map<Series, uint64_t> previousNs_;
    std::optional<uint64_t> lastNs_;
    ChannelRunRow run_;
};

// Reads the interval text of the cache statistic, which stands in for the channel on some
// platforms:
//
//   # <comment>
//   <seconds>.<fraction> <count> <event> # <comment>
//   <seconds>.<fraction> <not supported> <event>
//
// Times count from the statistic's start. An event that was not counted gives no row.
class StatisticParser : public FileParser {
 public:
    StatisticParser(const ParseContext& context, const ChannelContext& channels)
        : FileParser(context), channels_(channels) {}

    void Feed(std::string_view bytes) override;
    void Finish() override;

 private:
    void TakeLine(std::string_view line);
    bool TakeCount(std::string_view line);
    uint32_t ChannelOf(std::string_view event);

    struct Counter {
        uint32_t channel;
        uint64_t lastNs;
    };

    const ChannelContext channels_;
    std::string line_;
    uint64_t skipped_ = 0;  // bytes of a line that is too long
    std::map<std::string, Counter, std::less<>> counters_;
};

// Tells by the first bytes of the file which of the two it is, and counts a file that is neither as
// unreadable.
class ChannelParser : public FileParser {
 public:
    ChannelParser(const ParseContext& context, const ChannelContext& channels)
        : FileParser(context), context_(context), channels_(channels) {}

    void Feed(std::string_view bytes) override;
    void Finish() override;
    [[nodiscard]] uint64_t Records() const override {
        return inner_ == nullptr ? 0 : inner_->Records();
    }
    [[nodiscard]] uint64_t UnreadableRecords() const override {
        return inner_ == nullptr ? FileParser::UnreadableRecords() : inner_->UnreadableRecords();
    }
    [[nodiscard]] uint64_t UnreadableBytes() const override {
        return inner_ == nullptr ? FileParser::UnreadableBytes() : inner_->UnreadableBytes();
    }

 private:
    void Choose();

    const ParseContext context_;
    const ChannelContext channels_;
    std::string front_;
    bool isChosen_ = false;
    std::unique_ptr<FileParser> inner_;
};

}  // namespace tiv::host
