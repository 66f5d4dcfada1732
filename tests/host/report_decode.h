// Takes the data of a report page apart, as the page's script does.
#pragma once

#include <zlib.h>

#include <cstdint>
#include <cstring>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace tiv::host {

inline std::string FromBase64(std::string_view text) {
    constexpr std::string_view DIGITS =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string bytes;
    uint32_t bits = 0;
    int held = 0;
    for (const char digit : text.substr(0, text.find('='))) {
        bits = bits << 6 | static_cast<uint32_t>(DIGITS.find(digit));
        held += 6;
        if (held >= 8) {
            held -= 8;
            bytes += static_cast<char>(bits >> held & 255);
        }
    }
    return bytes;
}

inline std::string Inflate(const std::string& packed) {
    for (size_t room = 128u << 10; room <= (64u << 20); room *= 2) {
        std::string bytes(room, '\0');
        uLongf length = room;
        const int result = uncompress(reinterpret_cast<Bytef*>(bytes.data()), &length,
                                      reinterpret_cast<const Bytef*>(packed.data()), packed.size());
        if (result == Z_OK) {
            bytes.resize(length);
            return bytes;
        }
        if (result != Z_BUF_ERROR) {
            break;
        }
    }
    throw std::runtime_error("no deflated data");
}

// A block with its JSON read and its columns at hand.
class DecodedPage {
 public:
    explicit DecodedPage(std::string_view encoded) : raw_(Inflate(FromBase64(encoded))) {
        uint32_t length = 0;
        std::memcpy(&length, raw_.data() + 8, sizeof(length));
        model = nlohmann::json::parse(raw_.substr(12, length));
        columns_ = (12 + length + 7) / 8 * 8;
    }

    [[nodiscard]] std::string Magic() const { return raw_.substr(0, 8); }

    template <class T>
    [[nodiscard]] std::vector<T> Column(const nlohmann::json& place) const {
        std::vector<T> values(place.at("n").get<size_t>());
        std::memcpy(values.data(), raw_.data() + columns_ + place.at("o").get<size_t>(),
                    values.size() * sizeof(T));
        return values;
    }

    // The section of that id; null when there is none.
    [[nodiscard]] nlohmann::json Section(const std::string& id) const {
        for (const auto& section : model.at("sections")) {
            if (section.at("id") == id) {
                return section;
            }
        }
        return nullptr;
    }

    nlohmann::json model;

 private:
    std::string raw_;
    size_t columns_ = 0;
};

}  // namespace tiv::host
