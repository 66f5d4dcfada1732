// Reads the header that a driver channel's source puts in front of its bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tiv::host {

struct ChannelHeaderView {
    size_t bytes = 0;  // of the header; the source's bytes begin behind it
    uint32_t source = 0;
    uint32_t clock = 0;
    uint32_t periodMs = 0;
    uint32_t recordBytes = 0;
    uint32_t channelId = 0;
    std::string name;
    std::vector<std::string> events;
};

// The first bytes of every header: its magic and its version.
[[nodiscard]] std::string_view ChannelHeaderStart();

enum class HeaderParse { READ, NEED_MORE, NO_HEADER };

// Reads the header at the front of `bytes`. NEED_MORE: it may be one, and its end is not there yet.
[[nodiscard]] HeaderParse ParseChannelHeader(std::string_view bytes, ChannelHeaderView& header);

// The little-endian numbers of which headers and records are made; `offset` lies within `bytes`.
[[nodiscard]] uint32_t Little32(std::string_view bytes, size_t offset);
[[nodiscard]] uint64_t Little64(std::string_view bytes, size_t offset);

}  // namespace tiv::host
