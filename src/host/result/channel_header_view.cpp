// Taking a channel header apart.
#include "host/result/channel_header_view.h"

#include <endian.h>

#include <cstring>

namespace tiv::host {

namespace {

//   0    4   magic "TIVC"
//   4    4   version, 1
//   8    4   bytes of this header, a multiple of 8
//   12   4   source: 1 perf, 2 counter, 3 replay
//   16   4   clock of the time stamps: 0 none, 4 the raw monotonic clock
//   20   4   period in milliseconds
//   24   4   bytes of one record
//   28   4   channel id
//   32   32  channel name, filled up with zero bytes
//   64   4   number of event names
//   68   ..  the names, each with a zero byte behind it, then zero bytes up to the header's end
constexpr char START[] = {'T', 'I', 'V', 'C', 1, 0, 0, 0};
constexpr size_t LENGTH = 8;
constexpr size_t SOURCE = 12;
constexpr size_t CLOCK = 16;
constexpr size_t PERIOD = 20;
constexpr size_t RECORD = 24;
constexpr size_t CHANNEL = 28;
constexpr size_t NAME = 32;
constexpr size_t NAME_BYTES = 32;
constexpr size_t EVENT_COUNT = 64;
constexpr size_t EVENTS = 68;
constexpr size_t ALIGNMENT = 8;
constexpr size_t MAX_BYTES = 64 << 10;
constexpr uint32_t MAX_EVENTS = 64;
constexpr uint32_t LAST_SOURCE = 3;

bool ReadEvents(std::string_view bytes, ChannelHeaderView& header) {
    const uint32_t count = Little32(bytes, EVENT_COUNT);
    std::string_view rest = bytes.substr(EVENTS);
    for (uint32_t i = 0; i < count; ++i) {
        const size_t end = rest.find('\0');
        if (i >= MAX_EVENTS || end == std::string_view::npos) {
            return false;
        }
        header.events.emplace_back(rest.substr(0, end));
        rest.remove_prefix(end + 1);
    }
    return rest.find_first_not_of('\0') == std::string_view::npos;
}

}  // namespace

std::string_view ChannelHeaderStart() { return {START, sizeof(START)}; }

uint32_t Little32(std::string_view bytes, size_t offset) {
    uint32_t wire = 0;
    memcpy(&wire, bytes.data() + offset, sizeof(wire));
    return le32toh(wire);
}

uint64_t Little64(std::string_view bytes, size_t offset) {
    uint64_t wire = 0;
    memcpy(&wire, bytes.data() + offset, sizeof(wire));
    return le64toh(wire);
}

HeaderParse ParseChannelHeader(std::string_view bytes, ChannelHeaderView& header) {
    const std::string_view start = ChannelHeaderStart();
    const size_t common = bytes.size() < start.size() ? bytes.size() : start.size();
    if (bytes.substr(0, common) != start.substr(0, common)) {
        return HeaderParse::NO_HEADER;
    }
    if (bytes.size() < LENGTH + sizeof(uint32_t)) {
        return HeaderParse::NEED_MORE;
    }
    header = ChannelHeaderView();
    header.bytes = Little32(bytes, LENGTH);
    if (header.bytes < EVENTS || header.bytes > MAX_BYTES || header.bytes % ALIGNMENT != 0) {
        return HeaderParse::NO_HEADER;
    }
    if (bytes.size() < header.bytes) {
        return HeaderParse::NEED_MORE;
    }
    bytes = bytes.substr(0, header.bytes);
    header.source = Little32(bytes, SOURCE);
    header.clock = Little32(bytes, CLOCK);
    header.periodMs = Little32(bytes, PERIOD);
    header.recordBytes = Little32(bytes, RECORD);
    header.channelId = Little32(bytes, CHANNEL);
    const std::string_view name = bytes.substr(NAME, NAME_BYTES);
    header.name = name.substr(0, name.find('\0'));
    const bool known = header.source >= 1 && header.source <= LAST_SOURCE;
    return known && ReadEvents(bytes, header) ? HeaderParse::READ : HeaderParse::NO_HEADER;
}

}  // namespace tiv::host
