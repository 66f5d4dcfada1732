// Text helpers: checks of text from outside, splitting, trimming, padding, a checksum.
#include <algorithm>
#include <array>
#include <cctype>

#include "common/utils.h"
#include "platform/log.h"

namespace analysis::rokt::common::utils {

namespace {

constexpr const char* MAX_INT_TEXT = "2147483647";
constexpr size_t MAX_INT_DIGITS = 10;
constexpr const char* PATH_CHARS =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
    "-=[];\\,./!@#$%^&*()_+{}:?";
constexpr uint32_t CRC_POLYNOMIAL = 0x82F63B78;
constexpr size_t CRC_TABLE_SIZE = 256;

constexpr std::array<uint32_t, CRC_TABLE_SIZE> MakeCrcTable() {
    std::array<uint32_t, CRC_TABLE_SIZE> table{};
    for (uint32_t index = 0; index < CRC_TABLE_SIZE; ++index) {
        uint32_t value = index;
        for (int bit = 0; bit < 8; ++bit) {
            value = (value & 1U) != 0 ? (value >> 1U) ^ CRC_POLYNOMIAL : value >> 1U;
        }
        table[index] = value;
    }
    return table;
}

constexpr std::array<uint32_t, CRC_TABLE_SIZE> CRC_TABLE = MakeCrcTable();

}  // namespace

bool Utils::CheckStringIsNonNegativeIntNum(const std::string& text) {
    if (text.empty()) {
        return false;
    }
    if (text.size() > MAX_INT_DIGITS) {
        TIV_LOGE("[Utils::CheckStringIsNonNegativeIntNum]numberStr(%s) is too long", text.c_str());
        return false;
    }
    if (text.find_first_not_of("0123456789") != std::string::npos) {
        TIV_LOGE("[Utils::CheckStringIsNonNegativeIntNum]numberStr(%s) is not a number",
                 text.c_str());
        return false;
    }
    if (text.size() == MAX_INT_DIGITS && text > MAX_INT_TEXT) {
        TIV_LOGE("[Utils::CheckStringIsNonNegativeIntNum]numberStr(%s) is over than %s",
                 text.c_str(), MAX_INT_TEXT);
        return false;
    }
    return true;
}

bool Utils::CheckPathChars(const std::string& path) {
    if (path.empty()) {
        TIV_LOGE("invalid parameter");
        return false;
    }
    const size_t bad = path.find_first_not_of(PATH_CHARS);
    if (bad != std::string::npos) {
        TIV_LOGW("invalid path %s in char : %c", BaseName(path).c_str(), path[bad]);
        return false;
    }
    return true;
}

std::vector<std::string> Utils::Split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    size_t begin = 0;
    while (begin < text.size()) {
        const size_t end = std::min(text.find(separator, begin), text.size());
        parts.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::string Utils::Join(const std::vector<std::string>& parts, const std::string& separator) {
    std::string text;
    for (size_t i = 0; i < parts.size(); ++i) {
        if (i > 0) {
            text += separator;
        }
        text += parts[i];
    }
    return text;
}

std::string Utils::TrimLeft(const std::string& text, const std::string& chars) {
    const size_t begin = text.find_first_not_of(chars);
    return begin == std::string::npos ? "" : text.substr(begin);
}

std::string Utils::TrimRight(const std::string& text, const std::string& chars) {
    const size_t last = text.find_last_not_of(chars);
    return last == std::string::npos ? "" : text.substr(0, last + 1);
}

std::string Utils::Trim(const std::string& text, const std::string& chars) {
    return TrimRight(TrimLeft(text, chars), chars);
}

std::string Utils::ToUpper(const std::string& text) {
    std::string upper = text;
    std::transform(upper.begin(), upper.end(), upper.begin(),
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

std::string Utils::ToLower(const std::string& text) {
    std::string lower = text;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string Utils::RemoveEndCharacter(const std::string& text, char ch) {
    return !text.empty() && text.back() == ch ? text.substr(0, text.size() - 1) : text;
}

std::string Utils::LeftPad(const std::string& text, size_t width) {
    if (text.size() > width) {
        TIV_LOGE("The length of input pid str is bigger than %d.", static_cast<int>(width));
        return text;
    }
    return std::string(width - text.size(), '0') + text;
}

uint32_t Utils::Hash32(const void* data, size_t length) {
    uint32_t value = UINT32_MAX;
    if (data == nullptr) {
        return value;
    }
    const auto* const bytes = static_cast<const unsigned char*>(data);
    for (size_t i = 0; i < length; ++i) {
        value = CRC_TABLE[(value ^ bytes[i]) & 0xFFU] ^ (value >> 8U);
    }
    return value;
}

}  // namespace analysis::rokt::common::utils
