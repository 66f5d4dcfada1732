// Feeds a reader of a file's kind with bytes and keeps what came of them.
#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "host/result/file_parser.h"
#include "host/result_table_log.h"

namespace tiv::test {

struct ParsedFile {
    std::vector<std::string> lines;
    uint64_t records = 0;
    uint64_t unreadableRecords = 0;
    uint64_t unreadableBytes = 0;

    bool operator==(const ParsedFile& other) const {
        return std::tie(lines, records, unreadableRecords, unreadableBytes) ==
               std::tie(other.lines, other.records, other.unreadableRecords, other.unreadableBytes);
    }
};

// A sample record as the daemon writes it.
inline std::string Record(uint64_t time, uint32_t index, const std::string& data) {
    return fmt::format("TimeStamp:{}\nIndex:{}\nDataLen:{}\n{}\n", time, index, data.size(), data);
}

// Feeds `stream` in pieces of `piece` bytes to a Parser made of a context and `arguments`.
template <class Parser, class... Arguments>
ParsedFile ParseInPieces(std::string_view stream, size_t piece, Arguments&&... arguments) {
    TableLog log;
    host::TimeSpan span;
    Parser parser(host::ParseContext{0, log, span}, std::forward<Arguments>(arguments)...);
    for (size_t i = 0; i < stream.size(); i += piece) {
        parser.Feed(stream.substr(i, piece));
    }
    parser.Finish();
    return {std::move(log.lines), parser.Records(), parser.UnreadableRecords(),
            parser.UnreadableBytes()};
}

}  // namespace tiv::test
