// The bytes of a driver channel, as its source writes them.
#pragma once

#include <endian.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tiv::test {

template <class Number>
std::string Little(Number number) {
    if constexpr (sizeof(Number) == sizeof(uint64_t)) {
        number = htole64(number);
    } else {
        number = htole32(number);
    }
    return {reinterpret_cast<const char*>(&number), sizeof(number)};
}

// `source`: 1 perf, 2 counter, 3 replay.
inline std::string Header(uint32_t source, const std::vector<std::string>& events,
                          uint32_t recordBytes) {
    std::string name = "software events";
    name.resize(32);
    std::string tail = name + Little(static_cast<uint32_t>(events.size()));
    for (const std::string& event : events) {
        tail += event + '\0';
    }
    tail.resize((32 + tail.size() + 7) / 8 * 8 - 32);
    return "TIVC" + Little(1u) + Little(static_cast<uint32_t>(32 + tail.size())) + Little(source) +
           Little(source == 1 ? 4u : 0u) + Little(20u) + Little(recordBytes) + Little(8u) + tail;
}

inline std::string PerfHeader() { return Header(1, {"page-faults", "switches"}, 24); }

inline std::string Count(uint64_t time, uint32_t event, uint32_t core, uint64_t count) {
    return Little(time) + Little(event) + Little(core) + Little(count);
}

inline std::string Numbers(uint64_t first, uint64_t count) {
    std::string bytes;
    for (uint64_t i = 0; i < count; ++i) {
        bytes += Little(first + i);
    }
    return bytes;
}

}  // namespace tiv::test
