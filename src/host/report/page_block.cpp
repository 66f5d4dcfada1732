// Building and encoding of a page's data.
#include "host/report/page_block.h"

#include <zlib.h>

#include <cmath>
#include <cstring>
#include <new>

namespace tiv::host {

namespace {

using nlohmann::ordered_json;

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "columns are written as they lie");

constexpr std::string_view MAGIC = "TIVPAGE1";
constexpr size_t ALIGNMENT = 8;
constexpr uint32_t DROPPED_BITS = 0xff;  // of a float's 23 bits behind the point
constexpr int COMPRESSION_LEVEL = 6;

void Align(std::string& bytes) {
    bytes.resize((bytes.size() + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT);
}

float Rounded(float value) {
    if (!std::isfinite(value)) {
        return std::nanf("");
    }
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    bits = (bits + DROPPED_BITS / 2 + 1) & ~DROPPED_BITS;
    std::memcpy(&value, &bits, sizeof(bits));
    return std::isfinite(value) ? value : std::nanf("");
}

}  // namespace

ordered_json PageBlock::Append(const char* type, const void* data, size_t entries,
                               size_t entryBytes) {
    const size_t offset = columns_.size();
    columns_.append(static_cast<const char*>(data), entries * entryBytes);
    Align(columns_);
    return {{"t", type}, {"o", offset}, {"n", entries}};
}

ordered_json PageBlock::AddFloats(const std::vector<float>& values) {
    std::vector<float> rounded;
    rounded.reserve(values.size());
    for (const float value : values) {
        rounded.push_back(Rounded(value));
    }
    return Append("f4", rounded.data(), rounded.size(), sizeof(float));
}

ordered_json PageBlock::AddNumbers(const std::vector<uint32_t>& values) {
    return Append("u4", values.data(), values.size(), sizeof(uint32_t));
}

ordered_json PageBlock::AddBytes(const std::vector<uint8_t>& values) {
    return Append("u1", values.data(), values.size(), sizeof(uint8_t));
}

std::string PageBlock::Raw(const ordered_json& model) const {
    const std::string text = model.dump(-1, ' ', false, ordered_json::error_handler_t::replace);
    const auto length = static_cast<uint32_t>(text.size());
    std::string block(MAGIC);
    block.append(reinterpret_cast<const char*>(&length), sizeof(length));
    block += text;
    Align(block);
    return block + columns_;
}

std::string PageBlock::Encode(const ordered_json& model) const {
    return Base64(Deflate(Raw(model)));
}

std::string Base64(std::string_view bytes) {
    constexpr char DIGITS[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (size_t i = 0; i < bytes.size(); i += 3) {
        const size_t have = std::min<size_t>(3, bytes.size() - i);
        uint32_t group = 0;
        for (size_t j = 0; j < 3; ++j) {
            group = group << 8 | (j < have ? static_cast<unsigned char>(bytes[i + j]) : 0u);
        }
        for (size_t j = 0; j < 4; ++j) {
            text += j <= have ? DIGITS[group >> (18 - 6 * j) & 63] : '=';
        }
    }
    return text;
}

std::string Deflate(std::string_view bytes) {
    std::string packed(compressBound(bytes.size()), '\0');
    uLongf length = packed.size();
    const int result =
        compress2(reinterpret_cast<Bytef*>(packed.data()), &length,
                  reinterpret_cast<const Bytef*>(bytes.data()), bytes.size(), COMPRESSION_LEVEL);
    if (result != Z_OK) {
        throw std::bad_alloc();  // there is room for the result, but not for zlib's own tables
    }
    packed.resize(length);
    return packed;
}

}  // namespace tiv::host
