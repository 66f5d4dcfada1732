// Parsing of sample records.
#include "host/result/record_reader.h"

#include <algorithm>
#include <charconv>

namespace tiv::host {

namespace {

constexpr std::string_view TIME_KEY = "TimeStamp:";
constexpr std::string_view INDEX_KEY = "Index:";
constexpr std::string_view LENGTH_KEY = "DataLen:";
constexpr size_t MAX_NUMBER_DIGITS = 20;
constexpr uint64_t MAX_DATA_BYTES = 16u << 20;

enum class Field { READ, NEED_MORE, BROKEN };

// Reads "<key><decimal>\n" at the front of `rest` and steps behind it.
template <class T>
Field ReadField(std::string_view& rest, std::string_view key, T& value) {
    const size_t common = std::min(rest.size(), key.size());
    if (rest.substr(0, common) != key.substr(0, common)) {
        return Field::BROKEN;
    }
    if (rest.size() < key.size()) {
        return Field::NEED_MORE;
    }
    const std::string_view text = rest.substr(key.size());
    const size_t end = text.find('\n');
    if (end == std::string_view::npos) {
        const bool tooLong = text.size() > MAX_NUMBER_DIGITS;
        return tooLong ? Field::BROKEN : Field::NEED_MORE;
    }
    const auto [last, error] = std::from_chars(text.data(), text.data() + end, value);
    if (error != std::errc() || last != text.data() + end || end == 0) {
        return Field::BROKEN;
    }
    rest = text.substr(end + 1);
    return Field::READ;
}

}  // namespace

RecordReader::Step RecordReader::ReadOne(std::string_view rest, size_t& used) {
    const size_t before = rest.size();
    SampleRecord record;
    uint64_t length = 0;
    Field field = ReadField(rest, TIME_KEY, record.timeNs);
    if (field == Field::READ) {
        field = ReadField(rest, INDEX_KEY, record.index);
    }
    if (field == Field::READ) {
        field = ReadField(rest, LENGTH_KEY, length);
    }
    if (field == Field::BROKEN || length > MAX_DATA_BYTES) {
        return Step::BROKEN;
    }
    if (field == Field::NEED_MORE || rest.size() < length + 1) {
        return Step::NEED_MORE;
    }
    if (rest[length] != '\n') {
        return Step::BROKEN;
    }
    record.data = rest.substr(0, length);
    used = before - rest.size() + length + 1;
    ++records_;
    take_(record);
    return Step::RECORD;
}

// Bytes up to the next place where a record may begin; at least one.
size_t RecordReader::SkipToNext(std::string_view rest) {
    const size_t next = rest.find(TIME_KEY, 1);
    if (next != std::string_view::npos) {
        return next;
    }
    // The key may be cut at the end of what is there.
    const size_t keep = std::min(rest.size() - 1, TIME_KEY.size() - 1);
    return rest.size() - keep;
}

void RecordReader::Consume() {
    size_t position = 0;
    while (position < pending_.size()) {
        const std::string_view rest = std::string_view(pending_).substr(position);
        size_t used = 0;
        const Step step = ReadOne(rest, used);
        if (step == Step::NEED_MORE) {
            break;
        }
        if (step == Step::RECORD) {
            inGap_ = false;
        } else {
            used = SkipToNext(rest);
            unreadableBytes_ += used;
            gaps_ += inGap_ ? 0 : 1;
            inGap_ = true;
        }
        position += used;
    }
    pending_.erase(0, position);
}

void RecordReader::Feed(std::string_view bytes) {
    pending_.append(bytes);
    Consume();
}

void RecordReader::Finish() {
    if (!pending_.empty()) {
        unreadableBytes_ += pending_.size();
        gaps_ += inGap_ ? 0 : 1;
        pending_.clear();
    }
    inGap_ = false;
}

}  // namespace tiv::host
