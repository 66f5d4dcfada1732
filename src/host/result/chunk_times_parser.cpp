// Lines of arrival times.
#include "host/result/chunk_times_parser.h"

#include "host/result/number_text.h"
#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr std::string_view HEAD = "received_ns,bytes,file";

}  // namespace

void ChunkTimesParser::TakeWhole(std::string_view line) {
    const bool isHead = isAtHead_ && line == HEAD;
    isAtHead_ = false;
    if (isHead) {
        return;
    }
    ChunkRow row;
    std::string_view rest = line;
    std::string room;
    if (!TakeNumber(rest, row.receivedNs) || !TakeText(rest, ",") || !TakeNumber(rest, row.bytes) ||
        !TakeText(rest, ",") || rest.empty()) {
        CountUnreadable(line.size() + 1);
        return;
    }
    row.deviceId = DeviceId();
    row.file = Utf8Text(rest, room);
    CountRecord();
    Visitor().OnChunk(row);
}

void ChunkTimesParser::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        const std::string_view piece = bytes.substr(0, end);
        bytes.remove_prefix(end == std::string_view::npos ? bytes.size() : end + 1);
        if (skipped_ > 0 || line_.size() + piece.size() > MAX_LINE_BYTES) {
            skipped_ += line_.size() + piece.size();
            line_.clear();
        } else {
            line_ += piece;
        }
        if (end == std::string_view::npos) {
            return;
        }
        if (skipped_ > 0) {
            CountUnreadable(skipped_ + 1);
            skipped_ = 0;
        } else {
            TakeWhole(line_);
        }
        line_.clear();
    }
}

// A line without an end was cut when it was written.
void ChunkTimesParser::Finish() {
    if (skipped_ + line_.size() > 0) {
        CountUnreadable(skipped_ + line_.size());
    }
}

}  // namespace tiv::host
