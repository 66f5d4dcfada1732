// The system's memory as rows.
#include "host/result/memory_parser.h"

#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr size_t MAX_KEYS = 1024;
constexpr size_t MAX_NAME_BYTES = 255;
constexpr uint64_t BYTES_PER_KB = 1024;

}  // namespace

std::optional<uint32_t> MemoryKeys::KeyOf(std::string_view name, bool isBytes,
                                          const ParseContext& context) {
    const auto id = std::make_pair(std::string(name), isBytes);
    const auto known = keys_.find(id);
    if (known != keys_.end()) {
        return known->second;
    }
    if (keys_.size() >= MAX_KEYS) {
        return std::nullopt;
    }
    const auto key = static_cast<uint32_t>(keys_.size());
    keys_.emplace(id, key);
    std::string room;
    context.visitor.OnMemoryKey({context.deviceId, key, Utf8Text(name, room), isBytes});
    return key;
}

bool MemoryParser::ParseLine(std::string_view line, MemoryRow& row) {
    const size_t colon = line.find(':');
    if (colon == 0 || colon == std::string_view::npos || colon > MAX_NAME_BYTES) {
        return false;
    }
    std::string_view rest = line.substr(colon + 1);
    if (!TakeField(rest, row.value)) {
        return false;
    }
    const bool isBytes = rest == " kB";
    if ((!isBytes && !rest.empty()) || (isBytes && !Scale(row.value, BYTES_PER_KB))) {
        return false;
    }
    const auto key = keys_.KeyOf(line.substr(0, colon), isBytes, context_);
    row.key = key.value_or(0);
    return key.has_value();
}

bool MemoryParser::Parse(const SampleRecord& record) {
    rows_.clear();
    std::string_view rest = record.data;
    for (std::string_view line; TakeLine(rest, line);) {
        MemoryRow row;
        row.deviceId = DeviceId();
        row.timeNs = record.timeNs;
        if (rows_.size() >= MAX_KEYS || !ParseLine(line, row)) {
            return false;
        }
        rows_.push_back(row);
    }
    for (const MemoryRow& row : rows_) {
        Visitor().OnMemory(row);
    }
    return !rows_.empty();
}

}  // namespace tiv::host
