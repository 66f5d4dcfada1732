// The data of a report page in the form in which it travels inside the page.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace tiv::host {

// Gathers numeric columns and puts them, with the JSON that refers to them, into one block:
//
//   "TIVPAGE1" | u32 bytes of JSON | JSON | zeros up to a multiple of 8 | columns
//
// Numbers are little-endian; each column begins at a multiple of 8. In the JSON a column stands as
// {"t": type, "o": offset from the first column, "n": entries}.
class PageBlock {
 public:
    // NaN stands for what was not measured. Values are rounded to about five digits, which halves
    // their compressed size.
    [[nodiscard]] nlohmann::ordered_json AddFloats(const std::vector<float>& values);
    [[nodiscard]] nlohmann::ordered_json AddNumbers(const std::vector<uint32_t>& values);
    [[nodiscard]] nlohmann::ordered_json AddBytes(const std::vector<uint8_t>& values);

    // The whole block, deflated with a zlib header and written as base64.
    [[nodiscard]] std::string Encode(const nlohmann::ordered_json& model) const;

    // The whole block as it is.
    [[nodiscard]] std::string Raw(const nlohmann::ordered_json& model) const;

 private:
    nlohmann::ordered_json Append(const char* type, const void* data, size_t entries,
                                  size_t entryBytes);

    std::string columns_;
};

// Base64 with padding.
[[nodiscard]] std::string Base64(std::string_view bytes);

// zlib format. Throws std::runtime_error when there is no memory for it.
[[nodiscard]] std::string Deflate(std::string_view bytes);

}  // namespace tiv::host
