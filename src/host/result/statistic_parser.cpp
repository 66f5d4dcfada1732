// The cache statistic as rows.
#include "host/result/channel_parser.h"
#include "host/result/number_text.h"
#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr size_t MAX_LINE_BYTES = 1024;
constexpr size_t MAX_EVENTS = 64;

std::string_view TakeWord(std::string_view& rest) {
    SkipBlanks(rest);
    const std::string_view word = rest.substr(0, rest.find(' '));
    rest.remove_prefix(word.size());
    return word;
}

}  // namespace

void StatisticParser::Feed(std::string_view bytes) {
    while (!bytes.empty()) {
        const size_t end = bytes.find('\n');
        const std::string_view part = bytes.substr(0, end);
        if (skipped_ > 0 || line_.size() + part.size() > MAX_LINE_BYTES) {
            skipped_ += line_.size() + part.size();
            line_.clear();
        } else {
            line_.append(part);
        }
        if (end == std::string_view::npos) {
            return;
        }
        bytes.remove_prefix(end + 1);
        TakeLine(line_);
        line_.clear();
    }
}

void StatisticParser::Finish() {
    if (skipped_ > 0 || !line_.empty()) {
        CountUnreadable(skipped_ + line_.size());
    }
}

void StatisticParser::TakeLine(std::string_view line) {
    if (skipped_ > 0) {
        CountUnreadable(skipped_);
        skipped_ = 0;
        return;
    }
    const size_t begin = line.find_first_not_of(' ');
    if (begin == std::string_view::npos || line[begin] == '#') {
        return;
    }
    if (!TakeCount(line)) {
        CountUnreadable(line.size() + 1);
    }
}

uint32_t StatisticParser::ChannelOf(std::string_view event) {
    const std::vector<std::string> events = {std::string(event)};
    const uint32_t channel = ++channels_.lastChannel;
    Visitor().OnChannel({DeviceId(), channel, std::nullopt, channels_.file, event,
                         ChannelSource::STATISTIC, ChannelClock::SINCE_START, 0, events});
    counters_.emplace(event, Counter{channel, 0});
    return channel;
}

bool StatisticParser::TakeCount(std::string_view line) {
    uint64_t timeNs = 0;
    SkipBlanks(line);
    if (!TakeSeconds(line, timeNs)) {
        return false;
    }
    std::string_view number = TakeWord(line);
    if (number == "<not") {
        const std::string_view why = TakeWord(line);
        return why == "supported>" || why == "counted>";
    }
    uint64_t count = 0;
    std::string room;
    const std::string_view event = Utf8Text(TakeWord(line), room);
    const std::string_view behind = TakeWord(line);
    if (!IsNumber(number, count) || event.empty() ||
        !(behind.empty() || behind.front() == '#' || behind.front() == '(')) {
        return false;
    }
    const auto known = counters_.find(event);
    if (known == counters_.end() && counters_.size() >= MAX_EVENTS) {
        return false;
    }
    ChannelCountRow row;
    row.channel = known == counters_.end() ? ChannelOf(event) : known->second.channel;
    row.timeNs = timeNs;
    row.count = count;
    Counter& counter = counters_.find(event)->second;
    if (timeNs > counter.lastNs) {
        row.intervalNs = timeNs - counter.lastNs;
    }
    counter.lastNs = timeNs;
    Visitor().OnChannelCount(row);
    CountRecord();
    return true;
}

}  // namespace tiv::host
