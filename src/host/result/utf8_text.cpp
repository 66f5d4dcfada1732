// Checking and mending of UTF-8.
#include "host/result/utf8_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>

namespace tiv::host {

namespace {

constexpr unsigned LAST_CODE_POINT = 0x10ffff;
constexpr unsigned FIRST_SURROGATE = 0xd800;
constexpr unsigned LAST_SURROGATE = 0xdfff;

unsigned ByteAt(std::string_view text, size_t index) {
    return static_cast<unsigned char>(text[index]);
}

bool IsContinuation(unsigned byte) { return (byte & 0xc0u) == 0x80u; }

// Bytes that a character takes whose first one is `lead`; 0 when none begins so.
size_t LengthOf(unsigned lead) {
    if (lead < 0x80) {
        return 1;
    }
    if (lead >= 0xc2 && lead <= 0xdf) {
        return 2;
    }
    if (lead >= 0xe0 && lead <= 0xef) {
        return 3;
    }
    return lead >= 0xf0 && lead <= 0xf4 ? 4 : 0;
}

// Bytes of the character at the front of `text`, which is not empty; 0 when there is none.
size_t CharacterAt(std::string_view text) {
    const unsigned lead = ByteAt(text, 0);
    const size_t length = LengthOf(lead);
    if (length <= 1) {
        return lead == 0 ? 0 : length;
    }
    if (text.size() < length) {
        return 0;
    }
    unsigned code = lead & (0xffu >> (length + 1));
    for (size_t i = 1; i < length; ++i) {
        if (!IsContinuation(ByteAt(text, i))) {
            return 0;
        }
        code = (code << 6) | (ByteAt(text, i) & 0x3fu);
    }
    const bool tooLong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    const bool surrogate = code >= FIRST_SURROGATE && code <= LAST_SURROGATE;
    return tooLong || surrogate || code > LAST_CODE_POINT ? 0 : length;
}

bool IsPlain(char c) { return static_cast<signed char>(c) > 0; }

// Bytes at the front of `text` that need no change.
size_t FitFront(std::string_view text) {
    size_t at = 0;
    while (at < text.size()) {
        const size_t length = IsPlain(text[at]) ? 1 : CharacterAt(text.substr(at));
        if (length == 0) {
            break;
        }
        at += length;
    }
    return at;
}

}  // namespace

std::string_view Utf8Text(std::string_view bytes, std::string& room) {
    size_t fit = FitFront(bytes);
    if (fit == bytes.size()) {
        return bytes;
    }
    room.clear();
    while (!bytes.empty()) {
        room.append(bytes.substr(0, fit));
        bytes.remove_prefix(fit);
        if (!bytes.empty()) {
            fmt::format_to(std::back_inserter(room), "\\x{:02x}", ByteAt(bytes, 0));
            bytes.remove_prefix(1);
        }
        fit = FitFront(bytes);
    }
    return room;
}

std::string_view Utf8Front(std::string_view text, size_t bytes) {
    size_t length = std::min(text.size(), bytes);
    while (length > 0 && length < text.size() && IsContinuation(ByteAt(text, length))) {
        --length;
    }
    return text.substr(0, length);
}

}  // namespace tiv::host
