// Widths of characters.
#include "host/live/cell_text.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdlib>
#include <iterator>

#include "host/result/utf8_text.h"

namespace tiv::host {

namespace {

struct Range {
    uint32_t first;
    uint32_t last;
};

// Letters and signs that take one column everywhere. Ranges with combining marks between them are
// cut around these.
constexpr Range NARROW[] = {
    {0x20, 0x7e},     {0xa1, 0xac},     {0xae, 0x2ff},    {0x370, 0x377},   {0x37a, 0x37f},
    {0x384, 0x482},   {0x48a, 0x52f},   {0x531, 0x556},   {0x561, 0x587},   {0x10a0, 0x10ff},
    {0x1e00, 0x1fff}, {0x2010, 0x2027}, {0x2030, 0x205e}, {0x20a0, 0x20bf}, {0x2100, 0x218b},
    {0x2190, 0x2319}, {0x231c, 0x2328}, {0x2500, 0x25fc}, {0x2800, 0x28ff},
};

// Ideographs, kana, Hangul syllables and full-width forms.
constexpr Range WIDE[] = {
    {0x1100, 0x115f}, {0x2e80, 0x2fd5}, {0x3001, 0x3029},   {0x3030, 0x303e},   {0x3041, 0x3096},
    {0x309b, 0x30ff}, {0x3105, 0x312f}, {0x3131, 0x318e},   {0x3190, 0x31e3},   {0x31f0, 0x321e},
    {0x3220, 0x3247}, {0x3250, 0x4dbf}, {0x4e00, 0xa48c},   {0xac00, 0xd7a3},   {0xf900, 0xfaff},
    {0xff01, 0xff60}, {0xffe0, 0xffe6}, {0x20000, 0x2fffd}, {0x30000, 0x3fffd},
};

template <size_t N>
bool Lies(uint32_t code, const Range (&ranges)[N]) {
    return std::any_of(std::begin(ranges), std::end(ranges), [code](const Range& range) {
        return code >= range.first && code <= range.last;
    });
}

struct Character {
    uint32_t code = 0;
    size_t bytes = 1;
};

// The first character of `text`, which is UTF-8 and not empty.
Character FirstOf(std::string_view text) {
    const auto lead = static_cast<unsigned char>(text.front());
    if (lead < 0x80) {
        return {lead, 1};
    }
    const size_t bytes = lead < 0xe0 ? 2 : lead < 0xf0 ? 3 : 4;
    uint32_t code = lead & (0xffu >> (bytes + 1));
    for (size_t i = 1; i < bytes; ++i) {
        code = (code << 6) | (static_cast<unsigned char>(text[i]) & 0x3fu);
    }
    return {code, bytes};
}

// One character as it is shown.
CellText Shown(const Character& character, std::string_view bytes, Charset charset) {
    const uint32_t code = character.code;
    if ((charset == Charset::UTF8 || code < 0x80) && Lies(code, NARROW)) {
        return {std::string(bytes), 1};
    }
    if (charset == Charset::UTF8 && Lies(code, WIDE)) {
        return {std::string(bytes), 2};
    }
    CellText shown;
    shown.text = code < 0x80 ? fmt::format("\\x{:02x}", code) : fmt::format("\\u{{{:x}}}", code);
    shown.columns = shown.text.size();
    return shown;
}

bool NamesUtf8(const char* locale) {
    std::string name(locale);
    std::transform(name.begin(), name.end(), name.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return name.find("utf-8") != std::string::npos || name.find("utf8") != std::string::npos;
}

}  // namespace

Charset LocaleCharset() {
    for (const char* variable : {"LC_ALL", "LC_CTYPE", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value != nullptr && *value != '\0') {
            return NamesUtf8(value) ? Charset::UTF8 : Charset::ASCII;
        }
    }
    return Charset::ASCII;
}

CellText FitCells(std::string_view bytes, size_t columns, Charset charset) {
    std::string room;
    std::string_view rest = Utf8Text(bytes, room);
    CellText fit;
    CellText whole;  // with what stands in the column of the mark
    while (!rest.empty()) {
        const Character character = FirstOf(rest);
        const CellText shown = Shown(character, rest.substr(0, character.bytes), charset);
        if (whole.columns + shown.columns > columns) {
            fit.text += columns == 0 ? "" : charset == Charset::UTF8 ? "…" : "~";
            fit.columns += columns == 0 ? 0 : 1;
            return fit;
        }
        whole.text += shown.text;
        whole.columns += shown.columns;
        if (whole.columns < columns) {
            fit = whole;
        }
        rest.remove_prefix(character.bytes);
    }
    return whole;
}

}  // namespace tiv::host
