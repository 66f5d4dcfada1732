// Counts the records in the file of a driver channel.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "host/result/channel_parser.h"

namespace tiv::host {

// Lets the reader of channels take the stream apart, however it is cut into pieces, and keeps no
// row. What the source puts together as one counts as one: a count, a loss, a number.
//
// Memory is bounded as the reader's is. One thread.
class ChannelSampleCounter : private TableVisitor {
 public:
    ChannelSampleCounter() : parser_({0, *this, span_}, {"", lastChannel_}) {}

    void Feed(std::string_view bytes) { parser_.Feed(bytes); }
    // The stream has ended.
    void Finish() { parser_.Finish(); }

    // No value when the stream does not say what its records are: it has no header, or a start of
    // it replays a file, whose bytes are its own.
    [[nodiscard]] std::optional<uint64_t> Samples() const;

 private:
    void OnChannel(const ChannelRow& row) override;

    TimeSpan span_;
    uint32_t lastChannel_ = 0;
    bool replays_ = false;
    ChannelParser parser_;  // the fields above are lent to it
};

}  // namespace tiv::host
