// Driver channels as rows.
#include "host/result/channel_parser.h"

#include "host/result/number_text.h"
#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr uint32_t PERF = 1;
constexpr uint32_t COUNTER = 2;
constexpr uint32_t ALL_ONES = UINT32_MAX;
constexpr uint32_t RAW_MONOTONIC = 4;
constexpr size_t MAX_SERIES = 65536;

// A record of a perf source.
constexpr size_t RECORD_BYTES = 24;
constexpr size_t EVENT = 8;
constexpr size_t CORE = 12;
constexpr size_t COUNT = 16;

constexpr size_t NUMBER_BYTES = 8;
// A clock that goes back or leaps is no clock: such a record was put together from two.
constexpr uint64_t LONGEST_LEAP_NS = 86400ULL * 1000000000;

ChannelSource SourceOf(uint32_t source) {
    if (source == PERF) {
        return ChannelSource::PERF;
    }
    return source == COUNTER ? ChannelSource::COUNTER : ChannelSource::REPLAY;
}

std::string Fit(std::string_view text) {
    std::string room;
    return std::string(Utf8Text(text, room));
}

}  // namespace

void ChannelStartsParser::Feed(std::string_view bytes) {
    pending_.append(bytes);
    Consume(false);
}

void ChannelStartsParser::Finish() {
    Consume(true);
    EndStart(pending_.size());
    pending_.clear();
}

// Where the next header may begin; what stands before belongs to the start in hand. header.bytes is
// 0 unless the header is whole.
size_t ChannelStartsParser::FindHeader(std::string_view rest, bool isEnd,
                                       ChannelHeaderView& header) const {
    const std::string_view mark = ChannelHeaderStart();
    for (size_t at = rest.find(mark); at != std::string_view::npos; at = rest.find(mark, at + 1)) {
        const HeaderParse parse = ParseChannelHeader(rest.substr(at), header);
        if (parse == HeaderParse::READ) {
            return at;
        }
        header.bytes = 0;
        if (parse == HeaderParse::NEED_MORE && !isEnd) {
            return at;
        }
    }
    header.bytes = 0;
    if (isEnd) {
        return rest.size();
    }
    // The mark may be cut at the end of what is there.
    return rest.size() < mark.size() ? 0 : rest.size() - (mark.size() - 1);
}

void ChannelStartsParser::Consume(bool isEnd) {
    size_t position = 0;
    while (true) {
        const std::string_view rest = std::string_view(pending_).substr(position);
        ChannelHeaderView header;
        const size_t limit = FindHeader(rest, isEnd, header);
        const size_t used = TakeRecords(rest.substr(0, limit));
        if (header.bytes == 0) {
            position += used;
            break;
        }
        EndStart(limit - used);
        BeginStart(header);
        position += limit + header.bytes;
    }
    pending_.erase(0, position);
}

void ChannelStartsParser::BeginStart(const ChannelHeaderView& header) {
    start_ = header;
    previousNs_.clear();
    lastNs_.reset();
    std::vector<std::string> events;
    for (const std::string& event : header.events) {
        events.push_back(Fit(event));
    }
    const std::string name = Fit(header.name);
    const std::string file = Fit(channels_.file);
    const bool isRaw = header.clock == RAW_MONOTONIC;
    run_ = {++channels_.lastChannel, 0, 0};
    Visitor().OnChannel(
        {DeviceId(), run_.channel, header.channelId, file, name, SourceOf(header.source),
         isRaw ? ChannelClock::RAW_MONOTONIC : ChannelClock::NONE, header.periodMs, events});
}

void ChannelStartsParser::EndStart(size_t leftBytes) {
    if (run_.numbers > 0) {
        Visitor().OnChannelRun(run_);
        run_.numbers = 0;
    }
    if (leftBytes > 0) {
        CountUnreadable(leftBytes);
    }
}

// Takes whole records off the front of `bytes`; returns the bytes that were taken.
size_t ChannelStartsParser::TakeRecords(std::string_view bytes) {
    size_t used = 0;
    if (start_.source == PERF && start_.recordBytes == RECORD_BYTES) {
        for (; bytes.size() - used >= RECORD_BYTES; used += RECORD_BYTES) {
            TakeCounts(bytes.substr(used, RECORD_BYTES));
        }
    } else if (start_.source == COUNTER) {
        for (; bytes.size() - used >= NUMBER_BYTES; used += NUMBER_BYTES) {
            TakeNumber(Little64(bytes, used));
        }
    } else {
        used = bytes.size();
        // A replayed file's bytes are its own; bytes before any header are nobody's.
        if (start_.source == 0 || start_.source == PERF) {
            CountUnreadableBytes(used);
        }
    }
    return used;
}

bool ChannelStartsParser::IsTimely(uint64_t timeNs) const {
    return timeNs <= LARGEST_NUMBER &&
           (!lastNs_.has_value() || (timeNs >= *lastNs_ && timeNs - *lastNs_ <= LONGEST_LEAP_NS));
}

bool ChannelStartsParser::IsCount(std::string_view record) const {
    const uint32_t core = Little32(record, CORE);
    return IsTimely(Little64(record, 0)) && Little32(record, EVENT) < start_.events.size() &&
           (core == ALL_ONES || core <= static_cast<uint32_t>(INT32_MAX)) &&
           Little64(record, COUNT) <= LARGEST_NUMBER;
}

void ChannelStartsParser::TakeLoss(std::string_view record) {
    lastNs_ = Little64(record, 0);
    // What was counted before the lost records went with them.
    previousNs_.clear();
    Visitor().OnChannelLoss({run_.channel, *lastNs_, Little64(record, COUNT)});
    Saw(*lastNs_);
    ++records_;
}

void ChannelStartsParser::TakeCounts(std::string_view record) {
    const uint32_t event = Little32(record, EVENT);
    const uint32_t core = Little32(record, CORE);
    const uint64_t timeNs = Little64(record, 0);
    if (event == ALL_ONES && core == ALL_ONES && IsTimely(timeNs) &&
        Little64(record, COUNT) <= LARGEST_NUMBER) {
        TakeLoss(record);
        return;
    }
    const Series series(event, core);
    const auto before = previousNs_.find(series);
    if (!IsCount(record) || (before == previousNs_.end() && previousNs_.size() >= MAX_SERIES)) {
        CountUnreadable(record.size());
        return;
    }
    ChannelCountRow row;
    row.channel = run_.channel;
    row.timeNs = timeNs;
    row.event = event;
    row.core = core == ALL_ONES ? ALL_CORES : static_cast<int32_t>(core);
    row.count = Little64(record, COUNT);
    if (before != previousNs_.end() && timeNs > before->second) {
        row.intervalNs = timeNs - before->second;
    }
    previousNs_[series] = timeNs;
    lastNs_ = timeNs;
    Visitor().OnChannelCount(row);
    Saw(timeNs);
    ++records_;
}

void ChannelStartsParser::TakeNumber(uint64_t number) {
    if (number > LARGEST_NUMBER) {
        CountUnreadable(NUMBER_BYTES);
        return;
    }
    ++records_;
    if (run_.numbers > 0 && number == run_.first + run_.numbers) {
        ++run_.numbers;
        return;
    }
    EndStart(0);
    run_.first = number;
    run_.numbers = 1;
}

void ChannelParser::Choose() {
    const std::string_view mark = ChannelHeaderStart();
    isChosen_ = true;
    if (front_.compare(0, mark.size(), mark) == 0) {
        inner_ = std::make_unique<ChannelStartsParser>(context_, channels_);
    } else if (front_.find_first_not_of(" #<>0123456789.\n\t") != 0) {
        inner_ = std::make_unique<StatisticParser>(context_, channels_);
    }
}

void ChannelParser::Feed(std::string_view bytes) {
    if (!isChosen_) {
        front_.append(bytes);
        if (front_.size() < ChannelHeaderStart().size()) {
            return;
        }
        Choose();
        bytes = front_;
    }
    if (inner_ != nullptr) {
        inner_->Feed(bytes);
    } else {
        CountUnreadableBytes(bytes.size());
    }
    front_.clear();
}

void ChannelParser::Finish() {
    if (!isChosen_ && !front_.empty()) {
        Choose();
        if (inner_ != nullptr) {
            inner_->Feed(front_);
        } else {
            CountUnreadableBytes(front_.size());
        }
    }
    if (inner_ != nullptr) {
        inner_->Finish();
    }
}

}  // namespace tiv::host
