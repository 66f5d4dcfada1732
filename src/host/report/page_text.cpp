// Making names fit for a page.
#include "host/report/page_text.h"

#include <fmt/format.h>

#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

constexpr unsigned long long NS_PER_SECOND = 1'000'000'000;
constexpr size_t CODE_BYTES = 3;  // of each character in TURNERS and of each line separator

bool IsControl(unsigned char byte) { return byte < 0x20 || byte == 0x7f; }

// The code point of a three-byte character at the front of `text` that directs its neighbours or
// ends the line; 0 for any other.
unsigned DirectingCharacter(std::string_view text) {
    if (text.size() < CODE_BYTES || text[0] != '\xe2') {
        return 0;
    }
    const auto second = static_cast<unsigned char>(text[1]);
    const auto third = static_cast<unsigned char>(text[2]);
    const unsigned code = 0x2000u | (second & 0x3fu) << 6 | (third & 0x3fu);
    const bool directs = (code >= 0x200b && code <= 0x200f) || (code >= 0x2028 && code <= 0x202e) ||
                         (code >= 0x2060 && code <= 0x2069);
    return directs ? code : 0;
}

}  // namespace

std::string PageText(std::string_view text, size_t maxBytes) {
    const std::string_view front = Utf8Front(text, maxBytes);
    std::string shown;
    for (size_t i = 0; i < front.size();) {
        const auto byte = static_cast<unsigned char>(front[i]);
        const unsigned code = DirectingCharacter(front.substr(i));
        if (code != 0) {
            shown += fmt::format("\\u{:04x}", code);
            i += CODE_BYTES;
        } else if (IsControl(byte)) {
            shown += fmt::format("\\x{:02x}", byte);
            ++i;
        } else {
            shown += front[i++];
        }
    }
    return front.size() < text.size() ? shown + "…" : shown;
}

std::string ClockText(unsigned long long timeNs) {
    return fmt::format("{}.{:09} s", timeNs / NS_PER_SECOND, timeNs % NS_PER_SECOND);
}

}  // namespace tiv::host
